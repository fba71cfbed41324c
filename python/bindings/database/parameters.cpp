#include <pybind11/stl.h>

#include <memory>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/gil.h"
#include "config/kspf.h"
#include "platform/pf/owners.h"
#include "platform/stock/owners.h"

namespace ksutil::python {
namespace {

py::str decoded(const char *text) {
  return py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
      text, static_cast<py::ssize_t>(std::strlen(text)), "surrogateescape"));
}

/* A tree as texts, lists and dictionaries; its depth is bounded by kPfMaxDepth. */
py::object to_python(Pf *pf) {
  switch (pf_kind(pf)) {
    case PFTBL: {
      py::list list;
      for_each<Pf>(pf_tbl(pf), [&](Pf *item) { list.append(to_python(item)); });
      return list;
    }
    case PFARR: {
      const TblPtr keys(pfkeys_in_order(pf));
      if (!keys) throw std::bad_alloc();
      py::dict dict;
      for_each<const char>(keys.get(), [&](const char *key) {
        dict[decoded(key)] = to_python(static_cast<Pf *>(getarr(pf_arr(pf), key)));
      });
      return dict;
    }
    default:
      return decoded(pf_text(pf) == nullptr ? "" : pf_text(pf));
  }
}

/* A parameter file.  All of it needs the GIL, which files are read and written without. */
class Parameters {
 public:
  void read(const std::string &path, bool search) {
    KSPf read;
    {
      const GilReleased released;
      const Failure failure;
      failure.check(search ? read.read(path) : read.readFile(path));
    }
    pf_ = read;
  }

  void read_text(const std::string &text, const std::string &name) {
    const Failure failure;
    failure.check(pf_.readText(text, name));
  }

  void write(const std::string &path) const {
    const KSPf copy = pf_;
    const GilReleased released;
    const Failure failure;
    failure.check(copy.write(path));
  }

  py::object text() const {
    const Failure failure;
    std::string text;
    failure.check(pf_.text(text));
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        text.data(), static_cast<py::ssize_t>(text.size()), "surrogateescape"));
  }

  /* What stands at a path; KeyError when nothing does. */
  py::object get(const std::string &path) const {
    const Failure failure;
    Pf *tree = nullptr;
    if (pf_.kind(path) == PFINVALID) {
      if (path.empty()) return py::dict();
      throw py::key_error(path);
    }
    failure.check(pf_.getPf(path, &tree));
    const PfOwner held(tree);
    return to_python(tree);
  }

  bool has(const std::string &path) const {
    const Failure failure;
    return pf_.kind(path) != PFINVALID;
  }

  void set(const std::string &path, const std::string &value, bool written) {
    const Failure failure;
    failure.check(written ? pf_.setWritten(path, value) : pf_.set(path, value));
  }

  void insert(const std::string &path, const std::string &value, bool written) {
    const Failure failure;
    failure.check(written ? pf_.insertWritten(path, value) : pf_.insert(path, value));
  }

  void remove(const std::string &path) {
    const Failure failure;
    if (pf_.kind(path) == PFINVALID) throw py::key_error(path);
    failure.check(pf_.remove(path));
  }

  void merge(const Parameters &later, int flags) {
    const Failure failure;
    failure.check(pf_.merge(later.pf_, flags));
  }

  void format() {
    const Failure failure;
    failure.check(pf_.format());
  }

  py::tuple where(const std::string &path) const {
    const Failure failure;
    std::string file;
    long line = 0;
    failure.check(pf_.where(path, file, line));
    return py::make_tuple(file, line);
  }

  /* (file, line, path, text) of each violation. */
  py::list check(const Parameters &constraints) const {
    const Failure failure;
    KSPf_Constraint constraint;
    Table<KSPf_Violation> violations;
    failure.check(constraints.pf_.readConstraint(constraint));
    failure.check(pf_.check(constraint, violations));
    py::list found;
    for (const KSPf_Violation &each : violations) {
      found.append(py::make_tuple(each.file, each.line, each.path, each.text));
    }
    return found;
  }

 private:
  KSPf pf_;
};

}  // namespace

void bind_parameters(py::module_ &m) {
  py::class_<Parameters>(m, "Parameters")
      .def(py::init<>())
      .def("read", &Parameters::read, py::arg("path"), py::arg("search"))
      .def("read_text", &Parameters::read_text, py::arg("text"), py::arg("name"))
      .def("write", &Parameters::write, py::arg("path"))
      .def("text", &Parameters::text)
      .def("get", &Parameters::get, py::arg("path"))
      .def("has", &Parameters::has, py::arg("path"))
      .def("set", &Parameters::set, py::arg("path"), py::arg("value"),
           py::arg("written"))
      .def("insert", &Parameters::insert, py::arg("path"), py::arg("value"),
           py::arg("written"))
      .def("remove", &Parameters::remove, py::arg("path"))
      .def("merge", &Parameters::merge, py::arg("later"), py::arg("flags"))
      .def("format", &Parameters::format)
      .def("where", &Parameters::where, py::arg("path"))
      .def("check", &Parameters::check, py::arg("constraints"));
}

}  // namespace ksutil::python
