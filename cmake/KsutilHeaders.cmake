# The target ksutil_headers: the public headers in KSUTIL_INCLUDE_DIR under the names by which
# they install.  Programs beside the project (FetchContent, the examples) and programs
# against an installation see the same files.
set(KSUTIL_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)

file(GLOB_RECURSE headers CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/platform/*.h ${PROJECT_SOURCE_DIR}/core/*.h
  ${PROJECT_SOURCE_DIR}/pipeline/*.h ${PROJECT_SOURCE_DIR}/config/*.h
  ${PROJECT_SOURCE_DIR}/objects/*.h ${PROJECT_SOURCE_DIR}/formats/*.h
  ${PROJECT_SOURCE_DIR}/mechanisms/*.h ${PROJECT_SOURCE_DIR}/waveforms/*.h ${PROJECT_SOURCE_DIR}/events/*.h)
list(FILTER headers EXCLUDE REGEX "/(internal|shared)/")
set(script ${CMAKE_CURRENT_LIST_DIR}/StageHeaders.cmake)
add_custom_command(
  OUTPUT ${PROJECT_BINARY_DIR}/headers.stamp
  COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DOUTPUT=${KSUTIL_INCLUDE_DIR}
          -DSTAMP=${PROJECT_BINARY_DIR}/headers.stamp -P ${script}
  DEPENDS ${PROJECT_SOURCE_DIR}/ksutil.h ${headers} ${script}
  COMMENT "Staging the public headers")
add_custom_target(ksutil_headers DEPENDS ${PROJECT_BINARY_DIR}/headers.stamp)
