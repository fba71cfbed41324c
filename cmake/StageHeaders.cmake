# Script of the target ksutil_headers: writes the public headers to OUTPUT/ksutil as they are
# installed.
#
#   cmake -DSOURCE=<project> -DOUTPUT=<folder> [-DSTAMP=<file>] -P StageHeaders.cmake
#
# ksutil.h and every header that it includes, directly or not, are the stable layer and keep
# their path below OUTPUT/ksutil.  The other public headers of the rooms in `cxx_rooms`, with
# what they include, are the C++ layer, below OUTPUT/ksutil/cxx.  Headers in folders named
# `internal` or `shared` are private: a public header that includes one is an error.
# Includes are rewritten to <ksutil/...>, so that -I OUTPUT is all that a program needs.
# OUTPUT/ksutil.h includes <ksutil/ksutil.h>.
cmake_minimum_required(VERSION 3.25)
set(cxx_rooms platform/db platform/expr waveforms)

function(write_if_changed path text)
  if(EXISTS "${path}")
    file(READ "${path}" present)
    if(present STREQUAL text)
      return()
    endif()
  endif()
  file(WRITE "${path}" "${text}")
endfunction()

# The headers of the project that `header` includes.
function(includes_of header result)
  file(STRINGS "${SOURCE}/${header}" lines REGEX "^ *# *include +\"[^\"]+\"")
  set(found "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^ *# *include +\"([^\"]+)\".*" "\\1" name "${line}")
    if(NOT EXISTS "${SOURCE}/${name}")
      message(FATAL_ERROR "${header} includes \"${name}\", which is not in the project")
    endif()
    list(APPEND found "${name}")
  endforeach()
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

# All headers that can be reached from `roots`, the roots among them.
function(closure result)
  set(waiting ${ARGN})
  set(found "")
  while(waiting)
    list(POP_FRONT waiting header)
    if(NOT header IN_LIST found)
      list(APPEND found "${header}")
      includes_of("${header}" below)
      foreach(name IN LISTS below)
        if(name MATCHES "(^|/)(internal|shared)/")
          message(FATAL_ERROR "the public header ${header} includes the private ${name}")
        endif()
      endforeach()
      list(APPEND waiting ${below})
    endif()
  endwhile()
  list(SORT found)
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

closure(stable ksutil.h)
set(roots "")
foreach(room IN LISTS cxx_rooms)
  file(GLOB_RECURSE headers RELATIVE "${SOURCE}" "${SOURCE}/${room}/*.h")
  list(FILTER headers EXCLUDE REGEX "(^|/)(internal|shared)/")
  list(APPEND roots ${headers})
endforeach()
closure(cxx ${roots})
list(REMOVE_ITEM cxx ${stable})

set(staged "")
foreach(header IN LISTS stable cxx)
  if(header IN_LIST stable)
    set(installed "ksutil/${header}")
  else()
    set(installed "ksutil/cxx/${header}")
  endif()
  file(READ "${SOURCE}/${header}" text)
  includes_of("${header}" below)
  foreach(name IN LISTS below)
    set(target "ksutil/${name}")
    if(NOT name IN_LIST stable)
      set(target "ksutil/cxx/${name}")
    endif()
    string(REPLACE "#include \"${name}\"" "#include <${target}>" text "${text}")
  endforeach()
  write_if_changed("${OUTPUT}/${installed}" "${text}")
  list(APPEND staged "${installed}")
endforeach()
write_if_changed("${OUTPUT}/ksutil.h"
  "/* libksutil, all of it: the same as <ksutil/ksutil.h>. */\n#include <ksutil/ksutil.h>\n")
list(APPEND staged ksutil.h)

file(GLOB_RECURSE present RELATIVE "${OUTPUT}" "${OUTPUT}/*.h")
list(REMOVE_ITEM present ${staged})
foreach(name IN LISTS present)
  file(REMOVE "${OUTPUT}/${name}")
endforeach()
if(STAMP)
  file(TOUCH "${STAMP}")
endif()
