# The toolchain of wheels for every Linux with glibc 2.28 or newer: ziglang brings that C library and a C++ runtime.
find_program(zig python-zig NO_CACHE REQUIRED)
set(CMAKE_CXX_COMPILER ${zig} c++)
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu.2.28)
