/* Reading events, origins and what hangs from them, from snapshots of the tables. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_TREE_READER_H
#define KSUTIL_EVENTS_READING_INTERNAL_TREE_READER_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "events/database/internal/row_columns.h"
#include "events/database/internal/row_result.h"
#include "events/database/internal/site_index.h"
#include "events/database/internal/time_index.h"
#include "events/database/internal/watched_database.h"
#include "events/reading/internal/preferred_magnitudes.h"
#include "events/records.h"
#include "events/vars.h"
#include "platform/db/key_index.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* What asking for an evid or an orid gives that no row has. */
inline constexpr int kNoRow = 1;

/* What reading needs of the owner of a database handle, and outlives the reader. */
struct ReadingSource {
  const char *owner;  // the class in whose name failures are reported
  EVVars &vars;       // the tables, the keys and the rules
  SiteIndex &sites;   // these two are kept from one reading to the next
  TimeIndex &detection_times;
};

/* The tables that a reading needs, to be added up. */
inline constexpr unsigned kReadList = 1;       // of events and origins
inline constexpr unsigned kReadExpansion = 2;  // of what expanded events have besides
inline constexpr unsigned kReadDetections = 4;
inline constexpr unsigned kReadSites = 8;  // contained in the two before

/* The snapshots of the tables that make up the event list. */
struct ListSnapshots {
  std::shared_ptr<const db::Snapshot> event, origin, origerr, netmag, mt;
};

/* What a detection row says, as views into its text. */
struct DetectionFields {
  std::string_view sta, chan, state;
  double time = 0.0;

  /* False in the states "-", "ON", "on", "OFF" and "off", in which no signal was seen; all
   * others, a blank one too, are detections. */
  bool signal() const;
};

template <class Columns>
struct ReadTable {
  std::shared_ptr<const db::Snapshot> rows;
  Columns columns;

  /* What to give for a row that could not be read. */
  int unreadable() const { return rows->complete() ? kUnreadable : kFailed; }
};

/* Reads one consistent picture: the snapshots are taken when it is bound, and a row that
 * changes later is not seen.
 *
 * The caller holds the lock of the database handle during each call, and MessagesOfFailure
 * around the reading functions, which leave the platform's messages about unreadable rows
 * in the register.  After the lock has been let go in between, resume() comes first. */
class TreeReader {
 public:
  explicit TreeReader(ReadingSource source) : source_(source) {}
  explicit TreeReader(WatchedDatabase &database)
      : source_{database.owner().name, database.vars(), database.sites(),
                database.detection_times()} {}

  /* Takes the snapshots of the tables that a sum of kRead... names; false with a message.
   * May be called again for more tables. */
  bool bind(unsigned tables);
  bool bind_list();
  bool bind_expansion(bool detections);
  bool bind_detections();
  bool bind_sites();
  /* Makes the indexes describe this reader's snapshots again. */
  bool resume();
  /* False when rows could not be had for an error that may pass. */
  bool complete() const;

  ListSnapshots list_snapshots() const {
    return {event_.rows, origin_.rows, origerr_.rows, netmag_.rows, mt_.rows};
  }
  long event_count() const { return event_.rows->count(); }
  long detection_count() const { return detection_.rows->count(); }
  /* The event rows with an evid, and the origin rows with an orid. */
  db::KeyIndex::Rows events_with(int64_t evid) const;
  db::KeyIndex::Rows origins_with(int64_t orid) const;

  /* 0; kUnreadable or kFailed with the record in no useful state. */
  int read_event(long recno, EVEvent &event, long *order);
  /* The event that stands for an evid: that of the first row at or after `first` that can
   * be read (those are in the list), else of the first before.  kNoRow: no such row. */
  int read_event_of(int64_t evid, long first, EVEvent &event);
  int read_origin(long recno, EVOrigin &origin);
  /* The first with an orid that can be read.  kNoRow: no such row. */
  int read_origin_of(int64_t orid, EVOrigin &origin);

  /* Everything that expanded events have besides.  0, kUnreadable when rows were left
   * out, or kFailed. */
  int expand(EVEvent &event);
  int read_associations(EVOrigin &origin);
  int read_association(long recno, EVAssociation &association);
  int read_stamags(EVMagnitude &magnitude);
  int read_stamag(long recno, EVStamag &stamag);
  int read_detections(EVOrigin &origin);
  int read_detections(double tstart, double tend, Table<EVDetection> &detections);

  /* The detection rows around an origin time, and one of them without its site. */
  std::vector<long> detections_around(double time) const;
  std::vector<long> detections_between(double tstart, double tend) const {
    return source_.detection_times.find(tstart, tend);
  }
  int read_detection(long recno, EVDetection &detection, DetectionFields &fields);
  /* The site that was valid at an epoch time; recno -1 and an empty text when there is
   * none. */
  int read_site(std::string_view sta, double time, int64_t &recno, db::RowText &record);

  const OriginColumns &origin_columns() const { return origin_.columns; }
  const AssocColumns &assoc_columns() const { return assoc_.columns; }
  const ArrivalColumns &arrival_columns() const { return arrival_.columns; }
  const StamagColumns &stamag_columns() const { return stamag_.columns; }
  const SiteColumns &site_columns() const { return site_.columns; }

 private:
  /* Tells where and when, for the residuals of detections. */
  struct Epicentre {
    double time, lat, lon, depth;
    bool located;
  };

  template <class Columns>
  bool take(const char *name, ReadTable<Columns> &table);
  bool follow_sites();
  bool follow_detections();
  bool index(const std::shared_ptr<const db::Snapshot> &rows, EVMatch &match,
             const db::KeyIndex *&found);
  bool index_list();
  bool index_expansion();

  int read_netmags(EVOrigin &origin);
  int read_moments(EVOrigin &origin);
  int add_own_magnitudes(std::string_view row, int64_t evid, EVOrigin &origin);
  db::RowText own_magnitude_row(int64_t magid, int64_t orid, int64_t evid,
                                const EVMagnitude &magnitude);
  int add_detection(long record, const Epicentre *epicentre,
                    Table<EVDetection> &detections);
  void add_residuals(const Epicentre &epicentre, std::string_view site, double time,
                     EVDetection &detection) const;

  ReadingSource source_;
  double now_ = 0.0;
  std::unique_ptr<RuleBook> rules_;

  ReadTable<EventColumns> event_;
  ReadTable<OriginColumns> origin_;
  ReadTable<OridColumns> origerr_, mt_;
  ReadTable<NetmagColumns> netmag_;
  ReadTable<StamagColumns> stamag_;
  ReadTable<AssocColumns> assoc_;
  ReadTable<ArrivalColumns> arrival_;
  ReadTable<SiteColumns> site_;
  ReadTable<DetectionColumns> detection_;

  const db::KeyIndex *events_by_evid_ = nullptr, *origins_by_evid_ = nullptr,
                     *origins_by_orid_ = nullptr, *origerrs_ = nullptr,
                     *netmags_ = nullptr, *moments_ = nullptr, *assocs_ = nullptr,
                     *arrivals_ = nullptr, *stamags_ = nullptr;

  /* Working space, kept so that reading a row allocates nothing but the record. */
  std::vector<std::pair<double, long>> origin_rows_;
  std::vector<int64_t> magids_;
  std::string null_netmag_, scratch_row_;
};

}  // namespace ksutil::events
#endif
