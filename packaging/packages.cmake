# What the packages hold: the archive for Windows with both programs, and the .deb here. tools/package
# makes them.

set(CPACK_PACKAGE_NAME kadrix)
set(CPACK_PACKAGE_VENDOR kadrix)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)

if(WIN32)
  configure_file(packaging/windows/kadrix.rc.in ${CMAKE_BINARY_DIR}/kadrix.rc @ONLY)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME kadrix-${PROJECT_VERSION}-windows)
  # Whichever widths were built when the archive is made.
  set(CPACK_KADRIX_BUILDS ${PROJECT_SOURCE_DIR}/build)
  set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/windows/both-widths.cmake)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    install(TARGETS kadrix RUNTIME DESTINATION x64)
  else()
    install(TARGETS kadrix RUNTIME DESTINATION x86)
  endif()
  # Texts whose lines end as the platform's editors want them.
  foreach(pair IN ITEMS docs/windows.md=README.md packaging/windows/LICENCE.txt=LICENCE.txt)
    string(REPLACE "=" ";" pair ${pair})
    list(GET pair 0 source)
    list(GET pair 1 name)
    configure_file(${source} ${CMAKE_BINARY_DIR}/texts/${name} @ONLY NEWLINE_STYLE CRLF)
    install(FILES ${CMAKE_BINARY_DIR}/texts/${name} DESTINATION .)
  endforeach()
else()
  include(GNUInstallDirs)
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "kadrix <kadrix@localhost>")
  set(CPACK_DEBIAN_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
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
  configure_file(docs/kadrix.1 ${CMAKE_BINARY_DIR}/kadrix.1 @ONLY)
  configure_file(packaging/changelog ${CMAKE_BINARY_DIR}/changelog @ONLY)
  string(CONCAT COPYRIGHT_FORMAT "https://www."
                                 "debian.org/doc/packaging-manuals/copyright-format/1.0/")
  configure_file(packaging/copyright ${CMAKE_BINARY_DIR}/copyright @ONLY)
  foreach(name IN ITEMS kadrix.1 changelog)
    set(compressed ${CMAKE_BINARY_DIR}/${name}.gz)
    add_custom_command(OUTPUT ${compressed} DEPENDS ${CMAKE_BINARY_DIR}/${name}
                       COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/${name} > ${compressed} VERBATIM)
    list(APPEND all_compressed ${compressed})
  endforeach()
  add_custom_target(compressed ALL DEPENDS ${all_compressed})
  install(FILES ${CMAKE_BINARY_DIR}/kadrix.1.gz DESTINATION share/man/man1)
  install(FILES ${CMAKE_BINARY_DIR}/changelog.gz ${CMAKE_BINARY_DIR}/copyright DESTINATION share/doc/kadrix)
  install(FILES packaging/kadrix.bash DESTINATION share/bash-completion/completions RENAME kadrix)
  install(DIRECTORY hosts DESTINATION share/kadrix FILES_MATCHING PATTERN "*.toml")
  install(FILES docs/using.md docs/host-descriptions.md docs/live-host.md docs/many-machines.md
                docs/addresses.yml
          DESTINATION share/doc/kadrix)
endif()
include(CPack)
