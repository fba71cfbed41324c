/* event_sheets: reads one event through a view and shows it as tables or as JSON. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_SHEETS_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_SHEETS_H

#include <memory>
#include <string>

#include "events/kseventview.h"
#include "platform/db/columns.h"
#include "platform/db/store.h"
#include "tools/common/rows.h"
#include "tools/ksevents/event_line.h"

namespace ksutil::tools {

class EventSheets {
 public:
  /* With `raw` times are epoch seconds, and nulls the numbers that stand for them. */
  explicit EventSheets(bool raw) : raw_(raw), view_(nullptr) {}
  ~EventSheets() { view_.freeEvent(event_); }
  EventSheets(const EventSheets &) = delete;
  EventSheets &operator=(const EventSheets &) = delete;

  /* Reads an event with its associations and detections, with `best` one detection for each
   * station.  False, with messages registered, when there is no such event or it cannot be
   * read. */
  bool read(const std::string &database, long evid, bool best);

  void print_tables();
  void print_object();

  /* False when rows below the event could not be read, which are left out, or when its
   * preferred origin is missing. */
  bool complete() const { return complete_; }
  /* Whether, of the tables printed, stations could not be read, which messages tell. */
  bool without_stations() const { return without_stations_; }

  /* The values of the origins that cannot be read, which are shown as nulls. */
  Unreadable unreadable(const OriginReader &reader) const;

 private:
  /* The distance and azimuth of an associated station: as the view computes them from its
   * site, and without one those of the assoc row. */
  void place(const KSEVAssociation &row, const KSEVOriginStation &station,
             double &delta, double &azimuth) const;
  Rows magnitudes_of(const KSEVOrigin &origin) const;
  Rows origins() const;
  Rows associations(KSEVOrigin &origin);
  Rows detections(const KSEVOrigin &origin) const;
  bool note(int result);
  std::string real(double value, int decimals) const;
  std::string when(double time) const;
  Column time_column() const { return {"time", raw_, raw_}; }

  bool raw_;
  KSEventView view_;
  std::unique_ptr<db::DatabaseStore> store_;  // for the layout of assoc
  db::RealColumn delta_, esaz_;
  KSEVEvent *event_ = nullptr;
  bool complete_ = true;
  bool without_stations_ = false;
};

}  // namespace ksutil::tools
#endif
