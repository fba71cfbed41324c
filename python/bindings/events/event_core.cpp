#include "bindings/events/event_core.h"

#include <ksutil/platform/db/db.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "bindings/interpreter/fork_gate.h"

namespace ksutil::python {
namespace {

struct Living {
  std::mutex mutex;
  std::vector<std::weak_ptr<Closable>> all;
};

/* Never destroyed: threads may still look at it while the process ends. */
Living &living() {
  static Living *const only = new Living;
  return *only;
}

/* Says with the library's message why a database cannot be opened; the server itself
 * would print the message.  The result is the messages of an opening that succeeded. */
std::string require_database(const std::string &name) {
  const Failure failure;
  Dbptr db = dbinvalid();
  failure.check(dbopen(name.c_str(), "r+", &db));
  dbclose(db);
  return failure.text();
}

}  // namespace

void remember(const std::shared_ptr<Closable> &closable) {
  const std::lock_guard lock(living().mutex);
  std::erase_if(living().all, [](const auto &entry) { return entry.expired(); });
  living().all.push_back(closable);
}

void close_all() {
  std::vector<std::shared_ptr<Closable>> left;
  {
    const std::lock_guard lock(living().mutex);
    for (const auto &entry : living().all) {
      if (auto closable = entry.lock()) left.push_back(std::move(closable));
    }
    living().all.clear();
  }
  for (const auto &closable : left) closable->close();
}

ServerCore::Use::Use(ServerCore &core) : core_(core) {
  if (core.is_foreign()) {
    throw Error("the event server belongs to the process that opened it");
  }
  const std::lock_guard lock(core.mutex_);
  if (core.closing_) throw Error("the event server is closed");
  core.users_++;
}

ServerCore::Use::~Use() {
  const std::lock_guard lock(core_.mutex_);
  core_.users_--;
  core_.left_.notify_all();
}

std::shared_ptr<ServerCore> ServerCore::open(const ServerSettings &settings) {
  const ForkGate gate;
  const auto core = shared_in_process(new ServerCore(settings));
  remember(core);
  return core;
}

ServerCore::ServerCore(const ServerSettings &settings) : settings_(settings) {
  news_ = require_database(settings.database);
  const Failure failure;
  layouts_ = RowLayouts::of_database(settings.database);
  try {
    server_ = std::make_unique<EVServer>(settings.database, settings.until_now ? 1 : 0,
                                         settings.max_events, -1);
  } catch (const char *message) {
    failure.raise(message);
  }
  server_->setMaxExpandedEvents(settings.max_expanded);
  if (!settings.detections) server_->setDetections(0);
  if (!settings.preferred_magnitudes.empty()) {
    std::string text = settings.preferred_magnitudes;
    failure.check(server_->setPreferredMagnitudes(text.data()));
  }
  const bool anew = !settings.detections || !settings.preferred_magnitudes.empty();
  /* The first reading has happened; the second tells whether it failed. */
  failure.check(server_->refreshEvents(anew ? 1 : 0));
  listener_ = shared_in_process(new EventListener(server_.get()));
  /* Without its threads the server would show no change of its own accord. */
  if (listener_->refreshEvents(0) != 0) {
    listener_->leave();
    throw Error("the system gives no threads for the event server");
  }
  server_->autoRefreshEvents(settings.interval);
}

ServerCore::~ServerCore() { close(); }

bool ServerCore::closed() const {
  if (is_foreign()) return true;
  const std::lock_guard lock(mutex_);
  return closing_;
}

void ServerCore::close() {
  if (is_foreign()) return;
  {
    std::unique_lock lock(mutex_);
    if (closing_) {
      left_.wait(lock, [this] { return closed_; });
      return;
    }
    closing_ = true;
  }
  if (listener_ != nullptr) listener_->close_queues();
  {
    std::unique_lock lock(mutex_);
    left_.wait(lock, [this] { return users_ == 0; });
  }
  const Failure dropped;  // what the end of its threads says is of no use to the caller
  if (listener_ != nullptr) listener_->leave();
  server_.reset();
  const std::lock_guard lock(mutex_);
  closed_ = true;
  left_.notify_all();
}

}  // namespace ksutil::python
