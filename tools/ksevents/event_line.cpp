#include "tools/ksevents/event_line.h"

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
bool OriginReader::open(const std::string &database) {
  Dbptr db;
  if (dbopen_noshare(database.c_str(), "r", &db) != 0) return false;
  db::TableStore *store = db::table_store(dblookup(db, "", "origin", "", ""));
  const bool found = store != nullptr;
  if (found) {
    const db::Relation &layout = store->layout();
    lat_ = db::RealColumn(layout, "lat");
    lon_ = db::RealColumn(layout, "lon");
    depth_ = db::RealColumn(layout, "depth");
  }
  dbclose(db);
  return found;
}

OriginReader::Position OriginReader::position(const EVOrigin &origin) const {
  Position position;
  const std::string_view row = origin.record_origin;
  lat_.read(row, position.lat);
  lon_.read(row, position.lon);
  depth_.read(row, position.depth);
  return position;
}

const EVOrigin *shown_origin(const EVEvent &event) {
  const EVOrigin *preferred = event.origins.ptr(event.pref_origin);
  return preferred != nullptr ? preferred : event.origins.ptr(0);
}

std::vector<Column> EventLines::columns() {
  return {{"time"},
          {"lat", true, true},
          {"lon", true, true},
          {"depth", true, true},
          {"magnitude", true, true},
          {"magtype"},
          {"evid", true, true},
          {"orid", true, true}};
}

std::vector<std::string> EventLines::cells(const EVEvent &event) const {
  const EVOrigin *origin = shown_origin(event);
  const std::string evid = std::to_string(event.evid);
  if (origin == nullptr) return {"", "", "", "", "", "", evid, ""};
  const OriginReader::Position at = origins_.position(*origin);
  return {time_text(origin->time, 3),
          format_text("%.4f", at.lat),
          format_text("%.4f", at.lon),
          at.depth == -999.0 ? "" : format_text("%.1f", at.depth),
          event.magnitude == -999.0 ? "" : format_text("%.2f", event.magnitude),
          event.magtype,
          evid,
          std::to_string(origin->orid)};
}

std::string EventLines::sentence(const EVEvent &event) const {
  const EVOrigin *origin = shown_origin(event);
  std::string text = "evid " + std::to_string(event.evid);
  if (origin == nullptr) return text + "  without origin";
  const OriginReader::Position at = origins_.position(*origin);
  text +=
      "  " + time_text(origin->time, 3) + format_text("  %9.4f %9.4f", at.lat, at.lon);
  text += at.depth == -999.0 ? "        -" : format_text("  %5.1f km", at.depth);
  text += event.magnitude == -999.0
              ? "  no magnitude"
              : format_text("  %s %.2f", event.magtype.c_str(), event.magnitude);
  return text;
}

}  // namespace ksutil::tools
