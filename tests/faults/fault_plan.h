/* fault_plan: says which system call of a process fails, and counts the calls. */
#ifndef KSUTIL_TESTS_FAULTS_FAULT_PLAN_H
#define KSUTIL_TESTS_FAULTS_FAULT_PLAN_H

#include <atomic>
#include <cstddef>

namespace faults {

/* The kinds of calls, each counted by itself. */
enum Kind : int {
  kAlloc,   // malloc, calloc, realloc, aligned allocation (and so operator new)
  kOpen,    // open, fopen
  kRead,    // read, pread, readv, reading functions of streams
  kWrite,   // write, pwrite, writev, ftruncate, writing functions of streams
  kSync,    // fsync, fdatasync
  kClose,   // close, fclose; the descriptor is closed all the same
  kRename,  // rename, link
  kLock,    // fcntl with a lock, flock
  kMap,     // mmap
  kThread,  // pthread_create
  kClock,   // reading the time of day, which steps back by an hour
  kStat,    // stat, fstat, lstat, statx, access
  kFolder,  // opendir, readdir
  kCreate,  // mkdir, mkostemp, mkdtemp, memfd_create
  kMode,    // fchmod, futimens
  kKinds
};

inline constexpr const char *kKindNames[kKinds] = {
    "alloc", "open",   "read",  "write", "sync",   "close",  "rename", "lock",
    "map",   "thread", "clock", "stat",  "folder", "create", "mode"};

/* How calls fail. */
enum class Way : int {
  kOnce,       // the n-th call fails with `error`
  kFromThere,  // the n-th call and all later ones of its kind fail with `error`
  kShort,      // the n-th call transfers half of its bytes
  kFull,       // the disk is full from the n-th call on: that one writes half, and
               // those fail that would make a file longer
  kStall,      // the n-th call waits for `error` milliseconds or ksutil_faults_go_on,
               // and then does its work
};

struct Plan {
  Kind kind = kKinds;  // kKinds: no call fails
  Way way = Way::kOnce;
  int error = 0;
  long at = 0;  // 1: the first call of the kind
};

/* What a process has done; in memory that it shares with its parent. */
struct Counts {
  std::atomic<long> calls[kKinds];
  std::atomic<long> strikes;  // calls that were made to fail
  std::atomic<long> blocks;   // allocated and not freed
};

/* The environment variables that hand a plan to a process: "KIND WAY ERROR AT TIME"
 * in numbers, TIME being what the clock shows in epoch seconds (0: the true time), and
 * the path of the file that holds the Counts. */
inline constexpr const char *kPlanVariable = "KSUTIL_FAULT_PLAN";
inline constexpr const char *kCountsVariable = "KSUTIL_FAULT_COUNTS";

}  // namespace faults

extern "C" {

/* For a program that is linked with the library: calls of any thread are counted from
 * zero and fail by the plan from now on; with null they work again. */
void ksutil_faults_arm(const faults::Plan *plan);

/* Ends the wait of a stalled call, and of those that would come. */
void ksutil_faults_go_on(void);

/* The counts since the last ksutil_faults_arm with a plan; `blocks` is never reset. */
const faults::Counts *ksutil_faults_counts(void);

}  // extern "C"

#endif
