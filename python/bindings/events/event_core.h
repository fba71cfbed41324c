/* event_core: lets several threads of a program share an event server, without Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_CORE_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_CORE_H

#include <ksutil/events/evserver.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "bindings/events/event_changes.h"
#include "bindings/events/event_fields.h"
#include "bindings/interpreter/failure.h"

namespace ksutil::python {

/* Closable: an object with threads, which must end before Python does. */
class Closable {
 public:
  virtual ~Closable() = default;
  virtual void close() = 0;
};

/* Remembers an object for close_all(), as long as it lives. */
void remember(const std::shared_ptr<Closable> &closable);
/* Ends all that are left. */
void close_all();

struct ServerSettings {
  std::string database;
  double interval = 2.0;  // seconds between refreshes of its own; 0: none
  int max_events = 0;
  int max_expanded = 100;
  bool detections = true;
  bool until_now = false;  // whether the window of detections ends now
  std::size_t queue = 100000;
  std::string preferred_magnitudes;  // parameter text; empty: those of the library
};

/* ServerCore: an EVServer with its listener.
 *
 * Threads: any thread may call any function, without the GIL.  close() waits for the
 * functions in progress on other threads, none of which waits for Python. */
class ServerCore : public Closable {
 public:
  /* Throws Error. */
  static std::shared_ptr<ServerCore> open(const ServerSettings &settings);
  ~ServerCore() override;
  ServerCore(const ServerCore &) = delete;
  ServerCore &operator=(const ServerCore &) = delete;

  /* The result of function(server); throws Error when the server is closed. */
  template <class Function>
  auto use(Function function) {
    const Use used(*this);
    return function(*server_);
  }

  /* Ends the server, once; every caller returns when it has ended. */
  void close() override;
  bool closed() const;

  const std::string &database() const { return settings_.database; }
  /* Messages of an opening that succeeded, such as of an interrupted change. */
  const std::string &news() const { return news_; }
  const ServerSettings &settings() const { return settings_; }
  const std::shared_ptr<EventListener> &listener() const { return listener_; }
  const std::shared_ptr<const RowLayouts> &layouts() const { return layouts_; }

 private:
  class Use {
   public:
    explicit Use(ServerCore &core);
    ~Use();
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;

   private:
    ServerCore &core_;
  };

  explicit ServerCore(const ServerSettings &settings);
  bool is_foreign() const { return generation_ != fork_generation(); }

  const ServerSettings settings_;
  const long generation_ = fork_generation();
  std::string news_;
  std::shared_ptr<const RowLayouts> layouts_;
  std::unique_ptr<EVServer> server_;
  std::shared_ptr<EventListener> listener_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable left_;
  int users_ = 0;
  bool closing_ = false, closed_ = false;
};

}  // namespace ksutil::python
#endif
