#include "platform/expr/internal/machine.h"

#include <algorithm>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/elog/failure.h"
#include "platform/expr/internal/convert.h"

namespace ksutil::expr {

namespace {

/* The operands and the result of the current instruction. */
struct Operands {
  const Instruction &in;
  Value *registers;

  Value &result() const { return registers[in.target]; }
  const Value &a() const { return registers[in.arguments[0]]; }
  const Value &b() const { return registers[in.arguments[1]]; }

  void null() const {
    Value &r = result();
    r.type = in.type;
    set_null(r);
  }
  void real(double value) const {
    Value &r = result();
    r.type = in.type;
    r.null = false;
    r.real = value;
    if (!std::isfinite(value)) [[unlikely]]
      set_null(r);
  }
  void integer(std::int64_t value) const {
    Value &r = result();
    r.type = in.type;
    r.null = false;
    r.integer = value;
  }
  bool any_null() const {
    for (std::size_t i = 0; i < in.count; ++i) {
      if (registers[in.arguments[i]].null) return true;
    }
    return false;
  }

  template <class Operation>
  void reals(Operation operation) const {
    if (a().null || b().null) [[unlikely]]
      return null();
    real(operation(a().real, b().real));
  }
  /* `operation` gives true when the result does not fit. */
  template <class Operation>
  void integers(Operation operation) const {
    if (a().null || b().null) [[unlikely]]
      return null();
    std::int64_t value = 0;
    if (operation(a().integer, b().integer, &value)) return null();
    integer(value);
  }
  template <class Comparison>
  void compare(Comparison comparison) const {
    integer(!a().null && !b().null && comparison(a(), b()));
  }
};

bool remainder(std::int64_t a, std::int64_t b, std::int64_t *rest) {
  if (b == 0) return true;
  *rest = b == -1 ? 0 : a % b;
  return false;
}

bool load(const Operands &o, const Record &record) {
  Value &r = o.result();
  if (!record.value(o.in.slot, r)) return false;
  if (r.type == o.in.type) [[likely]]
    return true;
  return fail("expr", "a field's value is not of the type that was bound");
}

bool text_to_time(const Operands &o) {
  if (o.a().null) {
    o.null();
    return true;
  }
  double time = 0.0;
  if (!parse_date_text(o.a().text, time)) {
    return fail("expr", "'%.*s' is not a date",
                static_cast<int>(std::min<std::size_t>(o.a().text.size(), 80)),
                o.a().text.data());
  }
  o.real(time);
  return true;
}

bool concatenate(const Operands &o, Scratch &scratch) {
  if (o.a().null || o.b().null) {
    o.null();
    return true;
  }
  const std::string_view a = o.a().text, b = o.b().text;
  char *const text = scratch.take(a.size() + b.size());
  if (text == nullptr) return false;
  std::copy(b.begin(), b.end(), std::copy(a.begin(), a.end(), text));
  o.result() = Value::of_text({text, a.size() + b.size()});
  return true;
}

bool call_general(const Operands &o, Scratch &scratch) {
  const Value *arguments[kMaxArguments];
  for (std::size_t i = 0; i < o.in.count; ++i) {
    arguments[i] = &o.registers[o.in.arguments[i]];
  }
  /* The result may be in the register of an argument. */
  Value result;
  result.type = o.in.type;
  Call call{scratch, arguments, result};
  if (!o.in.general(call)) return false;
  o.result() = result;
  return true;
}

void call_real(const Operands &o) {
  if (o.any_null()) return o.null();
  const auto x = [&](std::size_t i) { return o.registers[o.in.arguments[i]].real; };
  switch (o.in.op) {
    case Op::kReal1:
      return o.real(o.in.real1(x(0)));
    case Op::kReal2:
      return o.real(o.in.real2(x(0), x(1)));
    default:
      return o.real(o.in.real4(x(0), x(1), x(2), x(3)));
  }
}

}  // namespace

bool run(const Instruction *const code, Value *registers, const Record &record,
         Scratch &scratch) {
  for (const Instruction *in = code;; ++in) {
    const Operands o{*in, registers};
    switch (in->op) {
      case Op::kEnd:
        return true;
      case Op::kLoad:
        if (!load(o, record)) return false;
        break;
      case Op::kMove:
        o.result() = o.a();
        o.result().type = in->type;
        break;
      case Op::kIntegerToReal: {
        const bool null = o.a().null;
        o.real(static_cast<double>(o.a().integer));
        o.result().null = null;
        break;
      }
      case Op::kTextToTime:
        if (!text_to_time(o)) return false;
        break;
      case Op::kNegateInteger:
        if (o.a().null) {
          o.null();
        } else {
          std::int64_t value = 0;
          if (__builtin_sub_overflow(std::int64_t{0}, o.a().integer, &value)) {
            o.null();
          } else {
            o.integer(value);
          }
        }
        break;
      case Op::kNegateReal:
        o.a().null ? o.null() : o.real(-o.a().real);
        break;
      case Op::kAddInteger:
        o.integers(
            [](auto a, auto b, auto *c) { return __builtin_add_overflow(a, b, c); });
        break;
      case Op::kSubtractInteger:
        o.integers(
            [](auto a, auto b, auto *c) { return __builtin_sub_overflow(a, b, c); });
        break;
      case Op::kMultiplyInteger:
        o.integers(
            [](auto a, auto b, auto *c) { return __builtin_mul_overflow(a, b, c); });
        break;
      case Op::kModuloInteger:
        o.integers(remainder);
        break;
      case Op::kAddReal:
        o.reals([](double a, double b) { return a + b; });
        break;
      case Op::kSubtractReal:
        o.reals([](double a, double b) { return a - b; });
        break;
      case Op::kMultiplyReal:
        o.reals([](double a, double b) { return a * b; });
        break;
      case Op::kDivideReal:
        o.reals([](double a, double b) { return a / b; });
        break;
      case Op::kModuloReal:
        o.reals([](double a, double b) { return std::fmod(a, b); });
        break;
      case Op::kConcatenate:
        if (!concatenate(o, scratch)) return false;
        break;
      case Op::kEqualInteger:
        o.compare([](auto &a, auto &b) { return a.integer == b.integer; });
        break;
      case Op::kUnequalInteger:
        o.compare([](auto &a, auto &b) { return a.integer != b.integer; });
        break;
      case Op::kLessInteger:
        o.compare([](auto &a, auto &b) { return a.integer < b.integer; });
        break;
      case Op::kLessEqualInteger:
        o.compare([](auto &a, auto &b) { return a.integer <= b.integer; });
        break;
      case Op::kEqualReal:
        o.compare([](auto &a, auto &b) { return a.real == b.real; });
        break;
      case Op::kUnequalReal:
        o.compare([](auto &a, auto &b) { return a.real != b.real; });
        break;
      case Op::kLessReal:
        o.compare([](auto &a, auto &b) { return a.real < b.real; });
        break;
      case Op::kLessEqualReal:
        o.compare([](auto &a, auto &b) { return a.real <= b.real; });
        break;
      case Op::kEqualText:
        o.compare([](auto &a, auto &b) { return a.text == b.text; });
        break;
      case Op::kUnequalText:
        o.compare([](auto &a, auto &b) { return a.text != b.text; });
        break;
      case Op::kLessText:
        o.compare([](auto &a, auto &b) { return a.text < b.text; });
        break;
      case Op::kLessEqualText:
        o.compare([](auto &a, auto &b) { return a.text <= b.text; });
        break;
      case Op::kMatch:
        if (o.a().null) {
          o.null();
        } else {
          o.integer(in->pattern->found_in(o.a().text, scratch.pattern));
        }
        break;
      case Op::kNot:
        o.integer(o.a().null || o.a().integer == 0);
        break;
      case Op::kTruth:
        o.integer(!o.a().null && o.a().integer != 0);
        break;
      case Op::kRefuted:
        o.integer(!o.a().null && o.a().integer == 0);
        break;
      case Op::kJump:
        in = code + in->jump - 1;
        break;
      case Op::kJumpFalse:
        if (o.a().null || o.a().integer == 0) in = code + in->jump - 1;
        break;
      case Op::kJumpTrue:
        if (!o.a().null && o.a().integer != 0) in = code + in->jump - 1;
        break;
      case Op::kReal1:
      case Op::kReal2:
      case Op::kReal4:
        call_real(o);
        break;
      case Op::kGeneral:
        if (o.any_null()) {
          o.null();
          break;
        }
        [[fallthrough]];
      case Op::kGeneralNulls:
        if (!call_general(o, scratch)) return false;
        break;
    }
  }
}

char *Scratch::take(std::size_t size) {
  if (size > kMaxTextLength) {
    return fail("expr", "text longer than %zu bytes", kMaxTextLength);
  }
  if (block_ == blocks_.size() || used_ + size > kMaxTextLength) {
    if (block_ < blocks_.size()) ++block_;
    used_ = 0;
    if (block_ == kMaxTextMemory / kMaxTextLength) {
      return fail("expr", "more than %zu bytes of text in one evaluation",
                  kMaxTextMemory);
    }
    if (block_ == blocks_.size()) {
      blocks_.push_back(std::make_unique_for_overwrite<char[]>(kMaxTextLength));
    }
  }
  used_ += size;
  return blocks_[block_].get() + used_ - size;
}

bool Scratch::copy(std::string_view text, Value &result) {
  char *const copy = take(text.size());
  if (copy == nullptr) return false;
  std::copy(text.begin(), text.end(), copy);
  result.text = {copy, text.size()};
  return true;
}

void Scratch::clear() { block_ = used_ = 0; }

}  // namespace ksutil::expr
