/* records: gives the classes of vectors, grids, histories, seismograms and waveforms their
 * locks, and arrays over the memory of the library.
 *
 * Locks: the library allows one thread at a time in each family of tags.  A family has one
 * lock.  An object with a lock of its own takes that lock first.
 * Arrays: a record is held by a shared_ptr of its object and by one of each array over its
 * memory.  Arrays are made, and memory is moved, under the lock of the record, so that
 * has_arrays() stays true or false while the lock is held. */
#ifndef KSUTIL_PYTHON_BINDINGS_OBJECTS_RECORDS_H
#define KSUTIL_PYTHON_BINDINGS_OBJECTS_RECORDS_H

#include <pybind11/numpy.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"

namespace ksutil::python {

enum class Family { kVectors, kSeries, kGrids, kHistories, kSeismograms };
inline constexpr int kFamilyCount = 5;

/* The lock of a family.  Take it inside of a ForkGate. */
std::mutex &lock_of(Family family);

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

}  // namespace ksutil::python
#endif
