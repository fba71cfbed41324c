/* ImsMessage: follows the lines that frame bulletins in messages of IMS1.0 and GSE2.0. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_IMS_MESSAGE_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_IMS_MESSAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/records.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

class ImsMessage {
 public:
  /* kinds: words of DATA_TYPE lines, in lower case, whose data are read. */
  explicit ImsMessage(std::vector<std::string_view> kinds) : kinds_(std::move(kinds)) {}

  /* Whether a line ends the event before it. */
  static bool ends_event(std::string_view line);

  /* Takes a line outside of events that is not blank.  kOtherData: data of another kind
   * begin, whose lines are taken from now on.  kNo: the line is not the message's. */
  enum class Took { kYes, kOtherData, kNo };
  Took take(std::string_view line, bool is_event);
  /* Takes the lines up to the next data, too. */
  void skip_data() { other_data_ = true; }

  /* Between BEGIN and STOP. */
  bool is_open() const { return begun_; }
  /* Whether the last line of an input, without its end, is not all of it. */
  bool is_cut_off(std::string_view line) const {
    return !line.starts_with("STOP") &&
           (begun_ || (data_begun_ && !trimmed(line).empty()));
  }
  /* The source that MSG_ID names, else the title of the data; "" for none. */
  const std::string &source() const {
    return message_source_.empty() ? title_source_ : message_source_;
  }

 private:
  const std::vector<std::string_view> kinds_;
  bool begun_ = false;
  bool data_begun_ = false;  // after DATA_TYPE, which some bulletins begin with
  bool other_data_ = false;  // within data of another kind
  bool fresh_data_ = false;  // the title may follow
  std::string message_source_, title_source_;
};

/* Ties each station magnitude to the magnitude of its type, and gives all to the origin. */
void take_station_magnitudes(std::vector<StationMagnitude> magnitudes, Origin &origin);

}  // namespace ksutil::exchange
#endif
