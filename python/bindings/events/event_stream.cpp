#include <ksutil/events/event_rows.h>

#include <cstring>
#include <deque>
#include <thread>
#include <utility>

#include "bindings/bindings.h"
#include "bindings/events/event_core.h"
#include "bindings/events/event_records.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/locks.h"
#include "bindings/interpreter/patience.h"

namespace ksutil::python {
namespace {

/* EventStream: reads the events of a database one after the other on a thread of its own,
 * which waits when its reader is slow.
 *
 * Threads: any thread may call any function, without the GIL. */
class EventStream : public Closable {
 public:
  enum class Outcome { kTaken, kNothing, kEnded };

  EventStream(std::string database, std::string where, bool expand)
      : database_(std::move(database)), where_(std::move(where)), expand_(expand) {}
  ~EventStream() override { close(); }
  EventStream(const EventStream &) = delete;
  EventStream &operator=(const EventStream &) = delete;

  /* Opens the database and begins to read.  Throws Error. */
  void start() {
    const ForkGate gate;
    const Failure failure;
    layouts_ = RowLayouts::of_database(database_);
    try {
      server_ = std::make_unique<EVServer>(database_, 0, 1, -1);
    } catch (const char *message) {
      failure.raise(message);
    }
    if (!where_.empty()) {
      listener_ = std::make_unique<EventListener>(server_.get());
      if (!listener_->compile(where_, tokens_)) {
        listener_->leave();
        failure.raise();
      }
    }
    thread_ = std::make_unique<std::thread>([this] { read(); });
  }

  /* Waits until `end` for the next event.  Throws Error when the reading has failed. */
  Outcome take(std::shared_ptr<EVEvent> &event, Patience::Clock::time_point end) {
    if (is_foreign()) throw Error("the events are read in another process");
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, end, [this] { return ended_ || !events_.empty(); });
    if (!events_.empty()) {
      event = std::move(events_.front());
      events_.pop_front();
      changed_.notify_all();
      return Outcome::kTaken;
    }
    if (!ended_) return Outcome::kNothing;
    if (!message_.empty()) throw Error(std::exchange(message_, {}));
    return Outcome::kEnded;
  }

  void close() override {
    if (is_foreign()) return;  // the thread is not in this process
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
      events_.clear();
      changed_.notify_all();
    }
    const std::lock_guard joining(joining_);
    if (thread_ == nullptr) return;
    thread_->join();
    thread_.reset();
  }

  const std::shared_ptr<const RowLayouts> &layouts() const { return layouts_; }
  bool expands() const { return expand_; }

 private:
  static constexpr std::size_t kAhead = 256;

  bool is_foreign() const { return generation_ != fork_generation(); }

  /* Whether the query is true for the event; an event that has no value is left out. */
  bool is_wanted(const EVEvent &event) {
    if (tokens_.empty()) return true;
    const Failure quiet;
    alignas(8) char value[EV_VALUE_SIZE] = {};
    int type = 0;
    if (listener_->getValue(&event, tokens_, &type, value) != 0) return false;
    std::int64_t integer = 0;
    double real = 0.0;
    std::memcpy(&integer, value, sizeof integer);
    std::memcpy(&real, value, sizeof real);
    if (type == EV_TEXT) throw Error("'" + where_ + "' is a text, not a condition");
    return type == EV_INTEGER ? integer != 0 : real != 0.0;
  }

  bool hand_over(EVEvent &event) {
    if (expand_) server_->refreshAssociations(&event);
    if (!is_wanted(event)) return !stopped();
    auto copy = std::make_shared<EVEvent>(std::move(event));
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stop_ || events_.size() < kAhead; });
    if (stop_) return false;
    events_.push_back(std::move(copy));
    changed_.notify_all();
    return true;
  }

  bool stopped() {
    const std::lock_guard lock(mutex_);
    return stop_;
  }

  /* On the stream's own thread. */
  void read() {
    const Failure failure;
    std::string message;
    try {
      const int result = events::each_event(*server_, [&](EVEvent &event) {
        try {
          return hand_over(event);
        } catch (const std::exception &caught) {
          message = caught.what();
          return false;
        }
      });
      if (result < 0) message = failure.text();
    } catch (const std::exception &caught) {
      message = caught.what();
    }
    if (listener_ != nullptr) listener_->leave();
    listener_.reset();
    server_.reset();
    const std::lock_guard lock(mutex_);
    ended_ = true;
    message_ = std::move(message);
    changed_.notify_all();
  }

  const std::string database_, where_;
  const bool expand_;
  const long generation_ = fork_generation();
  std::shared_ptr<const RowLayouts> layouts_;
  std::unique_ptr<EVServer> server_;
  std::unique_ptr<EventListener> listener_;
  std::vector<EVQueryToken> tokens_;
  std::mutex joining_;  // guards thread_
  std::unique_ptr<std::thread> thread_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<std::shared_ptr<EVEvent>> events_;
  std::string message_;
  bool stop_ = false, ended_ = false;
};

/* The one owner of a stream; it ends the stream when it goes. */
struct StreamHandle {
  explicit StreamHandle(std::shared_ptr<EventStream> opened)
      : stream(std::move(opened)) {}
  ~StreamHandle() { close(); }
  StreamHandle(const StreamHandle &) = delete;
  StreamHandle &operator=(const StreamHandle &) = delete;
  void close() {
    released([this] { stream->close(); });
  }

  const std::shared_ptr<EventStream> stream;
};

std::unique_ptr<StreamHandle> open_stream(std::string database, std::string where,
                                          bool expand) {
  refuse_nul(database, "the path");
  auto stream =
      shared_in_process(new EventStream(std::move(database), std::move(where), expand));
  released([&] {
    stream->start();
    remember(stream);
  });
  return std::make_unique<StreamHandle>(std::move(stream));
}

PyEvent next(StreamHandle &self) {
  const Patience patience{py::none()};
  const auto stream = self.stream;
  std::shared_ptr<EVEvent> event;
  for (;;) {
    const auto outcome =
        released([&] { return stream->take(event, patience.slice_end()); });
    if (outcome == EventStream::Outcome::kTaken) {
      return make_event(std::move(event), stream->layouts(), nullptr,
                        stream->expands());
    }
    check_signals();
    if (outcome == EventStream::Outcome::kEnded) throw py::stop_iteration();
  }
}

}  // namespace

void bind_event_stream(py::module_ &m) {
  py::class_<StreamHandle>(
      m, "EventStream",
      "An iterator over the events of a database that keeps no list of them.")
      .def(py::init(&open_stream), py::arg("database"), py::arg("where"),
           py::arg("expand"))
      .def("__iter__", [](const py::object &self) { return self; })
      .def("__next__", next)
      .def("close", &StreamHandle::close, "Ends the reading.")
      .def("__enter__", [](const py::object &self) { return self; })
      .def("__exit__", [](StreamHandle &self, const py::args &) { self.close(); });
}

}  // namespace ksutil::python
