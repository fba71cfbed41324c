# Installs the documents with what their commands and links need, in the layout of the
# project: data and examples beside them.
set(docs ${CMAKE_INSTALL_DOCDIR})
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${docs})
install(FILES bench/RESULTS.md DESTINATION ${docs}/bench)
install(DIRECTORY docs DESTINATION ${docs})
install(DIRECTORY data DESTINATION ${docs})
install(DIRECTORY examples DESTINATION ${docs} FILES_MATCHING PATTERN "*.cpp")
