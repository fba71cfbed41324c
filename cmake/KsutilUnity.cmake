# Compiles several sources as one file: what their headers cost is then paid once, and a
# build from scratch takes a third of the time.  Names in anonymous namespaces of sources
# that are compiled together must differ.
option(KSUTIL_UNITY "Compile the sources of each folder as one file" OFF)

# ksutil_unity_by_folder(<target>): the sources of a target, folder by folder.  To be called
# where the target was made, after all its sources have been added.
function(ksutil_unity_by_folder target)
  set_target_properties(${target} PROPERTIES
    UNITY_BUILD ${KSUTIL_UNITY} UNITY_BUILD_MODE GROUP)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source)
    cmake_path(GET source PARENT_PATH folder)
    cmake_path(IS_PREFIX PROJECT_BINARY_DIR "${folder}" generated)
    if(NOT generated)
      file(RELATIVE_PATH group ${PROJECT_SOURCE_DIR} ${folder})
      string(MAKE_C_IDENTIFIER "${group}" group)
      set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
    endif()
  endforeach()
endfunction()
