/* CommandRunner: runs a command for each event that is reported, a few at a time. */
#ifndef KSUTIL_TOOLS_KSEVENTS_COMMAND_RUNNER_H
#define KSUTIL_TOOLS_KSEVENTS_COMMAND_RUNNER_H

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace ksutil::tools {

/* A text waits for a free place.  Commands of one event never run at the same time, and
 * of several waiting texts of an event only the latest is kept, so that at most one
 * text for each event waits.  The text is the command's standard input, and lies in
 * memory until the command reads it or ends, so that a command which does not read
 * delays nothing.
 * Commands run without a shell, in process groups of their own.
 * Threads: run() may be called from any thread. */
class CommandRunner {
 public:
  /* The words of the command; its program is looked for along PATH.  At most `most`
   * commands run at a time. */
  CommandRunner(std::vector<std::string> words, int most);
  /* Ends at once: running commands go on by themselves; waiting ones are not run, and
   * are reported. */
  ~CommandRunner();
  CommandRunner(const CommandRunner &) = delete;
  CommandRunner &operator=(const CommandRunner &) = delete;

  void run(long evid, std::string text);

 private:
  struct Waiting {
    long evid;
    std::string text;
  };

  void work();
  bool start_next(std::unique_lock<std::mutex> &lock);
  bool start(const Waiting &waiting, pid_t &child) const;
  void reap(std::unique_lock<std::mutex> &lock);

  const std::vector<std::string> words_;
  const std::size_t most_;
  std::mutex mutex_;  // guards the fields below
  std::condition_variable news_;
  std::deque<Waiting> waiting_;
  std::unordered_map<pid_t, long> running_;  // the evids of the commands
  bool ending_ = false;
  std::thread worker_;
};

}  // namespace ksutil::tools
#endif
