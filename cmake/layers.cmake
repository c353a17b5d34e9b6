# The libraries. Each folder of src/ is one static layer that links only the layers below it, so a
# call in the wrong direction does not link; the tests of a folder link its layer. The two shared
# libraries that are installed are made of these.
find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(PostgreSQL REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(MARIADB REQUIRED IMPORTED_TARGET libmariadb)

# The companion: conversions and sockets, a plain C interface and nothing else exported.
file(GLOB companion_sources CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/src/mime/conversions/*.cpp ${PROJECT_SOURCE_DIR}/src/pop3/sockets/*.cpp)
add_library(korvane_companion_objects OBJECT ${companion_sources})
target_include_directories(korvane_companion_objects PUBLIC
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(korvane_companion_objects PRIVATE TARSEL_MAILCONVERSIONS_BUILD)
target_link_libraries(korvane_companion_objects PRIVATE OpenSSL::SSL OpenSSL::Crypto)
set_target_properties(korvane_companion_objects PROPERTIES
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
add_library(Tarsel_MailConversions SHARED $<TARGET_OBJECTS:korvane_companion_objects>)
target_include_directories(Tarsel_MailConversions PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
target_link_libraries(Tarsel_MailConversions PRIVATE OpenSSL::SSL OpenSSL::Crypto Threads::Threads)
target_link_options(Tarsel_MailConversions PRIVATE -static-libstdc++ -static-libgcc)
target_link_options(Tarsel_MailConversions PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/companion_exports.map)
set_target_properties(Tarsel_MailConversions PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION 0 INSTALL_RPATH $ORIGIN)
# What the shared library hides, for the tests and fuzz targets that look inside. Linked behind the
# shared library it adds the inner parts only: the ten functions still come from there.
add_library(korvane_companion_parts STATIC EXCLUDE_FROM_ALL
            $<TARGET_OBJECTS:korvane_companion_objects>)
target_include_directories(korvane_companion_parts PUBLIC
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(korvane_companion_parts PUBLIC OpenSSL::SSL OpenSSL::Crypto Threads::Threads)

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
  file(GLOB ${folder}_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${folder}/*.cpp)
endforeach()
include(cmake/schema.cmake)
# MailUser sits among the facades but is what every layer reads; it needs the frame only.
set(user_sources ${PROJECT_SOURCE_DIR}/src/facade/mail_user.cpp)
list(REMOVE_ITEM facade_sources ${user_sources})

korvane_layer(frame SOURCES ${frame_sources} LINKS Tarsel_MailConversions Threads::Threads
              PRIVATE SQLite::SQLite3 PostgreSQL::PostgreSQL PkgConfig::MARIADB)
korvane_layer(user SOURCES ${user_sources} LINKS korvane_frame)
korvane_layer(mime SOURCES ${mime_sources} LINKS korvane_user)
korvane_layer(message SOURCES ${message_sources} LINKS korvane_mime)
korvane_layer(pop3 SOURCES ${pop3_sources} LINKS korvane_message)
korvane_layer(maintenance SOURCES ${maintenance_sources} LINKS korvane_message)
korvane_layer(engine SOURCES ${engine_sources} LINKS korvane_pop3 korvane_maintenance)
korvane_layer(facade SOURCES ${facade_sources} LINKS korvane_engine)

set(KORVANE_LAYERS frame user mime message pop3 maintenance engine facade)
list(TRANSFORM KORVANE_LAYERS REPLACE "(.+)" "$<TARGET_OBJECTS:korvane_\\1_objects>"
     OUTPUT_VARIABLE layer_objects)
add_library(korvane SHARED ${layer_objects})
add_library(korvane::korvane ALIAS korvane)
target_link_libraries(korvane PRIVATE Tarsel_MailConversions Threads::Threads
                      SQLite::SQLite3 PostgreSQL::PostgreSQL PkgConfig::MARIADB)
target_include_directories(korvane PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:include>)
target_compile_features(korvane PUBLIC cxx_std_20)
set_target_properties(korvane PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0
  INSTALL_RPATH $ORIGIN)
