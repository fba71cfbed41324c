/* station_view: station channels in a window (ksscv) as an object of Python. */
#include <ksutil/platform/db/db.h>
#include <ksutil/waveforms/ksscv.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/gil.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/gaps.h"
#include "bindings/objects/records.h"

namespace ksutil::python {
namespace {

using Clock = std::chrono::steady_clock;
constexpr double kSlice = 0.05;  // s, between two looks for signals

/* The view, which ends with the last call that uses it.  A process that was forked leaves
 * it alone: its threads are not there. */
struct ViewRecord {
  explicit ViewRecord(ksscv *made) : view(made), process(getpid()) {}
  ~ViewRecord() {
    if (process == getpid()) ksscv_close(view);
  }
  ViewRecord(const ViewRecord &) = delete;
  ViewRecord &operator=(const ViewRecord &) = delete;

  ksscv *const view;
  const pid_t process;
};

struct DataRecord {
  DataRecord() = default;
  ~DataRecord() { ksscv_free_data(data); }
  DataRecord(const DataRecord &) = delete;
  DataRecord &operator=(const DataRecord &) = delete;

  ksscv_data *data = nullptr;
};

/* What a channel has in the window. */
class ViewData {
 public:
  explicit ViewData(std::shared_ptr<DataRecord> record) : record_(std::move(record)) {}

  const ksscv_data &get() const { return *record_->data; }

  py::object array(double *ksscv_data::*values) const {
    if (get().*values == nullptr) return py::none();
    return without_gaps(array_over_record(record_, get().*values, {get().n}));
  }
  py::array_t<unsigned char> here() const {
    return array_over_record(record_, get().here, {get().n});
  }
  py::array_t<double> times() const {
    std::vector<double> times(static_cast<std::size_t>(get().n));
    for (std::size_t i = 0; i < times.size(); ++i) {
      times[i] = get().time + static_cast<double>(i) * get().dt;
    }
    return array_of(std::move(times));
  }

 private:
  std::shared_ptr<DataRecord> record_;
};

using Codes = std::vector<std::pair<std::string, std::string>>;

Codes codes_of(const std::vector<py::object> &channels) {
  Codes codes;
  for (const py::object &each : channels) {
    if (py::isinstance<py::str>(each)) {
      const auto text = each.cast<std::string>();
      const std::size_t dot = text.rfind('.');
      if (dot == std::string::npos) throw py::value_error("'" + text + "' lacks a dot");
      codes.emplace_back(text.substr(0, dot), text.substr(dot + 1));
    } else {
      codes.push_back(value_as<std::pair<std::string, std::string>>(each, "channel"));
    }
  }
  return codes;
}

class StationView {
 public:
  StationView(const py::object &database, const std::vector<py::object> &channels,
              std::optional<double> start, std::optional<double> end, int columns,
              long cache_bytes, int threads, double period, bool prefetch)
      : path_(database_path(database)) {
    if (start.has_value() != end.has_value()) {
      throw py::value_error("start and end go together");
    }
    const ksscv_options options{cache_bytes, threads, period, prefetch ? 1 : 0};
    const Failure failure;
    record_ = released([&]() -> std::shared_ptr<ViewRecord> {
      const ForkGate gate;
      Dbptr db = dbinvalid();
      if (dbopen_noshare(path_.c_str(), "r", &db) != 0) return nullptr;
      ksscv *const view = ksscv_open(db, &options);
      dbclose(db);
      return view == nullptr ? nullptr : std::make_shared<ViewRecord>(view);
    });
    if (record_ == nullptr) failure.raise();
    try {
      if (!channels.empty()) set_channels(channels);
      if (start && end) set_window(*start, *end, columns);
    } catch (...) {
      close();
      throw;
    }
    open_views().insert(this);
  }
  ~StationView() {
    open_views().erase(this);
    close();
  }
  StationView(const StationView &) = delete;
  StationView &operator=(const StationView &) = delete;

