/* quakeml_writer_readings: the part of QuakeMlWriter that writes picks, amplitudes and
 * magnitudes. */
#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/quakeml/quakeml_writer.h"
#include "formats/exchange/quakeml/quakeml_writer_values.h"

namespace ksutil::exchange {

using namespace quakeml;

namespace {

constexpr double kNanometre = 1e-9;  // in metres

}  // namespace

void QuakeMlWriter::put_pick(const Pick &pick, const std::string &id) {
  xml_.open("pick");
  xml_.attribute("publicID", id);
  put_field(kEmaField, positive(pick.emergence));
  put_field(kRectField, positive(pick.rectilinearity));
  if (pick.amplitude < 0.0) {
    put_field(kPerField, positive(pick.period));
    put_field(kSnrField, positive(pick.snr));
  }
  put_quantity("time", utc_text(pick.time), positive(pick.time_error));
  put_channel(pick.at);
  put_quantity("horizontalSlowness", positive(pick.slowness),
               positive(pick.slowness_error));
  put_quantity("backazimuth", positive(pick.azimuth), positive(pick.azimuth_error));
  if (pick.onset == 'i' || pick.onset == 'e' || pick.onset == 'w') {
    xml_.element("onset", pick.onset == 'i'   ? "impulsive"
                          : pick.onset == 'e' ? "emergent"
                                              : "questionable");
  }
  xml_.given("phaseHint", pick.phase);
  if (pick.first_motion != 0) {
    xml_.element("polarity", pick.first_motion == 'c' ? "positive" : "negative");
  }
  if (pick.automatic) xml_.element("evaluationMode", "automatic");
  put_comments(pick.comments);
  put_creation(pick.author, 0.0);
  xml_.close();
  left_out_.add_if(pick.slowness < 0.0 && pick.slowness_error >= 0.0,
                   "errors without their values");
  left_out_.add_if(pick.azimuth < 0.0 && pick.azimuth_error >= 0.0,
                   "errors without their values");
}

void QuakeMlWriter::put_amplitude(const Pick &pick, const std::string &pick_id) {
  if (pick.amplitude < 0.0) return;
  xml_.open("amplitude");
  xml_.attribute("publicID", pick_id + "/amplitude");
  put_quantity("genericAmplitude", scaled_text(pick.amplitude, kNanometre));
  xml_.element("unit", "m");
  put_quantity("period", positive(pick.period));
  xml_.given("snr", positive(pick.snr));
  xml_.element("pickID", pick_id);
  put_channel(pick.at);
  xml_.close();
}

void QuakeMlWriter::put_magnitude(const Origin &origin, std::size_t origin_index,
                                  std::size_t index) {
  const Magnitude &magnitude = origin.magnitudes[index];
  xml_.open("magnitude");
  xml_.attribute("publicID", magnitude_ids_[origin_index][index]);
  if (magnitude.type.empty()) put_field(kMagtypeField, "-");
  put_quantity("mag", number_text(magnitude.value), positive(magnitude.error));
  xml_.given("type", bounded(magnitude.type, 32));
  xml_.element("originID", origin_ids_[origin_index]);
  xml_.given("stationCount", count_text(magnitude.stations));
  for (std::size_t i = 0; i < origin.station_magnitudes.size(); i++) {
    if (origin.station_magnitudes[i].magnitude != static_cast<std::int64_t>(index)) {
      continue;
    }
    xml_.open("stationMagnitudeContribution");
    xml_.element("stationMagnitudeID", station_magnitude_id(origin_index, i));
    if (origin.station_magnitudes[i].used == 'n') xml_.element("weight", "0");
    xml_.close();
  }
  put_comments(magnitude.comments);
  put_creation(magnitude.author, 0.0);
  xml_.close();
}

void QuakeMlWriter::put_station_magnitude(const Event &event, std::size_t origin_index,
                                          std::size_t index) {
  const StationMagnitude &magnitude =
      event.origins[origin_index].station_magnitudes[index];
  xml_.open("stationMagnitude");
  xml_.attribute("publicID", station_magnitude_id(origin_index, index));
  put_field(kStamagPhaseField, magnitude.phase);
  const std::string pick =
      magnitude.pick < 0 ? "" : pick_ids_[static_cast<std::size_t>(magnitude.pick)];
  const bool measured =
      !pick.empty() &&
      event.picks[static_cast<std::size_t>(magnitude.pick)].amplitude >= 0.0;
  if (!measured) put_field(kStamagPickField, pick);
  const char implied = magnitude.magnitude < 0 ? '\0'
                       : magnitude.used == 'n' ? 'n'
                                               : 'd';
  if (magnitude.used != 0 && magnitude.used != implied) {
    put_field(kMagdefField, std::string(1, magnitude.used));
  }
  xml_.element("originID", origin_ids_[origin_index]);
  put_quantity("mag", number_text(magnitude.value), positive(magnitude.error));
  xml_.given("type", bounded(magnitude.type, 32));
  if (measured) xml_.element("amplitudeID", pick + "/amplitude");
  put_channel(magnitude.at);
  put_creation(magnitude.author, 0.0);
  xml_.close();
}

}  // namespace ksutil::exchange
