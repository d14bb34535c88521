# The compiler and linker options that every extension module of this project shares.
add_library(compile_options INTERFACE)

if(MSVC)
  target_compile_options(compile_options INTERFACE /W4 /utf-8 /EHsc)
else()
  target_compile_options(compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    -ffunction-sections -fdata-sections
    # The same bytes wherever the checkout lies.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
  target_link_options(compile_options INTERFACE
    LINKER:--gc-sections LINKER:--exclude-libs,ALL $<$<CONFIG:Release>:-s>)
endif()

if(CMAKE_SYSTEM_NAME STREQUAL Linux)
  # The one thread-local pointer is read for every name, and every name is a call into the interpreter.
  target_compile_options(compile_options INTERFACE -ftls-model=initial-exec -fno-plt)
  if(NOT SABLECREST_SANITIZE)
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
