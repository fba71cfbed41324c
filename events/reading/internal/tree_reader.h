/* TreeReader: reads events, their origins and the rows that refer to those, from
 * snapshots of the tables. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_TREE_READER_H
#define KSUTIL_EVENTS_READING_INTERNAL_TREE_READER_H

#include <array>
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
#include "events/reading/internal/made_rows.h"
#include "events/reading/internal/magnitude_rules.h"
#include "events/records.h"
#include "events/vars.h"
#include "platform/db/key_index.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The result for an evid or orid that no row has. */
inline constexpr int kNoRow = 1;

/* The tables that a reading needs, to be added up. */
inline constexpr unsigned kReadList = 1;       // of events and origins
inline constexpr unsigned kReadExpansion = 2;  // of what expanded events have besides
inline constexpr unsigned kReadDetections = 4;
inline constexpr unsigned kReadSites = 8;  // contained in the two before

/* The snapshots of the tables that make up the event list. */
struct ListSnapshots {
  std::shared_ptr<const db::Snapshot> event, origin, origerr, netmag, mt;
};

/* The indexes of these snapshots, by the field that each is named after. */
struct ListIndexes {
  const db::KeyIndex *event_evid = nullptr, *origin_evid = nullptr,
                     *origin_orid = nullptr, *origerr_orid = nullptr,
                     *netmag_orid = nullptr, *mt_orid = nullptr;
};

/* The same for the tables that only expanded events need; detection is null when they
 * have none. */
struct ExpansionSnapshots {
  std::shared_ptr<const db::Snapshot> assoc, arrival, stamag, site, detection;
};
struct ExpansionIndexes {
  const db::KeyIndex *assoc_orid = nullptr, *arrival_arid = nullptr,
                     *stamag_magid = nullptr;
};

/* The keys by which the rows of an expanded event were looked for, found or not; a key
 * may be there twice. */
struct ExpansionKeys {
  std::vector<int64_t> orids, arids, magids;
};

/* Fields of a detection row, as views into its text. */
struct DetectionFields {
  std::string sta, chan, state;
  double time = 0.0;

  /* False in the states "-", "ON", "on", "OFF" and "off", which report no signal.  All
   * other states, a blank one included, are detections. */
  bool signal() const;
};

template <class Columns>
struct ReadTable {
  std::shared_ptr<const db::Snapshot> rows;
  Columns columns;

  /* The result for a row that could not be read. */
  int unreadable() const { return rows->complete() ? kUnreadable : kFailed; }
};

/* Reads one consistent state of the database: bind() takes the snapshots, and later
 * changes of rows are not seen.
 *
 * The caller holds the lock of the database during each call, and MessagesOfFailure
 * around the reading functions, because these leave the platform's messages about
 * unreadable rows in the register.  After the caller has released the lock and taken it
 * again, the first call must be resume(). */
class TreeReader {
 public:
  explicit TreeReader(WatchedDatabase &database) : database_(database) {}

  /* Takes the snapshots of the tables that a sum of kReadList and so on names; false
   * with a message.  May be called again for more tables. */
  bool bind(unsigned tables);
  /* Makes the indexes describe the snapshots of this reader again, after another reader
   * may have moved them to others; false with a message. */
  bool resume();
  /* False when rows could not be read because of an error that may pass. */
  bool complete() const;
  /* Whether that is because rows have changed since they were read first, so that a
   * reader with new snapshots can read them. */
  bool overtaken() const;
  /* Makes bind() hold all rows of the tables that are read, whatever their size, so that
   * none is overtaken. */
  void keep_rows() { keep_rows_ = true; }

  ListSnapshots list_snapshots() const {
    return {event_.rows, origin_.rows, origerr_.rows, netmag_.rows, mt_.rows};
  }
  ExpansionSnapshots expansion_snapshots() const {
    return {assoc_.rows, arrival_.rows, stamag_.rows, site_.rows, detection_.rows};
  }
  long event_count() const { return event_.rows->count(); }
  int64_t null_evid() const { return event_.columns.evid.null(); }
  long detection_count() const { return detection_.rows->count(); }
  /* Valid until the caller releases the lock. */
  const ListIndexes &list_indexes() const { return by_; }
  const ExpansionIndexes &expansion_indexes() const { return expanded_by_; }

