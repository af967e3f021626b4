# Read when the archive is made: both programs go in, in whichever order they were built.
set(CPACK_INSTALL_CMAKE_PROJECTS)
foreach(width IN ITEMS x64 x86)
  if(NOT EXISTS ${CPACK_KADRIX_BUILDS}/windows-${width}/src/kadrix.exe)
    message(FATAL_ERROR "The ${width} program is not built; tools/package builds both.")
  endif()
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${CPACK_KADRIX_BUILDS}/windows-${width} kadrix ALL /)
endforeach()
