# Toolchain for programs that use this package, built elsewhere than on Windows:
#   cmake -S . -B build -DCMAKE_TOOLCHAIN_FILE=/where/it/was/unpacked/share/nqcore/i686-w64-mingw32.cmake
# find_package(nqcore) finds the package that this file belongs to.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

# The DLLs are made with posix threads; some systems have that compiler under a name of its own.
find_program(NQCORE_C_COMPILER NAMES i686-w64-mingw32-gcc-posix i686-w64-mingw32-gcc REQUIRED)
find_program(NQCORE_CXX_COMPILER NAMES i686-w64-mingw32-g++-posix i686-w64-mingw32-g++ REQUIRED)
mark_as_advanced(NQCORE_C_COMPILER NQCORE_CXX_COMPILER)
set(CMAKE_C_COMPILER "${NQCORE_C_COMPILER}")
set(CMAKE_CXX_COMPILER "${NQCORE_CXX_COMPILER}")
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)

# As the DLLs are compiled: SSE2 arithmetic rounds like that of x86-64, the compiler's default (x87) does not.
set(CMAKE_C_FLAGS_INIT "-march=pentium4 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-march=pentium4 -msse2 -mfpmath=sse")

get_filename_component(_nqcore_package "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${_nqcore_package}" /usr/i686-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
