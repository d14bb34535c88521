# The toolchain of a build for 64-bit Windows on another system, with MinGW-w64.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
# With the static forms of libgcc and libstdc++ alone, a DLL for threads would still be needed.
set(CMAKE_MODULE_LINKER_FLAGS_INIT -static)
