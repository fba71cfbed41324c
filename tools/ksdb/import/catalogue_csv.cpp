#include "tools/ksdb/import/catalogue_csv.h"

#include <libfccp/csv.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <string_view>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

using Reader = io::CSVReader<20, io::trim_chars<' ', '\t', '\r'>,
                             io::double_quote_escape<',', '"'>>;

constexpr double kMaxMagnitude = 11.0;

/* The texts of one line; a null pointer stands for a column that the file lacks. */
struct Line {
  const char *time = nullptr, *latitude = nullptr, *longitude = nullptr,
             *depth = nullptr, *mag = nullptr, *mag_type = nullptr, *nst = nullptr,
             *rms = nullptr, *net = nullptr, *id = nullptr, *updated = nullptr,
             *place = nullptr, *type = nullptr, *horizontal_error = nullptr,
             *depth_error = nullptr, *mag_error = nullptr, *mag_nst = nullptr,
             *status = nullptr, *location_source = nullptr, *mag_source = nullptr;
};

std::string_view text_of(const char *cell) {
  return cell == nullptr ? std::string_view() : trimmed(cell);
}

/* Collects what is wrong with a line while its cells are read. */
class CellReader {
 public:
  void real(const char *name, const char *cell, double low, double high, bool required,
            double &value) {
    const std::string_view text = text_of(cell);
    if (text.empty() && !required) return;
    double number = 0.0;
    if (!parse_real(text, number) || !std::isfinite(number) || number < low ||
        number > high) {
      return refuse(name, text);
    }
    value = number;
  }

  void count(const char *name, const char *cell, long &value) {
    const std::string_view text = text_of(cell);
    double number = 0.0;
    if (text.empty()) return;
    if (!parse_real(text, number) || !(number >= 0.0 && number <= 1e6)) {
      return refuse(name, text);
    }
    value = std::lround(number);
  }

  void time(const char *name, const char *cell, bool required, double &value) {
    const std::string_view text = text_of(cell);
    if (text.empty() && !required) return;
    if (!parse_date_text(text, value)) refuse(name, text);
  }

  void text(const char *name, const char *cell, bool required, std::string &value) {
    value = text_of(cell);
    if (value.empty() && required) refuse(name, value);
  }

  const std::string &reason() const { return reason_; }

 private:
  void refuse(const char *name, std::string_view text) {
    if (!reason_.empty()) return;
    reason_ = std::string(name) + " is '" + std::string(text) + "'";
  }
  std::string reason_;
};

/* The reason why the line cannot be used; empty when it can. */
std::string read_event(const Line &line, CatalogueEvent &event) {
  CellReader cells;
  cells.text("id", line.id, true, event.id);
  cells.time("time", line.time, true, event.time);
  cells.real("latitude", line.latitude, -90.0, 90.0, true, event.lat);
  cells.real("longitude", line.longitude, -180.0, 360.0, true, event.lon);
  cells.real("depth", line.depth, -100.0, 1000.0, false, event.depth);
  cells.real("mag", line.mag, -10.0, kMaxMagnitude, false, event.magnitude);
  cells.text("magType", line.mag_type, false, event.magtype);
  cells.count("nst", line.nst, event.stations);
  cells.real("rms", line.rms, 0.0, 9999.0, false, event.rms);
  cells.text("net", line.net, false, event.net);
  cells.time("updated", line.updated, false, event.updated);
  cells.text("type", line.type, false, event.type);
  cells.real("horizontalError", line.horizontal_error, 0.0, 9999.0, false,
             event.horizontal_error);
  cells.real("depthError", line.depth_error, 0.0, 9999.0, false, event.depth_error);
  cells.real("magError", line.mag_error, 0.0, 9999.0, false, event.magnitude_error);
  cells.count("magNst", line.mag_nst, event.magnitude_stations);
  cells.text("locationSource", line.location_source, false, event.location_source);
  cells.text("magSource", line.mag_source, false, event.magnitude_source);
  return cells.reason();
}

void read_lines(Reader &reader, std::vector<CatalogueEvent> &events,
                std::vector<RefusedLine> &refused) {
  for (;;) {
    Line line;
    bool more = false;
    std::string reason;
    CatalogueEvent event;
    try {
      more = reader.read_row(
          line.time, line.latitude, line.longitude, line.depth, line.mag, line.mag_type,
          line.nst, line.rms, line.net, line.id, line.updated, line.place, line.type,
          line.horizontal_error, line.depth_error, line.mag_error, line.mag_nst,
          line.status, line.location_source, line.mag_source);
      if (!more) return;
      reason = read_event(line, event);
    } catch (const io::error::too_few_columns &) {
      reason = "too few columns";
    } catch (const io::error::too_many_columns &) {
      reason = "too many columns";
    } catch (const io::error::escaped_string_not_closed &) {
      reason = "a quoted text is not closed";
    }
    event.line = static_cast<long>(reader.get_file_line());
    if (reason.empty()) {
      events.push_back(std::move(event));
    } else {
      refused.push_back({event.line, std::move(reason)});
    }
  }
}

}  // namespace

bool read_catalogue_csv(const std::string &path, std::vector<CatalogueEvent> &events,
                        std::vector<RefusedLine> &refused, std::string &problem) {
  try {
    Reader reader(path);
    reader.read_header(io::ignore_extra_column | io::ignore_missing_column, "time",
                       "latitude", "longitude", "depth", "mag", "magType", "nst", "rms",
                       "net", "id", "updated", "place", "type", "horizontalError",
                       "depthError", "magError", "magNst", "status", "locationSource",
                       "magSource");
    for (const char *column : {"time", "latitude", "longitude", "id"}) {
      if (reader.has_column(column)) continue;
      problem = path + " has no column " + column;
      return false;
    }
    read_lines(reader, events, refused);
  } catch (const std::exception &error) {
    problem = error.what();
    return false;
  }
  std::stable_sort(
      events.begin(), events.end(),
      [](const CatalogueEvent &a, const CatalogueEvent &b) { return a.time < b.time; });
  return true;
}

}  // namespace ksutil::tools
