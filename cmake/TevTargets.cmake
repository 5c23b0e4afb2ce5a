# Compiler settings shared by every target of the project.
#
# tev_library(NAME SOURCES ... [LINKS ...]) makes one folder's library. Includes are written from the project root
# ("platform/kr.h"), so that an include line shows which layer it reaches into.

add_library(tev_options INTERFACE)
target_compile_options(tev_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TEV_WERROR}>:-Werror>)
target_include_directories(tev_options INTERFACE ${PROJECT_SOURCE_DIR})
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
