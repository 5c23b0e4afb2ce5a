# Packages: script/package makes the .deb with this, and from it a .tar.gz for boards without dpkg.

# Debian wants manual page and changelog compressed, and without a time stamp in it.
foreach(document docs/tev-cli.1 docs/tevctl.1 packaging/changelog)
  get_filename_component(name ${document} NAME)
  set(source ${PROJECT_SOURCE_DIR}/${document})
  set(output ${PROJECT_BINARY_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${output} DEPENDS ${source} COMMAND gzip -9nc ${source} > ${output} VERBATIM)
  list(APPEND documents ${output})
endforeach()
add_custom_target(tev_documents ALL DEPENDS ${documents})
install(FILES ${PROJECT_BINARY_DIR}/tev-cli.1.gz ${PROJECT_BINARY_DIR}/tevctl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/tevctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tevctl)
install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY packaging/examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/tev-cli.service DESTINATION lib/systemd/system)
install(FILES packaging/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME tev-cli)

file(STRINGS packaging/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "\\(${PROJECT_VERSION}\\)")
  message(FATAL_ERROR "packaging/changelog does not begin with version ${PROJECT_VERSION}: ${newest}")
endif()

if(NOT TEV_DEBIAN_ARCHITECTURE)
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE TEV_DEBIAN_ARCHITECTURE
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
# Only what is built for it is packaged; the tests are not.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TEV_DEBIAN_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "tev-cli maintainers <maintainers@example.com>")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"An interactive shell for the console of the board. It reads and sets the
board's hardware (temperature, fan, Ethernet switch, identity) and asks the
appliance's services for video formats and resolutions, streams, snapshots,
audio sources, logging, reboot and factory reset. tevctl runs one command
for a script and ends with a status that says what became of it.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# dpkg-shlibdeps knows this machine's libraries only, so the least versions that have all the symbols are named here.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1, libstdc++6 (>= 11)")
set(CPACK_STRIP_FILES OFF)
include(CPack)
