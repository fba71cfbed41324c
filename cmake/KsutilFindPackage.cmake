# What find_package(ksutil) reads.  It names the programs, so it comes after them.
include(CMakePackageConfigHelpers)
get_property(ksutil_program_names GLOBAL PROPERTY KSUTIL_TOOL_NAMES)

install(EXPORT ksutilTargets NAMESPACE ksutil:: COMPONENT development
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ksutil)
configure_package_config_file(cmake/ksutilConfig.cmake.in ksutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ksutil)
write_basic_package_version_file(ksutilConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ksutilConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ksutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ksutil COMPONENT development)
