#include "formats/exchange/isf/ims_message.h"

#include <algorithm>
#include <utility>

#include "formats/exchange/isf/ims_codes.h"
#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

bool ImsMessage::ends_event(std::string_view line) {
  return line.starts_with("STOP") || line.starts_with("BEGIN") ||
         line.starts_with("DATA_TYPE") || line.starts_with("MSG_TYPE");
}

ImsMessage::Took ImsMessage::take(std::string_view line, bool is_event) {
  const std::vector<std::string_view> words = words_of(line, 3);
  const std::string_view word = words.empty() ? "" : words[0];
  const bool title = std::exchange(fresh_data_, false);
  if (word == "BEGIN" || word == "STOP") {
    begun_ = word == "BEGIN";
    data_begun_ = false;
    message_source_.clear();
    title_source_.clear();
  } else if (word == "MSG_ID") {
    if (words.size() == 3) message_source_ = record_text(words[2].substr(0, 20));
  } else if (word == "DATA_TYPE") {
    data_begun_ = true;
    const std::string kind = words.size() > 1 ? lowered(words[1]) : "";
    other_data_ = std::find(kinds_.begin(), kinds_.end(), kind) == kinds_.end();
    fresh_data_ = !other_data_;
    title_source_.clear();
    if (other_data_) return Took::kOtherData;
  } else if (word == "MSG_TYPE" || word == "REF_ID" || word == "PROD_ID" ||
             word == "TIME_STAMP") {
    return Took::kYes;
  } else if (title && !is_event) {
    title_source_ = ims_source_of_title(line);
  } else {
    return other_data_ ? Took::kYes : Took::kNo;
  }
  return Took::kYes;
}

void take_station_magnitudes(std::vector<StationMagnitude> magnitudes, Origin &origin) {
  for (StationMagnitude &magnitude : magnitudes) {
    const auto network =
        std::find_if(origin.magnitudes.begin(), origin.magnitudes.end(),
                     [&](const Magnitude &m) { return m.type == magnitude.type; });
    if (network != origin.magnitudes.end()) {
      magnitude.magnitude = network - origin.magnitudes.begin();
    }
  }
  origin.station_magnitudes = std::move(magnitudes);
}

}  // namespace ksutil::exchange
