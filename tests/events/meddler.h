/* Meddler: a program without locks that overwrites rows while a server reads them. */
#ifndef KSUTIL_TESTS_EVENTS_MEDDLER_H
#define KSUTIL_TESTS_EVENTS_MEDDLER_H

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/stock/files.h"
#include "tests/events/event_database.h"

namespace ksutil::events::test {

/* Puts a random digit into a random row at each `every`th reading of a file of this
 * process, from start() on.  There may be one at a time. */
class Meddler {
 public:
  struct Digits {
    const char *table;
    std::vector<long> at;  // one of these bytes of a row is overwritten
  };

  Meddler(EventDatabase &database, Digits digits, unsigned seed, long every)
      : database_(database),
        digits_(std::move(digits)),
        random_(seed),
        every_(every),
        calls_([] {
          FileCalls calls = system_file_calls();
          calls.pread = meddled_pread;
          return calls;
        }()) {
    dbquery(database.table(digits_.table), dbq_record_size, &row_size_);
  }
  ~Meddler() { stop(); }
  Meddler(const Meddler &) = delete;
  Meddler &operator=(const Meddler &) = delete;

  /* Overwrites `times` rows, or rows without end below 0. */
  void start(long times) {
    left_ = times;
    at_work = this;
  }
  void stop() { at_work = nullptr; }
  /* How many rows have been overwritten. */
  long done() const { return done_; }

 private:
  static ssize_t meddled_pread(int fd, void *to, std::size_t bytes, off_t at) {
    const ssize_t got = pread(fd, to, bytes, at);
    if (Meddler *const busy = at_work.exchange(nullptr)) {
      busy->after_reading();
      at_work = busy;
    }
    return got;
  }

  void after_reading() {
    if (++reads_ % every_ != 0 || left_ == 0) return;
    left_--;
    done_++;
    const auto bytes = std::filesystem::file_size(database_.file(digits_.table));
    const long row =
        static_cast<long>(random_() % (bytes / static_cast<unsigned long>(row_size_)));
    const long at = digits_.at[random_() % digits_.at.size()];
    database_.overwrite(digits_.table, row * row_size_ + at,
                        std::to_string(random_() % 10));
  }

  static inline std::atomic<Meddler *> at_work{nullptr};
  EventDatabase &database_;
  const Digits digits_;
  std::mt19937 random_;
  const long every_;
  long row_size_ = 0, left_ = 0, reads_ = 0, done_ = 0;
  const ScopedFileCalls calls_;
};

}  // namespace ksutil::events::test
#endif
