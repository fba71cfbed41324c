#include "bindings/events/event_columns.h"

#include <ksutil/platform/elog/elog.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"

namespace ksutil::python {
namespace {

/* Own fields of events whose values are whole numbers. */
constexpr std::array<std::string_view, 12> kOwnIntegers = {"evid",
                                                           "prefor",
                                                           "order",
                                                           "norigins",
                                                           "nmagnitudes",
                                                           "nmoments",
                                                           "ndetections",
                                                           "nassociations",
                                                           "recno_event",
                                                           "pref_origin",
                                                           "pref_magnitude_origin",
                                                           "pref_moment_origin"};
constexpr std::array<std::string_view, 4> kOwnTimes = {"time", "lddate_event",
                                                       "lddate_view", "access_time"};

template <std::size_t Count>
bool is_among(const std::array<std::string_view, Count> &names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/* The field that a query names, when it is only a name; null for own fields as well. */
const db::Field *field_of(const RowLayouts &layouts, std::string_view query) {
  const std::size_t point = query.find('.');
  if (point != query.npos) {
    return layouts.field(query.substr(0, point), query.substr(point + 1));
  }
  for (const char *table : {"event", "origin", "origerr", "netmag", "mt"}) {
    if (const db::Field *const field = layouts.field(table, query)) return field;
  }
  return nullptr;
}

/* The type of a column in which no event has a value yet. */
void set_expected_type(const RowLayouts &layouts, std::string_view query,
                       EventColumn &column) {
  column.is_time = is_among(kOwnTimes, query);
  if (column.is_time || query == "magnitude") return;
  const db::Field *const field = field_of(layouts, query);
  if (is_among(kOwnIntegers, query)) {
    column.type = EV_INTEGER;
  } else if (query == "magtype") {
    column.type = EV_TEXT;
  } else if (field != nullptr) {
    switch (field->type) {
      case db::FieldType::kInteger:
      case db::FieldType::kYearday:
        column.type = EV_INTEGER;
        break;
      case db::FieldType::kText:
        column.type = EV_TEXT;
        break;
      case db::FieldType::kTime:
      case db::FieldType::kDate:
        column.is_time = true;
        break;
      case db::FieldType::kReal:
      case db::FieldType::kPointer:
        break;
    }
  }
}

/* Calls take(i, result, type, value) for each event; gives the number of values that
 * cannot be read. */
template <class Take>
long each_value(const EventChoice &events, const std::string &query, Take take) {
  const Failure failure;
  std::vector<EVQueryToken> tokens;
  if (!events.listener->compile(query, tokens)) failure.raise();
  const int mark = elog_mark();
  const long size = events.size();
  long unreadable = 0;
  for (long i = 0; i < size; i++) {
    alignas(8) char value[EV_VALUE_SIZE];
    int type = 0;
    const int result =
        events.listener->getValue(&events.event(i), tokens, &type, value);
    if (result < 0) {
      elog_flush(0, mark);
      unreadable++;
    }
    take(i, result, type, value);
  }
  return unreadable;
}

/* Makes room for all values, which are null at first. */
void start(EventColumn &column, std::size_t size) {
  switch (column.type) {
    case EV_INTEGER:
      column.integers.assign(size, -1);
      break;
    case EV_TEXT:
      column.texts.assign(size, std::string());
      break;
    default:
      column.reals.assign(size, kNaN);
  }
}

void store(EventColumn &column, std::size_t i, int type, const char *value) {
  std::int64_t integer = 0;
  double real = 0.0;
  if (type != EV_TEXT) std::memcpy(&integer, value, sizeof integer);
  if (type == EV_DOUBLE) std::memcpy(&real, value, sizeof real);
  if (column.type == EV_TEXT) {
    column.texts[i] = type == EV_TEXT ? value : std::string();
  } else if (column.type == EV_INTEGER) {
    column.integers[i] = integer;
  } else {
    column.reals[i] = type == EV_DOUBLE ? real : static_cast<double>(integer);
  }
}

constexpr std::size_t kSharedTexts = 256;

/* The texts as objects, None for nulls; of the first different ones each is made once. */
py::object array_of_texts(const EventColumn &column) {
  std::unordered_map<std::string_view, py::object> known;
  py::array array = py::module_::import("numpy").attr("empty")(column.texts.size(),
                                                               py::arg("dtype") = "O");
  auto **const objects = static_cast<PyObject **>(array.mutable_data());
  for (std::size_t i = 0; i < column.texts.size(); i++) {
    py::object text = py::none();
    if (column.nulls[i] == 0) {
      const auto kept = known.find(column.texts[i]);
      text = kept != known.end() ? kept->second : text_or_none(column.texts[i]);
      if (kept == known.end() && known.size() < kSharedTexts) {
        known.emplace(column.texts[i], text);
      }
    }
    Py_XSETREF(objects[i], text.release().ptr());
  }
  return array;
}

py::object array_of_times(const std::vector<double> &times) {
  std::vector<std::int64_t> micros(times.size());
  std::transform(times.begin(), times.end(), micros.begin(), [](double time) {
    constexpr double kLargest = 9.2e12;  // seconds that microseconds have room for
    return std::fabs(time) < kLargest
               ? static_cast<std::int64_t>(std::llround(time * 1e6))
               : std::numeric_limits<std::int64_t>::min();
  });
  return array_of(std::move(micros)).attr("view")("datetime64[us]");
}

}  // namespace

EventColumn evaluate(const EventChoice &events, const std::string &query) {
  EventColumn column;
  set_expected_type(*events.layouts, query, column);
  const auto size = static_cast<std::size_t>(events.size());
  column.nulls.assign(size, 0);
  bool typed = false;
  column.unreadable = each_value(
      events, query, [&](long index, int result, int type, const char *value) {
        const auto i = static_cast<std::size_t>(index);
        if (result != 0) {
          column.nulls[i] = 1;
          column.any_null = true;
          return;
        }
        if (!typed) {
          column.type = type;
          start(column, size);
          typed = true;
        }
        store(column, i, type, value);
      });
  if (!typed) start(column, size);
  return column;
}

EventPlaces places_where(const EventChoice &events, const std::string &query) {
  EventPlaces found;
  found.unreadable =
      each_value(events, query, [&](long i, int result, int type, const char *value) {
        if (result != 0) return;
        if (type == EV_TEXT) throw Error("'" + query + "' is a text, not a condition");
        std::int64_t integer = 0;
        double real = 0.0;
        std::memcpy(&integer, value, sizeof integer);
        std::memcpy(&real, value, sizeof real);
        if (type == EV_INTEGER ? integer != 0 : real != 0.0) {
          found.places.push_back(events.place(i));
        }
      });
  return found;
}

py::object array_of_column(EventColumn column, bool datetime) {
  switch (column.type) {
    case EV_INTEGER:
      return masked_array(array_of(std::move(column.integers)), std::move(column.nulls),
                          column.any_null);
    case EV_TEXT:
      return array_of_texts(column);
    default:
      break;
  }
  if (datetime && column.is_time) return array_of_times(column.reals);
  return array_of(std::move(column.reals));
}

}  // namespace ksutil::python
