/* faulty_calls: stands before the C library in a process and makes the calls fail that
 * a plan names.
 *
 * Preloaded (LD_PRELOAD) it takes its plan from the environment and begins with main;
 * a program that is linked with it arms it by calls.  Writing to standard error never
 * fails, so that messages can be seen. */
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/faults/fault_plan.h"

using faults::Kind;
using faults::Way;

namespace {

constexpr time_t kStepBack = 3600;
constexpr int kStreamError = 0x20;  // the flag of a stream that ferror looks at

faults::Counts own_counts;
faults::Counts *counts = &own_counts;
faults::Plan plan;
std::atomic<bool> armed{false};
std::atomic<bool> stepped_back{false};
std::atomic<bool> going_on{false};  // stalled calls wait no longer
time_t shown_time = 0;

/* The function of this name in the libraries behind this one. */
template <class Function>
Function *behind(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

#define BEHIND(name)                                           \
  (*[]() {                                                     \
    static const auto found = behind<decltype(::name)>(#name); \
    return found;                                              \
  }())

/* With KSUTIL_FAULT_TRAP in the environment a debugger stops where a call fails. */
void trap() {
  static const bool wanted = std::getenv("KSUTIL_FAULT_TRAP") != nullptr;
  if (wanted) raise(SIGTRAP);
}

/* Waits as a call on a file server does that does not answer. */
void stall() {
  const int saved = errno;
  ++counts->strikes;
  constexpr timespec kMillisecond = {0, 1'000'000};
  for (int waited = 0; waited < plan.error && !going_on; ++waited) {
    nanosleep(&kMillisecond, nullptr);
  }
  errno = saved;
}

/* Counts a call; true with errno set when it is to fail.  *shorter becomes true
 * instead when it is to transfer less than asked. */
bool strikes(Kind kind, bool *shorter = nullptr) {
  if (!armed.load(std::memory_order_relaxed)) return false;
  const long n = ++counts->calls[kind];
  if (kind != plan.kind || n < plan.at) return false;
  const bool first = n == plan.at;
  switch (plan.way) {
    case Way::kOnce:
      if (!first) return false;
      break;
    case Way::kFromThere:
      break;
    case Way::kShort:
      if (!first || shorter == nullptr) return false;
      ++counts->strikes;
      *shorter = true;
      return false;
    case Way::kStall:
      if (first) stall();
      return false;
    case Way::kFull:
      if (first && shorter != nullptr) {
        ++counts->strikes;
        *shorter = true;
        return false;
      }
      break;
  }
  ++counts->strikes;
  trap();
  errno = plan.error;
  return true;
}

/* A full disk takes writes within a file, and nothing is ever full but a disk. */
bool fits(int fd, off_t at, size_t bytes) {
  if (plan.way != Way::kFull) return false;
  struct stat status;
  if (BEHIND(fstat)(fd, &status) != 0 || !S_ISREG(status.st_mode)) return true;
  const off_t from = at >= 0 ? at : lseek(fd, 0, SEEK_CUR);
  return from + static_cast<off_t>(bytes) <= status.st_size;
}

size_t half(size_t bytes) { return bytes > 1 ? bytes / 2 : bytes; }

bool write_strikes(int fd, off_t at, size_t &bytes) {
  if (fd == STDERR_FILENO) return false;
  if (armed && plan.kind == faults::kWrite && fits(fd, at, bytes)) return false;
  bool shorter = false;
  if (strikes(faults::kWrite, &shorter)) return true;
  if (shorter) bytes = half(bytes);
  return false;
}

bool read_strikes(size_t &bytes) {
  bool shorter = false;
  if (strikes(faults::kRead, &shorter)) return true;
  if (shorter) bytes = half(bytes);
  return false;
}

/* Streams make short transfers whole by themselves, and are not meant for signals. */
bool stream_strikes(FILE *stream, Kind kind) {
  if (stream == stderr || plan.error == EINTR || !strikes(kind)) return false;
  stream->_flags |= kStreamError;
  return true;
}

void read_environment() {
  const char *text = std::getenv(faults::kPlanVariable);
  if (text == nullptr) return;
  int kind = faults::kKinds, way = 0;
  long time = 0;
  if (std::sscanf(text, "%d %d %d %ld %ld", &kind, &way, &plan.error, &plan.at,
                  &time) != 5) {
    return;
  }
  plan.kind = static_cast<Kind>(kind);
  plan.way = static_cast<Way>(way);
  shown_time = time;
  const char *path = std::getenv(faults::kCountsVariable);
  const int fd = path == nullptr ? -1 : BEHIND(open)(path, O_RDWR | O_CLOEXEC);
  if (fd >= 0) {
    void *const shared = BEHIND(mmap)(nullptr, sizeof(faults::Counts),
                                      PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (shared != MAP_FAILED) counts = static_cast<faults::Counts *>(shared);
    BEHIND(close)(fd);
  }
  /* Programs that this one starts are not meant. */
  unsetenv("LD_PRELOAD");
  unsetenv(faults::kPlanVariable);
  armed = true;
}

using Main = int(int, char **, char **);
Main *true_main = nullptr;

int main_under_faults(int argc, char **argv, char **environment) {
  read_environment();
  return true_main(argc, argv, environment);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void ksutil_faults_arm(
    const faults::Plan *next) {
  armed = false;
  stepped_back = false;
  going_on = false;
  if (next == nullptr) return;
  for (auto &calls : counts->calls) calls = 0;
  counts->strikes = 0;
  plan = *next;
  armed = true;
}

__attribute__((visibility("default"))) void ksutil_faults_go_on() { going_on = true; }

__attribute__((visibility("default"))) const faults::Counts *ksutil_faults_counts() {
  return counts;
}

/* The allocation functions of the C library by their second names: looking the first
 * ones up would allocate. */
void *__libc_malloc(size_t bytes);
void *__libc_calloc(size_t count, size_t bytes);
void *__libc_realloc(void *block, size_t bytes);
void *__libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void *block);

#pragma GCC visibility push(default)

int __libc_start_main(Main *main, int argc, char **argv, void (*init)(), void (*fini)(),
                      void (*rtld_fini)(), void *stack_end) {
  using Start = int(Main *, int, char **, void (*)(), void (*)(), void (*)(), void *);
  true_main = main;
  return behind<Start>("__libc_start_main")(main_under_faults, argc, argv, init, fini,
                                            rtld_fini, stack_end);
}

void *malloc(size_t bytes) {
  if (strikes(faults::kAlloc)) return nullptr;
  counts->blocks++;
  return __libc_malloc(bytes);
}

void *calloc(size_t count, size_t bytes) {
  if (strikes(faults::kAlloc)) return nullptr;
  counts->blocks++;
  return __libc_calloc(count, bytes);
}

void *realloc(void *block, size_t bytes) {
  if (bytes > 0 && strikes(faults::kAlloc)) return nullptr;
  if (block == nullptr) counts->blocks++;
  if (block != nullptr && bytes == 0) counts->blocks--;
  return __libc_realloc(block, bytes);
}

void *memalign(size_t alignment, size_t bytes) {
  if (strikes(faults::kAlloc)) return nullptr;
  counts->blocks++;
  return __libc_memalign(alignment, bytes);
}

void *aligned_alloc(size_t alignment, size_t bytes) {
  return memalign(alignment, bytes);
}

int posix_memalign(void **block, size_t alignment, size_t bytes) {
  void *const made = memalign(alignment, bytes);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}

void free(void *block) {
  if (block != nullptr) counts->blocks--;
  __libc_free(block);
}

static mode_t mode_of(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return strikes(faults::kOpen) ? -1 : BEHIND(open)(path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return strikes(faults::kOpen) ? -1 : BEHIND(openat)(folder, path, flags, mode);
}

int __open_2(const char *path, int flags) { return open(path, flags); }

FILE *fopen(const char *path, const char *mode) {
  return strikes(faults::kOpen) ? nullptr : BEHIND(fopen)(path, mode);
}

ssize_t read(int fd, void *to, size_t bytes) {
  return read_strikes(bytes) ? -1 : BEHIND(read)(fd, to, bytes);
}

ssize_t __read_chk(int fd, void *to, size_t bytes, size_t) {
  return read(fd, to, bytes);
}

ssize_t pread(int fd, void *to, size_t bytes, off_t at) {
  return read_strikes(bytes) ? -1 : BEHIND(pread)(fd, to, bytes, at);
}

ssize_t __pread_chk(int fd, void *to, size_t bytes, off_t at, size_t) {
  return pread(fd, to, bytes, at);
}

ssize_t readv(int fd, const struct iovec *parts, int count) {
  return strikes(faults::kRead) ? -1 : BEHIND(readv)(fd, parts, count);
}

size_t fread(void *to, size_t size, size_t count, FILE *stream) {
  return stream_strikes(stream, faults::kRead) ? 0
                                               : BEHIND(fread)(to, size, count, stream);
}

size_t __fread_chk(void *to, size_t, size_t size, size_t count, FILE *stream) {
  return fread(to, size, count, stream);
}

char *fgets(char *to, int bytes, FILE *stream) {
  return stream_strikes(stream, faults::kRead) ? nullptr
                                               : BEHIND(fgets)(to, bytes, stream);
}

char *__fgets_chk(char *to, size_t, int bytes, FILE *stream) {
  return fgets(to, bytes, stream);
}

int getc(FILE *stream) {
  return stream_strikes(stream, faults::kRead) ? EOF : BEHIND(getc)(stream);
}

int fgetc(FILE *stream) { return getc(stream); }

ssize_t getdelim(char **line, size_t *room, int end, FILE *stream) {
  return stream_strikes(stream, faults::kRead)
             ? -1
             : BEHIND(getdelim)(line, room, end, stream);
}

ssize_t getline(char **line, size_t *room, FILE *stream) {
  return getdelim(line, room, '\n', stream);
}

ssize_t write(int fd, const void *from, size_t bytes) {
  return write_strikes(fd, -1, bytes) ? -1 : BEHIND(write)(fd, from, bytes);
}

ssize_t pwrite(int fd, const void *from, size_t bytes, off_t at) {
  return write_strikes(fd, at, bytes) ? -1 : BEHIND(pwrite)(fd, from, bytes, at);
}

ssize_t writev(int fd, const struct iovec *parts, int count) {
  size_t bytes = 0;
  for (int i = 0; i < count; i++) bytes += parts[i].iov_len;
  size_t rest = bytes;
  if (write_strikes(fd, -1, rest)) return -1;
  if (rest < bytes && count > 0) count = 1;
  return BEHIND(writev)(fd, parts, count);
}

int ftruncate(int fd, off_t size) {
  const bool shrinks_a_full_disk = plan.way == Way::kFull;
  return !shrinks_a_full_disk && strikes(faults::kWrite) ? -1
                                                         : BEHIND(ftruncate)(fd, size);
}

size_t fwrite(const void *from, size_t size, size_t count, FILE *stream) {
  return stream_strikes(stream, faults::kWrite)
             ? 0
             : BEHIND(fwrite)(from, size, count, stream);
}

int fputs(const char *text, FILE *stream) {
  return stream_strikes(stream, faults::kWrite) ? EOF : BEHIND(fputs)(text, stream);
}

int puts(const char *text) {
  return stream_strikes(stdout, faults::kWrite) ? EOF : BEHIND(puts)(text);
}

int fputc(int c, FILE *stream) {
  return stream_strikes(stream, faults::kWrite) ? EOF : BEHIND(fputc)(c, stream);
}

int putc(int c, FILE *stream) { return fputc(c, stream); }

int putchar(int c) { return fputc(c, stdout); }

int vfprintf(FILE *stream, const char *format, va_list arguments) {
  return stream_strikes(stream, faults::kWrite)
             ? -1
             : BEHIND(vfprintf)(stream, format, arguments);
}

int printf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stdout, format, arguments);
  va_end(arguments);
  return written;
}

int fprintf(FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stream, format, arguments);
  va_end(arguments);
  return written;
}

int __vfprintf_chk(FILE *stream, int, const char *format, va_list arguments) {
  return vfprintf(stream, format, arguments);
}

int __printf_chk(int, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stdout, format, arguments);
  va_end(arguments);
  return written;
}

int __fprintf_chk(FILE *stream, int, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stream, format, arguments);
  va_end(arguments);
  return written;
}