  void close() noexcept {
    std::shared_ptr<ViewRecord> last;
    finish_locked(lock_, [&] { last.swap(record_); });
    if (last == nullptr) return;
    if (PyGILState_Check() == 1 && _Py_IsFinalizing() == 0) {
      const GilReleased gil;
      last.reset();
    }
  }
  bool closed() {
    return locked(lock_, [this] { return record_ == nullptr; });
  }
  const std::string &path() const { return path_; }
  const Codes &channels() const { return channels_; }

  /* For the end of the interpreter: closes all views, and lets threads that wait with one
   * leave it.  Threads of the library must not outlive the objects that they use. */
  static void close_all() {
    std::vector<std::shared_ptr<ViewRecord>> shares;
    std::vector<std::weak_ptr<ViewRecord>> closing;
    for (StationView *const each : open_views()) {
      const std::lock_guard<std::mutex> held(each->lock_);
      closing.push_back(each->record_);
      shares.push_back(std::move(each->record_));
    }
    released([&] {
      shares.clear();
      const auto until = Clock::now() + std::chrono::seconds(2);
      for (const auto &each : closing) {
        while (!each.expired() && Clock::now() < until) {
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
      }
    });
  }

  /* Calls a function on the view without the GIL; Error when it gives a negative number or
   * the view is closed. */
  template <class Call>
  int call(const Call &function) {
    const Failure failure;
    return failure.check(released([&] {
      const std::shared_ptr<ViewRecord> share = get();
      return function(share->view);
    }));
  }

  void set_channels(const std::vector<py::object> &channels) {
    const Codes codes = codes_of(channels);
    std::vector<const char *> stations, names;
    for (const auto &[sta, chan] : codes) {
      stations.push_back(sta.c_str());
      names.push_back(chan.c_str());
    }
    call([&](ksscv *view) {
      return ksscv_set_channels(view, static_cast<int>(codes.size()), stations.data(),
                                names.data());
    });
    channels_ = codes;
  }

  void set_window(double start, double end, int columns) {
    call([&](ksscv *view) { return ksscv_set_window(view, start, end, columns); });
  }

  /* Waits until nothing of the window is coming; whether that is so.  Takes signals, and
   * ends with an Error when another thread closes the view. */
  bool wait(std::optional<double> timeout) {
    const auto until = deadline(timeout);
    for (;;) {
      const double left = std::chrono::duration<double>(until - Clock::now()).count();
      const int done = call(
          [&](ksscv *view) { return ksscv_wait(view, std::clamp(left, 0.0, kSlice)); });
      check_signals();
      if (done == 1) return true;
      if (left <= 0.0) return false;
    }
  }

  ViewData get_data(const py::object &which, int what, bool calibrated,
                    std::optional<double> timeout) {
    const int channel = place_of(which);
    const auto until = deadline(timeout);
    for (;;) {
      auto record = std::make_shared<DataRecord>();
      call([&](ksscv *view) {
        return ksscv_get(view, channel, what, calibrated ? 1 : 0, &record->data);
      });
      const double left = std::chrono::duration<double>(until - Clock::now()).count();
      if (record->data->state != KSSCV_COMING || left <= 0.0) {
        return ViewData(std::move(record));
      }
      call([&](ksscv *view) { return ksscv_wait(view, std::min(left, kSlice)); });
      check_signals();
    }
  }

 private:
  std::shared_ptr<ViewRecord> get() {
    const ForkGate gate;
    const std::lock_guard<std::mutex> held(lock_);
    if (record_ == nullptr) throw Error("the view is closed");
    if (record_->process != getpid()) {
      throw Error("the view belongs to the process that opened it");
    }
    return record_;
  }

  /* Guarded by the GIL; never destroyed, as objects may end after the statics. */
  static std::set<StationView *> &open_views() {
    static auto *const views = new std::set<StationView *>;
    return *views;
  }

  static Clock::time_point deadline(std::optional<double> timeout) {
    if (!timeout || *timeout > 1e9) return Clock::time_point::max();
    if (std::isnan(*timeout)) throw py::value_error("timeout is not a number");
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::max(*timeout, 0.0)));
  }

