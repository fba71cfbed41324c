/* EVClient: a program's handle on an EVServer.
 *
 * Derive from it to receive change reports.  Callbacks run on the refreshing thread (the
 * worker, or the caller of setMaxEvents), without the events lock; a callback must not
 * send a command and wait for it.
 *
 * A client registers itself in its constructor.  Its owner calls deregisterClient before
 * the client goes away, first thing in the most-derived destructor; there is no virtual
 * destructor, so delete it as the type that it is.  Construct clients before
 * autoRefreshEvents, or a refresh may call the base's callback. */
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
  /* Ends the process when `server` is no living EVServer. */
  explicit EVClient(EVServer *server);
  ~EVClient();
  EVClient(const EVClient &) = delete;
  EVClient &operator=(const EVClient &) = delete;

  /* After a refresh that changed anything. */
  virtual void responseCallback(EVResponse response);
  /* After a database check: codes of checkTable for "wfdisc", "arrival", "detection". */
  virtual void checkDatabaseCallback(Array<std::string, int> changes);

  /* Ask for a refresh; with `wait` non-zero return after the next refresh has ended, which
   * may have begun before the call.  Refused with -1 and a message where waiting could
   * never end: on the worker thread, and by the holder of the events lock; without `wait`
   * by that holder while the queue of commands is full. */
  int refreshEvents(int wait);
  int refreshEventsForce(int wait);

  /* Commands, which do what the members of EVServer of like names tell (dbmatches is
   * execDbmatches there, and so on).  Each waits for the worker and returns a copy of its
   * result; one command is in flight per client.  When the server does not run, has gone or goes meanwhile, and
   * where waiting is refused as above: an empty result, -1 for numbers, and a message. */
  Table<EVArrival> getArrivals(std::string sta, std::string chan, double tstart,
                               double tend);
  Table<EVTableRecord> getWfdiscs(std::string sta, std::string chan, double tstart,
                                  double tend, int mode);
  Table<EVStaChan> scanWfdisc(std::string sta, std::string chan, std::string not_sta,
                              std::string not_chan, double tstart, double tend);
  Table<EVTableRecord> getRawDetections(std::string sta, std::string chan,
                                        double tstart, double tend);
  EVTableRecord getSite(std::string sta, double time);
  /* The lists and the hook are touched only until the call returns or the client is
   * deregistered; a hook that the worker holds at that moment is freed, and *hook null. */
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
  int checkDatabase();  // the outcome arrives through checkDatabaseCallback

  /* The server's, by the same names; the caller holds the events lock for the accessors. */
  void grabEventsLock();
  void releaseEventsLock();
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
  int getEvent(int index, EVEvent &event);
  int getEvent(long evid, EVEvent &event);
  long getLastModifiedEvid();
  long getMostRecentEvid();
  int getLastModifiedEvent(EVEvent &event);
  int getMostRecentEvent(EVEvent &event);
  int containsExpandedEvent(long evid);
  int getExpandedEvent(long evid, EVEvent &event);
  void printDifferences(Table<EVEvent> *events);

  /* Helpers on a record alone. */
  EVOrigin *findOrid(EVEvent *event, long orid);
  /* The preferred origin, else the first one with *index left at -1; null without
   * origins. */
  EVOrigin *getPreferredOrigin(EVEvent *event, int *index);
  EVMoment *getPreferredMoment(EVEvent *event);
  EVMoment *getPreferredMoment(EVOrigin *origin);
  int getOrigin(EVEvent *event, long orid, EVOrigin &origin, int preferred);

  /* --- queries, sorting and tab lists; on the server's own records the caller holds the
   * events lock --------------------------------------------------------------------- */

  /* Compiles a query for events, origins or both: 0 with one token, or -1 with a message
   * that tells the position, and `tokens` untouched.  It looks at the database for how its
   * tables are laid out; records of a database that changes its layout later can still be
   * read. */
  int parse_query(std::string query, std::vector<EVQueryToken> &tokens);
  /* The value of a query on a record, expanded or not:
   *    0  *type has an EVValueType and `value`, EV_VALUE_SIZE bytes, the value
   *    1  there is none: the field is null or the record missing
   *   -1  with a message: a row that cannot be read, a text that is no date, or a query
   *       that is not about such records; both untouched
   * From any threads at once. */
  int getValue(EVEvent *event, const std::vector<EVQueryToken> &tokens, int *type,
               void *value);
  int getValue(EVOrigin *origin, const std::vector<EVQueryToken> &tokens, int *type,
               void *value);

  /* 0 when the query parses and gives no error on any record, else -1 with a message.
   * Events without a preferred origin are not asked. */
  int checkSortQuery(Table<EVEvent> *events, std::string query);
  int checkSortQuery(Table<EVOrigin> *origins, std::string query);

  /* The order of the records, ascending or, with `reverse`, descending: [row] index in the
   * list.  Records without a value, NaN among them, come first (reversed: last), equal
   * ones keep their order (reversed: the opposite one), texts are compared on their first
   * 32 bytes.  *status, if given: 0, or -1 for a query that does not parse, which gives
   * the natural order. */
  Table<int> sort(Table<EVEvent> *events, std::string query, int reverse, int *status);
  Table<int> sort(Table<EVOrigin> *origins, std::string query, int reverse,
                  int *status);
  /* Sorts what the tab shows, and sets its mappings. */
  void sort(EVEventsTab *tab, std::string query, int reverse);
  void sort(EVOriginsTab *tab, std::string query, int reverse);

  /* Sets both mappings to an order of distinct indexes, or with null to the natural order.
   * `rows` is as long as the order; an index outside it has no row there. */
  void setEventsTabs(EVEventsTab *tab, Table<int> *order);
  void setOriginsTabs(EVOriginsTab *tab, Table<int> *order);

  /* Row and index of each other, -1 outside the mappings. */
  int getRow(EVEventsTab *tab, int index);
  int getRow(EVOriginsTab *tab, int index);
  int getIndex(EVEventsTab *tab, int row);
  int getIndex(EVOriginsTab *tab, int row);
  /* Where the first record with the id stands, in the list or as a row; -1: nowhere. */
  int findEvidIndex(EVEventsTab *tab, long evid);
  int findEvidRow(EVEventsTab *tab, long evid);
  int findOridIndex(EVOriginsTab *tab, long orid);
  int findOridRow(EVOriginsTab *tab, long orid);

  std::atomic<int32_t> refresh_pending{0};
  std::atomic<int32_t> command_pending{0};
  std::atomic<int64_t> command_serial{0};  // of the command that it waits for
  EVServer *server = nullptr;  // null once the server has gone, which may be any time

  /* Result slots, written by the worker. */
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
  void clear_mapping();
};

#endif
