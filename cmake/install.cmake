# The package that other projects find: headers, libraries, the command line, CMake and pkg-config
# files, the Python package, manual pages. Headers that only the library itself includes stay here.
# The components are the Debian packages of package.cmake.
include(CMakePackageConfigHelpers)

set(public_headers
  engine/mail_engine.h
  facade/automation_exception.h facade/basic_interface.h facade/mail_user.h facade/web_interface.h
  frame/any.h frame/boss_object.h frame/database.h frame/enumerations.h frame/error_numbers.h
  frame/error_state.h frame/errors.def frame/keyed_collection.h frame/registry.h frame/schema.h
  korvane.h
  message/mail_message.h message/mail_messages.h
  mime/content_fields.h mime/mail_attachment.h mime/mail_attachments.h mime/multipart_entity.h
  mime/uu_attachment.h
  pop3/mail_server.h pop3/message_traits.h pop3/new_messages.h pop3/replies.h pop3/reply_shape.h
  pop3/selection_progress.h pop3/server_link.h)
foreach(header ${public_headers})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES src/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/korvane/${folder}
          COMPONENT development)
endforeach()
install(FILES include/Tarsel_MailConversions.h include/korvane_automation.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(TARGETS korvane Tarsel_MailConversions EXPORT korvane_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries
                NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT libraries)
install(TARGETS korvane_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/korvane)
install(EXPORT korvane_targets NAMESPACE korvane:: DESTINATION ${package_folder}
        COMPONENT development)
configure_package_config_file(cmake/korvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/korvaneConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/korvaneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/korvaneConfig.cmake
              ${PROJECT_BINARY_DIR}/package/korvaneConfigVersion.cmake
        DESTINATION ${package_folder} COMPONENT development)

configure_file(cmake/korvane.pc.in ${PROJECT_BINARY_DIR}/package/korvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/korvane.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

set(KORVANE_PYTHON_DIR lib/python3/dist-packages CACHE STRING
    "Where the Python package goes below the prefix")
install(DIRECTORY automation/python/korvane DESTINATION ${KORVANE_PYTHON_DIR} COMPONENT python
        FILES_MATCHING PATTERN "*.py")

install(FILES schema/sqlite.sql schema/postgresql.sql schema/mariadb.sql
        DESTINATION ${CMAKE_INSTALL_DATADIR}/korvane/schema COMPONENT programs)
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT programs)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT programs)
