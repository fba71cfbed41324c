#include "formats/exchange/export/event_filter.h"

#include <algorithm>

#include "platform/elog/elog.h"

namespace ksutil::exchange {
namespace {

/* Slots of the magnitude, and how many stand before those of the rows. */
constexpr int kMagnitude = 0, kMagtype = 1, kBefore = 2;

bool type_of(db::FieldType field, expr::Type &type) {
  switch (field) {
    case db::FieldType::kInteger:
    case db::FieldType::kYearday:
      type = expr::Type::kInteger;
      return true;
    case db::FieldType::kReal:
      type = expr::Type::kReal;
      return true;
    case db::FieldType::kTime:
    case db::FieldType::kDate:
      type = expr::Type::kTime;
      return true;
    case db::FieldType::kText:
      type = expr::Type::kText;
      return true;
    case db::FieldType::kPointer:
      return false;
  }
  return false;
}

}  // namespace

class EventFilter::Names final : public expr::Fields {
 public:
  explicit Names(const std::vector<Slot> &slots) : slots_(slots) {}
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    const bool event = name.starts_with("event.");
    const bool origin = name.starts_with("origin.");
    const bool qualified = event || origin;
    if (qualified) name.remove_prefix(name.find('.') + 1);
    if (!qualified && (name == "magnitude" || name == "magtype")) {
      slot = name == "magnitude" ? kMagnitude : kMagtype;
      type = name == "magnitude" ? expr::Type::kReal : expr::Type::kText;
      return true;
    }
    for (std::size_t i = 0; i < slots_.size(); i++) {
      if (slots_[i].name != name || (event && !slots_[i].of_event) ||
          (origin && slots_[i].of_event)) {
        continue;
      }
      slot = static_cast<int>(i) + kBefore;
      return type_of(slots_[i].type, type);
    }
    return false;
  }

 private:
  const std::vector<Slot> &slots_;
};

class EventFilter::Values final : public expr::Record {
 public:
  Values(const std::vector<Slot> &slots, const Rows &rows)
      : slots_(slots), rows_(rows) {}

  bool value(int number, expr::Value &result) const override {
    if (number == kMagnitude) {
      result = expr::Value::of_real(rows_.magnitude);
      result.null = rows_.magnitude <= -999.0;
      return true;
    }
    if (number == kMagtype) {
      result = expr::Value::of_text(rows_.magtype);
      result.null = rows_.magtype.empty();
      return true;
    }
    const Slot &slot = slots_[static_cast<std::size_t>(number - kBefore)];
    const std::string_view row = slot.of_event ? rows_.event : rows_.origin;
    if (read(slot, row, result)) return true;
    elog_log(0, "export: %s cannot be read.\n", slot.name.c_str());
    return false;
  }

 private:
  static bool read(const Slot &slot, std::string_view row, expr::Value &result) {
    expr::Type type = expr::Type::kText;
    type_of(slot.type, type);
    std::int64_t integer = 0;
    double real = 0.0;
    std::string_view text;
    switch (type) {
      case expr::Type::kInteger:
        if (!slot.integer.read(row, integer)) return false;
        result = expr::Value::of_integer(integer);
        result.null = integer == slot.integer.null();
        return true;
      case expr::Type::kText:
        if (!slot.text.read(row, text)) return false;
        result = expr::Value::of_text(text);
        result.null = slot.text.is_null(text);
        return true;
      default:
        if (!slot.real.read(row, real)) return false;
        result = type == expr::Type::kTime ? expr::Value::of_time(real)
                                           : expr::Value::of_real(real);
        result.null = real == slot.real.null();
        return true;
    }
  }

  const std::vector<Slot> &slots_;
  const Rows &rows_;
};

EventFilter::EventFilter(const db::Relation &event, const db::Relation &origin) {
  add(origin, false);
  add(event, true);
}

void EventFilter::add(const db::Relation &layout, bool of_event) {
  for (const db::Field &field : layout.fields) {
    Slot &slot = slots_.emplace_back();
    slot.of_event = of_event;
    slot.type = field.type;
    slot.name = field.name;
    slot.integer = db::IntegerColumn(layout, field.name);
    slot.real = db::RealColumn(layout, field.name);
    slot.text = db::TextColumn(layout, field.name);
  }
}

bool EventFilter::compile(const std::string &text, std::string &problem) {
  expr::Error error;
  program_ = expr::Program::compile(text, Names(slots_), error);
  if (program_ != nullptr && program_->type() == expr::Type::kText) {
    problem = "'" + text + "' is a text, not a condition";
    program_.reset();
  } else if (program_ == nullptr) {
    problem = "'" + text + "': " + error.message + " at character " +
              std::to_string(error.position + 1);
  }
  return program_ != nullptr;
}

int EventFilter::accepts(const Rows &rows) {
  if (program_ == nullptr) return 1;
  expr::Value value, truth;
  if (!program_->evaluate(Values(slots_, rows), workspace_, value) ||
      !expr::convert(value, expr::Type::kBoolean, workspace_, truth)) {
    return -1;
  }
  return !truth.null && truth.integer != 0 ? 1 : 0;
}

}  // namespace ksutil::exchange
