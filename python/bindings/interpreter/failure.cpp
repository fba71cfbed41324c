#include "bindings/interpreter/failure.h"

#include <ksutil/platform/elog/elog.h>
#include <ksutil/platform/elog/elog_take.h>

#include <cstdlib>
#include <memory>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"

namespace ksutil::python {
namespace {

struct Free {
  void operator()(char *text) const { std::free(text); }
};

}  // namespace

Failure::Failure() : mark_(elog_mark()) {}

Failure::~Failure() { elog_flush(0, mark_); }

std::string Failure::text() const {
  const std::unique_ptr<char, Free> taken(elog_take(mark_));
  if (!taken) throw std::bad_alloc();
  std::string text = taken.get();
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

void Failure::raise(const char *otherwise) const {
  std::string told = text();
  throw Error(told.empty() ? otherwise : told);
}

void bind_failure(py::module_ &m) {
  static PyObject *type = nullptr;
  py::exception<Error> error(m, "Error", PyExc_RuntimeError);
  error.attr("__module__") = "ksutil";
  error.attr("__doc__") = "A call of the library failed; the text is its message.";
  type = error.release().ptr();
  /* Messages hold texts of files, which need not be UTF-8. */
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Error &failed) {
      PyErr_SetObject(type, decoded(failed.what()).ptr());
    }
  });
}

}  // namespace ksutil::python