  int place_of(const py::object &which) const {
    if (PyIndex_Check(which.ptr()) != 0) {
      return index_below(which, channels_.size(), "there is no such channel");
    }
    const Codes codes = codes_of({which});
    const auto found = std::find(channels_.begin(), channels_.end(), codes.front());
    if (found == channels_.end()) {
      throw py::key_error("the view has no channel " + codes.front().first + "." +
                          codes.front().second);
    }
    return static_cast<int>(found - channels_.begin());
  }

  std::mutex lock_;  // guards record_
  std::shared_ptr<ViewRecord> record_;
  const std::string path_;
  Codes channels_;  // guarded by the GIL
};

const char *state_text(int state) {
  switch (state) {
    case KSSCV_COMPLETE:
      return "complete";
    case KSSCV_COMING:
      return "coming";
    case KSSCV_NOTHING:
      return "nothing";
    default:
      return "error";
  }
}

py::dict counters(StationView &self) {
  ksscv_counts counts{};
  self.call([&](ksscv *view) { return ksscv_counters(view, &counts); });
  py::dict dict;
  dict["hits"] = counts.hits;
  dict["misses"] = counts.misses;
  dict["chunks_read"] = counts.chunks_read;
  dict["bytes_read"] = counts.bytes_read;
  dict["failed_reads"] = counts.failed_reads;
  dict["evictions"] = counts.evictions;
  dict["cache_bytes"] = counts.cache_bytes;
  dict["cache_bound"] = counts.cache_bound;
  dict["queue"] = counts.queue;
  dict["reading"] = counts.reading;
  dict["segments"] = counts.segments;
  dict["rows"] = counts.rows;
  dict["looks"] = counts.looks;
  return dict;
}

void bind_view_data(py::module_ &m) {
  py::class_<ViewData> type(m, "ViewData",
                            "What a channel of a StationView has in the window.");
  type.def_property_readonly(
      "state", [](const ViewData &self) { return state_text(self.get().state); },
      "'complete', 'coming', 'nothing' or 'error'.");
  type.def_property_readonly(
      "message", [](const ViewData &self) { return decoded(self.get().message); },
      "What is wrong; '' when nothing is.");
  type.def_property_readonly(
      "time", [](const ViewData &self) { return self.get().time; },
      "Beginning of the first column, or time of the first sample, epoch seconds.");
  type.def_property_readonly(
      "dt", [](const ViewData &self) { return self.get().dt; },
      "Seconds of a column, or between samples.");
  type.def("times", &ViewData::times,
           "Beginnings of the columns, or times of the samples: [n], epoch seconds.");
  type.def_property_readonly(
      "min", [](const ViewData &self) { return self.array(&ksscv_data::min); },
      "Least sample of each column [n] float64, without a copy, masked where there is "
      "none; None for samples.");
  type.def_property_readonly(
      "max", [](const ViewData &self) { return self.array(&ksscv_data::max); },
      "Greatest sample of each column, as min.");
  type.def_property_readonly(
      "samples", [](const ViewData &self) { return self.array(&ksscv_data::samples); },
      "Samples [n] float64, without a copy, gaps masked; None for an envelope.");
  type.def_property_readonly(
      "here", &ViewData::here,
      "For each column or sample [n] uint8: 0 a gap, 1 final, 2 awaited.");
  type.def("__len__", [](const ViewData &self) { return self.get().n; });
  type.def("__repr__", [](const ViewData &self) {
    return std::string("<ksutil.ViewData ") + state_text(self.get().state) + ", " +
           std::to_string(self.get().n) +
           (self.get().what == KSSCV_ENVELOPE ? " columns>" : " samples>");
  });
}

}  // namespace