  /* Read the event or origin of a row: 0; kUnreadable or kFailed, the record then being
   * of no use.  `order` as in EVServer::refreshEvent. */
  int read_event(long recno, EVEvent &event, long *order) {
    return read_event(recno, event, order, false);
  }
  /* The same without magnitudes, moments and origin errors: what the rows of event and
   * origin tell. */
  int read_outline(long recno, EVEvent &event, long *order) {
    return read_event(recno, event, order, true);
  }
  /* Reads the event of an evid: of the first row from `first` on that can be read
   * (those rows are in the list), else of the first readable row before.  kNoRow: no
   * row has the evid. */
  int read_event_of(int64_t evid, long first, EVEvent &event);
  int read_origin(long recno, EVOrigin &origin) {
    return read_origin(recno, origin, false);
  }
  /* Reads the first origin of an orid that can be read.  kNoRow: no row has the
   * orid. */
  int read_origin_of(int64_t orid, EVOrigin &origin);

  /* Read the parts that only expanded events have: all of an event, or one kind.  0,
   * kUnreadable when rows were left out, or kFailed. */
  int expand(EVEvent &event);
  /* The keys that the last expand() has used, also for rows that are not there. */
  ExpansionKeys taken_keys() { return std::exchange(keys_, {}); }
  int read_associations(EVOrigin &origin);
  int read_association(long recno, EVAssociation &association);
  int read_stamags(EVMagnitude &magnitude);
  int read_stamag(long recno, EVStamag &stamag);
  int read_detections(EVOrigin &origin);
  int read_detections(double tstart, double tend, Table<EVDetection> &detections);

  /* The detection rows from 10 s before to 1800 s after an origin time; those of a
   * span, ends included; and the contents of one of them, without its site. */
  std::vector<long> detections_around(double time) const;
  std::vector<long> detections_between(double tstart, double tend) const {
    return database_.detection_times().find(tstart, tend);
  }
  int read_detection(long recno, EVDetection &detection, DetectionFields &fields);
  /* The site row of a station that was valid at an epoch time.  Without one the result
   * is 0 and `recno` and `record` are untouched. */
  int read_site(std::string_view sta, double time, int64_t &recno, db::RowText &record);

  const OriginColumns &origin_columns() const { return origin_.columns; }
  const AssocColumns &assoc_columns() const { return assoc_.columns; }
  const ArrivalColumns &arrival_columns() const { return arrival_.columns; }
  const StamagColumns &stamag_columns() const { return stamag_.columns; }
  const SiteColumns &site_columns() const { return site_.columns; }

 private:
  /* Place and time of an origin, for the residuals of detections. */
  struct Epicentre {
    double time, lat, lon, depth;
    bool located;
  };

  std::array<const db::Snapshot *, 10> snapshots() const;
  bool bind_list();
  bool bind_expansion(bool detections);
  bool bind_detections();
  bool bind_sites();
  template <class Columns>
  bool take(const char *name, ReadTable<Columns> &table);
  bool follow_sites();
  bool follow_detections();
  bool index_list();
  bool index_expansion();

  int read_event(long recno, EVEvent &event, long *order, bool outline);
  int read_origin(long recno, EVOrigin &origin, bool outline);
  int read_netmags(EVOrigin &origin);
  int read_moments(EVOrigin &origin);
  int add_own_magnitudes(long recno, int64_t evid, EVOrigin &origin);
  db::RowText own_magnitude_row(int64_t magid, int64_t orid, int64_t evid,
                                const EVMagnitude &magnitude);
  int add_detection(long record, const Epicentre *epicentre,
                    Table<EVDetection> &detections);
  void add_residuals(const Epicentre &epicentre, std::string_view site, double time,
                     EVDetection &detection) const;

  WatchedDatabase &database_;
  bool keep_rows_ = false;
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

  ListIndexes by_;
  ExpansionIndexes expanded_by_;
  ExpansionKeys keys_;  // of the event that is being expanded

  /* Scratch memory, kept so that reading a row allocates only the record. */
  std::vector<std::pair<double, long>> origin_rows_;
  std::vector<int64_t> magids_;
  std::string null_netmag_, scratch_row_;
  MadeRows made_rows_;
};

}  // namespace ksutil::events
#endif
