# What `cmake --install` puts where. The programs find their data relative to themselves
# (`<prefix>/bin/../share/vexo`), so the tree works under any prefix and when unpacked
# anywhere; nothing here may bake the prefix into a program.
include(GNUInstallDirs)

set(VEXO_DATA_DESTINATION ${CMAKE_INSTALL_DATADIR}/vexo)

foreach(program wormhole vexo-library vexo-phone vexo-watch)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# The layout and string tables are read in place; the image sources stay behind.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/
  DESTINATION ${VEXO_DATA_DESTINATION}/resources
  FILES_MATCHING PATTERN "*.json" PATTERN "*.strings"
  PATTERN "assets" EXCLUDE)
# The drawn images exist only in the build tree.
install(DIRECTORY ${PROJECT_BINARY_DIR}/resources/assets/
  DESTINATION ${VEXO_DATA_DESTINATION}/assets
  FILES_MATCHING PATTERN "*.png")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/web/
  DESTINATION ${VEXO_DATA_DESTINATION}/web
  PATTERN ".*" EXCLUDE)

# User units name the programs by absolute path, and the prefix is known only when
# installing (cpack installs into its own prefix), so they are written then. file(INSTALL)
# adds DESTDIR itself.
foreach(unit vexo-phone.service vexo-watch.service)
  # One folder per destination, so that installs into several prefixes at once (the tests
  # do) never write the same file.
  install(CODE "
    set(VEXO_INSTALL_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    string(MD5 destination \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(configured \"${PROJECT_BINARY_DIR}/packaging/systemd/\${destination}/${unit}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/${unit}.in\" \"\${configured}\" @ONLY)
    file(INSTALL \"\${configured}\"
         DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/user\"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(REMOVE_RECURSE \"${PROJECT_BINARY_DIR}/packaging/systemd/\${destination}\")")
endforeach()

# One completion script serves every program: it reads the options and subcommands from
# the program's own --help, so a new option completes without touching it.
foreach(program wormhole vexo-library vexo-phone vexo-watch)
  if(TARGET ${program})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/bash-completion/vexo
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      RENAME ${program})
  endif()
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/Manuals.cmake)
