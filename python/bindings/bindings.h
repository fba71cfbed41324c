/* bindings: names the parts of the extension module, one function a source. */
#ifndef KSUTIL_PYTHON_BINDINGS_BINDINGS_H
#define KSUTIL_PYTHON_BINDINGS_BINDINGS_H

#include <pybind11/pybind11.h>

namespace ksutil::python {

namespace py = pybind11;

/* Each adds its functions and classes to the module. */
void bind_event_list(py::module_ &m);
void bind_event_records(py::module_ &m);
void bind_event_server(py::module_ &m);
void bind_event_stream(py::module_ &m);
void bind_failure(py::module_ &m);
void bind_database(py::module_ &m);
void bind_view(py::module_ &m);
void bind_table_edits(py::module_ &m);
void bind_table_row(py::module_ &m);
void bind_expression(py::module_ &m);
void bind_parameters(py::module_ &m);
void bind_moment(py::module_ &m);
void bind_traveltime(py::module_ &m);
void bind_dataset(py::module_ &m);
void bind_exchange(py::module_ &m);
void bind_figure(py::module_ &m);
void bind_grid(py::module_ &m);
void bind_history(py::module_ &m);
void bind_response(py::module_ &m);
void bind_sac(py::module_ &m);
void bind_series(py::module_ &m);
void bind_signal(py::module_ &m);
void bind_station_view(py::module_ &m);
void bind_vector(py::module_ &m);

}  // namespace ksutil::python
#endif
