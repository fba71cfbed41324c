#include "formats/exchange/table/table_reader.h"

#include <algorithm>
#include <cmath>

#include "formats/exchange/second_names.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);
constexpr double kMaxMagnitude = 11.0;

struct ColumnName {
  TableReader::Column column;
  const char *name;
};

/* The names of the columns in lower case; the first of a column is for messages. */
constexpr ColumnName kNames[] = {
    {TableReader::kTime, "time"},
    {TableReader::kLatitude, "latitude"},
    {TableReader::kLatitude, "lat"},
    {TableReader::kLongitude, "longitude"},
    {TableReader::kLongitude, "lon"},
    {TableReader::kDepth, "depth"},
    {TableReader::kDepth, "depth/km"},
    {TableReader::kMag, "mag"},
    {TableReader::kMag, "magnitude"},
    {TableReader::kMagType, "magtype"},
    {TableReader::kNst, "nst"},
    {TableReader::kGap, "gap"},
    {TableReader::kDmin, "dmin"},
    {TableReader::kRms, "rms"},
    {TableReader::kNet, "net"},
    {TableReader::kNet, "contributor"},
    {TableReader::kId, "id"},
    {TableReader::kId, "eventid"},
    {TableReader::kUpdated, "updated"},
    {TableReader::kPlace, "place"},
    {TableReader::kPlace, "eventlocationname"},
    {TableReader::kType, "type"},
    {TableReader::kType, "eventtype"},
    {TableReader::kHorizontalError, "horizontalerror"},
    {TableReader::kDepthError, "deptherror"},
    {TableReader::kMagError, "magerror"},
    {TableReader::kMagNst, "magnst"},
    {TableReader::kStatus, "status"},
    {TableReader::kLocationSource, "locationsource"},
    {TableReader::kLocationSource, "author"},
    {TableReader::kMagSource, "magsource"},
    {TableReader::kMagSource, "magauthor"},
};

const char *name_of(TableReader::Column column) {
  return std::find_if(std::begin(kNames), std::end(kNames),
                      [&](const ColumnName &known) { return known.column == column; })
      ->name;
}

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < ' ' || byte == 127;
}

/* The text for a message: bounded, and without control characters. */
std::string shown(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::string result(text.substr(0, kMost));
  std::replace_if(result.begin(), result.end(), is_control, '?');
  return text.size() > kMost ? result + "..." : result;
}

/* Whether a date begins with a number of one or two digits and a second one: the clock takes
 * 01/02/2020 for 2 January and 01/02/20 for 20 February 2001, which spreadsheets of most
 * countries do not mean. */
bool has_exchangeable_day(std::string_view text) {
  std::size_t at = 0;
  const auto is_digit = [&text](std::size_t i) {
    return i < text.size() && text[i] >= '0' && text[i] <= '9';
  };
  while (is_digit(at)) at++;
  return (at == 1 || at == 2) && at < text.size() &&
         (text[at] == '/' || text[at] == '-') && is_digit(at + 1);
}

}  // namespace

bool TableReader::begin(std::string &problem) {
  places_.fill(kNone);
  switch (rows_.next()) {
    case CsvRows::Got::kRow:
      break;
    case CsvRows::Got::kEnd:
      problem = input_.name() + " is empty";
      return false;
    default:
      problem =
          input_.name() + ":" + std::to_string(rows_.line()) + ": " + rows_.problem();
      return false;
  }
  width_ = rows_.cells().size();
  for (std::size_t place = 0; place < width_; place++) {
    std::string_view cell = trimmed(rows_.cells()[place]);
    if (place == 0 && cell.starts_with('#')) cell = trimmed(cell.substr(1));
    const std::string name = lowered(cell);
    const auto *known =
        std::find_if(std::begin(kNames), std::end(kNames),
                     [&](const ColumnName &entry) { return name == entry.name; });
    if (known != std::end(kNames) && places_[known->column] == kNone) {
      places_[known->column] = place;
    } else if (!cell.empty()) {
      unknown_.push_back({"column " + shown(cell)});
    }
  }
  for (const Column column : {kTime, kLatitude, kLongitude, kId}) {
    if (places_[column] != kNone) continue;
    problem = input_.name() + " has no column " + name_of(column);
    return false;
  }
  return true;
}

bool TableReader::has(Column column) const { return places_[column] != kNone; }

