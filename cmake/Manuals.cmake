# A manual page for every program, made from its own --help and --version at build time, so
# that a new option or subcommand is documented as soon as it exists: the options from the
# program's --help, a COMMANDS section from each subcommand's (SubcommandHelp.cmake). The
# hand-written parts (files, environment, see also) come from packaging/man/<program>.h2m.
find_program(VEXO_HELP2MAN help2man)
find_program(VEXO_GZIP gzip)
if(NOT VEXO_HELP2MAN OR NOT VEXO_GZIP)
  message(STATUS "No manual pages: help2man or gzip is missing")
  return()
endif()

set(VEXO_MANUAL_DIR ${PROJECT_BINARY_DIR}/man)
set(VEXO_MANUAL_NAME_wormhole "drive the Vexo message transport from a shell")
set(VEXO_MANUAL_NAME_vexo-library "build and inspect the Vexo media library")
set(VEXO_MANUAL_NAME_vexo-phone "the phone side of the Vexo watch remote, a two-deck mixing engine")
set(VEXO_MANUAL_NAME_vexo-watch "run the Vexo watch remote and serve its face to a browser")

set(pages)
foreach(program wormhole vexo-library vexo-phone vexo-watch)
  if(NOT TARGET ${program})
    continue()
  endif()
  set(include ${PROJECT_SOURCE_DIR}/packaging/man/${program}.h2m)
  set(page ${VEXO_MANUAL_DIR}/${program}.1)
  set(commands ${VEXO_MANUAL_DIR}/${program}.commands.h2m)
  add_custom_command(
    OUTPUT ${page} ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VEXO_MANUAL_DIR}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0 VEXO_LOG=off
      ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:${program}> -DOUTPUT=${commands}
        -P ${CMAKE_CURRENT_LIST_DIR}/SubcommandHelp.cmake
    # The build's sanitizers must not add their reports to the text.
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0 VEXO_LOG=off
      ${VEXO_HELP2MAN} --no-info --section=1 --manual=Vexo --source=Vexo
        "--name=${VEXO_MANUAL_NAME_${program}}" --include=${include} --opt-include=${commands}
        --output=${page} $<TARGET_FILE:${program}>
    # -n: no name or time stamp inside, so that the package is reproducible.
    COMMAND ${VEXO_GZIP} -9nkf ${page}
    DEPENDS ${program} ${include} ${CMAKE_CURRENT_LIST_DIR}/SubcommandHelp.cmake
    COMMENT "Writing the manual page of ${program}"
    VERBATIM)
  list(APPEND pages ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
add_custom_target(vexo_manuals ALL DEPENDS ${pages})
