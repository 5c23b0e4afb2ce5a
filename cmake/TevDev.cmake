# libtev, for authors of services: log, platform and messaging with the console's handlers as one library, static and
# shared; their public headers; a CMake package and a pkg-config file. Component "dev", with the shared library's file for
# machines that only run services in "runtime". Nothing of it is built unless target tev_dev is.
#
# The objects are position-independent and free of link-time code, because both libraries are made of them and other
# compilers read them. The version script keeps everything but the public names to the library.

set(TEV_SOVERSION 1)

foreach(layer tev_log tev_platform tev_messaging tev_messaging_client)
  get_target_property(folder ${layer} SOURCE_DIR)
  get_target_property(sources ${layer} SOURCES)
  foreach(source ${sources})
    list(APPEND dev_sources ${folder}/${source})
    get_source_file_property(options ${folder}/${source} TARGET_DIRECTORY ${layer} COMPILE_OPTIONS)
    if(options)
      set_source_files_properties(${folder}/${source} PROPERTIES COMPILE_OPTIONS "${options}")
    endif()
  endforeach()
endforeach()
add_library(tev_dev_objects OBJECT EXCLUDE_FROM_ALL ${dev_sources})
target_link_libraries(tev_dev_objects PRIVATE tev_options)
set_target_properties(tev_dev_objects PROPERTIES POSITION_INDEPENDENT_CODE ON INTERPROCEDURAL_OPTIMIZATION OFF)

set(version_script ${PROJECT_SOURCE_DIR}/packaging/dev/libtev.map)
add_library(tev_shared SHARED EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tev_dev_objects>)
set_target_properties(tev_shared PROPERTIES EXPORT_NAME shared OUTPUT_NAME tev INTERPROCEDURAL_OPTIMIZATION OFF
  VERSION ${TEV_SOVERSION}.0 SOVERSION ${TEV_SOVERSION} LINK_DEPENDS ${version_script})
target_link_options(tev_shared PRIVATE LINKER:--version-script=${version_script} LINKER:-z,defs LINKER:-z,relro,-z,now
  LINKER:--as-needed LINKER:--gc-sections)
add_library(tev_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tev_dev_objects>)
set_target_properties(tev_static PROPERTIES EXPORT_NAME static OUTPUT_NAME tev INTERPROCEDURAL_OPTIMIZATION OFF)

foreach(library tev_shared tev_static)
  target_compile_features(${library} INTERFACE cxx_std_17)
  # Times and file sizes are part of the interface.
  target_compile_definitions(${library} INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tev>)
  target_link_libraries(${library} INTERFACE Threads::Threads)
endforeach()
target_link_libraries(tev_shared PRIVATE Threads::Threads)
if(TEV_SPLIT_DEBUG)
  add_custom_command(TARGET tev_shared POST_BUILD VERBATIM
    COMMAND ${CMAKE_STRIP} --strip-all --remove-section=.comment $<TARGET_FILE:tev_shared>)
  add_custom_command(TARGET tev_static POST_BUILD VERBATIM
    COMMAND ${CMAKE_STRIP} --strip-debug --remove-section=.comment --enable-deterministic-archives
      $<TARGET_FILE:tev_static>)
endif()
add_custom_target(tev_dev DEPENDS tev_shared tev_static)

# ---- Installing

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tev)
install(TARGETS tev_shared tev_static EXPORT tevTargets EXCLUDE_FROM_ALL
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
foreach(layer log platform messaging)
  install(DIRECTORY ${layer} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tev COMPONENT dev EXCLUDE_FROM_ALL
    FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
endforeach()
install(EXPORT tevTargets NAMESPACE tev:: DESTINATION ${package_dir} COMPONENT dev EXCLUDE_FROM_ALL)
configure_package_config_file(packaging/dev/tevConfig.cmake.in ${PROJECT_BINARY_DIR}/tevConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tevConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tevConfig.cmake ${PROJECT_BINARY_DIR}/tevConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev EXCLUDE_FROM_ALL)
file(RELATIVE_PATH to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(packaging/dev/tev.pc.in ${PROJECT_BINARY_DIR}/tev.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tev.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev EXCLUDE_FROM_ALL)

# ---- Packages

foreach(component runtime dev)
  set(name libtev-dev)
  if(component STREQUAL "runtime")
    set(name libtev${TEV_SOVERSION})
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz packaging/copyright
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
install(FILES docs/services.md docs/messages.md docs/exchange.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libtev-dev COMPONENT dev EXCLUDE_FROM_ALL)
install(DIRECTORY examples/stream-service DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libtev-dev/examples
  COMPONENT dev EXCLUDE_FROM_ALL)
configure_file(packaging/dev/cpack.cmake.in ${PROJECT_BINARY_DIR}/CPackDevConfig.cmake @ONLY)
