# The libraries. Each folder of src/ is one static layer that links only the layers below it, so a
# call in the wrong direction does not link; the tests of a folder link its layer. The two shared
# libraries that are installed are made of these. On Windows the layers go into the automation
# server instead, which is handed its database connection and brings no client library.
find_package(Threads REQUIRED)
if(WIN32)
  set(tls_libraries ws2_32 secur32 crypt32)
  set(database_libraries)
  set(other_platforms_files _posix)
else()
  find_package(OpenSSL REQUIRED)
  find_package(SQLite3 REQUIRED)
  find_package(PostgreSQL REQUIRED)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(MARIADB REQUIRED IMPORTED_TARGET libmariadb)
  set(tls_libraries OpenSSL::SSL OpenSSL::Crypto)
  pkg_check_modules(ODBC REQUIRED IMPORTED_TARGET odbc)
  set(database_libraries SQLite::SQLite3 PostgreSQL::PostgreSQL PkgConfig::MARIADB PkgConfig::ODBC)
  set(other_platforms_files _windows)
endif()

# The sources of folders, without what is another platform's.
function(korvane_sources variable)
  list(TRANSFORM ARGN APPEND /*.cpp)
  file(GLOB sources CONFIGURE_DEPENDS ${ARGN})
  list(FILTER sources EXCLUDE REGEX "${other_platforms_files}\\.cpp$")
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()

# The companion: conversions and sockets, a plain C interface and nothing else exported.
korvane_sources(companion_sources
  ${PROJECT_SOURCE_DIR}/src/mime/conversions ${PROJECT_SOURCE_DIR}/src/pop3/sockets)
add_library(korvane_companion_objects OBJECT ${companion_sources})
target_include_directories(korvane_companion_objects PUBLIC
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(korvane_companion_objects PRIVATE TARSEL_MAILCONVERSIONS_BUILD)
target_link_libraries(korvane_companion_objects PRIVATE ${tls_libraries})
if(NOT WIN32)
  set_target_properties(korvane_companion_objects PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endif()
add_library(Tarsel_MailConversions SHARED $<TARGET_OBJECTS:korvane_companion_objects>)
target_include_directories(Tarsel_MailConversions PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
target_link_libraries(Tarsel_MailConversions PRIVATE ${tls_libraries} Threads::Threads)
if(WIN32)
  # The callers' compilers keep the stack 16 bytes aligned only, so vectors of 32 are moved as
  # unaligned ones wherever they are put.
  target_compile_options(korvane_companion_objects PRIVATE -Wa,-muse-unaligned-vector-move)
  set_target_properties(Tarsel_MailConversions PROPERTIES PREFIX "")
  # On x86 too the functions are exported by their bare names.
  target_link_options(Tarsel_MailConversions PRIVATE -Wl,--kill-at)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # The linker's own import library knows the bare names only, for which no compiler asks.
    add_custom_command(TARGET Tarsel_MailConversions POST_BUILD VERBATIM
      COMMAND ${CMAKE_DLLTOOL} --kill-at -l $<TARGET_LINKER_FILE:Tarsel_MailConversions>
              -d ${PROJECT_SOURCE_DIR}/cmake/companion_imports_x86.def)
  endif()
else()
  target_link_options(Tarsel_MailConversions PRIVATE -static-libstdc++ -static-libgcc
    -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/companion_exports.map)
  set_target_properties(Tarsel_MailConversions PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION 0 INSTALL_RPATH $ORIGIN)
endif()
# What the shared library hides, for the tests and fuzz targets that look inside. Linked behind the
# shared library it adds the inner parts only: the ten functions still come from there.
add_library(korvane_companion_parts STATIC EXCLUDE_FROM_ALL
            $<TARGET_OBJECTS:korvane_companion_objects>)
target_include_directories(korvane_companion_parts PUBLIC
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(korvane_companion_parts PUBLIC ${tls_libraries} Threads::Threads)

function(korvane_layer name)
  cmake_parse_arguments(LAYER "" "" "SOURCES;LINKS;PRIVATE" ${ARGN})
  add_library(korvane_${name}_objects OBJECT ${LAYER_SOURCES})
  target_include_directories(korvane_${name}_objects PUBLIC
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(korvane_${name}_objects PRIVATE ${LAYER_PRIVATE})
  add_library(korvane_${name} STATIC $<TARGET_OBJECTS:korvane_${name}_objects>)
  target_include_directories(korvane_${name} PUBLIC
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(korvane_${name} PUBLIC ${LAYER_LINKS} PRIVATE ${LAYER_PRIVATE})
endfunction()

foreach(folder frame mime message pop3 maintenance engine facade)
  korvane_sources(${folder}_sources ${PROJECT_SOURCE_DIR}/src/${folder})
endforeach()
if(WIN32)
  # What opens databases by URL: the page does that there, and hands its connection in.
  list(FILTER frame_sources EXCLUDE REGEX "/(database|schema|odbc_[a-z]+|driver_[a-z]+)\\.cpp$")
endif()
if(NOT WIN32)
  include(cmake/schema.cmake)
endif()
# MailUser sits among the facades but is what every layer reads; it needs the frame only.
set(user_sources ${PROJECT_SOURCE_DIR}/src/facade/mail_user.cpp)
list(REMOVE_ITEM facade_sources ${user_sources})

korvane_layer(frame SOURCES ${frame_sources} LINKS Tarsel_MailConversions Threads::Threads
              PRIVATE ${database_libraries})
korvane_layer(user SOURCES ${user_sources} LINKS korvane_frame)
korvane_layer(mime SOURCES ${mime_sources} LINKS korvane_user)
korvane_layer(message SOURCES ${message_sources} LINKS korvane_mime)
korvane_layer(pop3 SOURCES ${pop3_sources} LINKS korvane_message)
korvane_layer(maintenance SOURCES ${maintenance_sources} LINKS korvane_message)
korvane_layer(engine SOURCES ${engine_sources} LINKS korvane_pop3 korvane_maintenance)
korvane_layer(facade SOURCES ${facade_sources} LINKS korvane_engine)

if(WIN32)
  return()
endif()
set(KORVANE_LAYERS frame user mime message pop3 maintenance engine facade)
list(TRANSFORM KORVANE_LAYERS REPLACE "(.+)" "$<TARGET_OBJECTS:korvane_\\1_objects>"
     OUTPUT_VARIABLE layer_objects)
add_library(korvane SHARED ${layer_objects})
add_library(korvane::korvane ALIAS korvane)
target_link_libraries(korvane PRIVATE Tarsel_MailConversions Threads::Threads ${database_libraries})
target_include_directories(korvane PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:include>)
target_compile_features(korvane PUBLIC cxx_std_20)
set_target_properties(korvane PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0
  INSTALL_RPATH $ORIGIN)
