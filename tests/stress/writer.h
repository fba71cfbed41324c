/* A program that writes events at random and keeps a journal of what it was told was
 * written. */
#ifndef KSUTIL_TESTS_STRESS_WRITER_H
#define KSUTIL_TESTS_STRESS_WRITER_H

#include <sys/types.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/db/db.h"
#include "platform/stock/files.h"
#include "tests/events/event_database.h"

namespace stress {

/* Fields of the first row of origin, one for each writer, that they count in. */
inline constexpr const char *kSharedFields[] = {"nass", "ndef", "ndp"};

class Writer {
 public:
  /* `number` is below 3 and its own. */
  Writer(const std::string &database, const std::string &journal, unsigned seed,
         int number);
  ~Writer() { dbclose(db_); }
  Writer(const Writer &) = delete;
  Writer &operator=(const Writer &) = delete;

  /* One action; false when a call has failed. */
  bool step();

 private:
  struct Row {
    long id, record;
  };
  struct Event {
    Row row;
    std::vector<Row> origins;
  };
  Dbptr table(const char *name, long record) const;
  bool add_origin(long evid, Row &origin);
  bool add_event();
  bool add_to_event();
  bool move_origin();
  bool count_on();
  void note(const std::string &line);

  Dbptr db_ = dbinvalid();
  ksutil::FileHandle journal_;
  std::mt19937 random_;
  int number_;
  long count_ = 0;
  std::vector<Event> events_;
};

/* A database with one event, and the journal of the writers that go on with it. */
class WrittenDatabase : public ksutil::events::test::EventDatabase {
 public:
  WrittenDatabase() { add_located_event(1, 1e9); }
  std::string journal() const { return name() + "-journal"; }
};

/* What journals say was written. */
struct Written {
  std::map<long, std::set<long>> origins;  // of each evid
  std::map<long, long> times;              // last one of each orid, epoch seconds
  long counts[3] = {0, 0, 0};
  void read(const std::string &journal);
};

/* How a writer's process ends. */
enum class End { after_its_time, by_itself_amid_a_write };

/* Starts a writer in a process of its own that runs for so many seconds. */
pid_t spawn_writer(const std::string &database, const std::string &journal,
                   unsigned seed, int number, double seconds, End end);

/* The program behind it: argv as spawn_writer makes it. */
int writer_main(char **argv);

/* Waits for a process: its exit code, or minus the signal that ended it. */
int wait_for(pid_t process);

}  // namespace stress

#endif
