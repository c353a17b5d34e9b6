# How everything here is compiled: warnings, sanitizers, a faster linker and a compiler cache where
# they are installed.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(KORVANE_WERROR)
  add_compile_options(-Werror)
endif()

if(MINGW)
  # Windows 10 1607 and Windows Server 2016 are the oldest that it is made for.
  add_compile_definitions(_WIN32_WINNT=0x0A00 NOMINMAX)
endif()

if(KORVANE_SANITIZE)
  add_compile_options(-fsanitize=${KORVANE_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KORVANE_SANITIZE})
endif()
if(KORVANE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()

find_program(KORVANE_CCACHE ccache)
if(KORVANE_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${KORVANE_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KORVANE_CCACHE})
endif()
find_program(KORVANE_MOLD mold)
if(KORVANE_MOLD AND NOT KORVANE_FUZZ AND NOT MINGW)
  add_link_options(-fuse-ld=mold)
endif()
