# The toolchain for 64-bit Windows, on Windows itself or on another system: ziglang brings the headers and libraries.
if(NOT CMAKE_HOST_WIN32)
  set(CMAKE_SYSTEM_NAME Windows)
  set(CMAKE_SYSTEM_PROCESSOR AMD64)
  # The folder of a CPython 3.13 for Windows, which cannot be asked where its files are.
  set(Python_INCLUDE_DIR $ENV{WINDOWS_PYTHON}/include)
  set(Python_LIBRARY $ENV{WINDOWS_PYTHON}/libs/python313.lib)
endif()
find_program(zig python-zig NO_CACHE REQUIRED)
set(CMAKE_CXX_COMPILER ${zig} c++)
set(CMAKE_CXX_COMPILER_TARGET x86_64-windows-gnu)
