# The compiler and linker options that every extension module of this project shares.
include(CheckIPOSupported)

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
  target_link_options(compile_options INTERFACE LINKER:--gc-sections $<$<CONFIG:Release>:-s>)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # Most of the code is clean-up that runs only after failures: only the beginning of a function is worth aligning. Of -O3
  # only the inlining of short functions pays, as those that take and drop references are.
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
  target_compile_options(compile_options INTERFACE --param=early-inlining-insns=14
    -fno-align-jumps -fno-align-labels -fno-align-loops)
endif()

if(CMAKE_SYSTEM_NAME STREQUAL Linux)
  target_compile_options(compile_options INTERFACE -fno-plt)
  target_link_options(compile_options INTERFACE LINKER:--version-script,${CMAKE_CURRENT_LIST_DIR}/exports.map)
  if(NOT SABLECREST_SANITIZE)
    # The layer's short functions are called from all other files: joined at link time, the module is smaller, faster.
    check_ipo_supported(RESULT CMAKE_INTERPROCEDURAL_OPTIMIZATION LANGUAGES CXX)
    # Loading the C++ runtime would double the time of the import; only its exceptions are needed.
    target_link_options(compile_options INTERFACE -static-libstdc++ -static-libgcc)
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
