#include "platform/db/internal/assignments.h"

#include <charconv>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* The shortest text that reads back as the value, with a decimal point. */
std::string real_text(double value) {
  char buffer[32];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, end);
  if (text.find_first_of(".en") == text.npos) text += ".0";
  return text;
}

struct Write {
  const Field &field;
  std::string &row;
  bool operator()(std::int64_t value) const { return write_integer(field, value, row); }
  bool operator()(double value) const { return write_real(field, value, row); }
  bool operator()(std::string_view value) const {
    return value.data() != nullptr && write_text(field, value, row);
  }
  bool operator()(void *value) const {
    return write_integer(field, reinterpret_cast<std::intptr_t>(value), row);
  }
};

/* Whether a value was refused for its length; else the writer has registered the cause. */
struct TooLong {
  const Field &field;
  bool operator()(std::int64_t) const { return true; }
  bool operator()(double value) const { return std::isfinite(value); }
  bool operator()(std::string_view value) const {
    return value.size() > static_cast<std::size_t>(field.width);
  }
  bool operator()(void *) const { return true; }
};

struct Show {
  std::string operator()(std::int64_t value) const { return std::to_string(value); }
  std::string operator()(double value) const { return real_text(value); }
  std::string operator()(std::string_view value) const {
    return value.data() == nullptr ? "a null text" : "'" + std::string(value) + "'";
  }
  std::string operator()(void *) const { return "a pointer"; }
};

}  // namespace

bool assign(const char *who, const Relation &layout,
            const std::vector<Assignment> &assignments, std::string &row) {
  for (const Assignment &assignment : assignments) {
    const Field &field = layout.fields[static_cast<std::size_t>(assignment.field)];
    const int mark = elog_mark();
    if (std::visit(Write{field, row}, assignment.value)) continue;
    if (std::visit(TooLong{field}, assignment.value)) {
      elog_flush(0, mark);
      fail(who, "%s.%s: %s does not fit its %d characters", layout.name.c_str(),
           field.name.c_str(), std::visit(Show{}, assignment.value).c_str(),
           field.width);
    } else {
      fail(who, "%s.%s: %s cannot be written", layout.name.c_str(), field.name.c_str(),
           std::visit(Show{}, assignment.value).c_str());
    }
    return false;
  }
  return true;
}

long append_assigned(const char *who, TableSource &table,
                     std::vector<Assignment> assignments) {
  const int lddate = table.find_field("lddate");
  bool stamped = lddate < 0;
  for (const Assignment &assignment : assignments) {
    stamped = stamped || assignment.field == lddate;
  }
  if (!stamped) assignments.push_back({lddate, std_now()});
  return table.append(who, [&](const Relation &layout, std::string &row) {
    return assign(who, layout, assignments, row);
  });
}

}  // namespace ksutil::db
