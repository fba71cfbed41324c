# The target `reference`: the public headers as HTML in reference/html, where Doxygen is
# installed.  A filter turns their comments into Doxygen's, so that headers need no marks.
# A warning is an error.
find_program(DOXYGEN doxygen)
mark_as_advanced(DOXYGEN)
if(NOT DOXYGEN)
  return()
endif()

file(CONFIGURE OUTPUT reference.md @ONLY CONTENT [[
# libksutil @PROJECT_VERSION@ {#mainpage}

Each header states its contract at the top: ownership, threads, errors.  A program includes
everything with `#include <ksutil.h>`, or single headers by the paths shown here.

There are three degrees of promise:

- **stable**: the headers that `ksutil.h` includes, [all of them](@ref stable).  A patch version changes
  no prototype; a minor version below 1.0 may, and the list of changes says so.
- **may change**: the [C++ layer](@ref maychange) below `ksutil/cxx`.  Any minor version may change names,
  classes and layout.
- **internal**: everything else.  It is not installed, not part of this reference, and may change
  at any time.
]])
file(CONFIGURE OUTPUT Doxyfile @ONLY CONTENT [[
PROJECT_NAME = libksutil
PROJECT_NUMBER = @PROJECT_VERSION@
OUTPUT_DIRECTORY = @PROJECT_BINARY_DIR@/reference
INPUT = @KSUTIL_INCLUDE_DIR@/ksutil @CMAKE_CURRENT_BINARY_DIR@/reference.md
RECURSIVE = YES
FILE_PATTERNS = *.h *.md
STRIP_FROM_PATH = @KSUTIL_INCLUDE_DIR@
STRIP_FROM_INC_PATH = @KSUTIL_INCLUDE_DIR@
FILTER_PATTERNS = *.h=@CMAKE_CURRENT_LIST_DIR@/reference_filter
ALIASES = "stable=@xrefitem stable \"Promise: stable\" \"Stable headers\" "
ALIASES += "maychange=@xrefitem maychange \"Promise: may change\" \"Headers that may change\" "
EXTRACT_ALL = YES
JAVADOC_AUTOBRIEF = YES
OPTIMIZE_OUTPUT_FOR_C = NO
MACRO_EXPANSION = YES
EXPAND_ONLY_PREDEF = YES
DISTRIBUTE_GROUP_DOC = YES
PREDEFINED = KSUTIL_API= KSUTIL_PRINTF(a,b)=
GENERATE_LATEX = NO
HAVE_DOT = NO
QUIET = YES
WARN_IF_UNDOCUMENTED = NO
WARN_AS_ERROR = FAIL_ON_WARNINGS
]])
add_custom_target(reference
  COMMAND ${DOXYGEN} ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile
  DEPENDS ksutil_headers
  COMMENT "Writing the reference")
