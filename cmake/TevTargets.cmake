# Compiler settings shared by every target of the project.
#
# tev_library(NAME SOURCES ... [LINKS ...]) makes one folder's library. Includes are written from the project root
# ("platform/kr.h"), so that an include line shows which layer it reaches into.

add_library(tev_options INTERFACE)
target_compile_options(tev_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TEV_WERROR}>:-Werror>)
target_include_directories(tev_options INTERFACE ${PROJECT_SOURCE_DIR})
# Files beyond 2 GiB and times after 2038 on 32-bit machines, the same in every unit.
target_compile_definitions(tev_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
# A release leaves out what nothing refers to.
target_compile_options(tev_options INTERFACE "$<$<CONFIG:Release,MinSizeRel>:-ffunction-sections;-fdata-sections>")
target_link_options(tev_options INTERFACE $<$<CONFIG:Release,MinSizeRel>:LINKER:--gc-sections>)
if(TEV_SANITIZE)
  target_compile_options(tev_options INTERFACE -fsanitize=${TEV_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(tev_options INTERFACE -fsanitize=${TEV_SANITIZE})
endif()

function(tev_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC tev_options ${ARG_LINKS})
endfunction()

# In a cross build: PROGRAM-emulated beside the program runs it on this machine.
function(tev_emulated program)
  if(CMAKE_CROSSCOMPILING)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${program}-emulated CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${program}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endif()
endfunction()
