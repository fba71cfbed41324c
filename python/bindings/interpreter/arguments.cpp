#include "bindings/interpreter/arguments.h"

#include <climits>
#include <cstring>

namespace ksutil::python {
namespace {

bool is_masked(py::handle value) {
  /* Masked arrays exist only where the module has been imported. */
  const py::dict modules = py::module_::import("sys").attr("modules");
  if (!modules.contains("numpy.ma")) return false;
  return py::isinstance(value, modules["numpy.ma"].attr("MaskedArray"));
}

/* The numbers of `value` as an array of any real type. */
py::array numbers(py::handle value, const char *name, int dimensions, double masked) {
  py::object object = py::reinterpret_borrow<py::object>(value);
  if (is_masked(object)) {
    const char kind = py::array(object.attr("data")).dtype().kind();
    if (std::strchr("bfiu", kind) != nullptr) {
      object = object.attr("astype")("float64").attr("filled")(masked);
    }
  }
  py::array array = py::array::ensure(object);
  if (!array) {
    PyErr_Clear();
    throw py::type_error(std::string(name) + ": expected numbers");
  }
  if (std::strchr("bfiu", array.dtype().kind()) == nullptr) {
    throw py::type_error(std::string(name) + ": expected real numbers, not " +
                         std::string(py::str(array.dtype())));
  }
  if (dimensions >= 0 && array.ndim() != dimensions) {
    throw py::value_error(std::string(name) + ": expected " +
                          std::to_string(dimensions) +
                          (dimensions == 1 ? " dimension, not " : " dimensions, not ") +
                          std::to_string(array.ndim()));
  }
  return array;
}

}  // namespace

Doubles doubles(py::handle value, const char *name, int dimensions, double masked) {
  return py::array_t<double, py::array::c_style | py::array::forcecast>(
      numbers(value, name, dimensions, masked));
}

Floats floats(py::handle value, const char *name, int dimensions, float masked) {
  return py::array_t<float, py::array::c_style | py::array::forcecast>(
      numbers(value, name, dimensions, masked));
}

int count_of(const py::array &array, const char *name) {
  if (array.size() > INT_MAX) {
    throw py::value_error(std::string(name) + ": more than 2147483647 elements");
  }
  return static_cast<int>(array.size());
}

void refuse_nul(const std::string &text, const char *what) {
  if (text.find('\0') == text.npos) return;
  throw py::value_error(std::string(what) + " holds a null character");
}

std::string path_of(py::handle path) {
  const py::module_ os = py::module_::import("os");
  auto text = os.attr("fsencode")(path).cast<std::string>();
  refuse_nul(text, "the path");
  return text;
}

std::string database_path(py::handle database) {
  const bool is_path = py::isinstance<py::str>(database) ||
                       py::isinstance<py::bytes>(database) ||
                       py::hasattr(database, "__fspath__");
  if (!is_path && py::hasattr(database, "path")) {
    return path_of(database.attr("path"));
  }
  return path_of(database);
}

int index_below(py::handle index, std::size_t count, const char *message) {
  Py_ssize_t place = PyNumber_AsSsize_t(index.ptr(), PyExc_IndexError);
  if (place == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
  const auto end = static_cast<Py_ssize_t>(count);
  if (place < 0) place += end;
  if (place < 0 || place >= end) throw py::index_error(message);
  return static_cast<int>(place);
}

}  // namespace ksutil::python
