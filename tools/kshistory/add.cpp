/* add: kshistory add. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <limits>
#include <memory>
#include <thread>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/trace/filetbl.h"
#include "tools/common/options.h"
#include "tools/kshistory/commands.h"
#include "tools/kshistory/entries.h"

namespace ksutil::tools {
namespace {

struct AddOptions {
  std::string file, time;
  double value = 0.0;
  int max = 0;  // 0: as it was
  double wait = 10.0;
};

using HistoryPtr = std::unique_ptr<KSHistory, int (*)(KSHistory *)>;

/* Discards standard error for one scope: an attempt that will be repeated must not
 * complain. */
class SilentStderr {
 public:
  SilentStderr() : kept_(::dup(STDERR_FILENO)) {
    const FileHandle nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (kept_ && nowhere) ::dup2(nowhere.get(), STDERR_FILENO);
  }
  ~SilentStderr() {
    if (kept_) ::dup2(kept_.get(), STDERR_FILENO);
  }
  SilentStderr(const SilentStderr &) = delete;
  SilentStderr &operator=(const SilentStderr &) = delete;

 private:
  const FileHandle kept_;
};

/* Calls `attempt` until it gives something, fails for another reason than that another
 * program has the file in use, or `seconds` have passed.  The last attempt may
 * complain. */
template <class Attempt>
auto wait_for_file(double seconds, Attempt attempt) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kPause(20);
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() + kPause < deadline) {
    const int mark = elog_mark();
    {
      const SilentStderr silence;
      errno = 0;
      auto result = attempt();
      if (result != nullptr || errno != EAGAIN) return result;
    }
    elog_flush(0, mark);
    std::this_thread::sleep_for(kPause);
  }
  return attempt();
}

/* The maximum that a history file has; 0 for a file that does not exist or was never
 * written, -1 with a message. */
long maximum_of(const AddOptions &options) {
  struct stat status = {};
  if (stat(options.file.c_str(), &status) != 0 || status.st_size == 0) return 0;
  constexpr int kAll = std::numeric_limits<int>::max();
  Tbl *const list = wait_for_file(options.wait, [&] {
    return filetbl(options.file.c_str(), KSHISTORY_TABLE_TAG, kAll,
                   sizeof(KSHistoryEntry));
  });
  const long maximum = filetbl_maximum(list);
  freetbl(list, nullptr);
  return maximum;
}

HistoryPtr open_history(const AddOptions &options, long max, char *tag) {
  return wait_for_file(options.wait, [&] {
    return HistoryPtr(
        kshistory_create(static_cast<int>(max), nullptr, options.file.c_str(), tag),
        kshistory_free_history);
  });
}

/* Whether no entry is later than `time`: evaluation takes the order of the entries for
 * that of their times.  False with a message. */
bool is_latest(const AddOptions &options, const KSHistory &history, double time) {
  const long count = counttbl(history.entries);
  if (count == 0) return true;
  const auto *const last =
      static_cast<const KSHistoryEntry *>(gettbl(history.entries, count - 1));
  if (!(last->time > time)) return true;
  complain(options.file + ": the last entry (" + entry_time_cell(last->time, false) +
           ") is later than " + entry_time_cell(time, false) +
           "; entries are added in the order of their times");
  return false;
}

/* Removes a file that was made for a history, unless an entry has come into it or another
 * program has it in use.  Programs that wait for its lock look whether it is still there. */
void remove_unused(const std::string &path) {
  const ElogScope quiet;  // the failure that led here has its message
  const FileHandle file = open_file(path, O_RDWR | O_NONBLOCK);
  if (!file) return;
  const FileLock lock(file.get(), FileLock::Wait::kNever);
  if (!lock.held()) return;
  struct stat status = {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (status.st_size > 0) {
    Tbl *const list =
        filetbl_read(path.c_str(), KSHISTORY_TABLE_TAG, sizeof(KSHistoryEntry));
    const bool unused = list != nullptr && counttbl(list) == 0;
    freetbl(list, nullptr);
    if (!unused) return;
  }
  ::unlink(path.c_str());
}

int add_entry(const AddOptions &options) {
  const long max = options.max > 0 ? options.max : maximum_of(options);
  if (max < 0) return kFailure;
  if (max == 0) {
    elog_log(0, "%s is a new history: --max tells how many entries it keeps.\n",
             options.file.c_str());
    return kFailure;
  }
  char tag[KS_TAG_SIZE];
  const HistoryPtr history = open_history(options, max, tag);
  /* Read the time here, after any wait for the file, so that "now" is the present. */
  double time = 0.0;
  if (history == nullptr || !parse_time(options.time, time) ||
      !is_latest(options, *history, time)) {
    return kFailure;
  }
  return kshistory_add(tag, time, options.value) == 0 ? kOk : kFailure;
}

int add(const AddOptions &options) {
  const bool there = ::access(options.file.c_str(), F_OK) == 0;
  const int result = add_entry(options);
  if (result != kOk && !there) remove_unused(options.file);
  return result;
}

void describe_add(CLI::App &command, AddOptions &options) {
  command.add_option("file", options.file, "history file; made with --max")->required();
  command.add_option("time", options.time, "a date, epoch seconds or now")
      ->required()
      ->check(time_fault);
  command.add_option("value", options.value, "the value at that time")->required();
  command
      .add_option("--max", options.max,
                  "The most entries kept, of a new history or from now on")
      ->check(whole_number(1, INT_MAX));
  command
      .add_option("--wait", options.wait,
                  "Seconds to wait while another program has the history in use")
      ->check(number_between(0.0, 86400.0))
      ->capture_default_str();
}

}  // namespace

Command add_command() {
  return make_command<AddOptions>("add", "Appends an entry to a history",
                                  {"kshistory add --max 1000 latency.hst now 2.5"},
                                  describe_add, add);
}

}  // namespace ksutil::tools
