/* shared_work: shares independent pieces of work between the calling thread and a second
 * one, which lives only as long as the call.
 *
 * The pieces must not depend on each other and must not wait for each other.  They have
 * ended, and everything that they have written is visible, when the call returns.  The
 * second thread blocks all signals but those of its own faults (SIGSEGV and the like), so
 * that a program's handlers run on its own threads.
 * Without a second core, or when the system gives no thread, the calling thread does all
 * the work.
 * Messages of the second thread belong to it and not to the caller: a piece that fails
 * notes this in its data, and the caller repeats it or reports it. */
#ifndef KSUTIL_PLATFORM_STOCK_SHARED_WORK_H
#define KSUTIL_PLATFORM_STOCK_SHARED_WORK_H

#include <cstddef>
#include <type_traits>

#include "platform/stock/export.h"

namespace ksutil {

/* The most threads that share a piece of work, the calling one included. */
inline constexpr unsigned kWorkSharers = 2;

/* When work is shared.  A test installs other settings for a scope with
 * ScopedWorkSettings; only one may be installed at a time. */
struct WorkSettings {
  /* Bytes to read or to calculate from which on a second thread pays: it takes some
   * 50 microseconds to begin, in which one thread reads a tenth of these bytes. */
  std::size_t least_bytes = std::size_t{4} << 20;
  bool always = false;     // also where there is no second core
  bool no_thread = false;  // as on a system that gives no thread
};

class KSUTIL_API ScopedWorkSettings {
 public:
  explicit ScopedWorkSettings(const WorkSettings &settings);
  ~ScopedWorkSettings();
  ScopedWorkSettings(const ScopedWorkSettings &) = delete;
  ScopedWorkSettings &operator=(const ScopedWorkSettings &) = delete;

 private:
  WorkSettings settings_;
};

/* Whether work on so many bytes is worth sharing on this machine. */
KSUTIL_API bool worth_sharing(std::size_t bytes);

KSUTIL_API void share_pieces(std::size_t pieces,
                             void (*run)(const void *work, std::size_t piece,
                                         unsigned sharer) noexcept,
                             const void *work) noexcept;

/* Calls work(piece, sharer) once for each piece from 0 to `pieces` - 1, in no certain
 * order; `sharer` is less than kWorkSharers, and calls with the same one follow each
 * other. */
template <class Work>
void share_work(std::size_t pieces, const Work &work) noexcept {
  static_assert(std::is_nothrow_invocable_v<const Work &, std::size_t, unsigned>);
  share_pieces(
      pieces,
      [](const void *shared, std::size_t piece, unsigned sharer) noexcept {
        (*static_cast<const Work *>(shared))(piece, sharer);
      },
      &work);
}

}  // namespace ksutil
#endif
