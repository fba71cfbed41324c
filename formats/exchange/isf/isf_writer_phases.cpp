#include <map>

#include "formats/exchange/isf/isf_reader.h"
#include "formats/exchange/isf/isf_values.h"
#include "formats/exchange/isf/isf_writer.h"
#include "platform/clock/clock.h"

namespace ksutil::exchange {

using namespace isf;

namespace {

constexpr double kHour = 3600.0;

char used(char flag, char letter) {
  return flag == 'd' ? letter : flag == 'n' ? '_' : ' ';
}

/* Whether the phase needs a line of details: what the phase line has no columns for. */
bool has_details(const Pick &pick, const Association &association, double origin) {
  return !pick.at.network.empty() || !pick.at.channel.empty() || !pick.author.empty() ||
         pick.time_error >= 0.0 || pick.azimuth_error >= 0.0 ||
         pick.slowness_error >= 0.0 || association.weight >= 0.0 ||
         pick.phase != association.phase || pick.time < origin - kHour ||
         pick.time >= origin - kHour + kDay;
}

void put_magnitude(const StationMagnitude &magnitude, IsfLine &line) {
  line.text(104, 108, magnitude.type);
  line.real(110, 113, 1, magnitude.value);
}

void put_phase(const Pick &pick, const Association &association, IsfLine &line) {
  line.text(1, 5, pick.at.station);
  if (association.delta >= 0.0) line.real(7, 12, 2, association.delta);
  if (association.esaz > kNone) {
    line.real(14, 18, 1,
              association.esaz < 0.0 ? association.esaz + 360.0 : association.esaz);
  }
  line.text(20, 27, association.phase);
  line.text(29, 40, time_text(pick.time, 3).substr(11));
  if (association.time_residual > kNone) {
    line.real(42, 46, 1, association.time_residual);
  }
  if (pick.azimuth >= 0.0) line.real(48, 52, 1, pick.azimuth);
  if (association.azimuth_residual > kNone) {
    line.real(54, 58, 1, association.azimuth_residual);
  }
  if (pick.slowness >= 0.0) line.real(60, 65, 1, pick.slowness);
  if (association.slowness_residual > kNone) {
    line.real(67, 72, 1, association.slowness_residual);
  }
  line.letter(74, used(association.time_used, 'T'));
  line.letter(75, used(association.azimuth_used, 'A'));
  line.letter(76, used(association.slowness_used, 'S'));
  if (pick.snr >= 0.0) line.real(78, 82, 1, pick.snr);
  if (pick.amplitude >= 0.0) line.real(84, 92, 1, pick.amplitude);
  if (pick.period >= 0.0) line.real(94, 98, 2, pick.period);
  line.letter(100, pick.automatic ? 'a' : '_');
  line.letter(101, pick.first_motion != 0 ? pick.first_motion : '_');
  line.letter(102, pick.onset == 'w' ? 'q' : pick.onset != 0 ? pick.onset : '_');
}

}  // namespace

void IsfWriter::put_phases(const Event &event) {
  const Origin &origin = preferred_origin(event);
  std::map<std::int64_t, const StationMagnitude *> by_pick;
  std::vector<const StationMagnitude *> alone;
  for (const StationMagnitude &magnitude : origin.station_magnitudes) {
    count_if(!magnitude.id.empty(), "ids of station magnitudes");
    count_if(!magnitude.author.empty() || magnitude.error >= 0.0,
             "authors and errors of station magnitudes");
    if (magnitude.pick < 0 || !by_pick.emplace(magnitude.pick, &magnitude).second) {
      alone.push_back(&magnitude);
    }
  }
  text_ += "\n" + std::string(kIsfPhases) + "\n";
  std::vector<std::size_t> detailed;
  std::vector<Number> numbers;
  std::vector<bool> written(event.picks.size(), false);
  for (std::size_t i = 0; i < origin.associations.size(); i++) {
    const Association &association = origin.associations[i];
    const auto at = static_cast<std::size_t>(association.pick);
    if (at >= event.picks.size() || event.picks[at].time == kNoTime || written[at]) {
      unplaced_.add("phases without a pick or a time");
      continue;
    }
    const Pick &pick = event.picks[at];
    written[at] = true;
    count_if(!pick.at.location.empty(), "location codes");
    count_if(pick.emergence >= 0.0 || pick.rectilinearity >= 0.0 ||
                 association.emergence_residual > kNone,
             "emergence angles and rectilinearities");
    count_if(association.belief >= 0.0, "beliefs in phases");
    count_if(!association.earth_model.empty(), "earth models of phases");
    count_if(association.seaz > kNone, "azimuths from stations to the event");
    const bool details = has_details(pick, association, origin.time);
    const Number number = number_of(pick.id, details);
    IsfLine line(unplaced_);
    put_phase(pick, association, line);
    const auto magnitude = by_pick.find(association.pick);
    if (magnitude != by_pick.end()) {
      put_magnitude(*magnitude->second, line);
      by_pick.erase(magnitude);
    }
    line.right(115, 122, number.column);
    text_ += line.end() + number.comment;
    put_comments(pick.comments);
    if (details) {
      detailed.push_back(i);
      numbers.push_back(number);
    }
  }
  for (const auto &[pick, magnitude] : by_pick) alone.push_back(magnitude);
  for (const StationMagnitude *magnitude : alone) {
    count_if(magnitude->pick >= 0, "picks of further magnitudes of a phase");
    IsfLine line(unplaced_);
    line.text(1, 5, magnitude->at.station);
    line.text(20, 27, magnitude->phase);
    put_magnitude(*magnitude, line);
    text_ += line.end();
  }
  for (std::size_t i = 0; i < written.size(); i++) {
    count_if(!written[i], "picks that are not of the preferred origin");
  }
  put_phase_details(event, detailed, numbers);
}

void IsfWriter::put_phase_details(const Event &event,
                                  const std::vector<std::size_t> &which,
                                  const std::vector<Number> &numbers) {
  if (which.empty()) return;
  const Origin &origin = preferred_origin(event);
  text_ += "\n" + std::string(kIsfPhaseDetails) + "\n";
  for (std::size_t i = 0; i < which.size(); i++) {
    const Association &association = origin.associations[which[i]];
    const Pick &pick = event.picks[static_cast<std::size_t>(association.pick)];
    IsfLine line(unplaced_);
    line.text(1, 9, pick.at.network);
    line.text(11, 13, pick.at.channel);
    if (pick.phase != association.phase) line.text(29, 36, pick.phase);
    std::string date = time_text(pick.time, 3).substr(0, 10);
    date[4] = date[7] = '/';
    line.text(38, 47, date);
    if (pick.time_error >= 0.0) line.real(49, 54, 3, pick.time_error);
    if (association.weight >= 0.0) line.real(56, 60, 3, association.weight);
    if (pick.azimuth_error >= 0.0) line.real(62, 66, 1, pick.azimuth_error);
    if (pick.slowness_error >= 0.0) line.real(74, 79, 1, pick.slowness_error);
    line.text(107, 115, pick.author);
    line.right(117, 124, numbers[i].column);
    text_ += line.end();
  }
}

}  // namespace ksutil::exchange
