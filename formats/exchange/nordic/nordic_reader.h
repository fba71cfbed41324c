/* NordicReader: events of Nordic files: lines of 80 columns, of which the last says what
 * the line is; a blank line ends an event.
 *
 * A line of type 1 with coordinates is an origin; one without them gives further magnitudes
 * of the origin of its agency.  The first origin is the preferred one, and the phases belong
 * to it.  In files without blank lines, in which each line is an event, an origin more than
 * ten minutes after or before the first begins the next event.
 * Ids are the one of the line of type I, else the origin time, with the agency of the first
 * origin in front: "BER:20210103034523".  The time of the action of that line is when the
 * event was updated, taken as UTC.  Errors of line E are standard errors.
 * A last line without its newline that is short is cut off, unless the file has other
 * short phase lines and this one ends with a whole value.
 * Source: "SEISAN earthquake analysis software", appendix A, "Nordic format", University of
 * Bergen (2021). */
#ifndef KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_READER_H
#define KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_READER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/nordic/nordic_phases.h"
#include "formats/exchange/text/columns.h"
#include "formats/exchange/text/line_reader.h"

namespace ksutil::exchange {

/* Whether a line has the form of a line of type 1 with an origin time. */
bool is_nordic_header(std::string_view line);

class NordicReader final : public LineReader {
 public:
  explicit NordicReader(Input &input) : LineReader(input) {}

 protected:
  bool ends_event(const std::string &line) override;
  bool take(const std::string &line) override;
  bool finish(Event &event) override;
  bool is_cut_off(const std::string &line) override;

 private:
  bool take_header(const std::string &line);
  void take_magnitudes(Columns &columns, const std::string &agency, Origin &origin);
  bool take_precise(const std::string &line);
  bool take_errors(const std::string &line);
  bool take_id(const std::string &line);
  bool take_plane(const std::string &line);
  bool take_comment(const std::string &line);
  bool take_phase(const std::string &line);
  void put_phase(const NordicPhase &phase);

  NordicColumns form_ = NordicColumns::kOld;
  bool only_headers_ = true;  // the event has had no other lines yet
  bool errors_taken_ = false;
  bool any_trimmed_ = false;  // a phase line of the file ended early, with its newline
  std::int64_t origin_ = -1;  // of the last line of type 1
  double midnight_ = kNoTime;
  std::string id_, agency_, type_;
};

}  // namespace ksutil::exchange
#endif
