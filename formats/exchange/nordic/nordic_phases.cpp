#include "formats/exchange/nordic/nordic_phases.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kKmPerDegree = 111.195;
constexpr Range kPhaseHours{0.0, 99.0};
constexpr Range kPhaseMinutes{0.0, 99.0};
constexpr Range kPhaseSeconds{0.0, 999.0};
constexpr Range kWeights{0.0, 10.0};
constexpr Range kVelocities{1e-3, 1e6};
constexpr Range kKilometres{0.0, 20100.0};

/* Where the values of a phase line stand. */
struct Places {
  struct Field {
    std::size_t first, last;
  };
  Field station, network, location, phase, hour, minute, second, amplitude, period,
      azimuth, velocity, azimuth_residual, residual, weight, distance, esaz, agency;
  std::size_t onset, given_weight, automatic, motion;
};

/* {0, 0}: the form does not have it. */
constexpr Places kOldPlaces{{2, 6},   {0, 0},   {0, 0},   {11, 14}, {19, 20}, {21, 22},
                            {23, 28}, {34, 40}, {41, 45}, {46, 51}, {52, 56}, {61, 63},
                            {64, 68}, {69, 70}, {71, 75}, {76, 79}, {0, 0},   10,
                            15,       16,       17};
constexpr Places kNewPlaces{{2, 6},   {11, 12}, {13, 14}, {17, 24}, {27, 28}, {29, 30},
                            {31, 37}, {38, 44}, {45, 50}, {38, 44}, {45, 50}, {64, 68},
                            {64, 68}, {69, 70}, {71, 75}, {76, 79}, {52, 54}, 16,
                            25,       26,       44};

bool is_amplitude(std::string_view phase) {
  return phase == "A" || phase == "E" || phase.starts_with("AM") ||
         phase.starts_with("IAML") || phase.starts_with("IVm") ||
         phase.starts_with("IAm") || phase.starts_with("AML");
}

char motion_of(char letter) {
  return letter == 'C' || letter == '+'   ? 'c'
         : letter == 'D' || letter == '-' ? 'd'
                                          : '\0';
}

class PhaseLine {
 public:
  PhaseLine(std::string_view line, NordicColumns form, NordicPhase &phase)
      : columns_(line),
        new_(form == NordicColumns::kNew),
        at_(new_ ? kNewPlaces : kOldPlaces),
        phase_(phase) {}

  bool read(double midnight, std::string &problem) {
    read_names();
    read_time(midnight);
    if (new_) {
      read_parameters();
    } else {
      real(at_.amplitude, "amplitude", kNotNegative, phase_.pick.amplitude);
      real(at_.period, "period", kNotNegative, phase_.pick.period);
      read_azimuth();
      real(at_.azimuth_residual, "azimuth residual", kAnyReal,
           phase_.association.azimuth_residual);
      if (!columns_.blank(30, 33)) without("coda durations");
    }
    read_solution();
    problem = columns_.problem();
    return columns_.good();
  }

 private:
  void real(const Places::Field &field, const char *name, const Range &range,
            double &value) {
    columns_.real(field.first, field.last, name, range, value);
  }
  std::string text(const Places::Field &field) const {
    return field.first == 0 ? "" : record_text(columns_.text(field.first, field.last));
  }
  void without(const char *name) { phase_.without_place.push_back(name); }

  void read_names() {
    columns_.needed(at_.station.first, at_.station.last, "station");
    Pick &pick = phase_.pick;
    pick.at.station = text(at_.station);
    pick.at.network = text(at_.network);
    pick.at.location = location_code(text(at_.location));
    pick.author = text(at_.agency);
    if (new_) {
      pick.at.channel = record_text(columns_.text(7, 9));
    } else {
      /* The letters of instrument and component make a channel as they are: "SZ". */
      pick.at.channel = record_text(columns_.text(7, 8));
    }
    pick.phase = text(at_.phase);
    char weight = columns_.at(at_.given_weight);
    /* Before 2017 a phase with a long name leaves no room for weight and motion; the
     * weight then stands before the onset. */
    const bool long_name =
        !new_ && (std::isalpha(static_cast<unsigned char>(columns_.at(15))) != 0);
    if (long_name) {
      pick.phase = record_text(columns_.text(11, 18));
      weight = columns_.at(9);
    }
    const char onset = columns_.at(at_.onset);
    if (onset == 'I' || onset == 'E') pick.onset = onset == 'I' ? 'i' : 'e';
    if (!long_name) {
      pick.automatic = columns_.at(at_.automatic) == 'A';
      if (pick.automatic) without("marks of automatic picks");
      pick.first_motion = motion_of(columns_.at(at_.motion));
    }
    if (weight != ' ' && weight != '_') without("weights given by the analyst");
    phase_.association.phase = pick.phase;
  }

