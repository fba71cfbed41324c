/* KSEventView: the events of a CSS3.0 database read into plain lists, for one owner.
 *
 * Where an EVServer keeps all events in memory for many clients, a view reads what it is
 * asked for, when it is asked, into records that the owner keeps; and it can run a thread
 * that looks for changes and calls the owner back.  Both read rows by the same code, so
 * that preferred origins, magnitudes and moment tensors are the same.
 *
 *   Pf *pf = nullptr;
 *   pfcompile("dbname /data/events\n", &pf);
 *   KSEventView view(pf);
 *   Tbl *events = nullptr;
 *   if (view.refreshEvents(&events) < 0) ...
 *   for (long i = 0; i < counttbl(events); i++) {
 *     auto *event = static_cast<KSEVEvent *>(gettbl(events, i));
 *     ...
 *   }
 *   view.freeEvents(events);
 *
 * Ownership: records are made by the view or with new, never on the stack, and are freed
 * by the view that filled them, with everything below them.  They stay valid when the
 * database is closed.  A record given to a refresh function is freed of what it held
 * before.  Lists hold pointers to records; a null list is an empty one.
 * Threads: a view belongs to one thread, its owner; the callback of its monitor may use
 * it too.  Readings and the monitor's checks take turns at the database; the records and
 * the counts (numbers) are not locked against their owner.
 * Results: 0; 10 when rows could not be read and were left out, or the row asked for could
 * not be read; -1 with a message in the error register, and the caller's record or list as
 * it was unless said otherwise.  A null record, as gettbl gives where an event has no
 * preferred origin, is such a failure. */
#ifndef KSUTIL_EVENTS_KSEVENTVIEW_H
#define KSUTIL_EVENTS_KSEVENTVIEW_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "config/ksconfigure.h"
#include "platform/db/db.h"
#include "platform/pf/pf.h"
#include "platform/stock/arr.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

namespace ksutil::events {
struct ViewState;
struct ViewAccess;
}  // namespace ksutil::events

/* --- records -------------------------------------------------------------------------
 *
 * Record numbers are -1 where there is no row.  Row texts (record_*) are whole rows with
 * their newline.  Texts belong to the record; they are null in a record that was never
 * filled, and "" where there is nothing to tell.  Load dates are epoch seconds.  -999.0 is
 * no value of a magnitude, residual, distance, azimuth or position. */

struct KSUTIL_API KSEVRecord {
  static void *operator new(std::size_t bytes);  // throws std::bad_alloc
  static void operator delete(void *record);

  bool counted = false;  // the view's own: among its numbers()
};

/* One stamag row. */
struct KSEVStamag : KSEVRecord {
  int64_t recno_stamag = -1;
  char *record_stamag = nullptr;
  double lddate_stamag = 0.0;
  double magnitude = -999.0;
  char *magtype = nullptr;
  char *sta = nullptr;
};

/* One netmag row; or one of the origin's own mb, ms, ml, with recno_netmag -1 and the text
 * of a row that stands in no table. */
struct KSEVMagnitude : KSEVRecord {
  int64_t recno_netmag = -1;
  char *record_netmag = nullptr;
  double lddate_netmag = 0.0;
  double magnitude = -999.0;
  char *magtype = nullptr;
  Tbl *stamags = nullptr;  // KSEVStamag; read by refreshStamags
};

/* One mt row. */
struct KSEVMoment : KSEVRecord {
  int64_t recno_mt = -1;
  char *record_mt = nullptr;
  double lddate_mt = 0.0;
};

/* One assoc row with its arrival and the site that was valid at the arrival's time. */
struct KSEVAssociation : KSEVRecord {
  int64_t recno_assoc = -1;
  char *record_assoc = nullptr;
  double lddate_assoc = 0.0;
  int64_t recno_arrival = -1;
  char *record_arrival = nullptr;
  double lddate_arrival = 0.0;
  int64_t recno_site = -1;
  char *record_site = nullptr;
  int32_t defining = 0;           // 1: the arrival's time was used in the location
  char *sta = nullptr;            // of the assoc row
  char *phase = nullptr;          // of the assoc row
  double timeres = -999.0;        // time residual of the location, s
  double time = -9999999999.999;  // of the arrival, epoch seconds; this is none
};

