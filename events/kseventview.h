/* KSEventView: reads the events of a CSS3.0 database into plain lists, for one owner.
 *
 * An EVServer keeps all events in memory for many clients.  A view reads events when
 * its owner asks for them, into records that the owner keeps; it can also run a thread
 * that looks for changes and calls the owner back.  Server and view read rows by the
 * same code, so that preferred origins, magnitudes and moment tensors are the same.
 *
 *   Pf *pf = nullptr;
 *   pfcompile("dbname /data/events\n", &pf);
 *   KSEventView view(pf);
 *   pffree(pf);
 *   Tbl *events = nullptr;
 *   if (view.refreshEvents(&events) < 0) ...
 *   for (long i = 0; i < counttbl(events); i++) {
 *     auto *event = static_cast<KSEVEvent *>(gettbl(events, i));
 *     ...
 *   }
 *   view.freeEvents(events);
 *
 * Ownership: records are made by the view or with new, never on the stack.  The view
 * that filled a record frees it, with everything below it.  Records stay valid when the
 * database is closed.  A refresh function frees the old contents of a record before it
 * fills the record anew.  Lists hold pointers to records; a null list is an empty one.
 * Threads: a view belongs to one thread, its owner; only the callback of its monitor
 * may use it as well, also at the same time.  The readings of the two and the monitor's
 * checks take turns at the database.  Records are not locked: the callback must not
 * touch records that the owner is using.
 * Results of the refresh functions and lookupStation, and what they leave untouched:
 *    0  done
 *   10  the row asked for cannot be read, and the record is untouched; or rows below it
 *       cannot be read and were left out; no message unless said otherwise
 *   -1  failed, with a message in the error register: no database is open, its tables
 *       cannot be read, memory is short, or a record is null (as gettbl gives it where an
 *       event has no preferred origin); the record or list is untouched unless said
 *       otherwise */
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
 * Record numbers (recno_*) count from 0 and are -1 where there is no row.  Row texts
 * (record_*) are whole rows with their newline.  Texts belong to the record; they are null
 * in a record that was never filled, and "" where the row has no value.  Load dates
 * (lddate_*) are epoch seconds, -9999999999.999 for a null one.  -999.0 means that a
 * magnitude, residual, distance, azimuth or position has no value. */

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

/* One netmag row; or one of the origin's own mb, ms, ml, with recno_netmag -1 and a
 * synthetic row text that is not in any table. */
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
  double time = -9999999999.999;  // of the arrival, epoch seconds; null without one
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
  double ptime = -9999999999.999;     // predicted arrivals, epoch seconds; null: none
  double stime = -9999999999.999;
  int found = 0;            // 1: the station has a site row; 0: it has none
  int64_t recno_site = -1;  // that row
  char *record_site = nullptr;
};

/* One origin row with its origerr row and the rows that refer to it. */
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

/* One event row with its origins. */
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

/* The bookkeeping of a watched table. */
struct KSEV_Table {
  Dbptr table = dbinvalid();
  int64_t count = -1;     // rows at the last check; -1: not checked yet
  double filetime = 0.0;  // of the last change then, epoch seconds; 0.0 without rows
};

/* The watched tables, in the order in which they are checked. */
inline constexpr const char *kKSEVTableNames[] = {
    "event",  "origin", "origerr", "assoc", "arrival",  "wfmeas",
    "netmag", "stamag", "mt",      "site",  "detection"};

/* The monitor's callback, called after each check on the monitor's thread.
 *
 * code     always 0
 * arg      the argument given to monitorChangesThread
 * changes  an rbtree as checkChanges makes it, empty when nothing has changed; belongs to
 *          the monitor and lives until the callback returns
 * The result is not used.  The callback may read with the view, and give the monitor
 * new settings or stop it; it must not destroy the view.  An exception that leaves it
 * is registered as a message, and the monitor goes on. */
typedef int (*KSEV_ChangesCallback)(int code, void *arg, void *changes);

class KSUTIL_API KSEventView : public KSConfigure {
 public:
  /* Configures the view; the only option is "dbname", the database to read.  Without it
   * (pf may be null), or when the database cannot be opened (a message is registered),
   * the view has no database; configure("dbname", name, nullptr) opens one later.  An
   * open database cannot be changed for another one before init().  Throws
   * std::bad_alloc. */
  explicit KSEventView(Pf *pf);
  /* Stops the monitor and waits for its thread: for a callback in progress, and a
   * fraction of a second besides.  Records that are still alive must not be freed by
   * another view.  Not to be called from the callback. */
  ~KSEventView() override;

