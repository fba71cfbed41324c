#include "tools/ksevents/event_sheets.h"

#include <cstdio>
#include <vector>

#include "platform/stock/text.h"
#include "tools/common/cells.h"

namespace ksutil::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kRowsLeftOut = 10;  // of the results of a view

template <class Record>
std::vector<Record *> records(Tbl *list) {
  std::vector<Record *> found;
  for (long i = 0; i < counttbl(list); i++) {
    found.push_back(static_cast<Record *>(gettbl(list, i)));
  }
  return found;
}

void print_table(const std::string &heading, const Rows &rows) {
  if (rows.empty()) return;
  std::printf("\n%s\n", heading.c_str());
  rows.print();
}

}  // namespace

bool EventSheets::note(int result) {
  if (result == kRowsLeftOut) complete_ = false;
  return result >= 0;
}

bool EventSheets::read(const std::string &database, long evid, bool best) {
  if (view_.configure("dbname", database.c_str(), static_cast<char *>(nullptr)) < 0) {
    return false;
  }
  store_ = db::open_store(database, "r", std::size_t{8} << 20);
  db::TableStore *assoc = store_ == nullptr ? nullptr : store_->table("assoc");
  if (assoc != nullptr) {
    delta_ = db::RealColumn(assoc->layout(), "delta");
    esaz_ = db::RealColumn(assoc->layout(), "esaz");
  }
  event_ = view_.findEvid(evid);
  if (event_ == nullptr || !note(view_.refreshAssociations(event_))) return false;
  bool preferred = event_->prefor < 0;
  for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
    if (!note(view_.refreshDetections(origin, best ? 1 : 0))) return false;
    preferred = preferred || origin->orid == event_->prefor;
  }
  complete_ = complete_ && preferred;
  return true;
}

Unreadable EventSheets::unreadable(const OriginReader &reader) const {
  Unreadable unreadable;
  for (const KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
    reader.position(origin->record_origin, unreadable);
  }
  return unreadable;
}

std::string EventSheets::real(double value, int decimals) const {
  return raw_ ? format_text("%.*f", decimals, value) : real_cell(value, decimals);
}

std::string EventSheets::when(double time) const {
  return raw_ ? format_text("%.5f", time) : time_cell(time);
}

Rows EventSheets::origins() const {
  Rows rows({{"orid", true, true},
             {"preferred", true, true, "", "pref"},
             time_column(),
             {"lat", true, true, "deg"},
             {"lon", true, true, "deg"},
             {"depth", true, true, "km"},
             {"magnitude", true, true, "", "mag"},
             {"magtype", false, false, "", "type"},
             {"associations", true, true, "", "assoc"},
             {"detections", true, true, "", "det"}},
            Form::kText);
  for (const KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
    rows.add({std::to_string(origin->orid), std::to_string(origin->preferred),
              when(origin->time), real(origin->lat, 4), real(origin->lon, 4),
              real(origin->depth, 1), real(origin->magnitude, 2),
              text_cell(origin->magtype, raw_),
              std::to_string(counttbl(origin->associations)),
              std::to_string(counttbl(origin->detections))});
  }
  return rows;
}

Rows EventSheets::magnitudes_of(const KSEVOrigin &origin) const {
  Rows rows({{"magnitude", true, true, "", "mag"},
             {"magtype", false, false, "", "type"},
             {"preferred", true, true, "", "pref"}},
            Form::kText);
  int index = 0;
  for (const KSEVMagnitude *row : records<KSEVMagnitude>(origin.magnitudes)) {
    rows.add({real(row->magnitude, 2), text_cell(row->magtype, raw_),
              std::to_string(index++ == origin.pref_magnitude ? 1 : 0)});
  }
  return rows;
}

Rows EventSheets::associations(KSEVOrigin &origin) {
  Rows rows({{"sta"},
             {"phase"},
             time_column(),
             {"residual", true, true, "s"},
             {"defining", true, true},
             {"distance", true, true, "deg"},
             {"azimuth", true, true, "deg"}},
            Form::kText);
  for (const KSEVAssociation *row : records<KSEVAssociation>(origin.associations)) {
    KSEVOriginStation unknown, *station = &unknown;
    if (view_.lookupStation(&origin, row->sta, origin.time, &station) < 0) {
      complete_ = false;
      without_stations_ = true;
    }
    double delta = -999.0, azimuth = -999.0;
    place(*row, *station, delta, azimuth);
    rows.add({row->sta, row->phase, when(row->time), real(row->timeres, 3),
              std::to_string(row->defining), real(delta, 3), real(azimuth, 1)});
  }
  return rows;
}

void EventSheets::place(const KSEVAssociation &row, const KSEVOriginStation &station,
                        double &delta, double &azimuth) const {
  delta = station.delta;
  azimuth = station.azimuth;
  if (row.record_assoc == nullptr) return;
  double value = 0.0;
  if (delta == -999.0 && delta_.read(row.record_assoc, value) && value >= 0.0) {
    delta = value;
  }
  if (azimuth == -999.0 && esaz_.read(row.record_assoc, value) && value > -999.0) {
    azimuth = value;
  }
}

Rows EventSheets::detections(const KSEVOrigin &origin) const {
  Rows rows({{"sta"},
             {"chan"},
             {"state"},
             time_column(),
             {"presidual", true, true, "s"},
             {"sresidual", true, true, "s"},
             {"distance", true, true, "deg"},
             {"azimuth", true, true, "deg"}},
            Form::kText);
  for (const KSEVDetection *row : records<KSEVDetection>(origin.detections)) {
    rows.add({row->sta, row->chan, row->state, when(row->time), real(row->presidual, 3),
              real(row->sresidual, 3), real(row->delta, 3), real(row->azimuth, 1)});
  }
  return rows;
}

void EventSheets::print_tables() {
  const long count = counttbl(event_->origins);
  std::printf("Event %ld: %ld %s", static_cast<long>(event_->evid), count,
              count == 1 ? "origin" : "origins");
  const std::string magnitude = real_cell(event_->magnitude, 2);
  if (!magnitude.empty()) {
    const std::string type = text_cell(event_->magtype);
    std::printf(", %s%s%s", type.c_str(), type.empty() ? "" : " ", magnitude.c_str());
  }
  std::printf("\n");
  print_table("Origins", origins());
  for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
    const std::string of = "of origin " + std::to_string(origin->orid);
    print_table("Magnitudes " + of, magnitudes_of(*origin));
    print_table("Associations " + of, associations(*origin));
    print_table("Detections around origin " + std::to_string(origin->orid),
                detections(*origin));
  }
}

void EventSheets::print_object() {
  Json event;
  event["evid"] = event_->evid;
  event["prefor"] = json_number(id_cell(event_->prefor));
  event["magnitude"] = json_number(real(event_->magnitude, 2));
  event["magtype"] = json_text(text_cell(event_->magtype, raw_));
  event["origins"] = origins().json();
  std::size_t i = 0;
  for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
    Json &object = event["origins"][i++];
    object["magnitudes"] = magnitudes_of(*origin).json();
    object["associations"] = associations(*origin).json();
    object["detections"] = detections(*origin).json();
  }
  print_json(event);
}

}  // namespace ksutil::tools
