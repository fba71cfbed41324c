/* EVServer: keeps an in-memory picture of the events of a CSS3.0 database current.
 *
 * A server opens its database once, reads its events and keeps them current with three
 * threads: a worker that executes every command and refresh, a refresher and a database
 * monitor that ask the worker for refreshes and checks at an interval.  Clients
 * (EVClient) read the events under the events lock, receive change reports, and send
 * commands.
 *
 * Ownership: the server owns its database handle, its lists, its queue and its threads.
 * Records and lists that a function returns belong to the caller.  Clients belong to
 * the application.
 *
 * Threads: any thread may call any public function.  Members marked "caller holds the
 * events lock" must be called between grabEventsLock and releaseEventsLock.  All other
 * members take the locks that they need; those that read the database also wait for the
 * reading step in progress, a fraction of a second.  The server must not be destroyed
 * from a callback, nor while another thread is inside one of its functions.
 *
 * Callbacks (EVClient::responseCallback, EVClient::checkDatabaseCallback) run without
 * the events lock, on the thread that refreshes or checks: the worker, or the caller of
 * refreshEvents, setMaxEvents or checkDatabase.  Callbacks of one client run one at a
 * time, in the order of the reports: when another thread is inside a callback of the
 * client, that thread runs the next callback too.  A callback may take the events lock,
 * read, deregister its own and other clients, and call any function of the server.
 *
 * Results, where nothing else is said:
 *    0  success
 *   -1  failure, with a message in the error register; out-arguments stay untouched
 *   10  a row that cannot be read was skipped (no message)
 *   11  another refresh is running (no message) */
#ifndef KSUTIL_EVENTS_EVSERVER_H
#define KSUTIL_EVENTS_EVSERVER_H

#include <memory>
#include <string>

#include "core/Array.h"
#include "core/Table.h"
#include "events/records.h"
#include "events/vars.h"
#include "platform/db/db.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

class EVClient;

namespace ksutil::events {
struct ServerState;
}

class KSUTIL_API EVServer {
 public:
  /* Binds the server to a database, starts its threads and reads the events.
   *
   * dbname             database to serve, opened "r+"
   * age_ref_now        non-zero: the detection window ends now; 0: 10 s after the
   *                    latest event
   * max_events         events kept, the last ones of the table; 0 or less: all
   * remote_mount_mode  table files on a remote file system are: 1 or more an error,
   *                    0 reported, negative not checked; table site is never checked
   * Complains and throws "EVServer::EVServer: setDb() error." (a const char *) if the
   * database cannot be bound.  A first refresh that fails leaves its message
   * registered, and the next refresh tries again. */
  EVServer(std::string dbname, int age_ref_now, int max_events, int remote_mount_mode);
  /* Stops the threads, within a fraction of a second plus the operation in progress.
   * Clients that still wait are released with empty results; clients that are still
   * registered are detached (EVClient::server becomes null).  Releases the events lock
   * if the calling thread holds it, and waits until another thread that holds it
   * releases it. */
  ~EVServer();
  EVServer(const EVServer &) = delete;
  EVServer &operator=(const EVServer &) = delete;

  /* --- database binding and change checks ---
   *
   * Locks: these members take the database lock themselves.  The caller may hold the
   * events lock. */

  /* Binds the database and starts the threads; the constructor calls it.  The name that
   * is already bound gives 0 and changes nothing; another name gives -1. */
  int setDb(std::string dbname);

  /* Opens one table of `db` and stores it among the watched tables under its name, in
   * the place of the one there.
   *
   * db                 a database that stays open while the server watches the table
   * remote_mount_mode  as for the constructor
   * -1: not in the schema, refused as remote, or its facts cannot be had; the watched
   * tables stay as they are. */
  int openTable(Dbptr db, std::string table, int remote_mount_mode);

