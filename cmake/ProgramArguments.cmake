# vexo_program_arguments(<variable> <option>:<program>...)
# Sets <variable> to "--<option> <path>" for each program, the command line by which the node
# scripts of tests/ and bench/ are told which programs to run: the program's own file when
# its target is in this build, else the path where a full build of this tree puts it.
function(vexo_program_arguments variable)
  set(arguments)
  foreach(pair IN LISTS ARGN)
    string(REPLACE ":" ";" pair "${pair}")
    list(GET pair 0 option)
    list(GET pair 1 program)
    if(TARGET ${program})
      list(APPEND arguments --${option} $<TARGET_FILE:${program}>)
    else()
      list(APPEND arguments --${option} ${CMAKE_BINARY_DIR}/apps/${program}/${program})
    endif()
  endforeach()
  set(${variable} ${arguments} PARENT_SCOPE)
endfunction()
