# `cpack -G DEB` (scripts/package.sh wraps it) makes vexo_<version>_<arch>.deb from the
# install rules: binaries stripped, dependencies computed from them by dpkg-shlibdeps.
set(CPACK_PACKAGE_NAME vexo)
set(CPACK_PACKAGE_VENDOR "Vexo")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Vexo maintainers <maintainers@users.noreply.c-seed-603c25f1.example>"
  CACHE STRING "Maintainer of the Debian package")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "watch remote for a two-deck mixing application")
# CPack puts the summary first and indents these lines, an empty one becoming " .".
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"The watch-side remote control of Vexo, a two-deck mixing application: deck
pages, a mixer page, transitions, a playlist browser, a glance and
notification actions, shown as a watch face in a web browser.

The package holds vexo-watch (the watch, serving its face on 127.0.0.1),
vexo-phone (the phone side: a two-deck audio engine with keylock, effects,
transitions, automix and recording), vexo-library (the media library index
of a music folder) and wormhole (the message transport from a shell), with
systemd user units that start the remote at login.")
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Whatever the builder's umask, the package's folders are 0755.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")

# Debian's documentation files: the copyright, the changelog compressed as policy asks,
# and lintian's overrides, each with its reason.
set(VEXO_DOC_DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_PACKAGE_NAME})
set(VEXO_PACKAGING_DIR ${PROJECT_BINARY_DIR}/packaging)
add_custom_command(
  OUTPUT ${VEXO_PACKAGING_DIR}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${VEXO_PACKAGING_DIR}
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/packaging/debian/changelog ${VEXO_PACKAGING_DIR}/changelog
  COMMAND gzip -9nf ${VEXO_PACKAGING_DIR}/changelog
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
  VERBATIM)
add_custom_target(vexo_package_documents ALL DEPENDS ${VEXO_PACKAGING_DIR}/changelog.gz)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright ${VEXO_PACKAGING_DIR}/changelog.gz
  DESTINATION ${VEXO_DOC_DESTINATION})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME ${CPACK_PACKAGE_NAME})

include(CPack)
