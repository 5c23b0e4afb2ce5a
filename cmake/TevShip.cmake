# How shipped programs are linked and stripped.

set(TEV_LINK shared CACHE STRING
  "shared: all libraries from the machine; runtime: the C++ runtime inside; static: all libraries inside")
set_property(CACHE TEV_LINK PROPERTY STRINGS shared runtime static)
option(TEV_SPLIT_DEBUG "Strip the program and keep its debug symbols in a file beside it" OFF)

function(tev_ship program)
  if(TEV_LINK STREQUAL "runtime")
    target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc)
  elseif(TEV_LINK STREQUAL "static")
    # At a fixed address: moving it to another would be work at every start.
    target_link_options(${program} PRIVATE -static -no-pie)
  elseif(NOT TEV_LINK STREQUAL "shared")
    message(FATAL_ERROR "TEV_LINK is shared, runtime or static, not ${TEV_LINK}")
  endif()
  if(TEV_SPLIT_DEBUG)
    # The debugger finds the symbols by the link as by the build id.
    add_custom_command(TARGET ${program} POST_BUILD
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${program} ${program}.debug
      COMMAND ${CMAKE_STRIP} --strip-all --remove-section=.comment ${program}
      COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${program}.debug ${program}
      WORKING_DIRECTORY $<TARGET_FILE_DIR:${program}>
      BYPRODUCTS ${program}.debug
      VERBATIM)
    install(FILES $<TARGET_FILE:${program}>.debug DESTINATION lib/debug/${CMAKE_INSTALL_FULL_BINDIR}
      COMPONENT symbols EXCLUDE_FROM_ALL)
  endif()
endfunction()