/* One detection row with a site of its station. */
struct KSEVDetection : KSEVRecord {
  int64_t recno_detection = -1;
  char *record_detection = nullptr;
  double lddate_detection = 0.0;
  int64_t recno_site = -1;
  char *record_site = nullptr;
  double presidual = -999.0;  // time minus the predicted time of the first P or S, s
  double sresidual = -999.0;
  double delta = -999.0;    // distance from the origin, degrees
  double azimuth = -999.0;  // at the origin towards the station, degrees
  double time = -9999999999.999;
  char *sta = nullptr;
  char *chan = nullptr;
  char *state = nullptr;
};

/* A station as seen from one origin. */
struct KSEVOriginStation {
  char *sta = nullptr;
  double lat = -999.0, lon = -999.0;  // degrees
  double elev = -999.0;               // km
  double delta = -999.0;              // degrees
  double azimuth = -999.0;            // at the origin towards the station, degrees
  double ptime = -9999999999.999;     // predicted arrivals, epoch seconds; this is none
  double stime = -9999999999.999;
  int found = 0;            // 1: the station has a site row; 0: it has none
  int64_t recno_site = -1;  // that row
  char *record_site = nullptr;
};

/* One origin row, its origerr row and what hangs from them. */
struct KSEVOrigin : KSEVRecord {
  int64_t recno_origin = -1;
  char *record_origin = nullptr;
  int64_t orid = -1;
  double lddate_origin = 0.0;
  double lddate_origin_view = 0.0;  // greatest lddate of the origin, netmag and mt rows
  double time = 0.0;                // origin time, epoch seconds
  int64_t recno_origerr = -1;
  char *record_origerr = nullptr;
  double magnitude = -999.0;  // of the preferred magnitude
  char *magtype = nullptr;
  int32_t preferred = 0;              // 1: the event's preferred origin
  Tbl *magnitudes = nullptr;          // KSEVMagnitude
  Tbl *moments = nullptr;             // KSEVMoment
  Tbl *detections = nullptr;          // KSEVDetection; read by refreshDetections
  Tbl *associations = nullptr;        // KSEVAssociation; read by refreshAssociations
  int32_t pref_magnitude = -1;        // index in magnitudes
  int32_t pref_moment = -1;           // index in moments
  double lat = -999.0, lon = -999.0;  // degrees
  double depth = -999.0;              // km
  rbtree *stations = nullptr;  // KSEVOriginStation by code; made by lookupStation
};

/* One event row with everything hanging from it. */
struct KSEVEvent : KSEVRecord {
  int64_t recno_event = -1;
  char *record_event = nullptr;
  int64_t evid = -1;
  int64_t prefor = -1;  // orid of the preferred origin, as the row has it
  int64_t order = -1;   // position in which a refresh read the event
  double lddate_event = 0.0;
  double lddate_view = 0.0;   // greatest lddate_origin_view
  double access_time = 0.0;   // when it was read, epoch seconds
  double time = 0.0;          // origin time of the preferred origin
  double magnitude = -999.0;  // by the built-in preferred-magnitude rules
  char *magtype = nullptr;
  int32_t pref_origin = -1;            // index in origins
  int32_t pref_magnitude_origin = -1;  // index in origins
  int32_t pref_moment_origin = -1;     // index in origins
  Tbl *origins = nullptr;              // KSEVOrigin, by load date, oldest first
};

/* What is remembered of a watched table. */
struct KSEV_Table {
  Dbptr table = dbinvalid();
  int64_t count = -1;     // rows; -1: not looked at yet
  double filetime = 0.0;  // of the last change, epoch seconds; 0.0 without rows
};

/* The watched tables, in the order in which they are checked. */
inline constexpr const char *kKSEVTableNames[] = {
    "event",  "origin", "origerr", "assoc", "arrival",  "wfmeas",
    "netmag", "stamag", "mt",      "site",  "detection"};

