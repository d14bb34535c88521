# The compiler and linker options that every extension module of this project shares.
include(CheckIPOSupported)
include(CheckSourceRuns)

add_library(compile_options INTERFACE)

if(MSVC)
  target_compile_options(compile_options INTERFACE /W4 /utf-8 /EHsc /Brepro)
  target_link_options(compile_options INTERFACE /Brepro)  # no time of the build in the file
else()
  target_compile_options(compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    -ffunction-sections -fdata-sections
    # The same bytes wherever the checkout lies.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
  target_link_options(compile_options INTERFACE
    LINKER:--gc-sections LINKER:--exclude-libs,ALL $<$<CONFIG:Release>:-s>)
endif()

if(MINGW)
  target_link_options(compile_options INTERFACE LINKER:--no-insert-timestamp)
endif()

if(CMAKE_SYSTEM_NAME STREQUAL Linux AND NOT SABLECREST_SANITIZE)
  # The layer's short functions are called from every other file: joined at link time, the module is smaller and faster.
  check_ipo_supported(RESULT CMAKE_INTERPROCEDURAL_OPTIMIZATION OUTPUT why_no_link_time_optimization LANGUAGES CXX)
endif()

if(CMAKE_SYSTEM_NAME STREQUAL Linux)
  # The one thread-local pointer is read for every name, and every name is a call into the interpreter.
  target_compile_options(compile_options INTERFACE -ftls-model=initial-exec -fno-plt)
  if(NOT SABLECREST_SANITIZE)
    # Loading the C++ runtime would double the time of the import; only its exceptions are needed.
    target_link_options(compile_options INTERFACE -static-libstdc++ -static-libgcc)
  endif()

  # The tables of names and functions are full of addresses. Packed, they take a tenth of the file less, but a C library
  # that does not know the form refuses to load it.
  if(NOT CMAKE_CROSSCOMPILING)
    block()
      set(CMAKE_REQUIRED_FLAGS -fPIE)
      set(CMAKE_REQUIRED_LINK_OPTIONS -pie LINKER:-z,pack-relative-relocs)
      check_source_runs(CXX "int main() {}" PACKED_RELOCATIONS_RUN)
    endblock()
    if(PACKED_RELOCATIONS_RUN)
      target_link_options(compile_options INTERFACE LINKER:-z,pack-relative-relocs)
    endif()
  endif()
endif()

if(SABLECREST_SANITIZE)
  # With its tests for null GCC 12 no longer folds a string in a constant expression; a null dereference still ends
  # in AddressSanitizer's report.
  set(sanitizer_options -fsanitize=address,undefined -fno-sanitize-recover=undefined
    -fno-sanitize=null,nonnull-attribute,returns-nonnull-attribute)
  target_compile_options(compile_options INTERFACE ${sanitizer_options} -fno-omit-frame-pointer)
  target_link_options(compile_options INTERFACE ${sanitizer_options})
endif()
