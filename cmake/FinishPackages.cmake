# Script of CPack: gives the staged files of each Debian package their last form.
#
# Programs, plug-ins and the Python module lose the path by which a moved installation finds
# the library, manuals are compressed, and every package gets its terms and its list of
# changes.
cmake_minimum_required(VERSION 3.25)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(compress gzip -9 -n -f)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(GLOB programs ${root}/usr/bin/* ${root}/usr/lib/*/ksutil/*.so
    ${root}/usr/lib/python3/dist-packages/ksutil/*.so)
  foreach(program IN LISTS programs)
    file(RPATH_REMOVE FILE ${program})
  endforeach()
  file(GLOB manuals ${root}/usr/share/man/man1/*.1)
  if(manuals)
    execute_process(COMMAND ${compress} ${manuals} COMMAND_ERROR_IS_FATAL ANY)
  endif()

  set(folder ${root}/usr/share/doc/${package})
  file(READ ${CMAKE_CURRENT_LIST_DIR}/../data/NOTICE notice)
  string(REGEX REPLACE "\n\n" "\n.\n" notice "${notice}")
  string(REGEX REPLACE "\n" "\n " notice "${notice}")
  set(terms
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: libksutil

Files: *
Copyright: the authors of libksutil
License: Apache-2.0
 On Debian systems the text of the license is in /usr/share/common-licenses/Apache-2.0.
")
  if(component STREQUAL documents)
    string(APPEND terms "
Files: usr/share/doc/ksutil/data/*
Copyright: as told for each file below
License: notice
 ${notice}
")
  endif()
  file(WRITE ${folder}/copyright "${terms}")
  file(WRITE ${folder}/changelog.Debian
"ksutil (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Built from the sources of version ${CPACK_PACKAGE_VERSION}; their changes are in
    CHANGELOG.md, which the package ksutil-doc has.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
  execute_process(COMMAND ${compress} ${folder}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
endforeach()
