#include "tools/ksevents/command_runner.h"

#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/stock/files.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

/* Interval at which running commands are checked for their end. */
constexpr auto kLook = std::chrono::milliseconds(20);

/* A file in memory with the text, at its beginning; empty with errno set. */
FileHandle text_file(const std::string &text) {
  FileHandle file(::memfd_create("event", MFD_CLOEXEC));
  if (file && write_at(file.get(), text.data(), text.size(), 0) !=
                  static_cast<ssize_t>(text.size())) {
    file.reset();
  }
  return file;
}

/* The settings of a new process: signals as a program expects them. */
class SpawnSettings {
 public:
  explicit SpawnSettings(int standard_input) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_adddup2(&actions_, standard_input, STDIN_FILENO);
    ::posix_spawnattr_init(&attributes_);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD, SIGXFSZ}) {
      sigaddset(&defaults, signal);
    }
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK |
                                                 POSIX_SPAWN_SETSIGDEF |
                                                 POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings &) = delete;
  SpawnSettings &operator=(const SpawnSettings &) = delete;

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

/* The way a command ended, if not with success. */
std::string end_text(int status) {
  if (WIFSIGNALED(status)) {
    return "was ended by signal " + std::to_string(WTERMSIG(status));
  }
  return "ended with exit code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

CommandRunner::CommandRunner(std::vector<std::string> words, int most)
    : words_(std::move(words)), most_(static_cast<std::size_t>(most)) {
  worker_ = std::thread([this] { work(); });
}

CommandRunner::~CommandRunner() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  news_.notify_all();
  worker_.join();
  if (!waiting_.empty()) {
    complain(std::to_string(waiting_.size()) + " commands were not run");
  }
}

void CommandRunner::run(long evid, std::string text) {
  {
    const std::lock_guard lock(mutex_);
    const auto known =
        std::find_if(waiting_.begin(), waiting_.end(),
                     [evid](const Waiting &waiting) { return waiting.evid == evid; });
    if (known != waiting_.end()) {
      known->text = std::move(text);
    } else {
      waiting_.push_back({evid, std::move(text)});
    }
  }
  news_.notify_all();
}

bool CommandRunner::start(const Waiting &waiting, pid_t &child) const {
  const FileHandle text = text_file(waiting.text);
  int problem = errno;
  if (text) {
    SpawnSettings settings(text.get());
    std::vector<char *> arguments;
    for (const std::string &word : words_) {
      arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    problem = ::posix_spawnp(&child, arguments[0], &settings.actions_,
                             &settings.attributes_, arguments.data(), environ);
    if (problem == 0) return true;
  }
  complain("cannot run " + words_.front() + " for event " +
           std::to_string(waiting.evid) + ": " + std::strerror(problem));
  return false;
}

/* Starts the first command that may run; false when there is none. */
bool CommandRunner::start_next(std::unique_lock<std::mutex> &lock) {
  if (running_.size() >= most_) return false;
  const auto next =
      std::find_if(waiting_.begin(), waiting_.end(), [this](const Waiting &waiting) {
        return std::none_of(running_.begin(), running_.end(), [&](const auto &child) {
          return child.second == waiting.evid;
        });
      });
  if (next == waiting_.end()) return false;
  const Waiting chosen = std::move(*next);
  waiting_.erase(next);
  lock.unlock();
  pid_t child = -1;
  const bool started = start(chosen, child);
  lock.lock();
  if (started) running_.emplace(child, chosen.evid);
  return true;
}

void CommandRunner::reap(std::unique_lock<std::mutex> &lock) {
  std::vector<std::pair<long, int>> failed;
  std::erase_if(running_, [&](const auto &child) {
    int status = 0;
    const pid_t ended = ::waitpid(child.first, &status, WNOHANG);
    if (ended == 0) return false;
    if (ended > 0 && status != 0) failed.emplace_back(child.second, status);
    return true;
  });
  lock.unlock();
  for (const auto &[evid, status] : failed) {
    complain(words_.front() + " for event " + std::to_string(evid) + " " +
             end_text(status));
  }
  lock.lock();
}

void CommandRunner::work() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    reap(lock);
    while (!ending_ && start_next(lock)) {
    }
    if (ending_) break;
    if (running_.empty()) {
      news_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
    } else {
      news_.wait_for(lock, kLook);
    }
  }
}

}  // namespace ksutil::tools
