/* ksutil_library_faults: does pieces of work with the library while calls fail, one after
 * another, in one process, and checks: no crash, no hang, a message for each failure, no
 * memory and no descriptor lost, and the work succeeds when calls work again.
 *
 * Usage: ksutil_library_faults [--most N] [BODY...]; N calls of each kind, 0: all. */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/faults/fault_plan.h"
#include "tests/faults/folder_content.h"
#include "tests/faults/library_bodies.h"
#include "tests/faults/source_files.h"
#include "tests/support/folder.h"

namespace {

using namespace faults;
namespace fs = std::filesystem;

constexpr char kThrown[] = "an exception";  // which is as good as a message

constexpr unsigned kPatience = 120;  // seconds that one call may take

struct Failure {
  Kind kind;
  Way way;
  int error;
};

const Failure kFailures[] = {
    {kAlloc, Way::kOnce, ENOMEM},       {kAlloc, Way::kFromThere, ENOMEM},
    {kOpen, Way::kOnce, EMFILE},        {kOpen, Way::kFromThere, EMFILE},
    {kRead, Way::kOnce, EIO},           {kRead, Way::kFromThere, EIO},
    {kWrite, Way::kOnce, ENOSPC},       {kWrite, Way::kFull, ENOSPC},
    {kSync, Way::kOnce, EIO},           {kClose, Way::kOnce, EIO},
    {kRename, Way::kOnce, EIO},         {kLock, Way::kOnce, ENOLCK},
    {kMap, Way::kOnce, ENOMEM},         {kThread, Way::kOnce, EAGAIN},
    {kThread, Way::kFromThere, EAGAIN}, {kClock, Way::kOnce, 0},
    {kStat, Way::kOnce, EIO},           {kStat, Way::kFromThere, EIO},
    {kFolder, Way::kOnce, EIO},         {kMode, Way::kOnce, EPERM}};

long descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"),
                       fs::directory_iterator());
}

std::string do_work(const Body &body) {
  try {
    return body.work();
  } catch (const std::bad_alloc &) {
    return kThrown;
  } catch (const char *) {
    return kThrown;  // the constructor of a server
  }
}

bool take_messages() {
  const ksutil::MallocPtr<char> text(elog_string(0));
  const bool any = text != nullptr && *text.get() != '\0';
  elog_clear_register(0);
  return any;
}

/* Runs the body under the failures of one kind, in a process of its own. */
class Series {
 public:
  Series(const Body &body, const Failure &failure, long most)
      : body_(body), failure_(failure), most_(most) {
    for (const std::string &pattern : body.files) copy_sources(pattern, ".");
    before_ = read_folder(".");
    good_ = undisturbed();
    undisturbed();
  }

  int run() {
    Plan counting;
    ksutil_faults_arm(&counting);
    do_work(body_);
    ksutil_faults_arm(nullptr);
    renew();
    const long calls = ksutil_faults_counts()->calls[failure_.kind];
    const long step = most_ <= 0 || calls <= most_ ? 1 : calls / most_;
    for (long at = 1; at <= calls; at += step) attempt(at);
    std::printf("%-9s %-7s %s: %ld of %ld calls failed, %d faults\n", body_.name,
                kKindNames[failure_.kind], way(), struck_, calls, problems_);
    std::fflush(stdout);
    return problems_;
  }

 private:
  const char *way() const {
    return failure_.way == Way::kOnce ? "once" : "from there on";
  }
  void renew() {
    take_messages();
    restore_folder(".", read_folder("."), before_);
  }
  std::string undisturbed() {
    const std::string result = do_work(body_);
    if (result.empty()) {
      const ksutil::MallocPtr<char> text(elog_string(0));
      std::printf("      %s", text.get());
    }
    renew();
    return result;
  }

  std::string under_fault(long at) {
    Plan plan;
    plan.kind = failure_.kind;
    plan.way = failure_.way;
    plan.error = failure_.error;
    plan.at = at;
    alarm(kPatience);
    ksutil_faults_arm(&plan);
    std::string result = do_work(body_);
    ksutil_faults_arm(nullptr);
    alarm(0);
    return result;
  }

  void attempt(long at) {
    now_at = at;
    const long fds = descriptors();
    const long blocks = ksutil_faults_counts()->blocks;
    const std::string result = under_fault(at);
    const bool struck = ksutil_faults_counts()->strikes > 0;
    const bool told = take_messages();
    struck_ += struck ? 1 : 0;
    if (struck && result.empty() && !told) report("fails without a message");
    if (struck && !result.empty() && result != kThrown && result != good_ && !told) {
      report("gives another result without a message: " + result);
    }
    renew();
    if (undisturbed() != good_) report("the next work fails");
    if (descriptors() > fds) report("descriptors are lost");
    if (ksutil_faults_counts()->blocks > blocks) check_leak(at);
  }

  /* More memory than before may be a cache; what is lost is lost again each time. */
  void check_leak(long at) {
    constexpr int kTimes = 4;
    undisturbed();
    const long blocks = ksutil_faults_counts()->blocks;
    for (int i = 0; i < kTimes; i++) {
      under_fault(at);
      renew();
      undisturbed();
    }
    const long lost = ksutil_faults_counts()->blocks - blocks;
    if (lost >= kTimes) report(std::to_string(lost / kTimes) + " blocks are lost");
  }

  void report(const std::string &problem) {
    if (++problems_ > 5) return;
    std::printf("FAULT %s: %s %ld (%s): %s\n", body_.name, kKindNames[failure_.kind],
                now_at, way(), problem.c_str());
    std::fflush(stdout);
  }

  const Body &body_;
  const Failure &failure_;
  const long most_;
  Content before_;
  std::string good_;
  int problems_ = 0;
  long struck_ = 0;

 public:
  static inline volatile long now_at = 0;  // which call is failed at the moment
};

void tell_where(int number) {
  char text[80];
  const int length = std::snprintf(text, sizeof text, "signal %d at call %ld\n", number,
                                   static_cast<long>(Series::now_at));
  if (write(STDERR_FILENO, text, static_cast<std::size_t>(length)) < 0) _exit(3);
  signal(number, SIG_DFL);
  raise(number);
}

/* The number of faults; a crash or a hang counts as one. */
int run_apart(const Body &body, const Failure &failure, long most) {
  std::fflush(stdout);
  const ksutil::test::TempFolder folder;
  const pid_t child = fork();
  if (child == 0) {
    if (chdir(folder.path().c_str()) != 0) _exit(99);
    for (const int number : {SIGALRM, SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) {
      signal(number, tell_where);
    }
    const int faults = Series(body, failure, most).run();
    std::fflush(stdout);
    _exit(std::min(faults, 90));
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  std::printf("FAULT %s: %s, way %d: %s\n", body.name, kKindNames[failure.kind],
              static_cast<int>(failure.way),
              WTERMSIG(status) == SIGALRM ? "hangs" : "crashes");
  return 1;
}

}  // namespace

int main(int argc, char **argv) {
  long most = 0;
  std::vector<std::string> names;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "--most") == 0 && i + 1 < argc) {
      most = std::atol(argv[++i]);
    } else {
      names.emplace_back(argv[i]);
    }
  }
  int faults_found = 0, series = 0;
  for (const Body &body : bodies()) {
    if (!names.empty() &&
        std::find(names.begin(), names.end(), body.name) == names.end())
      continue;
    for (const Failure &failure : kFailures) {
      faults_found += run_apart(body, failure, most);
      series++;
    }
  }
  std::printf("%d series, %d faults\n", series, faults_found);
  return faults_found == 0 && series > 0 ? 0 : 1;
}
