#include <ksutil/core/version.h>

#include "bindings/bindings.h"
#include "events/client/type_layouts.h"

PYBIND11_MODULE(_ksutil, m) {
  using namespace ksutil::python;
  if (ksutil::events::library_type_layouts() != ksutil::events::kTypeLayouts) {
    throw pybind11::import_error(
        "the extension of ksutil was built for another library than libksutil that is "
        "loaded: build or install both together");
  }
  m.doc() = "The part of ksutil that is written in C++; import ksutil instead.";
  m.attr("__version__") = KSUTIL_VERSION;
  bind_failure(m);
  bind_database(m);
  bind_view(m);
  bind_table_edits(m);
  bind_expression(m);
  bind_parameters(m);
  bind_table_row(m);
  bind_event_records(m);
  bind_event_list(m);
  bind_event_server(m);
  bind_event_stream(m);
  bind_moment(m);
  bind_traveltime(m);
  bind_figure(m);
  bind_series(m);
  bind_vector(m);
  bind_grid(m);
  bind_history(m);
  bind_sac(m);
  bind_response(m);
  bind_dataset(m);
  bind_station_view(m);
  bind_signal(m);
  bind_exchange(m);
}
