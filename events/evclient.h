/* EVClient: a program's handle on an EVServer.
 *
 * Derive from it to receive change reports.  A client registers itself with its server
 * in its constructor.  Its owner calls EVServer::deregisterClient before the client
 * goes away, first thing in the most-derived destructor; there is no virtual
 * destructor, so delete it as the type that it is.  Construct clients before
 * autoRefreshEvents: a refresh that runs during the construction calls the base's
 * callback.
 *
 * Ownership: results are the caller's copies.  The client owns its result slots and its
 * scratch database; the application owns the client.
 *
 * Threads: one thread at a time uses a client, apart from its callbacks.  Members
 * marked "caller holds the events lock" must be called between grabEventsLock and
 * releaseEventsLock.  A client may outlive its server: from the server's end on,
 * commands fail and the accessors find nothing. */
#ifndef KSUTIL_EVENTS_EVCLIENT_H
#define KSUTIL_EVENTS_EVCLIENT_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Array.h"
#include "core/Table.h"
#include "events/evserver.h"
#include "events/query.h"
#include "events/records.h"
#include "events/tabs.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"

struct EVCommand;

class KSUTIL_API EVClient {
 public:
  /* Registers the client.  Ends the process if `server` is not a living EVServer. */
  explicit EVClient(EVServer *server);
  ~EVClient();
  EVClient(const EVClient &) = delete;
  EVClient &operator=(const EVClient &) = delete;

  /* --- callbacks ---
   *
   * The server calls them without the events lock, one at a time for each client, on
   * the thread that refreshes or checks: the worker, or the caller of
   * EVServer::refreshEvents, setMaxEvents or checkDatabase; when another thread is
   * inside a callback of this client, that thread makes the next call too.  Each call
   * gets a copy of its own. A callback may take the events lock and read, call any
   * function of the server, and deregister any client; after deregistering its own it
   * may destroy it.  It may send commands unless it runs on the worker, where waiting
   * is refused (below).  An exception that leaves it becomes a message. */

  /* After a refresh that has changed anything. */
  virtual void responseCallback(EVResponse response);
  /* After a database check: the codes of EVServer::checkTable for "wfdisc", "arrival"
   * and "detection".  Calls that come while a callback of this client runs wait for it
   * in memory: checks must not be made faster than the callback takes. */
  virtual void checkDatabaseCallback(Array<std::string, int> changes);

  /* --- commands ---
   *
   * Each is executed by the server's worker, in the order of the queue.  The caller
   * must not hold the events lock: a wait for the worker could then last for ever.
   * There is no time-out.
   *
   * Waiting is refused, with a message, on the worker thread (in a callback that runs
   * there) and to the holder of the events lock. */

  /* Ask for a refresh, forced or not.  Not to be confused with EVServer::refreshEvents,
   * whose argument is `force`.
   *
   * wait  0: return when the command is in the queue; non-zero: return after the next
   *       refresh has ended, which may have begun before the call
   *    0  asked for, or ended
   *   -1  the server is not running or ends during the call; waiting is refused; or,
   *       with wait 0, the caller holds the events lock while the queue is full */
  int refreshEvents(int wait);
  int refreshEventsForce(int wait);

  /* Do what the members of EVServer with like names do (execDbmatches, execDbsubset,
   * execDbnextid, execDbseed2css and execDbcss2seed there), and return a copy of the
   * result.  If the server is not running, is destroyed before or during the call, or
   * waiting is refused, the result is empty (-1 for numbers) and a message is
   * registered. */
  Table<EVArrival> getArrivals(std::string sta, std::string chan, double tstart,
                               double tend);
  Table<EVTableRecord> getWfdiscs(std::string sta, std::string chan, double tstart,
                                  double tend, int mode);
  Table<EVStaChan> scanWfdisc(std::string sta, std::string chan, std::string not_sta,
                              std::string not_chan, double tstart, double tend);
  Table<EVTableRecord> getRawDetections(std::string sta, std::string chan,
                                        double tstart, double tend);
  EVTableRecord getSite(std::string sta, double time);
  /* The lists and the hook are used only until the call returns or the client is
   * deregistered; a hook that the worker holds at that moment is freed, and *hook
   * null. */
  Table<EVTableRecord> dbmatches(std::string key_table, std::string key_record,
                                 std::string table, Tbl **kpattern, Tbl **tpattern,
                                 Hook **hook);
  Table<EVTableRecord> dbsubset(std::string table, std::string expression);
  long dbputrecord(std::string table, long recno, long flags, std::string record);
  long dbnextid(std::string key);
  int dbseed2css(std::string net, std::string sta, std::string chan, std::string loc,
                 std::string &css_sta, std::string &css_chan);
  int dbcss2seed(std::string sta, std::string chan, std::string &net,
                 std::string &seed_sta, std::string &seed_chan, std::string &loc);
  int checkDatabase();  // the codes arrive through checkDatabaseCallback; 0 or -1

