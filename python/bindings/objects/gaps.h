/* gaps: finds samples that are gaps, and masks them. */
#ifndef KSUTIL_PYTHON_BINDINGS_OBJECTS_GAPS_H
#define KSUTIL_PYTHON_BINDINGS_OBJECTS_GAPS_H

#include <pybind11/numpy.h>

namespace ksutil::python {

namespace py = pybind11;

/* Whether a sample is a gap of the library: above 1e30, or not finite. */
bool is_gap(double sample);

/* Samples as a masked array whose gaps are masked; without gaps the array itself. */
py::object without_gaps(const py::array_t<double> &samples);
py::object without_gaps(const py::array_t<float> &samples);

}  // namespace ksutil::python
#endif
