# Debian packages of the installation, one for each component; bin/package builds them.
#
# Every install() of the project names its component:
#   library      the shared library
#   development  headers, CMake package, pkg-config file, the name to link with, the archive
#   programs     programs with manuals and completions, sources of the built-in schemas
#   documents    documents with the data and the examples that they use
#   python       the Python module, where it is built
#   postgresql   the plug-in behind which a PostgreSQL server keeps tables, where it is built
set(KSUTIL_MAINTAINER "libksutil maintainers <maintainers@localhost>"
  CACHE STRING "Maintainer named in the Debian packages")
set(soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(revision ${PROJECT_VERSION}-1)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ksutil)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "${KSUTIL_MAINTAINER}")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/FinishPackages.cmake)

# ksutil_package(<component> <package> <section> <summary> <description>): what all have.
macro(ksutil_package component package section summary)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${upper}_DISPLAY_NAME ${package})
  string(JOIN "" text ${ARGN})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()

ksutil_package(library libksutil${soversion} libs
  "library for seismic data processing"
  "An event server over CSS3.0 databases, with catalogues, bulletins, waveforms, "
  "moment tensors, parameter files, travel times, vectors, grids and SAC files.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)

ksutil_package(development libksutil-dev libdevel
  "library for seismic data processing (development files)"
  "Headers, the package file of CMake and the file of pkg-config of libksutil.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libksutil${soversion} (= ${revision})")
if(KSUTIL_STATIC AND KSUTIL_MSEED)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libmseed-dev")
endif()

if(KSUTIL_TOOLS)
  ksutil_package(programs ksutil-programs science
    "programs for seismic databases, catalogues and waveforms"
    "Programs over libksutil that import and export catalogues and bulletins, follow "
    "databases, read and plot waveforms, mechanisms, vectors and grids, and edit "
    "parameter files, with their manuals and completions for bash.")
  set(CPACK_DEBIAN_PROGRAMS_PACKAGE_DEPENDS "libksutil${soversion} (= ${revision})")
  set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SUGGESTS "ksutil-doc")
endif()
if(KSUTIL_DOCS)
  ksutil_package(documents ksutil-doc doc
    "documents, examples and sample data of libksutil"
    "A tutorial, pages on each subject, the sources of example programs, and the small "
    "databases and files that the documents use.")
  set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SUGGESTS "libksutil-dev, ksutil-programs")
endif()
if(TARGET ksutil_store_postgresql)
  ksutil_package(postgresql ksutil-postgresql libs
    "store of libksutil on a PostgreSQL server"
    "The plug-in of libksutil that keeps the tables of a database on a PostgreSQL server.")
  set(CPACK_DEBIAN_POSTGRESQL_PACKAGE_DEPENDS "libksutil${soversion} (= ${revision})")
endif()
if(KSUTIL_PYTHON)
  ksutil_package(python python3-ksutil python
    "Python module for seismic data processing"
    "Databases as tables of numpy arrays, live events, waveforms, moment tensors, travel "
    "times and parameter files of libksutil for programs and notebooks in Python.")
  math(EXPR next_minor "${Python3_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libksutil${soversion} (= ${revision}), \
python3 (>= 3.${Python3_VERSION_MINOR}), python3 (<< 3.${next_minor}), python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pandas")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/python_package/postinst
    ${CMAKE_CURRENT_LIST_DIR}/python_package/prerm)
endif()
include(CPack)
