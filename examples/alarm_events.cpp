/* Calls an alarm for each large event, on a thread of its own.
 *
 * The callback of a client runs on the server's worker thread: while it runs, no other
 * refresh begins.  So the callback only looks which events are news, and hands them through a queue
 * to the main thread, which may take its time: here it prints a line, elsewhere it would
 * ring, mail or call.  An event is news once: when it first has a magnitude of at least
 * MAGNITUDE, also when an earlier solution of it was smaller.  Events that are large when the
 * program begins are not news.
 * The program ends after ALARMS alarms (0: it goes on until it is interrupted).
 *
 * Usage: alarm_events DATABASE MAGNITUDE ALARMS */
#include <ksutil.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <vector>

namespace {

/* What the callback tells the main thread. */
struct News {
  long evid;
  double time, magnitude, lat, lon;
};

void free_news(void *data) { delete static_cast<News *>(data); }
struct Destroy {
  void operator()(pmtfifo *queue) const { pmtfifo_destroy(queue, free_news); }
};
using QueuePtr = std::unique_ptr<pmtfifo, Destroy>;

/* Finds events that have become large. */
class Watch : public EVClient {
 public:
  Watch(EVServer *server_in, double limit, pmtfifo *news)
      : EVClient(server_in), limit_(limit), news_(news) {
    parse_query("lat", lat_);
    parse_query("lon", lon_);
    grabEventsLock();
    for (const EVEvent &event : getEvents()) {
      if (event.magnitude >= limit_) known_.insert(event.evid);
    }
    std::printf("watching %d events\n", eventsNumber());
    std::fflush(stdout);
    releaseEventsLock();
  }
  /* No callback runs on this client any more when deregisterClient has returned. */
  ~Watch() { server->deregisterClient(this); }

  void responseCallback(EVResponse response) override {
    grabEventsLock();
    for (const long evid : response.changed_evids) {
      EVEvent event;
      if (getEvent(evid, event) != 0 || event.magnitude < limit_) continue;
      if (known_.insert(evid).second) tell(event);
    }
    releaseEventsLock();
  }

 private:
  /* A value that the record has no field for: it is in the text of the row. */
  double value(const EVEvent &event, const std::vector<EVQueryToken> &query) {
    alignas(double) char buffer[EV_VALUE_SIZE];
    int type = 0;
    if (getValue(&event, query, &type, buffer) != 0 || type != EV_DOUBLE) return -999.0;
    double result = 0.0;
    std::memcpy(&result, buffer, sizeof result);
    return result;
  }
  void tell(const EVEvent &event) {
    auto news = std::make_unique<News>(News{event.evid, event.time, event.magnitude,
                                            value(event, lat_), value(event, lon_)});
    if (pmtfifo_push(news_, news.get()) == 0) news.release();  // the queue's now
  }

  const double limit_;
  pmtfifo *const news_;
  std::set<long> known_;
  std::vector<EVQueryToken> lat_, lon_;
};

/* The alarm itself; it may take as long as it likes. */
void ring(const News &news) {
  std::puts(ksutil::format_text("ALARM evid %ld %s magnitude %.1f at %.2f %.2f",
                                news.evid, ksutil::time_text(news.time).c_str(),
                                news.magnitude, news.lat, news.lon)
                .c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
  double magnitude = 0.0;
  std::int64_t alarms = 0;
  if (argc != 4 || !ksutil::parse_real(argv[2], magnitude) ||
      !ksutil::parse_integer(argv[3], alarms) || alarms < 0) {
    std::fputs("usage: alarm_events DATABASE MAGNITUDE ALARMS\n", stderr);
    return 2;
  }
  const QueuePtr queue(pmtfifo_create(0, 1, 0));
  if (queue == nullptr) return 1;
  try {
    EVServer server(argv[1], 0, 0, -1);  // reads the events
    Watch watch(&server, magnitude, queue.get());
    server.autoRefreshEvents(0.5);
    void *data = nullptr;
    for (std::int64_t n = 0;
         (alarms == 0 || n < alarms) && pmtfifo_pop(queue.get(), &data) == 1; n++) {
      ring(*std::unique_ptr<News>(static_cast<News *>(data)));
    }
  } catch (const char *) {
    return 1;  // the server has printed why
  }
}
