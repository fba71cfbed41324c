/* GseReader: events of GSE2.0 bulletins.
 *
 * Ids get the name of their source in front, "GSE_IDC:280435": the second word of MSG_ID,
 * else what the title names, else the author of the origin.  The first origin of an event
 * is the preferred one; phases and their magnitudes belong to it.  EvAz is the azimuth from
 * the station to the event.  Errors are for a confidence of 0.9.
 * Source: "GSETT-3 Documentation", volume 2, "GSE2.0 message formats and protocols",
 * Group of Scientific Experts, CRP/243 (1995). */
#ifndef KSUTIL_FORMATS_EXCHANGE_GSE_GSE_READER_H
#define KSUTIL_FORMATS_EXCHANGE_GSE_GSE_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "formats/exchange/isf/ims_message.h"
#include "formats/exchange/text/line_reader.h"

namespace ksutil::exchange {

/* The headings of the blocks, as the description gives them. */
inline constexpr std::string_view kGseOrigins =
    "   Date       Time       Latitude Longitude    Depth    Ndef Nsta Gap    Mag1  N  "
    "  "
    "Mag2  N    Mag3  N  Author          ID";
inline constexpr std::string_view kGsePhases =
    "Sta    Dist   EvAz     Phase       Date      Time     TRes  Azim  AzRes  Slow  "
    "SRes "
    "Def  SNR        Amp   Per   Mag1   Mag2 Arr ID";

class GseReader final : public LineReader {
 public:
  explicit GseReader(Input &input) : LineReader(input) {}

 protected:
  bool ends_event(const std::string &line) override;
  bool take(const std::string &line) override;
  bool finish(Event &event) override;
  bool is_cut_off(const std::string &line) override {
    return message_.is_cut_off(line);
  }
  bool at_end() override;

 private:
  enum class Block { kNone, kOrigins, kPhases, kOther };

  bool take_outside(const std::string &line);
  bool take_origin(const std::string &line);
  bool take_errors(const std::string &line);
  bool take_phase(const std::string &line);
  std::string qualified(const std::string &id, const std::string &author) const;

  Block block_ = Block::kNone;
  ImsMessage message_{{"bulletin"}};

  /* Of the event that is built up. */
  std::string number_;           // of its EVENT line
  bool errors_follow_ = false;   // the last line was an origin's first
  bool refused_origin_ = false;  // ... and was refused: the second goes with it
  std::vector<std::size_t> magnitude_slots_;  // of the last origin: 0 is Mag1
  std::string type_;  // event type of the first origin that has one
  std::vector<Association> associations_;
  std::vector<StationMagnitude> station_magnitudes_;
  std::unordered_set<std::string> pick_ids_;
};

}  // namespace ksutil::exchange
#endif
