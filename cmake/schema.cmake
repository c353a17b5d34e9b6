# The scripts of schema/ become part of the library, so that an installed program needs no files.
foreach(engine sqlite postgresql mariadb)
  string(TOUPPER ${engine} variable)
  file(READ ${PROJECT_SOURCE_DIR}/schema/${engine}.sql SCHEMA_${variable})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
               ${PROJECT_SOURCE_DIR}/schema/${engine}.sql)
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/schema_texts.cpp.in
               ${PROJECT_BINARY_DIR}/schema_texts.cpp @ONLY)
list(APPEND frame_sources ${PROJECT_BINARY_DIR}/schema_texts.cpp)
