#include "formats/exchange/table/table_formats.h"

#include <algorithm>
#include <array>

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

const Format kCsvFormat{"csv", "a table with column names", is_csv, open_csv};
const Format kFdsnTextFormat{"fdsn", "FDSN event text", is_fdsn_text, open_fdsn_text};

}  // namespace ksutil::exchange
