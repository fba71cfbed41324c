/* What the stress programs share: how long they run, a watchdog, and the comparison of a
 * server with a fresh reading of its database. */
#ifndef KSUTIL_TESTS_STRESS_STRESS_SUPPORT_H
#define KSUTIL_TESTS_STRESS_STRESS_SUPPORT_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "events/evclient.h"
#include "events/evserver.h"

namespace stress {

/* Seconds that one scenario runs: KSUTIL_STRESS_SECONDS, else 2. */
double seconds();

/* Seed of a scenario: KSUTIL_STRESS_SEED, else another one each time; printed. */
unsigned seed();

/* Tells when a scenario's time is over. */
class Deadline {
 public:
  explicit Deadline(double after = seconds())
      : end_(std::chrono::steady_clock::now() +
             std::chrono::milliseconds(static_cast<long>(1000.0 * after))) {}
  bool over() const { return std::chrono::steady_clock::now() >= end_; }

 private:
  std::chrono::steady_clock::time_point end_;
};

/* Ends the process with a message when a scenario takes much longer than it should. */
class Watchdog {
 public:
  explicit Watchdog(std::string what);
  ~Watchdog();
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;

 private:
  const std::string what_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool over_ = false;
  std::thread thread_;
};

/* A number below `limit`, which is at least 1. */
inline unsigned below(std::mt19937 &random, unsigned limit) {
  return static_cast<unsigned>(random() % limit);
}

inline unsigned any(std::mt19937 &random) { return static_cast<unsigned>(random()); }

/* Collects the evids of the changes that it is told of. */
class Witness : public EVClient {
 public:
  explicit Witness(EVServer &server_in) : EVClient(&server_in) {}
  void responseCallback(EVResponse response) override;
  std::set<long> evids();

 private:
  std::mutex mutex_;
  std::set<long> evids_;
};

/* Waits until the server has seen all that has been written before the call. */
void settle(EVClient &client);

/* Expects the lists and the expanded events of a server to be what another one reads from
 * the same database now. */
void expect_same_as_fresh(EVServer &server, const std::string &database);

}  // namespace stress

#endif
