# Fails when a file includes a header from a folder above its own. Run as
#   cmake -DSOURCE_DIR=<src> -P layering.cmake
# The order: foundation <- platform <- library <- rules <- capture <- paste; appearance sits on the
# foundation; the backends (platform/x11, platform/xdg, platform/qt) see only the foundation, the
# platform's interfaces and themselves. ui, cli and app may include anything.

cmake_minimum_required(VERSION 3.20)

set(allowed_foundation foundation)
set(allowed_platform foundation platform)
set(allowed_library ${allowed_platform} library)
set(allowed_rules ${allowed_library} rules)
set(allowed_capture ${allowed_rules} capture)
set(allowed_paste ${allowed_capture} paste)
set(allowed_appearance ${allowed_platform} appearance)
set(allowed_platform/x11 ${allowed_platform} platform/x11)
set(allowed_platform/xdg ${allowed_platform} platform/xdg)
set(allowed_platform/qt ${allowed_platform} platform/qt)

# The layer of a path relative to src/: a backend folder, else its first folder.
function(layer_of path out)
  if(path MATCHES "^platform/(x11|xdg|qt)/")
    set(${out} "platform/${CMAKE_MATCH_1}" PARENT_SCOPE)
  else()
    string(REGEX REPLACE "/.*" "" first "${path}")
    set(${out} "${first}" PARENT_SCOPE)
  endif()
endfunction()

set(violations 0)
file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/*.h ${SOURCE_DIR}/*.cpp)
foreach(file IN LISTS files)
  layer_of("${file}" layer)
  if(NOT DEFINED allowed_${layer})
    continue()
  endif()
  file(STRINGS ${SOURCE_DIR}/${file} includes REGEX "^#include \"[^\"]+\"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
    layer_of("${header}" included)
    if(NOT included IN_LIST allowed_${layer})
      message("${file}: includes ${header}, from ${included}, above ${layer}")
      math(EXPR violations "${violations} + 1")
    endif()
  endforeach()
endforeach()

if(violations GREATER 0)
  message(FATAL_ERROR "${violations} includes point up the tree")
endif()
message("Every include points down the tree.")