int fflush(FILE *stream) {
  return stream != nullptr && stream_strikes(stream, faults::kWrite)
             ? EOF
             : BEHIND(fflush)(stream);
}

int fsync(int fd) { return strikes(faults::kSync) ? -1 : BEHIND(fsync)(fd); }

int fdatasync(int fd) { return strikes(faults::kSync) ? -1 : BEHIND(fdatasync)(fd); }

int close(int fd) {
  const bool fails = strikes(faults::kClose);
  const int result = BEHIND(close)(fd);
  if (!fails) return result;
  errno = plan.error;
  return -1;
}

int fclose(FILE *stream) {
  const bool fails = strikes(faults::kClose);
  const int result = BEHIND(fclose)(stream);
  if (!fails) return result;
  errno = plan.error;
  return EOF;
}

int rename(const char *from, const char *to) {
  return strikes(faults::kRename) ? -1 : BEHIND(rename)(from, to);
}

int link(const char *from, const char *to) {
  return strikes(faults::kRename) ? -1 : BEHIND(link)(from, to);
}

int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void *const argument = va_arg(arguments, void *);
  va_end(arguments);
  const bool lock = command == F_SETLK || command == F_SETLKW ||
                    command == F_OFD_SETLK || command == F_OFD_SETLKW;
  if (lock && static_cast<struct flock *>(argument)->l_type != F_UNLCK &&
      strikes(faults::kLock)) {
    return -1;
  }
  return BEHIND(fcntl)(fd, command, argument);
}