std::string_view TableReader::cell(Column column) const {
  const std::size_t place = places_[column];
  return place == kNone ? std::string_view() : trimmed(rows_.cells()[place]);
}

void TableReader::refuse(Column column, std::string_view text) {
  if (!problem_.empty()) return;
  problem_ = std::string(name_of(column)) + " is '" + shown(text) + "'";
}

void TableReader::real(Column column, double low, double high, bool required,
                       double &value) {
  std::string_view text = cell(column);
  if (text.empty() && !required) return;
  /* Where semicolons divide the columns, a comma may stand in a number. */
  if (delimiter_ == ';' && text.find(',') != text.npos) {
    number_ = text;
    std::replace(number_.begin(), number_.end(), ',', '.');
    text = number_;
  }
  double number = 0.0;
  if (!parse_real(text, number) || !std::isfinite(number) || number < low ||
      number > high) {
    return refuse(column, text);
  }
  value = number;
}

void TableReader::count(Column column, std::int64_t &value) {
  double number = -1.0;
  real(column, 0.0, 1e6, false, number);
  if (number >= 0.0) value = std::llround(number);
}

void TableReader::time(Column column, bool required, double &value) {
  const std::string_view text = cell(column);
  if (text.empty() && !required) return;
  const bool exchangeable = has_exchangeable_day(text);
  if (!exchangeable && parse_date_text(text, value)) return;
  const bool first = problem_.empty();
  refuse(column, text);
  if (exchangeable && first) {
    problem_ += ", where day and month may be exchanged: write 2020-02-01";
  }
}

void TableReader::text(Column column, bool required, std::string &value) {
  value = cell(column);
  if ((value.empty() && required) ||
      std::any_of(value.begin(), value.end(), is_control)) {
    refuse(column, value);
  }
}

void TableReader::read_event(Event &event) {
  Origin &origin = event.origins.emplace_back();
  text(kId, true, event.id);
  text(kNet, false, event.author);
  text(kType, false, event.type);
  if (delimiter_ == '|') add_alias(event, numbered_id(event.author, event.id));
  time(kUpdated, false, event.updated);
  event.place = cell(kPlace);
  std::replace_if(event.place.begin(), event.place.end(), is_control, ' ');

  time(kTime, true, origin.time);
  real(kLatitude, -90.0, 90.0, true, origin.lat);
  real(kLongitude, -180.0, 360.0, true, origin.lon);
  if (origin.lon > 180.0) origin.lon -= 360.0;
  real(kDepth, -100.0, 1000.0, false, origin.depth);
  count(kNst, origin.phases);
  real(kGap, 0.0, 360.0, false, origin.gap);
  real(kDmin, 0.0, 180.0, false, origin.nearest);
  real(kRms, 0.0, 9999.0, false, origin.rms);
  real(kHorizontalError, 0.0, 9999.0, false, origin.horizontal_error);
  real(kDepthError, 0.0, 9999.0, false, origin.depth_error);
  text(kStatus, false, origin.status);
  text(kLocationSource, false, origin.author);
  if (!has(kLocationSource)) origin.author = event.author;

  Magnitude magnitude;
  real(kMag, -10.0, kMaxMagnitude, false, magnitude.value);
  text(kMagType, false, magnitude.type);
  real(kMagError, 0.0, 9999.0, false, magnitude.error);
  count(kMagNst, magnitude.stations);
  text(kMagSource, false, magnitude.author);
  if (!has(kMagSource)) magnitude.author = event.author;
  if (magnitude.value > -999.0) origin.magnitudes.push_back(std::move(magnitude));
}

TableReader::Got TableReader::next(Event &event) {
  problem_.clear();
  switch (rows_.next()) {
    case CsvRows::Got::kEnd:
      return Got::kEnd;
    case CsvRows::Got::kFailed:
      problem_ = rows_.problem();
      return Got::kFailed;
    case CsvRows::Got::kBad:
      problem_ = rows_.problem();
      return Got::kRefused;
    case CsvRows::Got::kRow:
      break;
  }
  if (rows_.cells().size() != width_) {
    problem_ = rows_.cells().size() < width_ ? "too few columns" : "too many columns";
    return Got::kRefused;
  }
  event = Event();
  event.line = rows_.line();
  read_event(event);
  return problem_.empty() ? Got::kRecord : Got::kRefused;
}

}  // namespace ksutil::exchange
