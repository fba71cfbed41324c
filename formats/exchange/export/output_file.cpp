#include "formats/exchange/export/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace ksutil::exchange {
namespace {

/* The file that a signal removes; "" for none.  Written with the signals blocked. */
char unfinished[PATH_MAX];
constexpr std::array<int, 3> kEnding{SIGINT, SIGTERM, SIGHUP};

extern "C" void remove_unfinished(int number) {
  if (unfinished[0] != '\0') ::unlink(unfinished);
  ::signal(number, SIG_DFL);
  ::raise(number);
}

/* Signals that the program ignores stay ignored. */
void note_unfinished(const std::string &path) {
  sigset_t ending, before;
  sigemptyset(&ending);
  for (const int number : kEnding) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, &before);
  std::snprintf(unfinished, sizeof unfinished, "%s", path.c_str());
  for (const int number : kEnding) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
      continue;
    }
    action.sa_handler = path.empty() ? SIG_DFL : remove_unfinished;
    action.sa_flags = 0;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

/* The file behind symbolic links, also when the last one leads nowhere yet; "" when they
 * lead in a circle. */
std::string resolved(const std::string &path) {
  constexpr int kMostLinks = 40;
  std::filesystem::path file = path;
  for (int links = 0; links <= kMostLinks; links++) {
    std::error_code no_link;
    const std::filesystem::path target = std::filesystem::read_symlink(file, no_link);
    if (no_link) return file.string();
    file = file.parent_path() / target;
  }
  errno = ELOOP;
  return "";
}

}  // namespace

std::unique_ptr<OutputFile> OutputFile::open(const std::string &path,
                                             std::string &problem) {
  std::unique_ptr<OutputFile> output(new OutputFile());
  if (output->begin(path)) return output;
  problem = output->problem_;
  return nullptr;
}

OutputFile::~OutputFile() {
  if (beside_.empty()) return;
  ::unlink(beside_.c_str());
  note_unfinished("");
}

bool OutputFile::fail() {
  if (problem_.empty()) {
    problem_ = "cannot write " + name_ + ": " + std::strerror(errno == 0 ? EIO : errno);
  }
  return false;
}

bool OutputFile::begin(const std::string &path) {
  name_ = path == "-" ? "standard output" : path;
  /* A reader that has gone is a failure of the next put, with a message. */
  ::signal(SIGPIPE, SIG_IGN);
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    return true;
  }
  target_ = resolved(path);
  if (target_.empty()) return fail();
  struct stat old {};
  const bool present = ::stat(target_.c_str(), &old) == 0;
  if (present && S_ISDIR(old.st_mode)) {
    errno = EISDIR;
    return fail();
  }
  if (present && !S_ISREG(old.st_mode)) {
    file_ = open_file(target_, O_WRONLY);
    fd_ = file_.get();
    target_.clear();
    return file_ ? true : fail();
  }
  if (present && ::access(target_.c_str(), W_OK) != 0) return fail();
  constexpr int kMostNames = 1000;
  for (int n = 0; !file_; n++) {
    beside_ =
        target_ + "." + std::to_string(::getpid()) + "-" + std::to_string(n) + ".new";
    file_ = open_file(beside_, O_WRONLY | O_CREAT | O_EXCL, present ? 0600 : 0666);
    if (file_ || (errno == EEXIST && n < kMostNames)) continue;
    beside_.clear();
    return fail();
  }
  note_unfinished(beside_);
  fd_ = file_.get();
  if (present && ::fchmod(fd_, old.st_mode & 07777) != 0) return fail();
  return true;
}

bool OutputFile::put(std::string_view text) {
  if (!problem_.empty()) return false;
  errno = 0;
  const auto size = static_cast<ssize_t>(text.size());
  return write_all(fd_, text.data(), text.size()) == size || fail();
}

bool OutputFile::finish() {
  if (!problem_.empty()) return false;
  if (target_.empty()) return true;
  errno = 0;
  if (sync_file(fd_) != 0) return fail();
  file_.reset();
  if (std::rename(beside_.c_str(), target_.c_str()) != 0) return fail();
  beside_.clear();
  note_unfinished("");
  return true;
}

}  // namespace ksutil::exchange
