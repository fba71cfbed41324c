/* station_plan_references: the part of StationPlan that takes over the rows of sitechan that
 * waveforms left, and keeps rows that name them right. */
#include <algorithm>
#include <array>

#include "formats/exchange/stations/station_days.h"
#include "formats/exchange/stations/station_plan.h"
#include "platform/db/columns.h"

namespace ksutil::exchange {
namespace {

constexpr std::array<const char *, 3> kOrientation{"edepth", "hang", "vang"};

bool has_orientation(const db::Relation &layout, std::string_view row) {
  return std::any_of(kOrientation.begin(), kOrientation.end(), [&](const char *name) {
    const db::RealColumn column(layout, name);
    double value = column.null();
    return column.read(row, value) && value != column.null();
  });
}

}  // namespace

/* Whether rows of a table may have to name other channels: it has rows, and a row of
 * sitechan has no orientation. */
bool StationPlan::may_move(db::DatabaseStore &store, const char *table) {
  const auto rows_of = [&](const char *name) {
    db::TableStore *const found = store.table(name);
    return found == nullptr ? nullptr : found->snapshot();
  };
  const auto references = rows_of(table), channels = rows_of("sitechan");
  if (references == nullptr || references->count() == 0 || channels == nullptr) {
    return false;
  }
  for (long row = 0; row < channels->count(); row++) {
    const std::string_view channel = channels->row(row);
    if (!channel.empty() && !has_orientation(channels->layout(), channel)) return true;
  }
  return false;
}

/* Whether a row of sitechan only stands for a channel of which waveforms were known: any run
 * of epochs that covers its first day may take it over. */
bool StationPlan::lacks_orientation(const Codes &codes, std::size_t sitechan) {
  const StationTable &channels = table(kSitechan);
  if (has_orientation(channels.layout(), channels.row(sitechan))) return false;
  const std::int64_t chanid = channels.integer(sitechan, "chanid");
  const StationTable &sensors = table(kSensor);
  const auto rows = sensors.find(0, {codes.first, codes.second});
  return std::none_of(rows.begin(), rows.end(), [&](std::size_t row) {
    return sensors.integer(row, "chanid") == chanid;
  });
}

/* A row that was taken over ends where its run does.  Waveforms and arrivals after or before
 * that name the row of their own day. */
void StationPlan::move_references() {
  if (taken_over_.empty()) return;
  for (const Table which : {kWfdisc, kArrival, kCalibration}) {
    if (has(which)) move_references(table(which));
  }
}

void StationPlan::move_references(StationTable &references) {
  const db::IntegerColumn chanids(references.layout(), "chanid");
  for (std::size_t row = 0; row < references.size(); row++) {
    std::int64_t chanid = chanids.null();
    if (!chanids.read(references.row(row), chanid) || !taken_over_.contains(chanid)) {
      continue;
    }
    const Codes codes{references.text(row, "sta"), references.text(row, "chan")};
    const std::int64_t own = chanid_at(codes, references.real(row, "time", kNoTime));
    if (own < 0 || own == chanid) continue;
    std::string changed(references.row(row));
    report_ = FillReport();
    RowEdit(references.layout(), changed, report_).put("chanid", own);
    references.set(row, std::move(changed));
  }
}

/* The row of sitechan that holds at a time, of several the one that begins last, as readers
 * of waveforms take it; -1: none. */
std::int64_t StationPlan::chanid_at(const Codes &codes, double time) {
  const StationTable &channels = table(kSitechan);
  std::int64_t chanid = -1;
  double latest = 0.0;
  for (const std::size_t row : channels.find(0, {codes.first, codes.second})) {
    const double begin = begin_of_day(channels.integer(row, "ondate"));
    if (time < begin || time >= end_of_day(channels.integer(row, "offdate"))) continue;
    if (chanid >= 0 && begin < latest) continue;
    chanid = channels.integer(row, "chanid");
    latest = begin;
  }
  return chanid;
}

}  // namespace ksutil::exchange
