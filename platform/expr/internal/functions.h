/* functions: lists the functions of the language. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_FUNCTIONS_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_FUNCTIONS_H

#include <array>
#include <span>
#include <string_view>

#include "platform/expr/internal/code.h"
#include "platform/expr/internal/machine.h"

namespace ksutil::expr {

/* The traits in which a function may differ from a plain one. */
enum Trait : unsigned {
  kPlain = 0,
  kVaries = 1,      // not constant even with constant arguments
  kTakesNulls = 2,  // is called with null arguments
  kRepeats = 4,     // declared with two arguments, takes more: f(f(a, b), c)
  kGlobs = 8        // the first argument is a shell pattern
};

/* Argument codes: i integer, r real, t time, s text, b boolean; n number (the same type
 * for all n of a call), v any type, c any type that all c have in common.  Result codes:
 * i, r, t, s, b, and = for the type of the n or c.
 * One of the implementations is set; `real` ones take and give reals only. */
struct Function {
  std::string_view name;
  std::string_view arguments;
  char result;
  unsigned traits;
  Real1 real1;
  Real2 real2;
  Real4 real4;
  General general;
  std::string_view description;
};

constexpr Function of_real(std::string_view name, Real1 f, std::string_view text) {
  return {name, "r", 'r', kPlain, f, nullptr, nullptr, nullptr, text};
}
constexpr Function of_reals(std::string_view name, Real2 f, std::string_view text) {
  return {name, "rr", 'r', kPlain, nullptr, f, nullptr, nullptr, text};
}
constexpr Function of_places(std::string_view name, Real4 f, std::string_view text) {
  return {name, "rrrr", 'r', kPlain, nullptr, nullptr, f, nullptr, text};
}
constexpr Function general(std::string_view name, std::string_view arguments,
                           char result, General f, std::string_view text,
                           unsigned traits = kPlain) {
  return {name, arguments, result, traits, nullptr, nullptr, nullptr, f, text};
}

std::span<const Function> number_functions();
std::span<const Function> time_functions();
std::span<const Function> text_functions();
std::span<const Function> travel_functions();

std::array<std::span<const Function>, 4> all_functions();

/* Null when there is no such function. */
const Function *find_function(std::string_view name);

}  // namespace ksutil::expr
#endif
