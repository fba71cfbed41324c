/* arrays: makes numpy arrays of memory and of values of the library.
 *
 * All functions need the GIL. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_ARRAYS_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_ARRAYS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ksutil::python {

namespace py = pybind11;

/* A null among real numbers. */
inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/* Keeps a C++ value alive as long as an object of Python. */
template <class Value>
py::capsule owner_of(std::unique_ptr<Value> value) {
  py::capsule owner(value.get(), [](void *held) { delete static_cast<Value *>(held); });
  value.release();
  return owner;
}

/* An array over memory that `owner` keeps where it is; without a copy.
 *
 * shape     of the array, in the order of C
 * writable  whether Python may write into the memory */
template <class Value>
py::array_t<Value> array_over(const Value *data, std::vector<py::ssize_t> shape,
                              py::handle owner, bool writable = false) {
  py::array_t<Value> array(std::move(shape), data, owner);
  if (!writable) array.attr("flags").attr("writeable") = false;
  return array;
}

/* A writable array of one dimension that owns the values of a vector; without a copy. */
template <class Value>
py::array_t<Value> array_of(std::vector<Value> values) {
  auto held = std::make_unique<std::vector<Value>>(std::move(values));
  const Value *data = held->data();
  const auto size = static_cast<py::ssize_t>(held->size());
  return array_over(data, {size}, owner_of(std::move(held)), true);
}

/* A masked array; the elements whose mask is not 0 are masked.  Without an element to mask
 * it is a plain array. */
inline py::object masked_array(py::array values, std::vector<std::uint8_t> mask,
                               bool any) {
  if (!any) return values;
  py::array bits = array_of(std::move(mask)).attr("view")("bool");
  return py::module_::import("numpy.ma")
      .attr("MaskedArray")(values, py::arg("mask") = bits, py::arg("copy") = false);
}

/* The value of a real attribute: None for its null and for NaN. */
inline py::object real_or_none(double value, double null) {
  if (value == null || value != value) return py::none();
  return py::float_(value);
}

/* The value of an integer attribute: None for its null. */
inline py::object integer_or_none(long value, long null) {
  if (value == null) return py::none();
  return py::int_(value);
}

/* A text of the library as one of Python.  Bytes that are not UTF-8, as in texts of files
 * and in names that the library has cut, become U+FFFD. */
inline py::str decoded(std::string_view text) {
  PyObject *const made = PyUnicode_DecodeUTF8(
      text.data(), static_cast<py::ssize_t>(text.size()), "replace");
  if (made == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(made);
}

/* The value of a text attribute: None for "-" and for an empty one. */
inline py::object text_or_none(const std::string &text) {
  if (text.empty() || text == "-") return py::none();
  return decoded(text);
}

}  // namespace ksutil::python
#endif