void bind_station_view(py::module_ &m) {
  bind_view_data(m);
  py::module_::import("atexit").attr("register")(
      py::cpp_function(&StationView::close_all));
  py::class_<StationView> type(m, "StationView",
                               R"(Station channels in a time window, for displays.

StationView(database, channels=(), *, start=None, end=None, columns=1000,
            cache_bytes=0, threads=0, period=0.0, prefetch=True)

database     a Database or the path of one
channels     texts "STA.CHAN" or pairs (sta, chan)
start, end   the window, epoch seconds; columns: its width
cache_bytes  bound of the cache; 0: 256 MB
threads      that read files; 0: as many as cores
period       seconds between looks at table and files; 0: 1 s, below 0: never by itself

Threads of the view read the files.  Methods may be called from any thread; every wait ends
with Ctrl-C.  A context manager: leaving it closes the view.)");
  type.def(py::init<const py::object &, const std::vector<py::object> &,
                    std::optional<double>, std::optional<double>, int, long, int,
                    double, bool>(),
           py::arg("database"), py::arg("channels") = std::vector<py::object>(),
           py::kw_only(), py::arg("start") = py::none(), py::arg("end") = py::none(),
           py::arg("columns") = 1000, py::arg("cache_bytes") = 0,
           py::arg("threads") = 0, py::arg("period") = 0.0, py::arg("prefetch") = true);
  type.def("__enter__", [](py::object self) { return self; });
  type.def("__exit__", [](StationView &self, const py::object &, const py::object &,
                          const py::object &) { self.close(); });
  type.def("close", &StationView::close,
           "Ends the threads of the view; may be called again.");
  type.def_property_readonly("closed", &StationView::closed, "Whether it was closed.");
  type.def_property_readonly(
      "path", [](const StationView &self) { return decoded(self.path()); },
      "Path of the database.");
  type.def_property_readonly("channels", &StationView::channels,
                             "The list of (sta, chan).");
  type.def("set_channels", &StationView::set_channels, py::arg("channels"),
           "Sets the list of channels: texts 'STA.CHAN' or pairs (sta, chan).");
  type.def(
      "set_window", &StationView::set_window, py::arg("start"), py::arg("end"),
      py::arg("columns") = 1000,
      "Sets the window start <= time < end (epoch seconds) and its width in columns.");
  type.def(
      "envelope",
      [](StationView &self, const py::object &which, bool calibrated,
         std::optional<double> timeout) {
        return self.get_data(which, KSSCV_ENVELOPE, calibrated, timeout);
      },
      py::arg("channel") = 0, py::kw_only(), py::arg("calibrated") = false,
      py::arg("timeout") = py::none(),
      R"(The least and greatest sample of each column of a channel.

calibrated  multiplied with calib: nm, nm/s or nm/s^2; else counts
timeout     seconds to wait for what is being read; None: until it is there, 0: not at all)");
  type.def(
      "samples",
      [](StationView &self, const py::object &which, bool calibrated,
         std::optional<double> timeout) {
        return self.get_data(which, KSSCV_SAMPLES, calibrated, timeout);
      },
      py::arg("channel") = 0, py::kw_only(), py::arg("calibrated") = false,
      py::arg("timeout") = py::none(),
      "Every sample of a channel in the window; arguments as of envelope().");
  type.def("wait", &StationView::wait, py::arg("timeout") = py::none(),
           "Waits until nothing of the window is coming; False when time is out.");
  type.def(
      "refresh",
      [](StationView &self) {
        self.call([](ksscv *view) { return ksscv_refresh(view); });
      },
      "Lets the view look at table and files now.");
  type.def("counters", counters, "Counts of the cache and its reads: a dict.");
  type.def("__repr__", [](StationView &self) {
    return decoded("<ksutil.StationView " + self.path() + ", " +
                   std::to_string(self.channels().size()) + " channels" +
                   (self.closed() ? ", closed>" : ">"));
  });
}

}  // namespace ksutil::python