int flock(int fd, int command) {
  return strikes(faults::kLock) ? -1 : BEHIND(flock)(fd, command);
}

void *mmap(void *at, size_t bytes, int protection, int flags, int fd, off_t offset) {
  return strikes(faults::kMap) ? MAP_FAILED
                               : BEHIND(mmap)(at, bytes, protection, flags, fd, offset);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                   void *(*start)(void *), void *argument) {
  return strikes(faults::kThread)
             ? plan.error
             : BEHIND(pthread_create)(thread, attributes, start, argument);
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = BEHIND(clock_gettime)(clock, now);
  if (clock != CLOCK_REALTIME || result != 0 || !armed) return result;
  if (shown_time != 0) *now = {shown_time, 0};
  if (strikes(faults::kClock)) stepped_back = true;
  if (stepped_back) now->tv_sec -= kStepBack;
  return 0;
}

int gettimeofday(struct timeval *__restrict now, void *__restrict) {
  struct timespec precise;
  if (clock_gettime(CLOCK_REALTIME, &precise) != 0) return -1;
  *now = {precise.tv_sec, precise.tv_nsec / 1000};
  return 0;
}

time_t time(time_t *to) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (to != nullptr) *to = now.tv_sec;
  return now.tv_sec;
}

int stat(const char *__restrict path, struct stat *__restrict status) {
  return strikes(faults::kStat) ? -1 : BEHIND(stat)(path, status);
}

