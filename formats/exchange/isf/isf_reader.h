/* IsfReader: events of bulletins in IMS1.0 and its extension ISF.
 *
 * Ids: a bulletin names events, origins and arrivals by numbers of its source.  They get the
 * name of the source in front, "ISC:840268", so that bulletins of several sources do not
 * meet.  The source is the second word of MSG_ID; else what the title names; else ISC when
 * the beginning of the text has an origin by ISC; else "isf".
 * The origin with (#PRIME) is the preferred one, else the last.  Phases and their
 * magnitudes belong to it.  Phases without a date follow it by less than a day.
 * Errors are for a confidence of 0.9.
 * Source: "IASPEI Seismic Format (ISF)", International Seismological Centre (2004);
 * "Formats and Protocols for Messages IMS1.0", GSE/WGE (1999). */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_READER_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "formats/exchange/isf/ims_message.h"
#include "formats/exchange/isf/isf_tensors.h"
#include "formats/exchange/text/columns.h"
#include "formats/exchange/text/line_reader.h"

namespace ksutil::exchange {

/* The headings of the blocks, as the description gives them. */
inline constexpr std::string_view kIsfOrigins =
    "   Date       Time        Err   RMS Latitude Longitude  Smaj  Smin  Az Depth   "
    "Err Ndef Nsta Gap  mdist  Mdist Qual   Author      OrigID";
inline constexpr std::string_view kIsfMagnitudes =
    "Magnitude  Err Nsta Author      OrigID";
inline constexpr std::string_view kIsfPhases =
    "Sta     Dist  EvAz Phase        Time      TRes  Azim AzRes   Slow   SRes Def   "
    "SNR       Amp   Per Qual Magnitude    ArrID";
inline constexpr std::string_view kIsfPhaseDetails =
    "Net      Chan F Low_F HighF AuthPhas    Date     eTime wTime eAzim wAzim  eSlow "
    "wSlow      eAmp  ePer eMag Author     ArrID";
inline constexpr std::string_view kIsfReferences = "Year Volume Page1 Page2 Journal";

/* Whether a line is "Event NUMBER PLACE". */
bool is_isf_event(std::string_view line);

class IsfReader final : public LineReader {
 public:
  explicit IsfReader(Input &input);

 protected:
  bool ends_event(const std::string &line) override;
  bool take(const std::string &line) override;
  bool finish(Event &event) override;
  bool is_cut_off(const std::string &line) override;
  bool at_end() override;

 private:
  enum class Block {
    kNone,
    kOrigins,
    kMagnitudes,
    kPhases,
    kPhaseDetails,
    kReferences,
    kOther
  };

  bool take_message_line(const std::string &line, bool &taken);
  bool take_heading(const std::string &line, bool &taken);
  void begin(const std::string &line);
  bool take_origin(const std::string &line);
  bool take_magnitude(const std::string &line);
  bool take_phase(const std::string &line);
  bool take_phase_details(const std::string &line);
  bool take_comment(std::string_view line);
  bool take_id(std::string_view text, bool &taken);
  void put_comment(std::string text, bool continued);
  std::vector<std::string> *comments();
  std::string qualified(std::string_view id) const;
  const std::string &source() const;
  void date_picks(Event &event) const;

  Block block_ = Block::kNone;
  bool block_begun_ = false;  // a line of the block has been taken
  ImsMessage message_{{"bulletin", "event"}};
  const std::string head_source_;

  /* Of the event that is built up. */
  std::int64_t origin_ = -1, magnitude_ = -1, pick_ = -1;  // of the last line taken
  std::int64_t magnitude_origin_ = -1, prime_ = -1;
  std::vector<std::string> types_;  // event type code by origin
  std::vector<bool> centroids_;     // by origin
  std::vector<bool> dated_;         // by pick: the time holds the date
  std::vector<Association> associations_;
  std::vector<StationMagnitude> station_magnitudes_;
  std::unordered_map<std::string, std::size_t> origin_by_id_, pick_by_id_;
  std::vector<std::pair<std::string, Magnitude>> foreign_;  // with their OrigID
  IsfTensors tensors_;
};

}  // namespace ksutil::exchange
#endif
