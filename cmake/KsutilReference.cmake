# The target `reference`: the public headers as HTML in reference/html, where Doxygen is
# installed.  Comments are turned into Doxygen's by a filter, so that headers need no marks.
find_program(DOXYGEN doxygen)
mark_as_advanced(DOXYGEN)
if(DOXYGEN)
  file(CONFIGURE OUTPUT Doxyfile @ONLY CONTENT [[
PROJECT_NAME = libksutil
PROJECT_NUMBER = @PROJECT_VERSION@
OUTPUT_DIRECTORY = @PROJECT_BINARY_DIR@/reference
INPUT = @KSUTIL_INCLUDE_DIR@/ksutil
RECURSIVE = YES
FILE_PATTERNS = *.h
STRIP_FROM_PATH = @KSUTIL_INCLUDE_DIR@
STRIP_FROM_INC_PATH = @KSUTIL_INCLUDE_DIR@
INPUT_FILTER = "sed -E 's,^( *)/\* ,\1/** ,; s,//  ?([^/]),///< \1,; 1s,^/\*\* ,/** @file\n * ,'"
EXTRACT_ALL = YES
JAVADOC_AUTOBRIEF = YES
OPTIMIZE_OUTPUT_FOR_C = NO
MACRO_EXPANSION = YES
EXPAND_ONLY_PREDEF = YES
PREDEFINED = KSUTIL_API= KSUTIL_PRINTF(a,b)=
GENERATE_LATEX = NO
HAVE_DOT = NO
QUIET = YES
WARN_IF_UNDOCUMENTED = NO
]])
  add_custom_target(reference
    COMMAND ${DOXYGEN} ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile
    DEPENDS ksutil_headers
    COMMENT "Writing the reference")
endif()