int lstat(const char *__restrict path, struct stat *__restrict status) {
  return strikes(faults::kStat) ? -1 : BEHIND(lstat)(path, status);
}

int fstat(int fd, struct stat *status) {
  return strikes(faults::kStat) ? -1 : BEHIND(fstat)(fd, status);
}

int access(const char *path, int mode) {
  return strikes(faults::kStat) ? -1 : BEHIND(access)(path, mode);
}

DIR *opendir(const char *path) {
  return strikes(faults::kFolder) ? nullptr : BEHIND(opendir)(path);
}

struct dirent *readdir(DIR *folder) {
  return strikes(faults::kFolder) ? nullptr : BEHIND(readdir)(folder);
}

int mkdir(const char *path, mode_t mode) {
  return strikes(faults::kCreate) ? -1 : BEHIND(mkdir)(path, mode);
}

int mkostemp(char *path, int flags) {
  return strikes(faults::kCreate) ? -1 : BEHIND(mkostemp)(path, flags);
}

char *mkdtemp(char *path) {
  return strikes(faults::kCreate) ? nullptr : BEHIND(mkdtemp)(path);
}

int memfd_create(const char *name, unsigned flags) {
  return strikes(faults::kCreate) ? -1 : BEHIND(memfd_create)(name, flags);
}

int fchmod(int fd, mode_t mode) {
  return strikes(faults::kMode) ? -1 : BEHIND(fchmod)(fd, mode);
}

int futimens(int fd, const struct timespec times[2]) {
  return strikes(faults::kMode) ? -1 : BEHIND(futimens)(fd, times);
}

/* The names of the same functions for large files. */
#define ALIAS(name) __attribute__((alias(#name)))
int open64(const char *path, int flags, ...) ALIAS(open);
int openat64(int folder, const char *path, int flags, ...) ALIAS(openat);
int __open64_2(const char *path, int flags) ALIAS(__open_2);
FILE *fopen64(const char *path, const char *mode) ALIAS(fopen);
ssize_t pread64(int fd, void *to, size_t bytes, off64_t at) ALIAS(pread);
ssize_t __pread64_chk(int fd, void *to, size_t bytes, off64_t at, size_t room)
    ALIAS(__pread_chk);
ssize_t pwrite64(int fd, const void *from, size_t bytes, off64_t at) ALIAS(pwrite);
int ftruncate64(int fd, off64_t size) noexcept ALIAS(ftruncate);
void *mmap64(void *at, size_t bytes, int protection, int flags, int fd,
             off64_t offset) noexcept ALIAS(mmap);
int fcntl64(int fd, int command, ...) ALIAS(fcntl);

#pragma GCC visibility pop

}  // extern "C"
