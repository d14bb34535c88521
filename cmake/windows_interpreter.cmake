# What a cross build needs of the Windows interpreter: its headers, and an import library of its DLL.
set(SABLECREST_WINDOWS_HEADERS "" CACHE PATH
  "The include folder of a Windows CPython 3.13, to be used instead of this system's headers")
set(windows_suffix .cp313-win_amd64.pyd)

set(Python_INCLUDE_DIR ${SABLECREST_WINDOWS_HEADERS})
if(NOT Python_INCLUDE_DIR)
  # Only pyconfig.h differs between the systems.
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/find_python 3.13
    OUTPUT_VARIABLE python OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${python} -c "import sysconfig; print(sysconfig.get_path('include'))"
    OUTPUT_VARIABLE headers OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(Python_INCLUDE_DIR ${PROJECT_BINARY_DIR}/windows_headers)
  file(COPY ${headers}/ DESTINATION ${Python_INCLUDE_DIR} PATTERN pyconfig.h EXCLUDE)
  file(COPY ${PROJECT_SOURCE_DIR}/cmake/windows/pyconfig.h DESTINATION ${Python_INCLUDE_DIR})
endif()

# It can be made once the objects tell which names they want; until then CMake has to find a file.
set(Python_LIBRARY ${PROJECT_BINARY_DIR}/libpython313.a)
file(TOUCH ${Python_LIBRARY})

function(make_import_library_before_linking target)
  add_custom_command(TARGET ${target} PRE_LINK COMMAND_EXPAND_LISTS
    COMMAND ${CMAKE_COMMAND} -D NM=${CMAKE_NM} -D DLLTOOL=${CMAKE_DLLTOOL} -D DLL=python313.dll
      -D LIBRARY=${Python_LIBRARY} -P ${PROJECT_SOURCE_DIR}/cmake/make_import_library.cmake
      -- $<TARGET_OBJECTS:${target}> ${ARGN})
endfunction()
