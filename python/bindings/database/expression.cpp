#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/database/view_columns.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/gil.h"
#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::python {
namespace {

using Types = std::vector<expr::Type>;

/* The names of an expression, with types that are tried or given. */
class NamedTypes final : public expr::Fields {
 public:
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    const auto known = std::find(names_.begin(), names_.end(), name);
    slot = static_cast<int>(known - names_.begin());
    if (known == names_.end()) {
      names_.emplace_back(name);
      types_.push_back(fallback_);
    }
    type = types_[static_cast<std::size_t>(slot)];
    return true;
  }

  void set_types(const Types &types) { types_ = types; }
  void set_fallback(expr::Type type) {
    fallback_ = type;
    std::fill(types_.begin(), types_.end(), type);
  }
  const std::vector<std::string> &names() const { return names_; }
  const Types &types() const { return types_; }

 private:
  expr::Type fallback_ = expr::Type::kReal;
  mutable std::vector<std::string> names_;
  mutable Types types_;
};

/* One column of values for the names of an expression; made with the GIL. */
struct Values {
  expr::Type type;
  py::object held;  // the arrays
  const std::int64_t *integers = nullptr;
  const double *reals = nullptr;
  const std::uint8_t *mask = nullptr;
  std::vector<std::optional<std::string>> texts;
  std::size_t count = 0;

  bool at(std::size_t i, expr::Value &result) const {
    if (count == 1) i = 0;
    result = {};
    result.type = type;
    if (integers != nullptr) {
      result.null = mask != nullptr && mask[i] != 0;
      result.integer = integers[i];
    } else if (reals != nullptr) {
      result.null = std::isnan(reals[i]);
      result.real = reals[i];
    } else {
      result.null = !texts[i];
      result.text = texts[i] ? std::string_view(*texts[i]) : std::string_view("-");
    }
    return true;
  }
};

template <class Value>
const Value *hold(const py::handle &from, Values &values, py::list &held) {
  auto array =
      py::array_t<Value, py::array::c_style | py::array::forcecast>::ensure(from);
  if (!array) throw py::type_error("no array of numbers");
  values.count = static_cast<std::size_t>(array.size());
  held.append(array);
  return array.data();
}

/* Takes ("integers" or "booleans", array, mask or None), ("reals" or "times", array) or
 * ("texts", list). */
Values take_values(const py::tuple &given) {
  static const std::map<std::string, expr::Type> kTypes{
      {"integers", expr::Type::kInteger},
      {"booleans", expr::Type::kBoolean},
      {"reals", expr::Type::kReal},
      {"times", expr::Type::kTime},
      {"texts", expr::Type::kText}};
  const auto type = kTypes.find(py::cast<std::string>(given[0]));
  if (type == kTypes.end()) throw py::value_error("no kind of values");
  Values values;
  values.type = type->second;
  py::list held;
  switch (values.type) {
    case expr::Type::kInteger:
    case expr::Type::kBoolean: {
      if (!given[2].is_none()) {
        values.mask = hold<std::uint8_t>(given[2], values, held);
      }
      const std::size_t masked = values.count;
      values.integers = hold<std::int64_t>(given[1], values, held);
      if (values.mask != nullptr && masked != values.count) {
        throw py::value_error("the mask has another size");
      }
      break;
    }
    case expr::Type::kReal:
    case expr::Type::kTime:
      values.reals = hold<double>(given[1], values, held);
      break;
    case expr::Type::kText:
      values.texts = py::cast<std::vector<std::optional<std::string>>>(given[1]);
      values.count = values.texts.size();
  }
  values.held = held;
  return values;
}

class ColumnsRecord final : public expr::Record {
 public:
  explicit ColumnsRecord(const std::vector<Values> &values) : values_(values) {}
  void show(std::size_t i) { at_ = i; }
  bool value(int slot, expr::Value &result) const override {
    return values_[static_cast<std::size_t>(slot)].at(at_, result);
  }

 private:
  const std::vector<Values> &values_;
  std::size_t at_ = 0;
};

/* An expression; the programs for the types it has been used with are kept.  Used with the
 * GIL, but for the evaluation itself. */
class Expression {
 public:
  explicit Expression(std::string text) : text_(std::move(text)) {
    /* The types of the names are not known yet: the text is at fault when no choice of one
     * type for all of them, nor of others for those that the errors name, compiles. */
    expr::Error error;
    for (const expr::Type type : {expr::Type::kReal, expr::Type::kText,
                                  expr::Type::kTime, expr::Type::kBoolean}) {
      names_.set_fallback(type);
      if (expr::Program::compile(text_, names_, error)) return;
    }
    if (!compiles_with_mixed_types()) raise(error);
  }

