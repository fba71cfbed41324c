#include "formats/exchange/export/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

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

}  // namespace

std::unique_ptr<OutputFile> OutputFile::open(const std::string &path,
                                             std::string &problem) {
  std::unique_ptr<OutputFile> output(new OutputFile());
  if (output->begin(path)) return output;
  problem = output->problem_;
  return nullptr;
}

OutputFile::~OutputFile() {
  draft_.reset();
  forget_draft();
}

void OutputFile::forget_draft() {
  if (std::exchange(noted_, false)) note_unfinished("");
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
  draft_ = std::make_unique<DraftFile>();
  if (!draft_->open_or_device(path)) return fail();
  noted_ = !draft_->path().empty();
  if (noted_) note_unfinished(draft_->path());
  fd_ = draft_->fd();
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
  if (draft_ == nullptr) return true;
  errno = 0;
  if (!draft_->put_in_place()) return fail();
  forget_draft();
  return true;
}

}  // namespace ksutil::exchange