  /* The change of a table since the last check with `update`:
   *    0  unchanged
   *    1  same number of rows, file written later
   *    2  rows added; also the first check of a table with rows or without
   *    3  rows removed
   *   -1  no database open, null or unknown table, or the file cannot be looked at
   * update non-zero stores the count and time that were found; 0 leaves them, so that
   * the change is found again.  The form with a name uses the memory of the server's
   * refresh: with `update` it takes the change away from the next refresh.  A file put
   * back to an earlier time with the same count reads as unchanged; only a forced
   * refresh sees it. */
  int checkTable(EVTable *table, int update);
  int checkTable(std::string table, int update);
  /* The highest code over a table and the tables read with it: origin, origerr, netmag
   * and mt with event; origerr, netmag and mt with origin; arrival and site with assoc;
   * site with detection; stamag with netmag.  -1 if any check fails; the others are
   * still made. */
  int checkTableTables(std::string table, int update);
  /* Checks wfdisc, arrival and detection against a memory of its own and calls every
   * client's checkDatabaseCallback with the three codes, a failed check's -1 among
   * them.  0, or -1 without a database. */
  int checkDatabase();

  /* Opens the database anew.  The next refresh reads everything.  -1: a table or the
   * database cannot be opened, or none was ever bound; the open one stays in use. */
  int reset();
  /* Closes the database; the lists stay.  From then on operations that need it register
   * "No database currently open." and fail, until reset. */
  int closeDb();
  /* Frees the indexes behind the match keys; the next reading builds them again. */
  void freeHooks();
  /* Empties the lists and the cache of expanded events.  The next refresh reads
   * everything.  Takes the events lock. */
  void freeVectors();
  /* Copies `record`, a row text of the table, into the table's scratch record (set
   * non-zero), or the scratch record into `record` (set 0).  -1: no database, a table
   * that is not watched, or a text that is not a row of it. */
  int getsetScratch(std::string table, std::string &record, int set);

  /* --- refresh of the lists --- */

  /* Brings the lists, the expanded events and the detection window up to date and calls
   * the clients if anything has changed.
   *
   * force  non-zero: read everything, and report the list as changed in any case; 0:
   *        check the tables and read what has changed
   *    0  done, also when nothing has changed
   *   11  another refresh is running; it may have begun before the last change
   *   -1  no database, rows that cannot be had, or the caller holds the events lock;
   *       the lists stay as they are, and the next refresh reads everything anew
   * However it ends, clients that wait for a refresh are released.  Takes the events
   * lock only to publish: a reader that holds it delays a refresh that has news, not
   * one that has none.  Expanded events above the maximum are removed in every refresh;
   * one that has no news leaves this to the next while another thread holds the events
   * lock. */
  int refreshEvents(int force);

  /* Sets the number of events kept, the last ones of the table (0 or less: all), and
   * refreshes with force; returns what refreshEvents returned.  With 11, the refresh
   * that is running is repeated with the new limit before the function that runs it
   * returns.  Limits that callbacks set are repeated once; a later one of these waits
   * for the next refresh.  -1 if the caller holds the events lock: the next refresh
   * then applies the limit. */
  int setMaxEvents(int max_events);
  /* Whether the detection window ends now (non-zero) or 10 s after the latest event;
   * takes effect with the next reading of the window. */
  void setAgeRefNow(int flag);
  /* Expanded events kept by a refresh, 100 by default; less than 1: all. */
  void setMaxExpandedEvents(int max);
  /* Whether detections are read, 1 by default.  Switched off, the next refresh empties
   * the window and leaves them out of expanded events. */
  void setDetections(int on);

  /* --- reading single rows ---
   *
   * Each reads rows of the database as they are at the call and fills one record, which
   * it first sets to its default where it is read whole.
   *
   * recno     record number, from 0, in the table that gives the record its name
   *    0  read
   *   10  the row, or for refreshEvent a row below the event, cannot be read (no
   *       message)
   *   -1  null record, no database, or the tables cannot be had
   * After 10 and -1 the record is in no useful state, except where told.  The caller
   * may hold the events lock.  Nothing is published and no client is called. */