  /* Closes the database: every table pointer becomes invalid, and the name and all that
   * was remembered are forgotten.  A running monitor stays, and finds no database. */
  void init();
  /* Opens the database and its tables anew, as after another program has replaced the
   * files.  The next check finds all tables added.  0; -1 with a message, the old
   * database staying open. */
  int reset();

  /* The bookkeeping of a watched table; for another name, and without a database, its
   * table pointer is invalid. */
  KSEV_Table getTable(std::string table);

  /* --- reading ----------------------------------------------------------------------- */

  /* Reads all events into a new list of KSEVEvent, in the order of the table, which the
   * caller frees with freeEvents.  Events with rows that cannot be read are left out
   * with result 0.  *events changes only with result 0; a list it held before is not
   * freed. */
  int refreshEvents(Tbl **events);
  /* Reads the event of a row with its origins, magnitudes and moment tensors.  When
   * none of its origins is its prefor, the newest by load date becomes the preferred
   * one, with a complaint.
   *
   * recno  row of event, from 0
   * order  may be null; in: the event's `order`, out: one more, also when the result is 10
   *        because a row below the event row cannot be read */
  int refreshEvent(long recno, KSEVEvent *event, long *order);
  /* Reads the origin of a row of origin, with its magnitudes and moment tensors. */
  int refreshOrigin(long recno, KSEVOrigin *origin);

  /* Replace the associations of all origins of an event, or of one origin.  10: rows
   * that cannot be read were left out.  After a failure half way, the origins before
   * the failing one have their new associations, the others their old ones. */
  int refreshAssociations(KSEVEvent *event);
  int refreshAssociations(KSEVOrigin *origin);
  /* Reads the association of a row of assoc.  -1 also for a row that belongs to another
   * origin than the one given (null: any). */
  int refreshAssociation(KSEVOrigin *origin, long recno, KSEVAssociation *association);

  /* Replaces the detections of an origin: those from 10 s before to 1800 s after its
   * time, ends included, except those in the states "-", "ON", "on", "OFF" and "off"; a
   * blank state is a detection.  Residuals, distance and azimuth are set as far as the
   * station is known.  10: rows that cannot be read were left out, each with a message.
   *
   * best  non-zero: one detection for each station, the one of smallest absolute P residual
   *       (S residual where no P is predicted; a detection without either comes after all
   *       others); the earlier row on a tie.  0: all */
  int refreshDetections(KSEVOrigin *origin, int best);
  /* Reads the detections from `time` (epoch seconds) to `time` + `span` (seconds), ends
   * included, into a new list in the order of the table, without residuals; states and
   * result 10 as above.  The caller frees the list with freeDetections; *detections
   * changes only with results 0 and 10. */
  int refreshDetections(Tbl **detections, double time, double span);

  /* Replaces the station magnitudes of a magnitude that the view has read.  10: rows
   * that cannot be read were left out; or the magnitude's own row cannot be read. */
  int refreshStamags(KSEVMagnitude *magnitude);
  /* Reads the station magnitude of a row of stamag. */
  int refreshStamag(long recno, KSEVStamag *stamag);

  /* Reads the first event or origin with an id that can be read into a new record,
   * which the caller frees.  Null when there is none (no message), or after a failure
   * (with a message), as when no row of that id can be read. */
  KSEVEvent *findEvid(long evid);
  KSEVOrigin *findOrid(long orid);
  /* The first record with an id in a list of events, or among the origins of an event;
   * null when absent.  It stays the list's. */
  KSEVEvent *findEvid(Tbl *events, long evid);
  KSEVOrigin *findOrid(KSEVEvent *event, long orid);

  /* --- stations ---------------------------------------------------------------------- */

  /* Looks a station up as seen from an origin, by its site row valid on the day of
   * `time` (epoch seconds, the origin's time); of overlapping rows the one that began
   * last.  Each station is looked up once for each origin and then kept in
   * origin->stations, also when it has no such row, so that a later `time` changes
   * nothing.
   *
   * station  may be null; out, with results 0 and 1: the origin's record of the station
   * 0 found, 1 there is no site row, -1 failed (null records or `sta` included). */
  int lookupStation(KSEVOrigin *origin, const char *sta, double time,
                    KSEVOriginStation **station);
  /* The same at the origin's own time; with results 0 and 1 also replaces the site,
   * residuals, distance and azimuth of a detection at the station. */
  int lookupStation(KSEVDetection *detection, const char *sta, KSEVOrigin *origin);

