#include <pybind11/numpy.h>

#include <cmath>
#include <limits>

#include "bindings/database/view_columns.h"
#include "bindings/interpreter/arrays.h"

namespace ksutil::python {
std::int32_t TextPool::code(std::string_view text) {
  if (last_ >= 0 && texts_[static_cast<std::size_t>(last_)] == text) return last_;
  const auto known = codes_.find(text);
  if (known != codes_.end()) return last_ = known->second;
  last_ = static_cast<std::int32_t>(texts_.size());
  texts_.emplace_back(text);
  codes_.emplace(text, last_);
  return last_;
}

void ColumnValues::reserve(std::size_t count) {
  switch (kind) {
    case ColumnKind::kInteger:
    case ColumnKind::kBoolean:
      integers.reserve(count);
      mask.reserve(count);
      return;
    case ColumnKind::kReal:
    case ColumnKind::kTime:
      reals.reserve(count);
      return;
    case ColumnKind::kText:
      codes.reserve(count);
  }
}

void ColumnValues::add_null() {
  any_null = true;
  switch (kind) {
    case ColumnKind::kInteger:
    case ColumnKind::kBoolean:
      integers.push_back(0);
      mask.push_back(1);
      return;
    case ColumnKind::kReal:
    case ColumnKind::kTime:
      reals.push_back(kNaN);
      return;
    case ColumnKind::kText:
      codes.push_back(-1);
  }
}

void ColumnValues::add_integer(std::int64_t value) {
  integers.push_back(value);
  mask.push_back(0);
}

void ColumnValues::add(const expr::Value &value) {
  if (value.null) return add_null();
  switch (kind) {
    case ColumnKind::kInteger:
    case ColumnKind::kBoolean:
      return add_integer(value.integer);
    case ColumnKind::kReal:
    case ColumnKind::kTime:
      return add_real(value.real);
    case ColumnKind::kText:
      return add_text(value.text);
  }
}

ColumnKind kind_of(expr::Type type) {
  switch (type) {
    case expr::Type::kInteger:
      return ColumnKind::kInteger;
    case expr::Type::kReal:
      return ColumnKind::kReal;
    case expr::Type::kTime:
      return ColumnKind::kTime;
    case expr::Type::kBoolean:
      return ColumnKind::kBoolean;
    default:
      return ColumnKind::kText;
  }
}

std::vector<py::object> ColumnValues::shared_texts() const {
  std::vector<py::object> made;
  made.reserve(pool.texts().size());
  for (const std::string &text : pool.texts()) {
    made.push_back(decoded(text));
  }
  return made;
}

py::object ColumnValues::to_array() {
  switch (kind) {
    case ColumnKind::kInteger:
      return masked_array(array_of(std::move(integers)), std::move(mask), any_null);
    case ColumnKind::kReal:
    case ColumnKind::kTime:
      return array_of(std::move(reals));
    case ColumnKind::kBoolean: {
      std::vector<std::uint8_t> truths(integers.begin(), integers.end());
      return array_of(std::move(truths)).attr("view")("bool");
    }
    case ColumnKind::kText:
      break;
  }
  const std::vector<py::object> texts = shared_texts();
  py::array array = py::module_::import("numpy").attr("empty")(codes.size(), "object");
  auto **const items = static_cast<PyObject **>(array.mutable_data());
  for (std::size_t i = 0; i < codes.size(); i++) {
    PyObject *const item =
        codes[i] < 0 ? Py_None : texts[static_cast<std::size_t>(codes[i])].ptr();
    Py_INCREF(item);
    Py_XDECREF(items[i]);
    items[i] = item;
  }
  return array;
}

std::vector<py::object> ColumnValues::to_objects() const {
  std::vector<py::object> objects;
  switch (kind) {
    case ColumnKind::kInteger:
    case ColumnKind::kBoolean:
      objects.reserve(integers.size());
      for (std::size_t i = 0; i < integers.size(); i++) {
        if (mask[i] != 0) {
          objects.push_back(py::none());
        } else if (kind == ColumnKind::kBoolean) {
          objects.push_back(py::bool_(integers[i] != 0));
        } else {
          objects.push_back(py::int_(integers[i]));
        }
      }
      return objects;
    case ColumnKind::kReal:
    case ColumnKind::kTime:
      objects.reserve(reals.size());
      for (const double value : reals) {
        objects.push_back(std::isnan(value) ? py::object(py::none())
                                            : py::object(py::float_(value)));
      }
      return objects;
    case ColumnKind::kText:
      break;
  }
  const std::vector<py::object> texts = shared_texts();
  objects.reserve(codes.size());
  for (const std::int32_t code : codes) {
    objects.push_back(code < 0 ? py::object(py::none())
                               : texts[static_cast<std::size_t>(code)]);
  }
  return objects;
}

}  // namespace ksutil::python
