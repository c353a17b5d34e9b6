# What both Windows toolchains share: the mingw-w64 compilers with POSIX threads, everything linked
# in, so that a DLL needs nothing beside it but Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${KORVANE_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KORVANE_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${KORVANE_MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KORVANE_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
endforeach()
