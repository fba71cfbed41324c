/* objects: gives the classes of vectors, grids, histories, seismograms and waveforms their
 * locks, checks of arguments, and arrays over the memory of the library.
 *
 * Locks: the library allows one thread at a time in each family of tags.  A family has one
 * lock, which a thread takes only after it has released the GIL and holds only while it
 * needs nothing of Python.  An object with a lock of its own takes that lock first.
 * Arrays: a record is held by a shared_ptr of its object and by one of each array over its
 * memory.  Arrays are made, and memory is moved, under the lock of the record, so that
 * has_arrays() stays true or false while the lock is held. */
#ifndef KSUTIL_PYTHON_BINDINGS_OBJECTS_H
#define KSUTIL_PYTHON_BINDINGS_OBJECTS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bindings/arrays.h"
#include "bindings/failure.h"
#include "bindings/fork_gate.h"
#include "bindings/gil.h"

namespace ksutil::python {

enum class Family { kVectors, kSeries, kGrids, kHistories, kSeismograms };
inline constexpr int kFamilyCount = 5;

/* The lock of a family.  Take it inside of a ForkGate. */
std::mutex &lock_of(Family family);

/* Runs `work` without the GIL, under a lock. */
template <class Work>
auto locked(std::mutex &lock, const Work &work) {
  const GilReleased released;
  const ForkGate gate;
  const std::lock_guard<std::mutex> held(lock);
  return work();
}

/* Runs `work` without the GIL. */
template <class Work>
auto released(const Work &work) {
  const GilReleased gil;
  return work();
}

/* For destructors: runs `work` under a lock, without the GIL while the interpreter lives,
 * and drops its messages. */
void finish_locked(std::mutex &lock, const std::function<void()> &work) noexcept;

/* Whether an array, or anything but the object itself, holds a record. */
template <class Record>
bool has_arrays(const std::shared_ptr<Record> &record) {
  return record.use_count() > 1;
}

/* Throws Error when memory that must move is shown by an array. */
template <class Record>
void refuse_with_arrays(const std::shared_ptr<Record> &record, const char *what) {
  if (!has_arrays(record)) return;
  throw Error(std::string(what) + ": an array shows this memory; delete it first");
}

/* An array over memory of a record, which it keeps alive.  `strides` in bytes; empty: in
 * the order of C. */
template <class Value, class Record>
py::array_t<Value> array_over_record(const std::shared_ptr<Record> &record,
                                     const Value *data, std::vector<py::ssize_t> shape,
                                     std::vector<py::ssize_t> strides = {},
                                     bool writable = false) {
  if (data == nullptr) return py::array_t<Value>(std::move(shape));
  py::capsule owner = owner_of(std::make_unique<std::shared_ptr<Record>>(record));
  py::array_t<Value> array =
      strides.empty()
          ? py::array_t<Value>(std::move(shape), data, owner)
          : py::array_t<Value>(std::move(shape), std::move(strides), data, owner);
  if (!writable) array.attr("flags").attr("writeable") = false;
  return array;
}

using Doubles = py::array_t<double, py::array::c_style>;
using Floats = py::array_t<float, py::array::c_style>;

/* Numbers in the order of C.  Masked elements become `masked`.  TypeError for anything but
 * real numbers, ValueError for another number of dimensions; -1 allows any. */
Doubles doubles(py::handle value, const char *name, int dimensions, double masked);
Floats floats(py::handle value, const char *name, int dimensions, float masked);

/* The size of an array of one dimension as the int of the library; ValueError above. */
int count_of(const py::array &array, const char *name);

/* Throws ValueError for a text that holds a NUL, at which the library would end it.
 * `what` begins the message: "the name". */
void refuse_nul(const std::string &text, const char *what);

/* A path without a NUL: a text, bytes or an object with __fspath__. */
std::string path_of(py::handle path);

/* The path of a database: of an object with the attribute `path`, such as a Database, or a
 * path itself. */
std::string database_path(py::handle database);

/* Whether a sample is a gap of the library: above 1e30, or not finite. */
bool is_gap(double sample);

/* Samples as a masked array whose gaps are masked; without gaps the array itself. */
py::object without_gaps(const py::array_t<double> &samples);
py::object without_gaps(const py::array_t<float> &samples);

/* A value as a type of C++; TypeError, with its name, when it is of another kind. */
template <class Value>
Value value_as(py::handle value, const char *name) {
  try {
    return value.cast<Value>();
  } catch (const py::cast_error &) {
    throw py::type_error(std::string(name) + ": wrong type or out of range: " +
                         std::string(py::repr(value)));
  }
}

/* An index of Python, negative ones counted from the end; IndexError with `message`. */
int index_below(py::handle index, std::size_t count, const char *message);

/* Takes the signals that have arrived, so that Ctrl-C ends a wait; needs the GIL. */
void check_signals();

/* Calls a function of a module of the package ksutil with an object and further
 * arguments: for methods that are written in Python. */
py::object call_python(const char *module, const char *function, py::handle self,
                       const py::args &args, const py::kwargs &kwargs);

}  // namespace ksutil::python
#endif
