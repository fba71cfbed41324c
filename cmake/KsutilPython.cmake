# Finds what the Python module is built with.  Sets KSUTIL_PYTHON_FOUND where an interpreter
# with numpy, its headers and pybind11 are there; then also Python3_EXECUTABLE,
# PYBIND11_INCLUDE and Python3_add_library().
#
# The interpreter is the system's, as Debian's numpy and pybind11 belong to it, and else the
# first in PATH; KSUTIL_PYTHON_EXECUTABLE names another.
if(NOT DEFINED KSUTIL_PYTHON_FOUND)
  set(KSUTIL_PYTHON_FOUND OFF)
  if(NOT KSUTIL_PYTHON_EXECUTABLE)
    foreach(python /usr/bin/python3 python3)
      execute_process(COMMAND ${python} -c "import numpy, sys; print(sys.executable)"
        OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE result ERROR_QUIET)
      if(result EQUAL 0)
        set(KSUTIL_PYTHON_EXECUTABLE ${found} CACHE FILEPATH
          "Interpreter that the Python module is for")
        break()
      endif()
    endforeach()
  endif()
  find_path(PYBIND11_INCLUDE pybind11/pybind11.h)
  mark_as_advanced(PYBIND11_INCLUDE)
  if(KSUTIL_PYTHON_EXECUTABLE AND PYBIND11_INCLUDE)
    set(Python3_EXECUTABLE ${KSUTIL_PYTHON_EXECUTABLE})
    find_package(Python3 3.9 COMPONENTS Interpreter Development.Module QUIET)
    if(Python3_Interpreter_FOUND AND Python3_Development.Module_FOUND)
      set(KSUTIL_PYTHON_FOUND ON)
    endif()
  endif()
endif()
