#include "formats/exchange/table/fdsn_writer.h"

#include "formats/exchange/event_types.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
namespace {

constexpr Places kPlaces{
    .type = true, .place = true, .origin_author = true, .magnitude_author = true};

}  // namespace

bool FdsnWriter::begin() {
  buffer_.text() +=
      "#EventID|Time|Latitude|Longitude|Depth/km|Author|Catalog|Contributor|"
      "ContributorID|MagType|Magnitude|MagAuthor|EventLocationName|EventType\n";
  return true;
}

void FdsnWriter::cell(std::string_view text) {
  std::string &row = buffer_.text();
  const std::size_t begin = row.size();
  const std::int64_t replaced = append_clean_line(text, row);
  left_out_.add("characters that are not text", static_cast<std::size_t>(replaced));
  for (std::size_t at = row.find('|', begin); at != row.npos; at = row.find('|', at)) {
    row[at] = ' ';
    left_out_.add("bars in texts");
  }
  row += '|';
}

bool FdsnWriter::put(const Event &event) {
  const Origin &origin = preferred_origin(event);
  const Magnitude *magnitude = shown_magnitude(event);
  left_out_.add_rest(event, magnitude, kPlaces);
  const std::string_view type = event_type_word(event.type);
  std::string time = utc_text(origin.time);
  time.pop_back();  // the form has no Z

  cell(event.id);
  cell(time);
  cell(number_text(origin.lat));
  cell(number_text(origin.lon));
  cell(origin.depth > -999.0 ? number_text(origin.depth) : "");
  cell(origin.author);
  cell("");
  cell(event.author);
  cell("");
  cell(magnitude == nullptr ? "" : magnitude->type);
  cell(magnitude == nullptr ? "" : number_text(magnitude->value));
  cell(magnitude == nullptr ? "" : magnitude->author);
  cell(event.place);
  cell(type.empty() ? std::string_view(event.type) : type);
  buffer_.text().back() = '\n';
  return buffer_.settle();
}

}  // namespace ksutil::exchange
