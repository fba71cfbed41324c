#include "formats/exchange/record_bytes.h"

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
template <class Bytes, class Record>
void visit_magnitude(Bytes &bytes, Record &m) {
  bytes.text(m.id);
  bytes.text(m.type);
  bytes.text(m.author);
  bytes.number(m.value);
  bytes.number(m.error);
  bytes.number(m.stations);
}

template <class Bytes, class Record>
void visit_tensor(Bytes &bytes, Record &t) {
  bytes.text(t.id);
  bytes.text(t.author);
  bytes.number(t.time);
  bytes.number(t.lat);
  bytes.number(t.lon);
  bytes.number(t.depth);
  bytes.number(t.elements);
  bytes.number(t.axes);
  bytes.number(t.moment);
  bytes.number(t.mw);
  bytes.number(t.plane1);
  bytes.number(t.plane2);
}

template <class Bytes, class Record>
void visit_origin(Bytes &bytes, Record &o) {
  bytes.text(o.id);
  bytes.text(o.author);
  bytes.number(o.time);
  bytes.number(o.lat);
  bytes.number(o.lon);
  bytes.number(o.depth);
  bytes.number(o.phases);
  bytes.number(o.rms);
  bytes.number(o.horizontal_error);
  bytes.number(o.depth_error);
  bytes.number(o.gap);
  bytes.number(o.nearest);
  bytes.text(o.status);
  bytes.count(o.magnitudes);
  for (auto &magnitude : o.magnitudes) visit_magnitude(bytes, magnitude);
  bytes.count(o.tensors);
  for (auto &tensor : o.tensors) visit_tensor(bytes, tensor);
}

template <class Bytes, class Record>
void visit_event(Bytes &bytes, Record &event) {
  bytes.text(event.id);
  bytes.text(event.author);
  bytes.text(event.type);
  bytes.text(event.place);
  bytes.number(event.updated);
  bytes.number(event.preferred);
  bytes.number(event.line);
  bytes.count(event.origins);
  for (auto &origin : event.origins) visit_origin(bytes, origin);
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
