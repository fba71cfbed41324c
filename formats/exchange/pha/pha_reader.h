/* PhaReader: events of the phase files for relocation by double differences.
 *
 *   # YR MO DY HR MN SC LAT LON DEP MAG EH EZ RMS ID
 *   STA TRAVELTIME WEIGHT PHASE
 * The id is "pha:" and ID.  EH and EZ are in km; 0 stands for an error that is not known.
 * Source: F. Waldhauser, "hypoDD: a program to compute double-difference hypocenter
 * locations", U.S. Geological Survey Open-File Report 01-113 (2001). */
#ifndef KSUTIL_FORMATS_EXCHANGE_PHA_PHA_READER_H
#define KSUTIL_FORMATS_EXCHANGE_PHA_PHA_READER_H

#include <string>
#include <string_view>

#include "formats/exchange/text/line_reader.h"

namespace ksutil::exchange {

/* Whether a line has the form of the first line of an event. */
bool is_pha_header(std::string_view line);

class PhaReader final : public LineReader {
 public:
  explicit PhaReader(Input &input) : LineReader(input) {}

 protected:
  bool ends_event(const std::string &line) override { return line.starts_with('#'); }
  bool take(const std::string &line) override;
  bool finish(Event &event) override;

 private:
  bool take_header(const std::string &line);
};

}  // namespace ksutil::exchange
#endif
