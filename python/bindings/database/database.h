/* database: holds an open database, and tables and views of it, for objects of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_DATABASE_DATABASE_H
#define KSUTIL_PYTHON_BINDINGS_DATABASE_DATABASE_H

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/gil.h"
#include "platform/db/db.h"
#include "platform/db/schema.h"
#include "platform/db/snapshot.h"

namespace ksutil::python {

namespace py = pybind11;

struct SeenRows;

/* The rows of several tables; null where they are not known. */
using SeenTables = std::vector<std::shared_ptr<const db::Snapshot>>;

/* An open database with caches of its own.
 *
 * Threads: any; calls wait for each other.  The mutex is taken after the GIL has been
 * released, and the GIL is never taken while it is held.  A fork waits for the call in
 * progress, so that the child can use the handle. */
class Handle {
 public:
  /* Throws Error.  Needs the GIL, and gives it up meanwhile. */
  static std::shared_ptr<Handle> open(const std::string &name, const std::string &mode);
  ~Handle();
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;

  const std::string &name() const { return name_; }
  const std::string &mode() const { return mode_; }
  /* Messages of an opening that succeeded, such as of an interrupted change; "" when there
   * are none. */
  const std::string &news() const { return news_; }

  /* Closes it; a second call does nothing.  Needs the GIL, and gives it up meanwhile. */
  void close();
  bool closed() const { return !open_.load(); }
  bool writes() const { return mode_ == "r+"; }

  /* work(Dbptr of the database, Failure &) without the GIL, and its result.  Throws Error
   * when the database is closed.  Needs the GIL, and gives it up meanwhile. */
  template <class Work>
  auto use(const Work &work) {
    const GilReleased released;
    const ForkGate gate;
    const std::lock_guard lock(mutex_);
    if (!open_.load()) throw Error("the database is closed");
    free_retired();
    Failure failure;
    return work(db_, failure);
  }

  /* Frees a view at the next use.  Does not wait for calls in other threads. */
  void retire(Dbptr view);

  /* Keep the rows that a view has seen until the number that keep_seen gave is retired,
   * see SeenRows; null for a table that is not known.  The first two inside use(). */
  long keep_seen(SeenTables tables);
  std::shared_ptr<const db::Snapshot> seen_table(long id, std::size_t part) const;
  void retire_seen(long id);

 private:
  Handle(std::string name, std::string mode)
      : name_(std::move(name)), mode_(std::move(mode)) {}
  void free_retired();

  const std::string name_, mode_;
  std::string news_;  // set before another thread has the handle
  std::mutex mutex_;  // guards db_, seen_ and last_seen_, and all calls with them
  Dbptr db_ = dbinvalid();
  std::unordered_map<long, SeenTables> seen_;
  long last_seen_ = 0;
  std::atomic<bool> open_ = false;
  std::mutex retired_mutex_;  // guards what is retired; the last lock that is taken
  std::vector<Dbptr> retired_;
  std::vector<long> retired_seen_;
};

/* A table or a view.  Immutable once it is given to Python. */
struct View {
  View(std::shared_ptr<Handle> of, Dbptr at, std::vector<std::string> names)
      : handle(std::move(of)), dbptr(at), tables(std::move(names)) {}
  ~View();
  View(const View &) = delete;
  View &operator=(const View &) = delete;

  bool is_table() const { return table; }

  const std::shared_ptr<Handle> handle;
  const Dbptr dbptr;
  const std::vector<std::string> tables;  // in the order of view_parts
  bool table = false;                     // a stored table, whose rows can be changed
  /* The rows that a view was made from; null for a table, and where nothing is written. */
  std::shared_ptr<SeenRows> seen;
};

/* A field of a view: the table that has it, by its place in View::tables. */
struct FieldPlace {
  std::size_t part;
  db::Field field;
};

/* The layouts of the tables of a view as they are now.  Inside Handle::use. */
std::vector<db::Relation> layouts_of(const View &view, Dbptr db,
                                     const Failure &failure);

/* The field that a name, "lat" or "origin.lat", means; throws py::key_error, for which the
 * GIL is not needed. */
FieldPlace find_field(const View &view, const std::vector<db::Relation> &layouts,
                      const std::string &name);

/* The names of all fields; those that an earlier table has too stand with their table. */
std::vector<std::string> field_names(const std::vector<db::Relation> &layouts);

}  // namespace ksutil::python
#endif
