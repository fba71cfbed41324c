/* view_columns: reads fields and expressions of many records of a view, as columns. */
#ifndef KSUTIL_PYTHON_BINDINGS_DATABASE_VIEW_COLUMNS_H
#define KSUTIL_PYTHON_BINDINGS_DATABASE_VIEW_COLUMNS_H

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bindings/database/database.h"
#include "platform/expr/expr.h"

namespace ksutil::python {

/* The kinds of columns, by the type of their arrays. */
enum class ColumnKind { kInteger, kReal, kTime, kText, kBoolean };

/* Texts, each of which is kept once. */
class TextPool {
 public:
  std::int32_t code(std::string_view text);
  const std::vector<std::string> &texts() const { return texts_; }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };
  std::unordered_map<std::string, std::int32_t, Hash, std::equal_to<>> codes_;
  std::vector<std::string> texts_;
  std::int32_t last_ = -1;
};

/* The values of one column; of its vectors only those of its kind are filled.  Filled
 * without the GIL. */
struct ColumnValues {
  ColumnValues(std::string title, ColumnKind of) : name(std::move(title)), kind(of) {}

  void reserve(std::size_t count);
  void add_null();
  void add_integer(std::int64_t value);
  void add_real(double value) { reals.push_back(value); }
  void add_text(std::string_view text) { codes.push_back(pool.code(text)); }
  void add(const expr::Value &value);

  /* A numpy array: int64, masked where there are nulls; float64 with NaN for nulls;
   * bool, with False for nulls; objects, str or None.  Needs the GIL; leaves the column
   * empty. */
  py::object to_array();

  /* The values as objects of Python, None for nulls.  Needs the GIL. */
  std::vector<py::object> to_objects() const;

  std::string name;
  ColumnKind kind;
  std::vector<std::int64_t> integers;  // booleans as well
  std::vector<double> reals;           // times as well
  std::vector<std::int32_t> codes;     // of texts in the pool; -1: null
  TextPool pool;
  std::vector<std::uint8_t> mask;  // of integers: 1 is null
  bool any_null = false;

 private:
  std::vector<py::object> shared_texts() const;
};

/* The kind of the values of an expression. */
ColumnKind kind_of(expr::Type type);

struct ViewReading {
  std::vector<ColumnValues> columns;
  std::vector<std::string> texts;  // where asked for: the rows as stored,
  std::vector<long> records;       // and their numbers in their table
  long unreadable = 0;             // records with a value that cannot be read
};

/* Reads records start <= record < start + count, at most those that the view has; a
 * negative count means all.  Names are fields, "lat" or "origin.lat", or expressions over
 * fields.  A value that cannot be read is null.  The texts of rows are those of the first
 * table of the view.  Throws Error and py::key_error.  Needs
 * the GIL, and gives it up meanwhile. */
ViewReading read_view(const View &view, const std::vector<std::string> &names,
                      long start, long count, bool with_texts);

}  // namespace ksutil::python
#endif
