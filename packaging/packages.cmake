# Packages: a zip with both programs for Windows, a .deb here.
set(CPACK_PACKAGE_NAME kadrix)
set(CPACK_PACKAGE_VENDOR kadrix)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "inspects and changes IPv4 addresses of network adapters")
set(CPACK_VERBATIM_VARIABLES ON)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(width x64)
    # The 32-bit program comes along when it was built.
    set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};kadrix;ALL;/")
    if(EXISTS ${PROJECT_SOURCE_DIR}/build/windows-x86/src)
      list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${PROJECT_SOURCE_DIR}/build/windows-x86 kadrix ALL /)
    endif()
  else()
    set(width x86)
  endif()
  install(TARGETS kadrix RUNTIME DESTINATION ${width})
  install(FILES README.md DESTINATION .)
  install(DIRECTORY docs DESTINATION . FILES_MATCHING PATTERN "*.md" PATTERN "*.cfg")
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "kadrix <kadrix@localhost>")
  set(CPACK_DEBIAN_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36), libmnl0")
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS libedit2)
  set(CPACK_PACKAGE_DESCRIPTION
      "kadrix is a console tool with which the operator of a network simulation
sees what a host offers, adds and removes IPv4 addresses by hand, and loads
the host's address management for hours. It refuses to touch what others
configured, and says exactly why something failed.

It works on a simulated Windows host, or on the addresses of this machine.")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
      OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  install(TARGETS kadrix RUNTIME DESTINATION bin)
  # Compressed as the system's policy wants them, without names and times.
  foreach(file IN ITEMS docs/kadrix.1 packaging/changelog)
    get_filename_component(name ${file} NAME)
    set(compressed ${CMAKE_BINARY_DIR}/${name}.gz)
    add_custom_command(OUTPUT ${compressed} DEPENDS ${PROJECT_SOURCE_DIR}/${file}
                       COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${file} > ${compressed})
    list(APPEND all_compressed ${compressed})
  endforeach()
  add_custom_target(compressed ALL DEPENDS ${all_compressed})
  install(FILES ${CMAKE_BINARY_DIR}/kadrix.1.gz DESTINATION share/man/man1)
  install(FILES ${CMAKE_BINARY_DIR}/changelog.gz packaging/copyright DESTINATION share/doc/kadrix)
  install(FILES packaging/kadrix.bash DESTINATION share/bash-completion/completions RENAME kadrix)
  install(DIRECTORY hosts DESTINATION share/kadrix FILES_MATCHING PATTERN "*.toml")
  install(FILES README.md DESTINATION share/doc/kadrix)
  install(DIRECTORY docs DESTINATION share/doc/kadrix FILES_MATCHING PATTERN "*.md" PATTERN "*.cfg" PATTERN "*.svg")
endif()
include(CPack)
