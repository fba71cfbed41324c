#include "formats/exchange/formats_page.h"

namespace ksutil::exchange {
namespace {

/* A text as a cell of a table. */
std::string cell(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '|') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string row_of(const Format &format) {
  const Directions directions = directions_of(format);
  return std::string("| `") + format.word + "` | " + cell(format.name) + " | " +
         (directions.stations ? "stations" : "events") + " | " +
         (directions.in ? "yes" : "") + " | " + (directions.out ? "yes" : "") + " |\n";
}

}  // namespace

Directions directions_of(const Format &format) {
  Directions directions;
  directions.stations =
      format.open_station_reader != nullptr || format.open_station_writer != nullptr;
  directions.in =
      format.open_reader != nullptr || format.open_station_reader != nullptr;
  directions.out =
      format.open_writer != nullptr || format.open_station_writer != nullptr;
  return directions;
}

std::string formats_page() {
  std::string page =
      "# Exchange formats\n\n"
      "`ksdb formats --markdown` writes this page from the tables of the code.\n"
      "`ksdb import` reads the formats marked in ([import.md](import.md)), `ksdb "
      "export` "
      "writes those marked out.\n\n"
      "| `--format` | name | holds | in | out |\n"
      "|---|---|---|---|---|\n";
  for (const Format *format : formats()) page += row_of(*format);
  page +=
      "\nValues without a place are counted, and named at the end of an import or an "
      "export.\n\n"
      "`origin.grn` and `origin.srn`, the numbers of geographic and seismic regions, "
      "stay null: no format gives them, and the library has no table of these "
      "regions.\n";
  for (const Format *format : formats()) {
    if (format->mappings.empty()) continue;
    page += std::string("\n## ") + format->name + "\n\n| " + format->word +
            " | rows |\n|---|---|\n";
    for (const Mapping &mapping : format->mappings) {
      page += "| " + cell(mapping.value) + " | " + cell(mapping.place) + " |\n";
    }
  }
  return page;
}

}  // namespace ksutil::exchange
