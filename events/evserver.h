/* EVServer: an in-memory picture of the events of a CSS3.0 database, kept current.
 *
 * A server opens its database once, reads its events and keeps them current with three
 * threads: a worker that executes every command and refresh, a refresher and a database
 * monitor that ask for them at an interval.  Clients (EVClient) read the events under the
 * events lock, are told of changes, and send commands.
 *
 * Threads: all public functions may be called from any thread.  The accessors that say so
 * want the events lock to be held.  A server must not be destroyed from a callback, and
 * not while another thread is inside one of its functions.
 * Results: 0, -1 with a message in the error register, 10 a row that could not be read was
 * skipped, 11 another refresh is running. */
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
   * age_ref_now        non-zero: the detection window ends now, else 10 s after the
   *                    latest event
   * max_events         events kept, the last ones of the table; 0 or less: all
   * remote_mount_mode  table files on a remote file system are: 1 or more an error,
   *                    0 reported, negative not looked for
   * Complains and throws "EVServer::EVServer: setDb() error." (a const char *) when the
   * database cannot be bound.  A first refresh that fails leaves its message registered
   * and is tried again by the next. */
  EVServer(std::string dbname, int age_ref_now, int max_events, int remote_mount_mode);
  /* Stops the threads, within a fraction of a second plus the operation in progress;
   * clients still waiting are released with empty results, and clients still registered
   * are detached. */
  ~EVServer();
  EVServer(const EVServer &) = delete;
  EVServer &operator=(const EVServer &) = delete;

  /* --- database binding and change checks -------------------------------------------- */

  /* Binds the database, once; the bound name again gives 0 and does nothing. */
  int setDb(std::string dbname);
  int openTable(Dbptr db, std::string table, int remote_mount_mode);

  /* How a table has changed since it was last looked at with `update`: 0 unchanged, 1 rows
   * modified, 2 rows added (also the first look), 3 rows removed, -1 error.  A table put
   * back to an earlier time with the same count reads as unchanged. */
  int checkTable(EVTable *table, int update);
  int checkTable(std::string table, int update);
  /* The highest code over a table and those read with it. */
  int checkTableTables(std::string table, int update);
  /* Checks wfdisc, arrival and detection against a memory of its own, and calls every
   * client's checkDatabaseCallback with the codes. */
  int checkDatabase();

  int reset();    // opens the database anew; the old one stays when that fails
  int closeDb();  // from then on operations answer "No database currently open."
  void freeHooks();
  void freeVectors();  // empties the lists and the cache
  /* Copies a row text into the table's scratch record (set non-zero) or out of it. */
  int getsetScratch(std::string table, std::string &record, int set);

  /* --- refresh ----------------------------------------------------------------------- */

  int refreshEvents(int force);
  int refreshEvent(long recno, EVEvent *event, long *order);
  int refreshOrigin(long recno, EVOrigin *origin);
  int refreshAssociations(EVEvent *event);
  int refreshAssociation(long recno, EVAssociation *association);
  int refreshDetections(EVOrigin *origin);
  int refreshDetections(Table<EVDetection> &detections, double tstart, double tend);
  int refreshStamags(EVMagnitude *magnitude);

  /* Sets the limit and refreshes with force; returns what the refresh returned.  When a
   * refresh is running (11) it is done again with the new limit. */
  int setMaxEvents(int max_events);
  void setAgeRefNow(int flag);
  void setMaxExpandedEvents(int max);  // 100 by default
  /* Whether detections are read, 1 by default.  Switched off, the next refresh empties the
   * window and leaves them out of expanded events. */
  void setDetections(int on);

  int findEvid(long evid);
  int findEvid(Table<EVEvent> *events, long evid);
  void purgeExpandedEvents(int max, Array<long, EVEvent> *cache);
  int containsExpandedEvent(long evid);  // 1 found, 0 not
  int containsExpandedEvent(long evid, EVEvent &event);
  int getExpandedEvent(EVClient *client, long evid, EVEvent &event);

  /* --- preferred magnitudes ---------------------------------------------------------- */

  int readPreferredMagnitudes(Pf *pf, Table<EVPreferredMagnitude> &rules);
  int readPreferredMagnitudes(char *text, Table<EVPreferredMagnitude> &rules);
  /* The server's own rules, for the events that are read from then on.  A failing entry
   * leaves those before it; a text that cannot be compiled leaves the rules as they are. */
  int setPreferredMagnitudes(Pf *pf);
  int setPreferredMagnitudes(char *text);
  unsigned getPreferredMagnitudePriority(Table<EVPreferredMagnitude> *rules,
                                         EVMagnitude *magnitude);
  int findPreferredMagnitude(Table<EVPreferredMagnitude> *rules,
                             Table<EVMagnitude> *magnitudes, int *priority);
  void setPreferredMagnitude(Table<EVPreferredMagnitude> *rules, EVOrigin *origin);
  void setPreferredMagnitude(Table<EVPreferredMagnitude> *rules, EVEvent *event);

  /* --- threads, commands and clients ------------------------------------------------- */

  int launchThread();  // once for each server; setDb calls it
  /* Seconds between periodic refreshes and checks, 0 or less: none.  Above 4294.967295 s
   * the number of microseconds wraps. */
  void autoRefreshEvents(double seconds);
  void autoCheckDatabase(double seconds);

  void registerClient(EVClient *client);
  /* Removes the first registration of the client.  Returns only when no callback on it is
   * running on another thread; from inside its callback it returns at once.  Whoever holds
   * the events lock must not call it while a callback of the client may want that lock.
   * With the last registration gone, a call that waits for the server returns, with an
   * empty result. */
  void deregisterClient(EVClient *client);

  /* Hold it to use the accessors.  It belongs to one thread, which may grab it again and
   * then releases it as often; refreshes wait for it before they publish. */
  void grabEventsLock();
  void releaseEventsLock();

  /* --- accessors; the caller holds the events lock ----------------------------------- */

  Table<EVEvent> getEvents();
  Table<EVDetection> getDetections();
  /* The lists themselves: they never change once published, and may be kept. */
  std::shared_ptr<const Table<EVEvent>> eventsList();
  std::shared_ptr<const Table<EVDetection>> detectionsList();
  int eventsNumber();
  int detectionsNumber();
  int expandedNumber();
  long getEventsSize();  // bytes: the records and their texts
  long getDetectionsSize();
  long getExpandedSize();
  int getEvent(int index, EVEvent &event);
  int getEvid(long evid, EVEvent &event);
  long getLastModifiedEvid();
  long getMostRecentEvid();
  int getLastModifiedEvent(EVEvent &event);
  int getMostRecentEvent(EVEvent &event);

  /* --- database commands ------------------------------------------------------------- */

  /* What the commands of clients run on the worker; any thread may call them too.  They
   * read the tables as they are at the call, holding the database in short steps.  A
   * failure gives an empty result or -1 and a message; rows that cannot be read are left
   * out, with a message.
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
  /* The station channels with waveform rows that overlap the window, each from its first
   * time to its last endtime among these; by first time.  The texts are regular
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

  /* dbmatches with a row text of a table as the key; the lists and the hook are the
   * caller's, and used as dbmatches does.  Any tables of the schema. */
  Table<EVTableRecord> execDbmatches(std::string key_table, std::string key_record,
                                     std::string table, Tbl **kpattern, Tbl **tpattern,
                                     Hook **hook);
  /* The rows of a table for which the expression is true. */
  Table<EVTableRecord> execDbsubset(std::string table, std::string expression);

  /* Writes a whole row: over the record `recno`, or with -1 as a new one.
   *
   * flags    1: lddate becomes now; else 0
   * record   a row of the table, with or without its newline.  Its length, every field
   *          and the absence of control characters are checked before anything is written
   * Returns the record number, or -1 with nothing written. */
  long dbputrecord(std::string table, long recno, long flags, std::string record);

  /* dbnextid of the server's database. */
  long execDbnextid(std::string key);

  /* Between the codes of a SEED volume and those of the database: by the first row of the
   * table seedcode that has them (an empty net: of any network), else the station keeps
   * its code, and the database's channel is the SEED channel, three letters, followed by
   * the location, with an empty net.  0; -1, with empty texts, without a station or a
   * channel and when the table cannot be read. */
  int execDbseed2css(std::string net, std::string sta, std::string chan,
                     std::string loc, std::string &css_sta, std::string &css_chan);
  int execDbcss2seed(std::string sta, std::string chan, std::string &net,
                     std::string &seed_sta, std::string &seed_chan, std::string &loc);

  /* --- printing and comparison ------------------------------------------------------- */

  /* To standard output, each line after the prefix: "name = value" for each field of a
   * record; each row of a list after a line with its index, four blanks further in.  A
   * row text brings its own newline, so after an empty one the line goes on with the next
   * field.  Null prints nothing. */
  void print(EVEvent *event, std::string prefix);
  void print(EVOrigin *origin, std::string prefix);
  void print(EVMagnitude *magnitude, std::string prefix);
  void print(EVStamag *stamag, std::string prefix);
  void print(EVMoment *moment, std::string prefix);
  void print(EVAssociation *association, std::string prefix);
  void print(EVDetection *detection, std::string prefix);
  void print(EVTableRecord *record, std::string prefix);
  void print(EVStaChan *stachan, std::string prefix);

  void print(Table<EVEvent> *events, std::string prefix);
  void print(Table<EVOrigin> *origins, std::string prefix);
  void print(Table<EVMagnitude> *magnitudes, std::string prefix);
  void print(Table<EVStamag> *stamags, std::string prefix);
  void print(Table<EVMoment> *moments, std::string prefix);
  void print(Table<EVAssociation> *associations, std::string prefix);
  void print(Table<EVDetection> *detections, std::string prefix);
  void print(Table<EVTableRecord> *records, std::string prefix);
  void print(Table<EVStaChan> *stachans, std::string prefix);

  /* Differences between an older (1) and a newer (2) copy: a line for each compared field
   * that differs, then the rows below that were added, changed or deleted, paired by id.
   * Null prints nothing. */
  void print(EVEvent *event1, EVEvent *event2, std::string prefix);
  void print(EVOrigin *origin1, EVOrigin *origin2, std::string prefix);
  void print(EVMagnitude *magnitude1, EVMagnitude *magnitude2, std::string prefix);
  void print(EVMoment *moment1, EVMoment *moment2, std::string prefix);
  void print(EVAssociation *association1, EVAssociation *association2,
             std::string prefix);
  void print(EVDetection *detection1, EVDetection *detection2, std::string prefix);
  void print(Table<EVEvent> *events1, Table<EVEvent> *events2, std::string prefix);
  void print(Table<EVOrigin> *origins1, Table<EVOrigin> *origins2, std::string prefix);
  void print(Table<EVMagnitude> *magnitudes1, Table<EVMagnitude> *magnitudes2,
             std::string prefix);
  void print(Table<EVMoment> *moments1, Table<EVMoment> *moments2, std::string prefix);
  void print(Table<EVAssociation> *associations1, Table<EVAssociation> *associations2,
             std::string prefix);
  void print(Table<EVDetection> *detections1, Table<EVDetection> *detections2,
             std::string prefix);

  /* 1 equal, 0 not.  Exact, and NaN equals nothing; null equals null alone.  Events are
   * compared without order, access_time, time, magnitude and magtype, origins without
   * lddate_origin_view, magnitudes by their netmag rows alone; the rows below by their
   * places in the lists. */
  int isEqual(EVEvent *event1, EVEvent *event2);
  int isEqual(EVOrigin *origin1, EVOrigin *origin2);
  int isEqual(EVMagnitude *magnitude1, EVMagnitude *magnitude2);
  int isEqual(EVMoment *moment1, EVMoment *moment2);
  int isEqual(EVAssociation *association1, EVAssociation *association2);
  int isEqual(EVDetection *detection1, EVDetection *detection2);
  /* With the server's current lists: events at whatever place, detections place by place.
   * Null equals no list. */
  int isEqual(Table<EVEvent> *events);
  int isEqual(Table<EVDetection> *detections);
  /* Reports which events of the given list are new or changed against the current one, and
   * which of the current one it lacks.  Null reports nothing. */
  void printDifferences(Table<EVEvent> *events);

 private:
  friend class EVClient;
  std::unique_ptr<ksutil::events::ServerState> state_;
};

#endif
