#include "tests/faults/faulted_run.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tests/faults/folder_content.h"

namespace faults {
namespace {

constexpr auto kPatience =
    std::chrono::seconds(60);  // a program that takes longer hangs

void start(const Arguments &arguments, const std::string &base,
           const std::string &folder, const Plan &plan, long time) {
  setenv("LD_PRELOAD", KSUTIL_FAULTY_CALLS, 1);
  char text[128];
  std::snprintf(text, sizeof text, "%d %d %d %ld %ld", plan.kind,
                static_cast<int>(plan.way), plan.error, plan.at, time);
  setenv(kPlanVariable, text, 1);
  setenv(kCountsVariable, (base + "/counts").c_str(), 1);
  setenv("LC_ALL", "C", 1);
  unsetenv("KSUTIL_SCHEMAS");
  const int in = open("/dev/null", O_RDONLY);
  const int out = open((base + "/output").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const int err =
      open((base + "/messages").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
  if (chdir(folder.c_str()) != 0) _exit(126);
  std::vector<char *> argv;
  for (const std::string &argument : arguments) {
    argv.push_back(const_cast<char *>(argument.c_str()));
  }
  argv.push_back(nullptr);
  execv((std::string(KSUTIL_PROGRAMS_DIR "/") + arguments[0]).c_str(), argv.data());
  _exit(127);
}

}  // namespace

Runner::Runner() {
  const std::string memory = "/dev/shm";
  base_ = (access(memory.c_str(), W_OK) == 0
               ? memory
               : std::filesystem::temp_directory_path().string()) +
          "/ksutil-faults-XXXXXX";
  if (mkdtemp(base_.data()) == nullptr) {
    std::perror("mkdtemp");
    std::exit(2);
  }
  folder_ = base_ + "/work";
  std::filesystem::create_directory(folder_);
  const std::string path = base_ + "/counts";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || ftruncate(fd, sizeof(Counts)) != 0) std::exit(2);
  void *const shared =
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (shared == MAP_FAILED) std::exit(2);
  counts_ = static_cast<Counts *>(shared);
}

Runner::~Runner() {
  munmap(counts_, sizeof(Counts));
  std::error_code ignored;
  std::filesystem::remove_all(base_, ignored);
}

Outcome Runner::run(const Arguments &arguments, const Plan &plan) const {
  static const long time = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
  for (auto &calls : counts_->calls) calls = 0;
  counts_->strikes = 0;
  const pid_t process = fork();
  if (process == 0) start(arguments, base_, folder_, plan, time);
  Outcome outcome;
  const auto end = std::chrono::steady_clock::now() + kPatience;
  int status = 0;
  auto pause = std::chrono::microseconds(500);
  while (waitpid(process, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(process, SIGKILL);
      waitpid(process, &status, 0);
      outcome.hung = true;
      break;
    }
    std::this_thread::sleep_for(pause);
    if (pause < std::chrono::milliseconds(10)) pause += pause / 4;
  }
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  outcome.output = text_of(base_ + "/output");
  outcome.messages = text_of(base_ + "/messages");
  for (int kind = 0; kind < kKinds; kind++) outcome.calls[kind] = counts_->calls[kind];
  outcome.strikes = counts_->strikes;
  return outcome;
}

}  // namespace faults
