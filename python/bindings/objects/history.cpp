/* history: bounded lists of times and values (kshistory) as objects of Python. */
#include <ksutil/objects/kshistory.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/records.h"

namespace ksutil::python {
namespace {

std::mutex &family() { return lock_of(Family::kHistories); }

class History {
 public:
  History(int maxn, const std::optional<std::string> &name, const py::object &file)
      : name_(name.value_or("")) {
    const std::string path = file.is_none() ? "" : path_of(file);
    if (maxn < 1) throw py::value_error("maxn must be 1 or more");
    refuse_nul(name_, "the name");
    const Failure failure;
    history_ = locked(family(), [&] {
      return kshistory_create(maxn, name_.c_str(),
                              path.empty() ? nullptr : path.c_str(), tag_);
    });
    if (history_ == nullptr) {
      /* The library prints its complaint of a file that is locked. */
      failure.raise(
          (path + ": in use by another history, or not to be locked").c_str());
    }
    maxn_ = history_->maxn;
    file_ = path;
  }
  ~History() {
    if (history_ != nullptr) finish_locked(family(), [this] { kshistory_free(tag_); });
  }
  History(const History &) = delete;
  History &operator=(const History &) = delete;

  void close() {
    locked(family(), [this] {
      if (history_ != nullptr) kshistory_free(tag_);
      history_ = nullptr;
    });
  }

  /* Calls a function on the tag of an open history, under the lock; Error when it gives a
   * negative number. */
  template <class Call>
  int call(const Call &function) const {
    const Failure failure;
    return failure.check(locked(family(), [&] {
      if (history_ == nullptr) throw Error("the history is closed");
      return function(tag_);
    }));
  }

  long size() const {
    long count = 0;
    call([&](const char *) {
      count = counttbl(history_->entries);
      return 0;
    });
    return count;
  }
  bool closed() const {
    return locked(family(), [this] { return history_ == nullptr; });
  }
  int maxn() const { return maxn_; }
  const std::string &name() const { return name_; }
  const std::string &file() const { return file_; }
  std::string tag() const { return tag_; }

 private:
  KSHistory *history_ = nullptr;
  char tag_[KS_TAG_SIZE] = "";
  int maxn_ = 0;
  std::string name_, file_;
};

/* Both columns, as arrays of their own: entries move when old ones are dropped. */
std::pair<py::array_t<double>, py::array_t<double>> points(const History &self) {
  int n = 0;
  double *times = nullptr, *values = nullptr;
  self.call(
      [&](const char *tag) { return kshistory_get_points(tag, &n, &times, &values); });
  const std::unique_ptr<double, void (*)(void *)> held_times(times, std::free),
      held_values(values, std::free);
  const auto copy = [n](const double *from) {
    return array_of(from == nullptr ? std::vector<double>()
                                    : std::vector<double>(from, from + n));
  };
  return {copy(times), copy(values)};
}

void extend(const History &self, const py::object &times, const py::object &values) {
  const Doubles t = doubles(times, "times", 1, std::nan(""));
  const Doubles v = doubles(values, "values", 1, std::nan(""));
  if (t.size() != v.size()) {
    throw py::value_error("times and values must have the same length");
  }
  const double *const ts = t.data(), *const vs = v.data();
  const py::ssize_t n = t.size();
  self.call([&](const char *tag) {
    for (py::ssize_t i = 0; i < n; ++i) {
      if (kshistory_add(tag, ts[i], vs[i]) != 0) return -1;
    }
    return 0;
  });
}

py::array_t<double> evaluate(const History &self, const py::object &at) {
  const Doubles t = doubles(at, "times", -1, std::nan(""));
  py::array_t<double> values(std::vector<py::ssize_t>(t.shape(), t.shape() + t.ndim()));
  double *const to = values.mutable_data();
  const double *const from = t.data();
  const py::ssize_t n = t.size();
  self.call([&](const char *tag) {
    for (py::ssize_t i = 0; i < n; ++i) {
      to[i] = std::nan("");
      if (!std::isnan(from[i]) && kshistory_eval(tag, to + i, from[i]) != 0) return -1;
    }
    return 0;
  });
  return values;
}

py::str show(const History &self) {
  if (self.closed()) return "<ksutil.History, closed>";
  return decoded("<ksutil.History " + self.name() + (self.name().empty() ? "" : ", ") +
                 std::to_string(self.size()) + " of " + std::to_string(self.maxn()) +
                 " entries>");
}

}  // namespace

void bind_history(py::module_ &m) {
  py::class_<History> type(m, "History",
                           R"(A bounded list of times and values, in memory or a file.

History(maxn, *, name=None, file=None)

maxn  the most entries kept; a full list drops the oldest
file  where the entries are kept, read if it is there; it is locked until close()

A context manager: leaving it closes the history.  The file stays.)");
  type.def(py::init<int, std::optional<std::string>, py::object>(), py::arg("maxn"),
           py::kw_only(), py::arg("name") = py::none(), py::arg("file") = py::none());
  type.def("__len__", &History::size);
  type.def("__repr__", show);
  type.def("__enter__", [](py::object self) { return self; });
  type.def("__exit__", [](History &self, const py::object &, const py::object &,
                          const py::object &) { self.close(); });
  type.def("close", &History::close,
           "Ends the use of the history and unlocks its file; may be called again.");
  type.def_property_readonly("closed", &History::closed, "Whether it was closed.");
  type.def_property_readonly("maxn", &History::maxn, "The most entries kept.");
  type.def_property_readonly("name", &History::name, "Its name; '' for none.");
  type.def_property_readonly(
      "file", [](const History &self) { return decoded(self.file()); },
      "Its file; '' for none.");
  type.def_property_readonly("tag", &History::tag,
                             "Tag of the history in the library.");
  type.def(
      "append",
      [](const History &self, double time, double value) {
        self.call([&](const char *tag) { return kshistory_add(tag, time, value); });
      },
      py::arg("time"), py::arg("value"), "Adds an entry (time in epoch seconds).");
  type.def("extend", extend, py::arg("times"), py::arg("values"),
           "Adds entries: arrays [n].  After an Error those before it are there.");
  type.def_property_readonly(
      "times", [](const History &self) { return points(self).first; },
      "Times [n] float64, epoch seconds, as a copy.");
  type.def_property_readonly(
      "values", [](const History &self) { return points(self).second; },
      "Values [n] float64, as a copy.");
  type.def(
      "points",
      [](const History &self) {
        auto [times, values] = points(self);
        return py::make_tuple(times, values);
      },
      "(times, values), both of the same moment.");
  type.def("evaluate", evaluate, py::arg("times"),
           R"(Values at times (any shape), linear between entries.

The first and the last value hold beyond them; NaN for NaN; Error without entries.)");
  type.def(
      "extremes",
      [](const History &self) {
        double tmin = 0.0, tmax = 0.0, vmin = 0.0, vmax = 0.0;
        self.call([&](const char *tag) {
          return kshistory_maxmin(tag, &tmin, &tmax, &vmin, &vmax);
        });
        return py::make_tuple(tmin, tmax, vmin, vmax);
      },
      "(first time, last time, least value, greatest value).");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "history_figure", self, args, kwargs);
      },
      "A Figure of the values; see ksutil.figures.history_figure.");
}

}  // namespace ksutil::python
