#include "formats/exchange/import/record_bytes.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace ksutil::exchange {
namespace {

class Putter {
 public:
  explicit Putter(std::string &bytes) : bytes_(bytes) {}
  template <class Number>
  void number(const Number &value) {
    bytes_.append(reinterpret_cast<const char *>(&value), sizeof value);
  }
  void text(const std::string &value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes_ += value;
  }
  template <class Item>
  void count(const std::vector<Item> &list) {
    number(static_cast<std::uint32_t>(list.size()));
  }

 private:
  std::string &bytes_;
};

class Getter {
 public:
  explicit Getter(std::string_view bytes) : bytes_(bytes) {}
  template <class Number>
  void number(Number &value) {
    static_assert(std::is_trivially_copyable_v<Number>);
    if (bytes_.size() < sizeof value) {
      good_ = false;
      return;
    }
    std::memcpy(&value, bytes_.data(), sizeof value);
    bytes_.remove_prefix(sizeof value);
  }
  void text(std::string &value) {
    std::uint32_t size = 0;
    number(size);
    good_ = good_ && size <= bytes_.size();
    if (!good_) return;
    value.assign(bytes_.substr(0, size));
    bytes_.remove_prefix(size);
  }
  template <class Item>
  void count(std::vector<Item> &list) {
    std::uint32_t size = 0;
    number(size);
    good_ = good_ && size <= bytes_.size();  // an item has more than a byte
    list.clear();
    if (good_) list.resize(size);
  }
  bool good() const { return good_; }

 private:
  std::string_view bytes_;
  bool good_ = true;
};

/* The order of the fields, for both directions. */
template <class Bytes, class List, class Visit>
void visit_list(Bytes &bytes, List &list, const Visit &visit) {
  bytes.count(list);
  for (auto &item : list) visit(bytes, item);
}

template <class Bytes, class... Fields>
void texts(Bytes &bytes, Fields &...fields) {
  (bytes.text(fields), ...);
}

template <class Bytes, class... Fields>
void numbers(Bytes &bytes, Fields &...fields) {
  (bytes.number(fields), ...);
}

constexpr auto visit_text = [](auto &bytes, auto &text) { bytes.text(text); };

constexpr auto visit_channel = [](auto &bytes, auto &c) {
  texts(bytes, c.network, c.station, c.location, c.channel);
};

constexpr auto visit_pick = [](auto &bytes, auto &p) {
  texts(bytes, p.id, p.author, p.phase);
  visit_channel(bytes, p.at);
  numbers(bytes, p.time, p.time_error, p.onset, p.first_motion, p.automatic, p.azimuth,
          p.azimuth_error, p.slowness, p.slowness_error, p.emergence, p.rectilinearity,
          p.amplitude, p.period, p.snr);
  visit_list(bytes, p.comments, visit_text);
};

constexpr auto visit_association = [](auto &bytes, auto &a) {
  texts(bytes, a.id, a.phase, a.earth_model);
  numbers(bytes, a.pick, a.belief, a.delta, a.seaz, a.esaz, a.time_residual,
          a.azimuth_residual, a.slowness_residual, a.emergence_residual, a.time_used,
          a.azimuth_used, a.slowness_used, a.weight);
};

constexpr auto visit_station_magnitude = [](auto &bytes, auto &m) {
  texts(bytes, m.id, m.author, m.type, m.phase);
  visit_channel(bytes, m.at);
  numbers(bytes, m.pick, m.magnitude, m.used, m.value, m.error);
};

constexpr auto visit_magnitude = [](auto &bytes, auto &m) {
  texts(bytes, m.id, m.type, m.author);
  numbers(bytes, m.value, m.error, m.stations);
  visit_list(bytes, m.comments, visit_text);
};

constexpr auto visit_tensor = [](auto &bytes, auto &t) {
  texts(bytes, t.id, t.author, t.status, t.algorithm);
  numbers(bytes, t.time, t.lat, t.lon, t.depth, t.elements, t.axes, t.moment, t.mw,
          t.plane1, t.plane2, t.double_couple, t.clvd, t.isotropic, t.stations,
          t.components, t.variance_reduction, t.magnitude);
  visit_list(bytes, t.comments, visit_text);
};

constexpr auto visit_origin = [](auto &bytes, auto &o) {
  texts(bytes, o.id, o.author, o.status, o.algorithm, o.earth_model);
  numbers(bytes, o.time, o.lat, o.lon, o.depth, o.depth_type, o.phases, o.associated,
          o.depth_phases, o.rms, o.time_error, o.horizontal_error, o.depth_error,
          o.major_axis, o.minor_axis, o.ellipse_strike, o.ellipse_computed,
          o.confidence, o.covariance, o.gap, o.nearest);
  visit_list(bytes, o.comments, visit_text);
  visit_list(bytes, o.magnitudes, visit_magnitude);
  visit_list(bytes, o.station_magnitudes, visit_station_magnitude);
  visit_list(bytes, o.tensors, visit_tensor);
  visit_list(bytes, o.associations, visit_association);
};

template <class Bytes, class Record>
void visit_event(Bytes &bytes, Record &event) {
  texts(bytes, event.id, event.author, event.type, event.name, event.place);
  numbers(bytes, event.updated, event.preferred, event.preferred_magnitude,
          event.distant_magnitude, event.preferred_tensor, event.line);
  visit_list(bytes, event.aliases, visit_text);
  visit_list(bytes, event.comments, visit_text);
  visit_list(bytes, event.picks, visit_pick);
  visit_list(bytes, event.origins, visit_origin);
}

}  // namespace

void put_event(const Event &event, std::string &bytes) {
  Putter putter(bytes);
  visit_event(putter, event);
}

bool get_event(std::string_view bytes, Event &event) {
  Getter getter(bytes);
  visit_event(getter, event);
  return getter.good() && event.preferred < event.origins.size();
}

std::string_view id_of(std::string_view bytes) {
  std::uint32_t size = 0;
  if (bytes.size() < sizeof size) return {};
  std::memcpy(&size, bytes.data(), sizeof size);
  return bytes.substr(sizeof size, size);
}

}  // namespace ksutil::exchange
