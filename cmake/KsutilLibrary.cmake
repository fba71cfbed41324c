# The installed library: shared (and static on request), headers, the file of pkg-config.
include(KsutilHeaders)

function(ksutil_library target type)
  add_library(${target} ${type} $<TARGET_OBJECTS:ksutil_objects>)
  add_library(ksutil::${target} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ksutil
    VERSION ${PROJECT_VERSION}
    # Until 1.0 a minor version may change what programs were linked with.
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${KSUTIL_INCLUDE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  add_dependencies(${target} ksutil_headers)
  target_link_libraries(${target} PUBLIC Threads::Threads)
  if(KSUTIL_MSEED)
    target_link_libraries(${target} PRIVATE ${MSEED_LIBRARY})
  endif()
  if(KSUTIL_SANITIZE)
    target_link_options(${target} PUBLIC -fsanitize=${KSUTIL_SANITIZE})
  endif()
  if(KSUTIL_COVERAGE)
    target_link_options(${target} PUBLIC --coverage)
  endif()
  install(TARGETS ${target} EXPORT ksutilTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endfunction()

ksutil_library(ksutil SHARED)
if(KSUTIL_STATIC)
  ksutil_library(ksutil_static STATIC)
endif()

install(DIRECTORY ${KSUTIL_INCLUDE_DIR}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development)
install(DIRECTORY schemas/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ksutil/schemas
  COMPONENT programs)

# Relative to the file itself, so that an installation can be moved.
file(RELATIVE_PATH KSUTIL_PC_TO_PREFIX
  "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
set(KSUTIL_PC_PRIVATE "")
if(KSUTIL_MSEED)
  set(KSUTIL_PC_PRIVATE " -lmseed")
endif()
configure_file(cmake/ksutil.pc.in ksutil.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ksutil.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