  /* --- the server's lists: caller holds the events lock ---
   *
   * Each calls the member of EVServer with the same name.  Without a server: empty
   * lists and 0, -1 from getEvent, getExpandedEvent and for evids, 0 for an event that
   * is not in the cache; records stay untouched. */

  Table<EVEvent> getEvents();
  Table<EVDetection> getDetections();
  std::shared_ptr<const Table<EVEvent>> eventsList();
  std::shared_ptr<const Table<EVDetection>> detectionsList();
  int eventsNumber();
  int detectionsNumber();
  int expandedNumber();
  long getEventsSize();
  long getDetectionsSize();
  long getExpandedSize();
  /* Copy one event: 0, or -1 without a message and `event` untouched. Beware: the type
   * of the first argument decides what it means.  An int is an index in the list, a
   * long is an evid: getEvent(7, e) copies the eighth event of the list, getEvent(7L,
   * e) the event with evid 7. */
  int getEvent(int index, EVEvent &event);
  int getEvent(long evid, EVEvent &event);
  long getLastModifiedEvid();
  long getMostRecentEvid();
  int getLastModifiedEvent(EVEvent &event);
  int getMostRecentEvent(EVEvent &event);

  /* --- the server's lock, cache and differences; the lock is taken if needed --- */

  void grabEventsLock();
  void releaseEventsLock();
  int containsExpandedEvent(long evid);
  int getExpandedEvent(long evid, EVEvent &event);
  void printDifferences(const Table<EVEvent> *events);

  /* --- helpers on a record alone; they use neither server nor lock --- */

  /* The first origin with the orid; null for none or a null event. */
  EVOrigin *findOrid(EVEvent *event, long orid);
  /* The preferred origin, with its index in *index; else the first origin, with *index
   * -1; null without origins.  `index` may be null. */
  EVOrigin *getPreferredOrigin(EVEvent *event, int *index);
  /* The preferred moment of an event and of an origin; null when there is none. */
  EVMoment *getPreferredMoment(EVEvent *event);
  EVMoment *getPreferredMoment(EVOrigin *origin);
  /* Copies the first origin with the orid and returns its index.  Without one, with
   * `preferred` non-zero: copies what getPreferredOrigin gives and returns the index
   * that it gives, so -1 beside a copy of the first origin.  -1: nothing copied; for a
   * null event and one with a negative evid, `origin` becomes a default one. */
  int getOrigin(const EVEvent *event, long orid, EVOrigin &origin, int preferred);

  /* --- queries, sorting and tab lists ---
   *
   * On the server's own records the caller holds the events lock, or a pointer from
   * eventsList. */

  /* Compiles a query for events, origins or both: 0 with one token; -1 with a message
   * that gives the position, and `tokens` untouched.  It reads the layouts of the
   * database's tables; records of a database that changes its layout later can still be
   * read. */
  int parse_query(std::string query, std::vector<EVQueryToken> &tokens);
  /* The value of a query on a record, expanded or not:
   *    0  *type is an EVValueType and `value`, EV_VALUE_SIZE bytes, holds the value
   *    1  no value: the field is null or the record missing
   *   -1  with a message: a row that cannot be read, a text that is not a date, a query
   *       that is not about such records, or a null argument; both untouched
   * Any threads may call it at once. */
  int getValue(const EVEvent *event, const std::vector<EVQueryToken> &tokens, int *type,
               void *value);
  int getValue(const EVOrigin *origin, const std::vector<EVQueryToken> &tokens,
               int *type, void *value);

