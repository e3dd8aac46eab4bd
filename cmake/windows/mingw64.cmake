# 64-bit Windows by Debian's mingw-w64, linked so that a program needs Windows' own libraries only.
# The libraries are those that dependencies.sh has put below build/windows/deps, or into the prefix
# named by KELVO_WINDOWS_PREFIX (in the environment, since CMake's trial builds don't see its cache).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The compilers with POSIX threads: the others have no std::thread.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(DEFINED ENV{KELVO_WINDOWS_PREFIX})
  set(kelvo_prefix "$ENV{KELVO_WINDOWS_PREFIX}")
else()
  cmake_path(SET kelvo_prefix NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../../build/windows/deps/prefix")
endif()
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${kelvo_prefix}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -static)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/run.sh")
