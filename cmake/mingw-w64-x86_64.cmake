# Cross-builds the Windows program on Linux with MinGW-w64 (x86_64, posix
# threads, static runtime) and runs what it builds under Wine:
#   cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TOOLCHAIN_PREFIX x86_64-w64-mingw32)

# The -posix compilers: the default ones have no std::thread or std::mutex.
set(CMAKE_C_COMPILER ${TOOLCHAIN_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TOOLCHAIN_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${TOOLCHAIN_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${TOOLCHAIN_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Static C, C++ and thread runtimes: Kestrine.exe needs no DLL beside it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Test programs (and the discovery of their tests) run under Wine.
find_program(KESTRINE_WINE NAMES wine wine64)
if(KESTRINE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KESTRINE_WINE})
endif()
