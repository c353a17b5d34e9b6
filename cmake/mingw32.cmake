# Windows on x86.
set(CMAKE_SYSTEM_PROCESSOR x86)
set(KORVANE_MINGW i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