  /* An event with its origins, magnitudes and moments, preferred ones chosen.  *order,
   * if given, becomes the event's order and is raised by 1. */
  int refreshEvent(long recno, EVEvent *event, long *order);
  /* An origin with its origerr row, magnitudes and moments. */
  int refreshOrigin(long recno, EVOrigin *origin);
  /* Adds what an expanded event has besides to each origin of *event: associations,
   * station magnitudes, and detections if they are on.  10: some rows were left out. */
  int refreshAssociations(EVEvent *event);
  /* An assoc row with its arrival and site; recno -1 and empty texts for those
   * missing. */
  int refreshAssociation(long recno, EVAssociation *association);
  /* Reads the detections from 10 s before to 1800 s after the origin's time into
   * origin->detections, with residuals.  10: some rows were left out. */
  int refreshDetections(EVOrigin *origin);
  /* Replaces `detections` by those in a window of epoch seconds, ends included.  10:
   * some rows were left out. */
  int refreshDetections(Table<EVDetection> &detections, double tstart, double tend);
  /* Reads the station magnitudes of a magnitude that is a netmag row.  10: some rows
   * were left out. */
  int refreshStamags(EVMagnitude *magnitude);

  /* --- events by evid, expanded events --- */

  /* The index of the first event with the evid, in the server's list or in the given
   * one; -1, without a message: none, or a null list.  A linear search.  The first form
   * takes the events lock; its result is good only while the caller holds the lock
   * too. */
  int findEvid(long evid);
  int findEvid(const Table<EVEvent> *events, long evid);

  /* Keeps the `max` events of a cache with the latest access_time and removes the
   * others; max less than 1 or a null cache: nothing happens.  Reads only its
   * arguments. */
  void purgeExpandedEvents(int max, Array<long, EVEvent> *cache);

  /* Whether an event is in the server's cache: 1, or 0 without a message.  The second
   * form then copies it, and sets the access_time of the cached one and the copy to
   * now; with 0 `event` stays untouched.  Both take the events lock unless the caller
   * holds it. */
  int containsExpandedEvent(long evid);
  int containsExpandedEvent(long evid, EVEvent &event);
  /* Copies an event with all that belongs to it (refreshAssociations) from the cache;
   * if it is not there, reads it from the database, also one that the list does not
   * show, and adds it to the cache.  0; -1: no such event, or it cannot be read whole;
   * `event` stays untouched.
   *
   * client  not used; may be null
   * Takes the events lock unless the caller holds it, and keeps it while it reads the
   * database: publication and other readers wait for it. */
  int getExpandedEvent(EVClient *client, long evid, EVEvent &event);

  /* --- preferred magnitudes ---
   *
   * Rules are a list in order of preference (see EVPreferredMagnitude).  Without rules
   * (null or empty) the last magnitude of a list is preferred. */