/* What the monitor calls after each check: 0, the argument given with it, and the changes
 * as checkChanges gives them, which belong to the monitor and live until the callback
 * returns.  The result is not used. */
typedef int (*KSEV_ChangesCallback)(int code, void *arg, void *changes);

class KSUTIL_API KSEventView : public KSConfigure {
 public:
  /* Configures the view; the one option is "dbname", the database to read.  Without it
   * (pf may be null), or when the database cannot be opened (message registered), the
   * view has no database; configure("dbname", name, ...) opens one later.  An open
   * database cannot be changed for another one before init(). */
  explicit KSEventView(Pf *pf);
  /* Stops the monitor and waits for it: for a callback in progress, and at most a fraction
   * of a second besides.  Records still alive must not be used with another view's free
   * functions.  Not to be called from the callback. */
  ~KSEventView() override;

  /* Closes the database: every table pointer is invalid, and nothing is remembered.  A
   * monitor goes on, and finds no database. */
  void init();
  /* Opens the database and its tables anew, as after another program has replaced the
   * files; the old ones stay when that fails.  The next check finds all tables added. */
  int reset();

  /* What is remembered of a watched table; an invalid pointer for another name. */
  KSEV_Table getTable(std::string table);

  /* --- reading ----------------------------------------------------------------------- */

  /* All events into a new list of KSEVEvent, in the order of the table, which the caller
   * frees with freeEvents.  Events that cannot be read whole are left out, result 0. */
  int refreshEvents(Tbl **events);
  /* The event of a row with its origins, magnitudes and moment tensors; `order` (may be
   * null) numbers it and counts on.  When none of its origins is its prefor, the newest by
   * load date is preferred, with a complaint. */
  int refreshEvent(long recno, KSEVEvent *event, long *order);
  int refreshOrigin(long recno, KSEVOrigin *origin);

  /* Replace the associations of all origins of an event, or of one.  After a failure the
   * origins before the failing one have theirs. */
  int refreshAssociations(KSEVEvent *event);
  int refreshAssociations(KSEVOrigin *origin);
  /* The association of a row.  A row of another origin than the one given (null: any) is
   * refused. */
  int refreshAssociation(KSEVOrigin *origin, long recno, KSEVAssociation *association);

  /* Replace the detections of an origin: those from 10 s before to 1800 s after its time,
   * except those that tell of a detector switched on or off, each with its residuals,
   * distance and azimuth as far as the station is known.
   *
   * best  non-zero: one for each station, of smallest absolute P residual (S, where there
   *       is no predicted P; a detection without either comes after all others); the
   *       earlier row on a tie */
  int refreshDetections(KSEVOrigin *origin, int best);
  /* The detections with time <= their time <= time + span into a new list, without
   * residuals; the caller frees it with freeDetections. */
  int refreshDetections(Tbl **detections, double time, double span);

  int refreshStamags(KSEVMagnitude *magnitude);
  int refreshStamag(long recno, KSEVStamag *stamag);

  /* Reads an event or origin by its id into a new record, freed by the caller; null when
   * there is none (without a message) or it cannot be read. */
  KSEVEvent *findEvid(long evid);
  KSEVOrigin *findOrid(long orid);
  /* The first with this id in a list of events, or in an event; null when absent. */
  KSEVEvent *findEvid(Tbl *events, long evid);
  KSEVOrigin *findOrid(KSEVEvent *event, long orid);

  /* --- stations ---------------------------------------------------------------------- */

  /* A station as seen from an origin, by its site row valid on the day of `time` (epoch
   * seconds, the origin's); of overlapping rows the one that began last.  It is looked up
   * once for each origin and then kept in origin->stations, where *station points (it may
   * be null), also when there is no such row.
   * 0 found, 1 there is no site row, -1. */
  int lookupStation(KSEVOrigin *origin, const char *sta, double time,
                    KSEVOriginStation **station);
  /* The same at the origin's time, and puts the site, residuals, distance and azimuth
   * into a detection at the station. */
  int lookupStation(KSEVDetection *detection, const char *sta, KSEVOrigin *origin);

