# cmake -DPROGRAM=<program> -DOUTPUT=<file> -P SubcommandHelp.cmake
#
# Writes a help2man include file with a COMMANDS section: the --help of every subcommand
# of PROGRAM (and of theirs), found under "Subcommands:" in each --help, so that a manual
# page shows the options of each subcommand too.

# Adds the --help of `program words...` to `text`, then that of each of its subcommands.
function(vexo_describe_commands words)
  execute_process(COMMAND ${PROGRAM} ${words} --help
    OUTPUT_VARIABLE help RESULT_VARIABLE result ERROR_QUIET)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${PROGRAM} ${words} --help failed: ${result}")
  endif()
  if(words)
    string(REPLACE ";" " " title "${words}")
    # Roff reads a leading "." or "'" as a request and "\" as an escape.
    string(REPLACE "\\" "\\e" body "${help}")
    string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" body "${body}")
    string(REGEX REPLACE "Usage: [^ \n]*/" "Usage: " body "${body}")
    set_property(GLOBAL APPEND_STRING PROPERTY VEXO_COMMANDS ".SS ${title}\n.nf\n${body}.fi\n")
  endif()
  string(REGEX MATCH "\nSubcommands:\n(  [^\n]*\n?)+" section "${help}")
  string(REGEX MATCHALL "\n  [^ \n]+" names "${section}")
  foreach(name IN LISTS names)
    string(STRIP "${name}" name)
    set(next ${words} ${name})
    vexo_describe_commands("${next}")
  endforeach()
endfunction()

set_property(GLOBAL PROPERTY VEXO_COMMANDS "")
vexo_describe_commands("")
get_property(commands GLOBAL PROPERTY VEXO_COMMANDS)
if(commands)
  file(WRITE ${OUTPUT} "[COMMANDS]\n${commands}")
else()
  # help2man takes no empty include; it reads this one only when it exists.
  file(REMOVE ${OUTPUT})
endif()
