# The Windows libraries as Windows programs use them, under Wine: objects and a host for scripts that
# are the tests' own, and one test for each page of pages/ and for each *_test.py here.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

add_library(korvane_windows_support STATIC support/late_bound.cpp support/variant.cpp)
target_include_directories(korvane_windows_support PUBLIC
  ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(korvane_windows_support PUBLIC UNICODE _UNICODE NOMINMAX)
# An automation interface has no virtual destructor: objects end by their last Release.
target_compile_options(korvane_windows_support PUBLIC -Wno-non-virtual-dtor)
target_link_libraries(korvane_windows_support PUBLIC ole32 oleaut32 uuid)

# The database: named and shaped as ADO is, over ODBC, which Wine hands on to this system's drivers.
file(GLOB ado_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/ado/*.cpp)
add_library(test_ado SHARED ${ado_sources} ado/exports.def)
set_target_properties(test_ado PROPERTIES PREFIX "")
target_link_libraries(test_ado PRIVATE korvane_windows_support korvane_frame odbc32 advapi32)
target_link_options(test_ado PRIVATE -Wl,--kill-at)

file(GLOB host_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/script_host/*.cpp)
add_executable(script_host ${host_sources})
target_link_libraries(script_host PRIVATE korvane_windows_support psapi)
target_link_options(script_host PRIVATE -municode)

set(environment "KORVANE_SOURCE_DIR=${PROJECT_SOURCE_DIR};KORVANE_BINARY_DIR=${PROJECT_BINARY_DIR}"
    PYTHONDONTWRITEBYTECODE=1)
add_test(NAME windows.exports
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/exports_check.py ${CMAKE_OBJDUMP})
set_tests_properties(windows.exports PROPERTIES ENVIRONMENT "${environment}")
if(NOT KORVANE_RUNS_HERE)
  return()
endif()
if(wine_runner)
  list(APPEND environment "KORVANE_WINE=${wine_runner} wine"
       "KORVANE_WINESERVER=${wine_runner} wineserver")
endif()

function(korvane_windows_test name)
  add_test(NAME windows.${name} COMMAND ${Python3_EXECUTABLE} ${ARGN})
  set_tests_properties(windows.${name} PROPERTIES TIMEOUT 300 FIXTURES_REQUIRED wine
                       ENVIRONMENT "${environment}")
endfunction()

add_test(NAME windows.prefix COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/prefix.py make)
add_test(NAME windows.prefix_end COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/prefix.py end)
set_tests_properties(windows.prefix windows.prefix_end PROPERTIES ENVIRONMENT "${environment}"
                     TIMEOUT 120)
set_tests_properties(windows.prefix PROPERTIES FIXTURES_SETUP wine)
set_tests_properties(windows.prefix_end PROPERTIES FIXTURES_CLEANUP wine)

file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/pages/*.vbs
     ${CMAKE_CURRENT_SOURCE_DIR}/pages/*.js)
list(FILTER pages EXCLUDE REGEX "/start\\.vbs$")
foreach(page ${pages})
  get_filename_component(name ${page} NAME)
  korvane_windows_test(${name} ${CMAKE_CURRENT_SOURCE_DIR}/run_page.py ${name})
endforeach()
# The i386 system has SQLite's driver only.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(pages_on_postgresql ado listing)
endif()
foreach(page ${pages_on_postgresql})
  korvane_windows_test(${page}.vbs_on_postgresql ${CMAKE_CURRENT_SOURCE_DIR}/run_page.py ${page}.vbs
                       postgresql)
endforeach()
# It changes the user's locale.
set_tests_properties(windows.month_first.vbs PROPERTIES RUN_SERIAL ON)

file(GLOB scripts CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.py)
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  # Its client is one of the units.
  list(FILTER scripts EXCLUDE REGEX "/tls_test\\.py$")
endif()
foreach(script ${scripts})
  get_filename_component(name ${script} NAME_WE)
  korvane_windows_test(${name} ${script})
endforeach()
