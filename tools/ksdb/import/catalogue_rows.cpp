#include "tools/ksdb/import/catalogue_rows.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* Sets fields of one row; a field that the layout lacks is left out. */
class RowEditor {
 public:
  RowEditor(const db::Relation &layout, std::string &row)
      : layout_(layout), row_(row) {}

  RowEditor &put(const char *name, std::int64_t value) {
    const db::Field *field = layout_.find(name);
    if (field != nullptr) good_ = db::write_integer(*field, value, row_) && good_;
    return *this;
  }
  RowEditor &put(const char *name, double value) {
    const db::Field *field = layout_.find(name);
    if (field != nullptr) good_ = db::write_real(*field, value, row_) && good_;
    return *this;
  }
  /* A code that is too long for its field keeps what fits; "" is the null. */
  RowEditor &put(const char *name, std::string_view value) {
    const db::Field *field = layout_.find(name);
    if (field == nullptr) return *this;
    if (value.empty()) value = field->null_text;
    value = value.substr(0, static_cast<std::size_t>(field->width));
    good_ = db::write_text(*field, value, row_) && good_;
    return *this;
  }
  RowEditor &loaded(const CatalogueEvent &event) {
    if (event.updated != 0.0) put("lddate", event.updated);
    return *this;
  }
  bool good() const { return good_; }

 private:
  const db::Relation &layout_;
  std::string &row_;
  bool good_ = true;
};

std::string_view first_of(const std::string &wanted, const std::string &otherwise) {
  return wanted.empty() ? otherwise : wanted;
}

/* The event type codes of origin.etype for the words of a catalogue. */
std::string_view event_type_code(const std::string &type) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kCodes{
      {{"earthquake", "eq"},
       {"quarry blast", "qb"},
       {"explosion", "ex"},
       {"mining explosion", "me"},
       {"nuclear explosion", "nu"},
       {"ice quake", "iq"},
       {"volcanic eruption", "ve"},
       {"sonic boom", "sb"},
       {"landslide", "ls"},
       {"rock burst", "rb"}}};
  const auto *known = std::find_if(kCodes.begin(), kCodes.end(), [&](const auto &code) {
    return code.first == type;
  });
  return known == kCodes.end() ? std::string_view(type) : known->second;
}

/* The place of a magnitude type in the origin row, null when it has none there. */
struct OwnMagnitude {
  const char *value, *id;
};
constexpr std::array<OwnMagnitude, 3> kOwnMagnitudes{
    {{"mb", "mbid"}, {"ms", "msid"}, {"ml", "mlid"}}};

const OwnMagnitude *own_magnitude(const std::string &magtype) {
  std::string type = lowered(magtype);
  if (type.starts_with("ms_")) type = "ms";
  const auto *found =
      std::find_if(kOwnMagnitudes.begin(), kOwnMagnitudes.end(),
                   [&](const OwnMagnitude &own) { return type == own.value; });
  return found == kOwnMagnitudes.end() ? nullptr : found;
}

}  // namespace

std::string event_name(const std::string &id, int width) {
  constexpr std::size_t kDigits = 6;
  const auto room = static_cast<std::size_t>(std::max(width, 0));
  if (id.size() <= room || room <= kDigits + 1) return id;
  std::uint64_t hash = 14695981039346656037ULL;  // FNV-1a
  for (const char c : id) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  }
  std::string name = id.substr(0, room - kDigits - 1) + '~';
  for (std::size_t i = 0; i < kDigits; i++, hash /= 36) {
    name += "0123456789abcdefghijklmnopqrstuvwxyz"[hash % 36];
  }
  return name;
}

bool has_magnitude(const CatalogueEvent &event) { return event.magnitude > -999.0; }

bool has_errors(const CatalogueEvent &event) {
  return event.rms >= 0.0 || event.horizontal_error >= 0.0 || event.depth_error >= 0.0;
}

bool fill_event(const db::Relation &layout, const CatalogueEvent &event,
                const EventIds &ids, std::string &row) {
  const db::Field *name = layout.find("evname");
  return RowEditor(layout, row)
      .put("evid", ids.evid)
      .put("evname", event_name(event.id, name == nullptr ? 0 : name->width))
      .put("prefor", ids.orid)
      .put("auth", event.net)
      .loaded(event)
      .good();
}

bool fill_origin(const db::Relation &layout, const CatalogueEvent &event,
                 const EventIds &ids, std::string &row) {
  RowEditor editor(layout, row);
  editor.put("lat", event.lat)
      .put("lon", event.lon > 180.0 ? event.lon - 360.0 : event.lon)
      .put("depth", event.depth)
      .put("time", event.time)
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("jdate", static_cast<std::int64_t>(yearday(event.time)))
      .put("ndef", static_cast<std::int64_t>(event.stations))
      .put("etype", event_type_code(event.type))
      .put("auth", first_of(event.location_source, event.net))
      .loaded(event);
  const OwnMagnitude *mine = own_magnitude(event.magtype);
  for (const OwnMagnitude &own : kOwnMagnitudes) {
    const bool given = &own == mine && has_magnitude(event);
    editor.put(own.value, given ? event.magnitude : -999.0)
        .put(own.id, given ? ids.magid : std::int64_t{-1});
  }
  return editor.good();
}

bool fill_origerr(const db::Relation &layout, const CatalogueEvent &event,
                  const EventIds &ids, std::string &row) {
  return RowEditor(layout, row)
      .put("orid", ids.orid)
      .put("sdobs", event.rms)
      .put("smajax", event.horizontal_error)
      .put("sdepth", event.depth_error)
      .loaded(event)
      .good();
}

bool fill_netmag(const db::Relation &layout, const CatalogueEvent &event,
                 const EventIds &ids, std::string &row) {
  return RowEditor(layout, row)
      .put("magid", ids.magid)
      .put("net", first_of(event.magnitude_source, event.net))
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("magtype", event.magtype)
      .put("nsta", static_cast<std::int64_t>(event.magnitude_stations))
      .put("magnitude", event.magnitude)
      .put("uncertainty", event.magnitude_error)
      .put("auth", first_of(event.magnitude_source, event.net))
      .loaded(event)
      .good();
}

bool stamp_row(const db::Relation &layout, double lddate, std::string &row) {
  return RowEditor(layout, row).put("lddate", lddate).good();
}

}  // namespace ksutil::tools