  const std::string &text() const { return text_; }
  const std::vector<std::string> &names() const { return names_.names(); }

  /* None when the types of the columns have brought more names to light. */
  py::object evaluate(const std::vector<py::tuple> &given, std::size_t count) {
    if (given.size() != names().size()) throw py::value_error("one column for a name");
    std::vector<Values> values;
    Types types;
    for (const py::tuple &column : given) {
      values.push_back(take_values(column));
      if (values.back().count != count && values.back().count != 1) {
        throw py::value_error("columns have different lengths");
      }
      types.push_back(values.back().type);
    }
    const std::shared_ptr<const expr::Program> program = compiled(types);
    if (program == nullptr) return py::none();
    ColumnValues result(text_, kind_of(program->type()));
    {
      const GilReleased released;
      run(*program, values, count, result);
    }
    return result.to_array();
  }

 private:
  /* Whether some choice of types compiles; true also when there are too many to try all.
   * A text that fails early hides the names behind that place: it is tried again until no
   * new ones come. */
  bool compiles_with_mixed_types() {
    constexpr std::size_t kTried = 6, kLongest = 4096;
    static const expr::Type kChoices[] = {expr::Type::kReal, expr::Type::kText,
                                          expr::Type::kTime, expr::Type::kBoolean};
    for (std::size_t known = 0; known < names().size();) {
      known = names().size();
      if (known > kTried || text_.size() > kLongest) return true;
      std::size_t combinations = 1;
      for (std::size_t i = 0; i < known; i++) combinations *= std::size(kChoices);
      for (std::size_t number = 0; number < combinations; number++) {
        Types types(names().size(), expr::Type::kReal);
        std::size_t rest = number;
        for (std::size_t i = 0; i < known; i++) {
          types[i] = kChoices[rest % std::size(kChoices)];
          rest /= std::size(kChoices);
        }
        names_.set_types(types);
        expr::Error error;
        if (expr::Program::compile(text_, names_, error)) return true;
      }
    }
    return false;
  }

  [[noreturn]] void raise(const expr::Error &error) const {
    throw Error("Can't compile '" + text_.substr(0, 200) + "': " + error.message +
                " at position " + std::to_string(error.position));
  }

  /* Null when the text has names beyond those of the types. */
  std::shared_ptr<const expr::Program> compiled(const Types &types) {
    const auto known = programs_.find(types);
    if (known != programs_.end()) return known->second;
    names_.set_types(types);
    expr::Error error;
    std::shared_ptr<const expr::Program> program =
        expr::Program::compile(text_, names_, error);
    if (names().size() > types.size()) return nullptr;
    if (program == nullptr) raise(error);
    programs_[types] = program;
    return program;
  }

  static void run(const expr::Program &program, const std::vector<Values> &values,
                  std::size_t count, ColumnValues &result) {
    result.reserve(count);
    const Failure failure;
    ColumnsRecord record(values);
    expr::Workspace workspace;
    expr::Value value;
    for (std::size_t i = 0; i < count; i++) {
      record.show(i);
      if (!program.evaluate(record, workspace, value)) {
        throw Error("element " + std::to_string(i) + ": " + failure.text());
      }
      result.add(value);
    }
  }

  const std::string text_;
  NamedTypes names_;
  std::map<Types, std::shared_ptr<const expr::Program>> programs_;
};

/* The names of the time fields of a schema. */
std::vector<std::string> time_fields(const std::string &schema) {
  const Failure failure;
  const auto loaded = db::Schema::load(schema);
  if (loaded == nullptr) failure.raise();
  std::vector<std::string> names;
  for (const db::Relation &relation : loaded->relations()) {
    for (const db::Field &field : relation.fields) {
      if (field.type == db::FieldType::kTime || field.type == db::FieldType::kDate) {
        names.push_back(field.name);
      }
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace

void bind_expression(py::module_ &m) {
  py::class_<Expression>(m, "Expression")
      .def(py::init<std::string>(), py::arg("text"))
      .def_property_readonly("text", &Expression::text)
      .def_property_readonly("names", &Expression::names)
      .def("evaluate", &Expression::evaluate, py::arg("columns"), py::arg("count"));
  m.def("time_fields", &time_fields, py::arg("schema"));
}

}  // namespace ksutil::python
