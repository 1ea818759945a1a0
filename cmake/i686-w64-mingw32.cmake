# Toolchain: 32-bit Windows with Debian's g++-mingw-w64-i686-posix. Programs run through Wine (scripts/win32/wine-run).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)
set(CMAKE_C_COMPILER i686-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER i686-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)

# SSE2 arithmetic: the compiler's default (x87) rounds differently from x86-64.
set(CMAKE_C_FLAGS_INIT "-march=pentium4 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-march=pentium4 -msse2 -mfpmath=sse")

set(CMAKE_FIND_ROOT_PATH /usr/i686-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

get_filename_component(_win32_scripts "${CMAKE_CURRENT_LIST_DIR}/../scripts/win32" ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR "${_win32_scripts}/wine-run")

# Where `./dev` puts ACE in the cache, so that a plain `cmake --preset win32` finds it too.
if(NOT NQCORE_ACE_ROOT AND EXISTS "${_win32_scripts}/build-ace.sh")
    execute_process(COMMAND "${_win32_scripts}/build-ace.sh" --where
        OUTPUT_VARIABLE _ace_root OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(NQCORE_ACE_ROOT "${_ace_root}" CACHE PATH "Folder with include/, lib/ and bin/ of ACE")
endif()
