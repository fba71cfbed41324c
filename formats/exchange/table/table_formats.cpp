#include "formats/exchange/table/table_formats.h"

#include <algorithm>
#include <array>

#include "formats/exchange/table/csv_writer.h"
#include "formats/exchange/table/fdsn_writer.h"
#include "formats/exchange/table/table_reader.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr std::array<std::string_view, 4> kColumns{"time", "latitude", "longitude",
                                                   "lat"};

/* Whether the words of a line between delimiters name columns of a catalogue. */
bool names_columns(std::string_view line, char delimiter) {
  const std::string text = lowered(line);
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find(delimiter, from), text.size());
    std::string_view cell = trimmed(std::string_view(text).substr(from, end - from));
    while (!cell.empty() && (cell.front() == '"' || cell.front() == '#')) {
      cell.remove_prefix(1);
    }
    while (!cell.empty() && cell.back() == '"') cell.remove_suffix(1);
    cell = trimmed(cell);
    if (std::find(kColumns.begin(), kColumns.end(), cell) != kColumns.end())
      return true;
    from = end + 1;
  }
  return false;
}

bool is_printable(std::string_view line) {
  return std::all_of(line.begin(), line.end(), [](char c) {
    return static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\f';
  });
}

bool is_csv(const Beginning &beginning) {
  const std::string_view line = beginning.first_line;
  const bool other_text = line.front() == '#' && line.find('|') != line.npos;
  return !other_text && is_printable(line) && names_columns(line, delimiter_of(line));
}

bool is_fdsn_text(const Beginning &beginning) {
  const std::string_view line = beginning.first_line;
  return line.front() == '#' && line.find('|') != line.npos &&
         lowered(line).find("eventid") != std::string::npos;
}

std::unique_ptr<Reader> open_table(Input &input, char delimiter, bool quotes,
                                   std::string &problem) {
  auto reader = std::make_unique<TableReader>(input, delimiter, quotes);
  if (!reader->begin(problem)) return nullptr;
  return reader;
}

std::unique_ptr<Reader> open_csv(Input &input, std::string &problem) {
  return open_table(input, delimiter_of(first_text_line(input.head())), true, problem);
}

std::unique_ptr<Reader> open_fdsn_text(Input &input, std::string &problem) {
  return open_table(input, '|', false, problem);
}

std::unique_ptr<Writer> open_csv_writer(TextSink &sink) {
  return std::make_unique<CsvWriter>(sink);
}

std::unique_ptr<Writer> open_fdsn_writer(TextSink &sink) {
  return std::make_unique<FdsnWriter>(sink);
}

constexpr std::array<Mapping, 22> kCsvMappings{{
    {"time", "origin.time, jdate"},
    {"latitude", "origin.lat"},
    {"longitude", "origin.lon"},
    {"depth", "origin.depth"},
    {"mag", "netmag.magnitude; origin.mb, ms, ml for these types"},
    {"magType", "netmag.magtype"},
    {"nst", "origin.ndef"},
    {"gap", "remark \"gap: ...\", under origin.commid"},
    {"dmin", "remark \"dmin: ...\", under origin.commid"},
    {"rms", "origerr.sdobs"},
    {"net",
     "event.auth, and the author of what the table has no column of its own for"},
    {"id", "publicid.textid with tagname evid, and event.evname"},
    {"updated", "lddate of all rows"},
    {"place", "remark \"place: ...\", under event.commid"},
    {"type", "origin.etype: eq for earthquake, qb for quarry blast, ..."},
    {"horizontalError", "origerr.smajax"},
    {"depthError", "origerr.sdepth"},
    {"magError", "netmag.uncertainty"},
    {"magNst", "netmag.nsta"},
    {"status", "remark \"status: ...\", under origin.commid"},
    {"locationSource", "origin.auth"},
    {"magSource", "netmag.auth"},
}};

constexpr std::array<Mapping, 12> kFdsnMappings{{
    {"EventID", "publicid.textid with tagname evid, and event.evname"},
    {"Time", "origin.time, jdate"},
    {"Latitude", "origin.lat"},
    {"Longitude", "origin.lon"},
    {"Depth/km", "origin.depth"},
    {"Author", "origin.auth"},
    {"Contributor", "event.auth"},
    {"MagType", "netmag.magtype"},
    {"Magnitude", "netmag.magnitude; origin.mb, ms, ml for these types"},
    {"MagAuthor", "netmag.auth"},
    {"EventLocationName", "remark \"place: ...\", under event.commid"},
    {"EventType", "origin.etype: eq for earthquake, qb for quarry blast, ..."},
}};

}  // namespace

char delimiter_of(std::string_view line) {
  char best = ',';
  for (const char delimiter : {',', ';', '\t', '|'}) {
    if (names_columns(line, delimiter) &&
        std::count(line.begin(), line.end(), delimiter) >
            std::count(line.begin(), line.end(), best)) {
      best = delimiter;
    }
  }
  return best;
}

const Format kCsvFormat{.word = "csv",
                        .name = "a table with column names",
                        .recognise = is_csv,
                        .open_reader = open_csv,
                        .open_writer = open_csv_writer,
                        .mappings = kCsvMappings,
                        .line_per_event = true};
const Format kFdsnTextFormat{.word = "fdsn",
                             .name = "FDSN event text",
                             .recognise = is_fdsn_text,
                             .open_reader = open_fdsn_text,
                             .open_writer = open_fdsn_writer,
                             .mappings = kFdsnMappings,
                             .line_per_event = true};

}  // namespace ksutil::exchange