  /* --- lists ------------------------------------------------------------------------- */

  /* Sorts by time, then evid: order 0 ascending, else descending.  0 or -1. */
  int sortEvents(Tbl *events, long order);

  /* How many records the view has filled that are not freed yet; null: not asked. */
  void numbers(long *events, long *origins, long *magnitudes, long *moments,
               long *associations, long *detections, long *stamags);

  /* Free lists with their records, or single records; null is allowed. */
  void freeEvents(Tbl *events);
  void freeEvent(KSEVEvent *event);
  void freeOrigins(Tbl *origins);
  void freeOrigin(KSEVOrigin *origin);
  void freeMagnitudes(Tbl *magnitudes);
  void freeMoments(Tbl *moments);
  void freeAssociations(Tbl *associations);
  void freeDetections(Tbl *detections);
  void freeStamags(Tbl *stamags);
  void freeStations(rbtree *stations);

  /* --- changes ----------------------------------------------------------------------- */

  /* Looks at the watched tables, and remembers what it sees: the next check, whoever asks
   * for it, tells of later changes only.  The first one finds all tables added.
   *
   * changes  in: null, or what an earlier call gave, which is freed; out: the tables that
   *          have changed, each with "modified", "added" or "removed" (of rows).  The
   *          caller frees it with freearr(changes, free)
   * -1 when a table could not be looked at; the others are in `changes` all the same. */
  int checkChanges(rbtree **changes);

  /* Runs a thread that checks for changes and calls back, changed or not, every `period`
   * seconds; or gives new settings to the one that runs, which takes them at once.  A
   * period of 0 or less (or NaN) ends it, after a callback in progress; it may be started
   * again at any time.  Null callback: nothing is checked.  What the callback uses must
   * live until the view is destroyed, which alone waits for a callback in progress.
   * May be called from the callback.  0, or -1 when no thread could be made or the view is
   * being destroyed. */
  int monitorChangesThread(double period, KSEV_ChangesCallback callback, void *arg);

 private:
  friend struct ksutil::events::ViewAccess;
  std::unique_ptr<ksutil::events::ViewState> state_;
};

extern "C" {

/* The parser and the printer of the option "dbname" (see KS_ConfigureCustom); client_data
 * is the view.  The printed text is new, "" without a database, and freed by the caller. */
KSUTIL_API int eventview_parse_dbname(KS_ConfigureSpec *spec, void *custom_data,
                                      char *value, char *record, int offset,
                                      void *client_data);
KSUTIL_API char *eventview_print_dbname(KS_ConfigureSpec *spec, void *custom_data,
                                        char *record, int offset, void *client_data);

/* Looks a table up in a database; 0, or -1 with `table` untouched. */
KSUTIL_API int eventview_open_table(Dbptr db, const char *name, KSEV_Table *table);

/* How a table has changed since the record was last given: 0 unchanged, 1 rows modified, 2
 * rows added (also the first look), 3 rows removed, -1.  *text becomes null, or the new
 * text "modified", "added" or "removed", which the caller frees. */
KSUTIL_API int eventview_check_table(KSEV_Table *table, char **text);

/* The monitor's thread; the argument is the view. */
KSUTIL_API void *eventview_run_monitor_thread(void *view);

/* Sleeps for so many seconds, whatever signals come; not at all for 0, less or NaN. */
KSUTIL_API void eventview_usleep(double seconds);

/* Frees the indexes that a view keeps between readings; the next reading builds them. */
KSUTIL_API void eventview_free_hooks(KSEventView *view);

/* The order of sortEvents: negative, 0 or positive as the first comes before the second by
 * time, then evid. */
KSUTIL_API int kseventview_compare_events(const KSEVEvent *event1,
                                          const KSEVEvent *event2);
/* The order of an event's origins: by load date, oldest first. */
KSUTIL_API int kseventview_compare_origin_lddate(const KSEVOrigin *origin1,
                                                 const KSEVOrigin *origin2);

}  // extern "C"

#endif