  /* Read the list "preferred_magnitudes" of a parameter tree or text, entries "type
   * [minimum [maximum]]", "#" begins a comment.  0, also for an absent list, which
   * gives no rules.  -1: `rules` holds the entries before the failing one; a text that
   * cannot be compiled leaves `rules` untouched. */
  int readPreferredMagnitudes(Pf *pf, Table<EVPreferredMagnitude> &rules);
  int readPreferredMagnitudes(char *text, Table<EVPreferredMagnitude> &rules);
  /* Set the server's own rules in the same way, for events read from then on; the next
   * refresh that finds a change reads all events. */
  int setPreferredMagnitudes(Pf *pf);
  int setPreferredMagnitudes(char *text);
  /* The number of rules for a magnitude that the first rule matches, one less for each
   * rule after it; 0: no rule matches, or a null magnitude.  The magnitude's type is
   * compared in lower case, the rule's as written. */
  unsigned getPreferredMagnitudePriority(Table<EVPreferredMagnitude> *rules,
                                         EVMagnitude *magnitude);
  /* The index of the magnitude with the highest priority, the later one of equals; -1
   * for an empty or null list.  *priority, if given: its priority; 0 without one or
   * without rules. */
  int findPreferredMagnitude(Table<EVPreferredMagnitude> *rules,
                             Table<EVMagnitude> *magnitudes, int *priority);
  /* Set pref_magnitude, magnitude and magtype of an origin; pref_magnitude_origin,
   * magnitude and magtype of an event, whose origins are weighed by priority, the
   * preferred origin first among equals.  -1, -999.0 and "" when there is none.  A null
   * record is ignored. */
  void setPreferredMagnitude(Table<EVPreferredMagnitude> *rules, EVOrigin *origin);
  void setPreferredMagnitude(Table<EVPreferredMagnitude> *rules, EVEvent *event);

  /* --- threads and clients --- */

  /* Starts the threads, once for each server; setDb calls it.  -1: they run already, or
   * the queue or the worker cannot be made. */
  int launchThread();
  /* Seconds between periodic refreshes and checks, 0 or less or NaN: none.  A new
   * interval takes effect when the one in progress has passed, at most 1 s later if
   * there was none.  More than 4294.967295 s (about 71.6 minutes) counts as that. */
  void autoRefreshEvents(double seconds);
  void autoCheckDatabase(double seconds);

  /* Adds a registration of the client at the end of the list; each registration gets
   * every callback.  A null client is ignored. */
  void registerClient(EVClient *client);
  /* Removes the first registration of the client, which gets no callback from then on;
   * a client that is not registered changes nothing.  Returns when no other thread is
   * inside a callback of the client, so that the client may be destroyed; from inside a
   * callback of the client it returns at once.  With the last registration gone, a call
   * of the client that waits for the server returns, with an empty result.  It must not
   * be called by the holder of the events lock while a callback of the client may want
   * that lock, nor by two callbacks on two threads for each other's clients: each would
   * wait for the other. */
  void deregisterClient(EVClient *client);

  /* Lock and unlock the events lock.  It belongs to one thread, which may grab it again
   * and then releases it as often; refreshes wait for it before they publish.
   * Releasing a lock that the thread does not hold registers a message and changes
   * nothing. */
  void grabEventsLock();
  void releaseEventsLock();

  /* --- accessors: caller holds the events lock --- */

  Table<EVEvent> getEvents();  // a copy of the list, in the order of its rows
  Table<EVDetection> getDetections();
  /* The lists themselves.  A list never changes while its pointer is held, and may be
   * kept and read without the lock; a refresh publishes a new one.  Never null. */
  std::shared_ptr<const Table<EVEvent>> eventsList();
  std::shared_ptr<const Table<EVDetection>> detectionsList();
  int eventsNumber();
  int detectionsNumber();
  int expandedNumber();
  /* Bytes: sizeof each record plus its texts, those shared between records counted for
   * each. */
  long getEventsSize();
  long getDetectionsSize();
  long getExpandedSize();
  /* Copy the event at an index of the list (getEvent), or the first with an evid
   * (getEvid).  0; -1 without a message: there is none, and `event` stays untouched. */
  int getEvent(int index, EVEvent &event);
  int getEvid(long evid, EVEvent &event);
  /* The evid of the event whose rows have the latest load date (the later row of
   * equals), and of the event with the latest time (the earlier row of equals); -1
   * without events. */
  long getLastModifiedEvid();
  long getMostRecentEvid();
  /* The same events if they are in the cache: containsExpandedEvent's result and
   * effect. */
  int getLastModifiedEvent(EVEvent &event);
  int getMostRecentEvent(EVEvent &event);

  /* --- database commands --- */

