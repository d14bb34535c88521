# Makes the import library of a DLL from the names that object files want of it, which all begin with "Py" or "_Py":
# cmake -D NM=… -D DLLTOOL=… -D DLL=python313.dll -D LIBRARY=… -P make_import_library.cmake -- OBJECT…
set(objects "")
set(behind_separator FALSE)
foreach(i RANGE ${CMAKE_ARGC})
  if(behind_separator)
    list(APPEND objects ${CMAKE_ARGV${i}})
  elseif("${CMAKE_ARGV${i}}" STREQUAL "--")
    set(behind_separator TRUE)
  endif()
endforeach()

execute_process(COMMAND ${NM} --undefined-only --no-sort ${objects}
  OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "__imp__?Py[A-Za-z0-9_]+" names "${wanted}")
list(REMOVE_DUPLICATES names)
list(SORT names)

# As data, a name can only be reached the way that the headers declare it, through the DLL's table of addresses.
list(TRANSFORM names REPLACE "^__imp_(.*)" "\\1 DATA\n")
list(JOIN names "" exports)
file(WRITE ${LIBRARY}.def "LIBRARY ${DLL}\nEXPORTS\n${exports}")
file(REMOVE ${LIBRARY})
execute_process(COMMAND ${DLLTOOL} --input-def ${LIBRARY}.def --output-lib ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