  /* 0 if the query parses and gives no error on any record, else -1 with a message.
   * Events without a preferred origin are skipped.  A null list has no records. */
  int checkSortQuery(const Table<EVEvent> *events, std::string query);
  int checkSortQuery(const Table<EVOrigin> *origins, std::string query);

  /* The order of the records, ascending or, with `reverse` non-zero, descending: [row]
   * index in the list.  Records without a value (NaN counts as none) come first
   * (reversed: last); equal ones keep their order (reversed: the opposite one); texts
   * are compared on their first 32 bytes.  *status, if given: 0; -1 for a query that
   * does not parse, which gives the natural order.  A null list gives an empty
   * order. */
  Table<int> sort(const Table<EVEvent> *events, std::string query, int reverse,
                  int *status);
  Table<int> sort(const Table<EVOrigin> *origins, std::string query, int reverse,
                  int *status);

  /* Tab lists (tabs.h).  A null tab is ignored, or gives -1. */

  /* Sort the records of the tab and set its mappings. */
  void sort(EVEventsTab *tab, std::string query, int reverse);
  void sort(EVOriginsTab *tab, std::string query, int reverse);
  void sort(EVConstEventsTab *tab, std::string query, int reverse);
  void sort(EVConstOriginsTab *tab, std::string query, int reverse);

  /* Set both mappings to an order of distinct indexes, or with null to the natural
   * order. `rows` is as long as the order; an index outside it has no row there. */
  void setEventsTabs(EVEventsTab *tab, Table<int> *order);
  void setEventsTabs(EVConstEventsTab *tab, Table<int> *order);
  void setOriginsTabs(EVOriginsTab *tab, Table<int> *order);
  void setOriginsTabs(EVConstOriginsTab *tab, Table<int> *order);

  /* The row of an index, and the index of a row; -1 outside the mappings. */
  int getRow(EVEventsTab *tab, int index);
  int getRow(EVOriginsTab *tab, int index);
  int getRow(EVConstEventsTab *tab, int index);
  int getRow(EVConstOriginsTab *tab, int index);
  int getIndex(EVEventsTab *tab, int row);
  int getIndex(EVOriginsTab *tab, int row);
  int getIndex(EVConstEventsTab *tab, int row);
  int getIndex(EVConstOriginsTab *tab, int row);
  /* The index in the list, and the row, of the first record with the id; -1: none. */
  int findEvidIndex(EVEventsTab *tab, long evid);
  int findEvidIndex(EVConstEventsTab *tab, long evid);
  int findEvidRow(EVEventsTab *tab, long evid);
  int findEvidRow(EVConstEventsTab *tab, long evid);
  int findOridIndex(EVOriginsTab *tab, long orid);
  int findOridIndex(EVConstOriginsTab *tab, long orid);
  int findOridRow(EVOriginsTab *tab, long orid);
  int findOridRow(EVConstOriginsTab *tab, long orid);

  /* --- state of the command in progress; written by the worker --- */

  std::atomic<int32_t> refresh_pending{0};
  std::atomic<int32_t> command_pending{0};
  std::atomic<int64_t> command_serial{0};  // number of the command that it waits for
  EVServer *server =
      nullptr;  // null after the server's end, which may come at any time

  /* Results, complete when command_pending is cleared. */
  Table<EVTableRecord> records;
  Table<EVArrival> arrivals;
  EVTableRecord site;
  Table<EVStaChan> stachans;
  std::string out1, out2, out3, out4;
  int64_t status = 0;
  int64_t nextid = -1;

  Dbptr scratch = dbinvalid();  // a scratch database of the server's schema

 private:
  EVServer *attached();
  int request_refresh(const char *name, int wait);
  bool execute(std::unique_ptr<EVCommand> command);
};

#endif
