# The Debian packages: scripts/package builds the preset package, whose prefix is /usr, and runs cpack
# there. One package a component of install.cmake.
find_program(KORVANE_DPKG dpkg)
find_program(KORVANE_GZIP gzip)
if(NOT KORVANE_DPKG OR NOT KORVANE_GZIP OR WIN32)
  return()
endif()
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(documents ${PROJECT_BINARY_DIR}/package)

# Compressed without a name and a time in it, so that the same sources give the same package.
function(compressed source target)
  execute_process(COMMAND ${KORVANE_GZIP} -9nc ${source} OUTPUT_FILE ${target}
                  COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
endfunction()
compressed(${debian}/changelog ${documents}/changelog.gz)
compressed(${PROJECT_SOURCE_DIR}/docs/man/korvane.1 ${documents}/korvane.1.gz)
compressed(${PROJECT_SOURCE_DIR}/docs/man/korvane-site.8 ${documents}/korvane-site.8.gz)
install(FILES ${documents}/korvane.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT programs)
if(TARGET korvane-site)
  install(FILES ${documents}/korvane-site.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8
          COMPONENT site)
endif()

include(CPackComponent)
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL)
# korvane_package(COMPONENT PACKAGE SECTION [DEPENDS component...] SUMMARY text DESCRIPTION text)
function(korvane_package component package section)
  cmake_parse_arguments(PACKAGE "" "SUMMARY;DESCRIPTION" "DEPENDS" ${ARGN})
  string(TOUPPER ${component} name)
  set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_FILE_NAME DEB-DEFAULT PARENT_SCOPE)
  set(CPACK_COMPONENT_${name}_DESCRIPTION "${PACKAGE_SUMMARY}\n${PACKAGE_DESCRIPTION}"
      PARENT_SCOPE)
  set(CPACK_COMPONENT_${name}_DEPENDS ${PACKAGE_DEPENDS} PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES ${debian}/copyright ${documents}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()

korvane_package(libraries libkorvane0 libs
  SUMMARY "back end of a web mail site - libraries"
  DESCRIPTION "Keeps a local copy of the POP3 mailboxes of a mail site's users and hands
its pages lists, messages, bodies and attachments. This package has the
component library and the library of conversions and sockets below it.")
korvane_package(development libkorvane-dev libdevel DEPENDS libraries
  SUMMARY "back end of a web mail site - headers"
  DESCRIPTION "Headers, CMake and pkg-config files for programs in C++ and C that use the
component library of Korvane.")
korvane_package(programs korvane mail DEPENDS libraries
  SUMMARY "local copies of POP3 mailboxes - command line"
  DESCRIPTION "The command line of Korvane: sets an installation up, downloads the mail
of POP3 accounts, lists, shows, deletes, writes and exports it, and keeps
the store in order. With the documentation and the scripts of the tables.")
korvane_package(python python3-korvane python DEPENDS libraries
  SUMMARY "back end of a web mail site - Python package"
  DESCRIPTION "The objects of Korvane for pages and scripts in Python 3.")
if(TARGET korvane-site)
  korvane_package(site korvane-site web DEPENDS programs
    SUMMARY "small mail site over Korvane"
    DESCRIPTION "A small, complete mail site: server-rendered pages over the component
library of Korvane. With a unit for systemd and a sample configuration for
nginx. The mail that the site holds stays when the package is removed.")
endif()

set(CPACK_PACKAGE_NAME korvane)
set(CPACK_PACKAGE_VENDOR Korvane)
set(CPACK_PACKAGE_CONTACT "The Korvane authors <authors@korvane.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SOURCE korvane)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any (>= 3.9)")
set(CPACK_DEBIAN_SITE_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_SITE_PACKAGE_SUGGESTS nginx)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${debian}/libkorvane0/triggers)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${debian}/python3-korvane/postinst ${debian}/python3-korvane/prerm)
set(CPACK_DEBIAN_SITE_PACKAGE_CONTROL_EXTRA
    ${debian}/korvane-site/postinst ${debian}/korvane-site/prerm ${debian}/korvane-site/postrm)
include(CPack)
