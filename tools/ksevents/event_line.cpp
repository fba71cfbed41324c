#include "tools/ksevents/event_line.h"

#include "platform/db/access.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {

bool OriginReader::open(const std::string &database) {
  const OpenDatabase opened(database, "r");
  if (!opened) return false;
  db::TableStore *const store = db::table_store(opened.table("origin"));
  if (store == nullptr) return false;
  const db::Relation &layout = store->layout();
  lat_ = db::RealColumn(layout, "lat");
  lon_ = db::RealColumn(layout, "lon");
  depth_ = db::RealColumn(layout, "depth");
  return true;
}

OriginReader::Position OriginReader::position(std::string_view row,
                                              Unreadable &unreadable) const {
  Position position;
  if (!lat_.read(row, position.lat)) unreadable.values++;
  if (!lon_.read(row, position.lon)) unreadable.values++;
  if (!depth_.read(row, position.depth)) unreadable.values++;
  return position;
}

const EVOrigin *shown_origin(const EVEvent &event) {
  const EVOrigin *preferred = event.origins.ptr(event.pref_origin);
  return preferred != nullptr ? preferred : event.origins.ptr(0);
}

std::vector<Column> EventLines::columns() const {
  return {{"time", raw_, raw_},
          {"lat", true, true, "deg"},
          {"lon", true, true, "deg"},
          {"depth", true, true, "km"},
          {"magnitude", true, true, "", "mag"},
          {"magtype", false, false, "", "type"},
          {"evid", true, true},
          {"orid", true, true}};
}

std::string EventLines::real(double value, int decimals) const {
  return raw_ ? format_text("%.*f", decimals, value) : real_cell(value, decimals);
}

std::vector<std::string> EventLines::cells(const EVEvent &event,
                                           Unreadable &unreadable) const {
  const EVOrigin *origin = shown_origin(event);
  const std::string evid = std::to_string(event.evid);
  if (origin == nullptr) return {"", "", "", "", "", "", evid, ""};
  const OriginReader::Position at =
      origins_.position(db::RowText::Reading(origin->record_origin).text(), unreadable);
  return {raw_ ? format_text("%.5f", origin->time) : time_cell(origin->time),
          real(at.lat, 4),
          real(at.lon, 4),
          real(at.depth, 1),
          real(event.magnitude, 2),
          text_cell(std::string(event.magtype), raw_),
          evid,
          std::to_string(origin->orid)};
}

namespace {

/* A word with a blank after it; nothing for an empty word. */
std::string spaced(const std::string &word) { return word.empty() ? "" : word + " "; }

}  // namespace

std::string EventLines::sentence(const EVEvent &event) const {
  const EVOrigin *origin = shown_origin(event);
  const std::string evid = "evid " + std::to_string(event.evid);
  if (origin == nullptr) return evid + "  without origin";
  Unreadable unreadable;
  const OriginReader::Position at =
      origins_.position(db::RowText::Reading(origin->record_origin).text(), unreadable);
  const std::string depth = real_cell(at.depth, 1);
  const std::string magnitude = real_cell(event.magnitude, 2);
  return evid + "  " + time_cell(origin->time) +
         format_text("  %9s %9s", real_cell(at.lat, 4).c_str(),
                     real_cell(at.lon, 4).c_str()) +
         (depth.empty() ? "  no depth" : format_text("  %5s km", depth.c_str())) +
         (magnitude.empty()
              ? "  no magnitude"
              : "  " + spaced(text_cell(std::string(event.magtype))) + magnitude);
}

}  // namespace ksutil::tools