  /* The worker runs these for the commands of clients; any thread may call them too,
   * and may hold the events lock.  They read the tables as they are at the call and
   * hold the database in short steps.  A failure gives an empty result or -1 and a
   * message; rows that cannot be read are left out, with a message.
   *
   * sta, chan      shell patterns (* ? [abc]) for the whole code; empty: any
   * tstart, tend   a window of epoch seconds, its ends included */

  /* The arrivals in the window, by time, each with its first assoc row. */
  Table<EVArrival> getArrivals(std::string sta, std::string chan, double tstart,
                               double tend);
  /* The waveform rows whose span (time to endtime, a null endtime is open) overlaps the
   * window, or with `mode` non-zero lies in it; by time. */
  Table<EVTableRecord> getWfdiscs(std::string sta, std::string chan, double tstart,
                                  double tend, int mode);
  /* The station channels with waveform rows that overlap the window, each from its
   * first time to its last endtime among these; by first time.  The texts are regular
   * expressions, found anywhere in the code unless they hold ^ and $: to accept (empty:
   * any) and to leave out (empty: none). */
  Table<EVStaChan> scanWfdisc(std::string sta, std::string chan, std::string not_sta,
                              std::string not_chan, double tstart, double tend);
  /* The detections in the window, of whatever state; by time. */
  Table<EVTableRecord> getRawDetections(std::string sta, std::string chan,
                                        double tstart, double tend);
  /* The site row of one station, by its code, that was valid on the day of the time; of
   * several the one that began last.  recno -1, without a message: none. */
  EVTableRecord getSite(std::string sta, double time);

  /* The rows of `table` that dbmatches finds for `key_record`, a row text of
   * `key_table`; any tables of the schema.  The two lists and the hook are the
   * caller's, in and out as for dbmatches; none of the three pointers may be null. */
  Table<EVTableRecord> execDbmatches(std::string key_table, std::string key_record,
                                     std::string table, Tbl **kpattern, Tbl **tpattern,
                                     Hook **hook);
  /* The rows of a table for which the expression is true. */
  Table<EVTableRecord> execDbsubset(std::string table, std::string expression);

  /* Writes a whole row: over the record `recno`, or with -1 as a new one.
   *
   * flags    1: lddate becomes now; else 0
   * record   a row of the table, with or without its newline.  Its length, every field
   *          and the absence of control characters are checked before anything is
   *          written
   * Returns the record number, or -1 with nothing written. */
  long dbputrecord(std::string table, long recno, long flags, std::string record);

  /* The next id of a key ("arid", "orid", ...) from the counters of the server's
   * database, as dbnextid gives it; -1 with a message. */
  long execDbnextid(std::string key);

  /* Map the codes of a SEED volume to those of the database, and back.  The first row
   * of table seedcode that has the codes decides (an empty net: of any network).
   * Without such a row the station keeps its code, the database's channel is the three
   * letters of the SEED channel followed by the location, and net is empty.  0; -1 with
   * empty texts: no station or no channel is given, or the table cannot be read. */
  int execDbseed2css(std::string net, std::string sta, std::string chan,
                     std::string loc, std::string &css_sta, std::string &css_chan);
  int execDbcss2seed(std::string sta, std::string chan, std::string &net,
                     std::string &seed_sta, std::string &seed_chan, std::string &loc);

  /* --- printing and comparison ---
   *
   * These read only their arguments, except isEqual of one list and printDifferences,
   * which take the events lock for a moment unless the caller holds it. */

  /* Print to standard output, each line after the prefix: "name = value" for each field
   * of a record; each row of a list after a line with its index, four blanks further
   * in.  A row text brings its own newline, so after an empty one the line goes on with
   * the next field.  Null prints nothing. */
  void print(const EVEvent *event, std::string prefix);
  void print(const EVOrigin *origin, std::string prefix);
  void print(const EVMagnitude *magnitude, std::string prefix);
  void print(const EVStamag *stamag, std::string prefix);
  void print(const EVMoment *moment, std::string prefix);
  void print(const EVAssociation *association, std::string prefix);
  void print(const EVDetection *detection, std::string prefix);
  void print(const EVTableRecord *record, std::string prefix);
  void print(const EVStaChan *stachan, std::string prefix);

