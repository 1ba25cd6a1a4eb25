# Objects compiled for wider instructions than the architecture's baseline must offer the linker no
# inline function: it might pick theirs for everybody. Run with -DNM=... -DOBJECTS="...;...".
foreach(object IN LISTS OBJECTS)
  if(object MATCHES "_avx2\\.cc")
    execute_process(COMMAND ${NM} ${object} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
    if(NOT result EQUAL 0 OR NOT symbols MATCHES "7corvane" OR symbols MATCHES " [VvWwu] ")
      message(FATAL_ERROR "${object}:\n${symbols}")
    endif()
  endif()
endforeach()
