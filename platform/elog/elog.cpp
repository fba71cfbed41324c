#include "platform/elog/elog.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/elog/internal/message_register.h"

namespace {

using ksutil::Message;
using ksutil::MessageRegister;
using ksutil::Messages;
using ksutil::Taken;

enum Severity { kLog = 0, kNotify = 1, kComplain = 2, kDie = 3 };

/* Restores errno at the end of the scope; value() is errno as it was at the call. */
class KeptErrno {
 public:
  KeptErrno() : value_(errno) {}
  ~KeptErrno() { errno = value_; }
  KeptErrno(const KeptErrno &) = delete;
  KeptErrno &operator=(const KeptErrno &) = delete;
  int value() const { return value_; }

 private:
  int value_;
};

struct Settings {
  std::mutex name_mutex;
  char program[256] = "";  // empty: the executable's name
  std::mutex sink_mutex;   // held while the sink runs, so that its calls do not overlap
  ElogSink sink = nullptr;
  void *context = nullptr;
};

/* Never destroyed, like the register. */
Settings &settings() {
  alignas(Settings) static unsigned char room[sizeof(Settings)];
  static Settings *const only = new (room) Settings;
  return *only;
}

struct ProgramName {
  ProgramName() {
    Settings &common = settings();
    const std::lock_guard lock(common.name_mutex);
    const char *name =
        *common.program != '\0' ? common.program : program_invocation_short_name;
    std::snprintf(text, sizeof text, "%s", name);
  }
  char text[256];
};

thread_local bool inside_sink = false;

void tell_sink(int severity, const char *message) {
  if (inside_sink) return;  // a sink that logs, against its contract, must not deadlock
  Settings &common = settings();
  const std::lock_guard lock(common.sink_mutex);
  if (common.sink == nullptr) return;
  inside_sink = true;
  try {
    common.sink(severity, message, common.context);
  } catch (...) {
    /* The message stays in the register; logging never throws. */
  }
  inside_sink = false;
}

void add(Severity severity, int flag, const char *format, va_list args,
         const KeptErrno &kept) KSUTIL_PRINTF(3, 0);
void add(Severity severity, int flag, const char *format, va_list args,
         const KeptErrno &kept) {
  errno = kept.value();  // for %m
  const int error = (flag & 1) != 0 ? kept.value() : 0;
  static const char kNothing[1] = {};
  Message message =
      ksutil::format_message(error, format != nullptr ? format : kNothing, args);
  if (message.text) tell_sink(severity, message.text.get());
  MessageRegister::instance().append(std::move(message));
}

void print_all() {
  const Taken taken = MessageRegister::instance().take_all();
  ksutil::print_messages(taken.messages, taken.dropped, ProgramName().text);
}

/* A mark is the low 31 bits of the thread's message count. */
constexpr std::uint64_t kMarkMask = INT_MAX;

}  // namespace

void velog_log(int flag, const char *format, va_list args) {
  const KeptErrno kept;
  add(kLog, flag, format, args, kept);
}

void velog_notify(int flag, const char *format, va_list args) {
  const KeptErrno kept;
  add(kNotify, flag, format, args, kept);
  print_all();
}

void velog_complain(int flag, const char *format, va_list args) {
  const KeptErrno kept;
  add(kComplain, flag, format, args, kept);
  print_all();
}

void velog_die(int flag, const char *format, va_list args) {
  static std::atomic<bool> dying{false};
  {
    const KeptErrno kept;
    add(kDie, flag, format, args, kept);
    print_all();
  }
  /* exit() must not run in two threads, nor again in a function that it calls. */
  if (dying.exchange(true)) ::_exit(1);
  std::exit(1);
}

void elog_log(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_log(flag, format, args);
  va_end(args);
}

void elog_notify(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_notify(flag, format, args);
  va_end(args);
}

void elog_complain(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_complain(flag, format, args);
  va_end(args);
}

void elog_die(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_die(flag, format, args);
}

int elog_mark(void) {
  return static_cast<int>(MessageRegister::sequence() & kMarkMask);
}

void elog_flush(int deliver, int mark) {
  const KeptErrno kept;
  const std::uint64_t now = MessageRegister::sequence();
  /* The number of messages since the mark; when there are none, no lock is taken. */
  const std::uint64_t since = (now - static_cast<std::uint64_t>(mark)) & kMarkMask;
  if (since == 0) return;
  const Messages taken =
      MessageRegister::instance().take_since(now - std::min(now, since));
  if (deliver != 0) ksutil::print_messages(taken, 0, ProgramName().text);
}

int elog_clear_register(int) {
  const KeptErrno kept;
  return static_cast<int>(MessageRegister::instance().take_all().messages.size());
}

char *elog_string(int) {
  const KeptErrno kept;
  return MessageRegister::instance().text();
}

void elog_set_program(const char *name) {
  const KeptErrno kept;
  Settings &common = settings();
  const std::lock_guard lock(common.name_mutex);
  std::snprintf(common.program, sizeof common.program, "%s",
                name != nullptr ? name : "");
}

void elog_set_sink(ElogSink sink, void *context) {
  const KeptErrno kept;
  Settings &common = settings();
  const std::lock_guard lock(common.sink_mutex);
  common.sink = sink;
  common.context = context;
}