  /* --- lists ------------------------------------------------------------------------- */

  /* Sorts a list of KSEVEvent by time, then evid: order 0 ascending, else descending.
   * Equal events keep their order.  0; -1 with a message, the list untouched: memory is
   * short or an entry is null. */
  int sortEvents(Tbl *events, long order);

  /* The numbers of records that the view has filled and not freed yet; any pointer may
   * be null. */
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

  /* Checks the watched tables and remembers their state.  A later check, by the owner
   * or by the monitor, finds later changes only; the first one finds rows added in all
   * tables.  A table put back to an earlier time with as many rows counts as unchanged.
   *
   * changes  in: null or the result of an earlier call, which is freed; out: the changed
   *          tables by name, each with the text "modified", "added" or "removed" (rows).
   *          The caller frees it with freearr(changes, free)
   * 0; -1 with a message: no database is open (*changes is empty), or a table cannot be
   * checked (the others are in *changes, and its change shows at the next check), or
   * memory is short (*changes may be null). */
  int checkChanges(rbtree **changes);

  /* Starts a thread that checks for changes and calls back, with changes or without,
   * every `period` seconds, the first time at once; or gives new settings to the thread
   * that runs, which then checks at once.  A period of 0 or less (or NaN) stops the
   * thread after a callback in progress, without waiting for it; it may be started
   * again at any time.
   *
   * callback  null: the thread sleeps and checks nothing
   * arg       given to the callback; what it points to must live until the view is
   *           destroyed, because only the destructor waits for a callback in progress
   * May be called from any thread, the callback included.  0; -1 with a message when no
   * thread can be made, or the view is being destroyed. */
  int monitorChangesThread(double period, KSEV_ChangesCallback callback, void *arg);

 private:
  friend struct ksutil::events::ViewAccess;
  std::unique_ptr<ksutil::events::ViewState> state_;
};

extern "C" {

/* The parser and the printer of the option "dbname" (see KS_ConfigureCustom);
 * client_data is the view.  The parser gives 0, or -1 with a message and the view as it
 * was.  The printed text is new, "" without a database, and freed by the caller; null
 * with a message when memory is short. */
KSUTIL_API int eventview_parse_dbname(KS_ConfigureSpec *spec, void *custom_data,
                                      char *value, char *record, int offset,
                                      void *client_data);
KSUTIL_API char *eventview_print_dbname(KS_ConfigureSpec *spec, void *custom_data,
                                        char *record, int offset, void *client_data);

/* Looks a table up in a database and sets its pointer, not checked yet; 0, or -1 with a
 * message and *table untouched when the schema has no such table. */
KSUTIL_API int eventview_open_table(Dbptr db, const char *name, KSEV_Table *table);

/* Checks how a table has changed since the last check of this record, and remembers its
 * state in the record.
 *    0  unchanged: as many rows, and the time of the last change is not later
 *    1  rows were modified      2  rows were added (also at the first check, whatever the
 *    3  rows were removed          table holds)
 *   -1  the table cannot be looked at, or memory is short; the record is untouched
 * *text becomes null, or the new text "modified", "added" or "removed", which the
 * caller frees.  Uses the handle of the table: not while another thread does. */
KSUTIL_API int eventview_check_table(KSEV_Table *table, char **text);

/* The function of the monitor's thread; the argument is the view. */
KSUTIL_API void *eventview_run_monitor_thread(void *view);

/* Sleeps `seconds`, also when signals arrive meanwhile; not at all for 0, less or
 * NaN. */
KSUTIL_API void eventview_usleep(double seconds);

/* Frees the indexes that a view keeps between readings; the next reading builds them
 * again. */
KSUTIL_API void eventview_free_hooks(KSEventView *view);

/* The ascending order of sortEvents, by time, then evid: negative when event1 comes
 * before event2, 0 when they are equal, else positive.  Neither may be null. */
KSUTIL_API int kseventview_compare_events(const KSEVEvent *event1,
                                          const KSEVEvent *event2);
/* The same for the origins of an event: by load date, oldest first. */
KSUTIL_API int kseventview_compare_origin_lddate(const KSEVOrigin *origin1,
                                                 const KSEVOrigin *origin2);

}  // extern "C"

#endif
