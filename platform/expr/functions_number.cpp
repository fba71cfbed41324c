#include <cmath>
#include <cstdint>
#include <limits>

#include "platform/expr/internal/convert.h"
#include "platform/expr/internal/functions.h"
#include "platform/geo/angle.h"
#include "platform/geo/geo.h"

namespace ksutil::expr {

namespace {

const Value &argument(const Call &call, std::size_t i) { return *call.arguments[i]; }

bool absolute(Call &call) {
  const Value &x = argument(call, 0);
  if (x.type != Type::kInteger) {
    call.result.real = std::fabs(x.real);
  } else if (x.integer == std::numeric_limits<std::int64_t>::min()) {
    set_null(call.result);
  } else {
    call.result.integer = x.integer < 0 ? -x.integer : x.integer;
  }
  return true;
}

bool less(const Value &a, const Value &b) {
  if (a.type == Type::kText) return a.text < b.text;
  return a.type == Type::kInteger || a.type == Type::kBoolean ? a.integer < b.integer
                                                              : a.real < b.real;
}

bool smaller(Call &call) {
  const Value &a = argument(call, 0), &b = argument(call, 1);
  call.result = less(b, a) ? b : a;
  return true;
}

bool larger(Call &call) {
  const Value &a = argument(call, 0), &b = argument(call, 1);
  call.result = less(a, b) ? b : a;
  return true;
}

/* The remainder with the sign of the divisor, which reduces angles to one turn. */
bool modulo(Call &call) {
  const Value &a = argument(call, 0), &b = argument(call, 1);
  if (a.type != Type::kInteger) {
    const double rest = std::fmod(a.real, b.real);
    call.result.real = rest != 0 && (rest < 0) != (b.real < 0) ? rest + b.real : rest;
    if (!std::isfinite(call.result.real)) set_null(call.result);
  } else if (b.integer == 0) {
    set_null(call.result);
  } else {
    const std::int64_t rest = b.integer == -1 ? 0 : a.integer % b.integer;
    call.result.integer =
        rest != 0 && (rest < 0) != (b.integer < 0) ? rest + b.integer : rest;
  }
  return true;
}

bool is_null(Call &call) {
  call.result.integer = argument(call, 0).null ? 1 : 0;
  return true;
}

bool if_null(Call &call) {
  call.result = argument(call, argument(call, 0).null ? 1 : 0);
  return true;
}

constexpr Function kNumberFunctions[] = {
    general("abs", "n", '=', absolute, "the number without its sign"),
    general("min", "nn", '=', smaller, "the smallest of two or more", kRepeats),
    general("max", "nn", '=', larger, "the largest of two or more", kRepeats),
    general("mod", "nn", '=', modulo, "remainder with the sign of the divisor"),
    general("isnull", "v", 'b', is_null, "whether the value is null", kTakesNulls),
    general("ifnull", "cc", '=', if_null, "the second value where the first is null",
            kTakesNulls),
    of_real("sqrt", std::sqrt, "square root"),
    of_real("exp", std::exp, "e to the power of the argument"),
    of_real("log", std::log, "natural logarithm"),
    of_real("log10", std::log10, "logarithm to base 10"),
    of_reals("pow", std::pow, "the first argument to the power of the second"),
    of_real("floor", std::floor, "the largest whole number not above"),
    of_real("ceil", std::ceil, "the smallest whole number not below"),
    of_real("round", std::round, "the nearest whole number, halves away from zero"),
    of_real("trunc", std::trunc, "the whole number towards zero"),
    of_real("sin", std::sin, "sine of radians"),
    of_real("cos", std::cos, "cosine of radians"),
    of_real("tan", std::tan, "tangent of radians"),
    of_real("asin", std::asin, "arc sine in radians"),
    of_real("acos", std::acos, "arc cosine in radians"),
    of_real("atan", std::atan, "arc tangent in radians"),
    of_reals("atan2", std::atan2, "angle of the point (x, y) in radians: atan2(y, x)"),
    of_real(
        "deg", [](double x) { return degrees(x); }, "radians to degrees"),
    of_real(
        "rad", [](double x) { return radians(x); }, "degrees to radians"),
    of_places("distance", distance_degrees,
              "great-circle distance in degrees: distance(lat1, lon1, lat2, lon2)"),
    of_places("azimuth", azimuth_degrees,
              "degrees from north at the first point towards the second")};

}  // namespace

std::span<const Function> number_functions() { return kNumberFunctions; }

}  // namespace ksutil::expr