  void read_time(double midnight) {
    double hour = 0.0, minute = 0.0, second = 0.0;
    columns_.needed(at_.hour.first, at_.minute.last, "hour and minute");
    columns_.needed(at_.second.first, at_.second.last, "seconds");
    real(at_.hour, "hour", kPhaseHours, hour);
    real(at_.minute, "minute", kPhaseMinutes, minute);
    real(at_.second, "seconds", kPhaseSeconds, second);
    phase_.pick.time = midnight + 3600.0 * hour + 60.0 * minute + second;
  }

  void read_azimuth() {
    double velocity = -1.0;
    real(at_.azimuth, "azimuth", kAzimuthRange, phase_.pick.azimuth);
    if (columns_.text(at_.velocity.first, at_.velocity.last) != "0.0") {
      real(at_.velocity, "apparent velocity", kVelocities, velocity);
    }
    if (velocity > 0.0) phase_.pick.slowness = kKmPerDegree / velocity;
  }

  /* The two parameters of a line since 2017: what they are depends on the phase. */
  void read_parameters() {
    Pick &pick = phase_.pick;
    if (pick.phase.starts_with("BAZ")) {
      pick.first_motion = 0;
      read_azimuth();
      real(at_.azimuth_residual, "azimuth residual", kAnyReal,
           phase_.association.azimuth_residual);
      if (pick.phase.size() > 4) phase_.azimuth_of = pick.phase.substr(4);
    } else if (is_amplitude(pick.phase)) {
      pick.first_motion = 0;
      real(at_.amplitude, "amplitude", kNotNegative, pick.amplitude);
      real(at_.period, "period", kNotNegative, pick.period);
      if (!columns_.blank(64, 68)) without("residuals of station magnitudes");
    } else if (pick.phase == "END") {
      without("coda durations");
    } else if (pick.first_motion == 0 && !columns_.blank(38, 50)) {
      without("other parameters of phases");
    }
    if (!columns_.blank(56, 58)) without("operators of phases");
  }

  void read_solution() {
    Association &association = phase_.association;
    double weight = -1.0, distance = -1.0;
    const bool parameter = new_ && (is_amplitude(phase_.pick.phase) ||
                                    phase_.pick.phase.starts_with("BAZ"));
    if (!parameter) {
      real(at_.residual, "travel time residual", kAnyReal, association.time_residual);
    }
    real(at_.weight, "weight", kWeights, weight);
    real(at_.distance, "distance", kKilometres, distance);
    real(at_.esaz, "azimuth of the station", kAzimuthRange, association.esaz);
    /* Tenths: 10 is the whole weight. */
    if (weight >= 0.0) {
      association.weight = weight / 10.0;
      association.time_used = weight > 0.0 ? 'd' : 'n';
    }
    if (distance >= 0.0) association.delta = std::min(distance / kKmPerDegree, 180.0);
    if (!columns_.blank(57, 60) && !new_) without("angles of incidence");
    if (new_ && !columns_.blank(59, 63)) without("angles of incidence");
  }

  Columns columns_;
  const bool new_;
  const Places &at_;
  NordicPhase &phase_;
};

}  // namespace

bool heads_new_columns(std::string_view line) {
  return line.starts_with(" STAT COM NTLO IPHASE");
}

bool ends_within_value(std::string_view line, NordicColumns form) {
  const Places &at = form == NordicColumns::kNew ? kNewPlaces : kOldPlaces;
  const std::array fields{at.station,  at.network, at.location, at.phase,
                          at.hour,     at.minute,  at.second,   at.amplitude,
                          at.period,   at.azimuth, at.velocity, at.azimuth_residual,
                          at.residual, at.weight,  at.distance, at.esaz,
                          at.agency};
  return std::any_of(fields.begin(), fields.end(), [&](const Places::Field &field) {
    return field.first <= line.size() && line.size() < field.last;
  });
}

bool read_nordic_phase(std::string_view line, NordicColumns form, double midnight,
                       NordicPhase &phase, std::string &problem) {
  phase = NordicPhase();
  return PhaseLine(line, form, phase).read(midnight, problem);
}

}  // namespace ksutil::exchange