  void print(const Table<EVEvent> *events, std::string prefix);
  void print(const Table<EVOrigin> *origins, std::string prefix);
  void print(const Table<EVMagnitude> *magnitudes, std::string prefix);
  void print(const Table<EVStamag> *stamags, std::string prefix);
  void print(const Table<EVMoment> *moments, std::string prefix);
  void print(const Table<EVAssociation> *associations, std::string prefix);
  void print(const Table<EVDetection> *detections, std::string prefix);
  void print(const Table<EVTableRecord> *records, std::string prefix);
  void print(const Table<EVStaChan> *stachans, std::string prefix);

  /* Print the differences between an older (1) and a newer (2) copy: a line for each
   * compared field that differs, then the rows below that were added, changed or
   * deleted, paired by id, of equal ids the first with the first.  Null prints
   * nothing. */
  void print(const EVEvent *event1, const EVEvent *event2, std::string prefix);
  void print(const EVOrigin *origin1, const EVOrigin *origin2, std::string prefix);
  void print(const EVMagnitude *magnitude1, const EVMagnitude *magnitude2,
             std::string prefix);
  void print(const EVMoment *moment1, const EVMoment *moment2, std::string prefix);
  void print(const EVAssociation *association1, const EVAssociation *association2,
             std::string prefix);
  void print(const EVDetection *detection1, const EVDetection *detection2,
             std::string prefix);
  void print(const Table<EVEvent> *events1, const Table<EVEvent> *events2,
             std::string prefix);
  void print(const Table<EVOrigin> *origins1, const Table<EVOrigin> *origins2,
             std::string prefix);
  void print(const Table<EVMagnitude> *magnitudes1,
             const Table<EVMagnitude> *magnitudes2, std::string prefix);
  void print(const Table<EVMoment> *moments1, const Table<EVMoment> *moments2,
             std::string prefix);
  void print(const Table<EVAssociation> *associations1,
             const Table<EVAssociation> *associations2, std::string prefix);
  void print(const Table<EVDetection> *detections1,
             const Table<EVDetection> *detections2, std::string prefix);

  /* 1 equal, 0 not.  Comparisons are exact; NaN equals nothing; null equals only null.
   * Events are compared without order, access_time, time, magnitude and magtype,
   * origins without lddate_origin_view, magnitudes by their netmag rows only; the rows
   * below are compared by their places in the lists. */
  int isEqual(const EVEvent *event1, const EVEvent *event2);
  int isEqual(const EVOrigin *origin1, const EVOrigin *origin2);
  int isEqual(const EVMagnitude *magnitude1, const EVMagnitude *magnitude2);
  int isEqual(const EVMoment *moment1, const EVMoment *moment2);
  int isEqual(const EVAssociation *association1, const EVAssociation *association2);
  int isEqual(const EVDetection *detection1, const EVDetection *detection2);
  /* Compare with the server's current lists: events at any place, detections place by
   * place.  Null equals no list. */
  int isEqual(const Table<EVEvent> *events);
  int isEqual(const Table<EVDetection> *detections);
  /* Prints which events of the given list are new or changed against the server's
   * current list ("New event", "Event ... has changed" with the differences), and which
   * events of the current list it lacks ("Deleted event"), by evid: of several rows
   * with one evid none is new or deleted while the other list has a row with it.  Null
   * prints nothing. */
  void printDifferences(const Table<EVEvent> *events);

 private:
  friend class EVClient;
  explicit EVServer(int remote_mount_mode);  // without a database
  std::unique_ptr<ksutil::events::ServerState> state_;
};

#endif
