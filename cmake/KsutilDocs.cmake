# Installs the documents with what their commands and links need, in the layout of the
# project: data and examples beside them.
set(docs ${CMAKE_INSTALL_DOCDIR})
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE SECURITY.md DESTINATION ${docs}
  COMPONENT documents OPTIONAL)
install(FILES bench/RESULTS.md DESTINATION ${docs}/bench COMPONENT documents)
install(DIRECTORY docs DESTINATION ${docs} COMPONENT documents)
install(DIRECTORY data DESTINATION ${docs} COMPONENT documents)
install(DIRECTORY examples DESTINATION ${docs} COMPONENT documents
  FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN CMakeLists.txt)
# The reference, where the target `reference` has been built.
install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html DESTINATION ${docs}/reference
  COMPONENT documents OPTIONAL)
