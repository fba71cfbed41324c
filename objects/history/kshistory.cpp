#include "objects/kshistory.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <utility>

#include "objects/family/shared/family.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "platform/trace/filetbl.h"

using ksutil::fail, ksutil::fail_errno;

namespace {

using Entry = KSHistoryEntry;
static_assert(sizeof(Entry) == 16);

struct HistoryTraits {
  using Record = KSHistory;
  static constexpr char kWord[] = "thst";
  static constexpr char kGet[] = "kshistory_get_history";
  static constexpr char kPlural[] = "historys";
  static constexpr char kEntering[] = "malloc";
  static constexpr char kListing[] = "keysarr";
  static bool is_record(const KSHistory & /*history*/) { return true; }
  static const char *name(const KSHistory &history) { return history.name; }
  static void destroy(KSHistory *history) {
    freetbl(history->entries, nullptr);
    std::free(history->file);
    std::free(history->name);
    std::free(history);
  }
};
using Histories = ksutil::Family<HistoryTraits>;
using HistoryPtr = Histories::Ptr;

/* A record with copies of the texts, and no entries yet; null when memory is short. */
HistoryPtr new_record(int maxn, const char *name, const char *file) {
  HistoryPtr history(static_cast<KSHistory *>(ks_calloc(1, sizeof(KSHistory))));
  if (history == nullptr) return nullptr;
  history->maxn = maxn;
  if (name != nullptr) history->name = ks_strdup(name);
  if (file != nullptr) history->file = ks_strdup(file);
  const bool copied = (name == nullptr || history->name != nullptr) &&
                      (file == nullptr || history->file != nullptr);
  return copied ? std::move(history) : nullptr;
}

/* Maps the entries onto the file, which the list then holds locked.  If another process or
 * history holds the lock, complains on standard error. */
bool open_file_entries(KSHistory &history) {
  /* A list file refuses entries beyond its capacity; a full history drops the oldest. */
  history.maxn = static_cast<std::int32_t>(
      std::min<long>(history.maxn, filetbl_capacity(sizeof(Entry))));
  const int mark = elog_mark();
  errno = 0;
  history.entries =
      filetbl(history.file, KSHISTORY_TABLE_TAG, history.maxn, sizeof(Entry));
  if (history.entries != nullptr) return true;
  if (errno == EAGAIN) {
    elog_flush(0, mark);
    elog_complain(1, "Can't lock '%s' for exclusive use\n", history.file);
  } else {
    fail("kshistory_create", "filetbl(%s) error", history.file);
  }
  return false;
}

bool open_entries(KSHistory &history) {
  if (history.file != nullptr) return open_file_entries(history);
  history.entries = inittbl(0, sizeof(Entry));
  if (history.entries == nullptr) fail_errno("kshistory_create", "inittbl() error");
  return history.entries != nullptr;
}

long count(const KSHistory &history) { return counttbl(history.entries); }

Entry entry(const KSHistory &history, long i) {
  Entry copy;
  std::memcpy(&copy, gettbl(history.entries, i), sizeof copy);
  return copy;
}

double evaluate(const KSHistory &history, double time) {
  const long n = count(history);
  long i = 0;
  while (i < n && !(entry(history, i).time >= time)) ++i;
  if (i == n) return entry(history, n - 1).value;
  const Entry b = entry(history, i);
  if (b.time == time && i + 1 < n) {
    const Entry next = entry(history, i + 1);
    if (next.time == time) return std::midpoint(b.value, next.value);
  }
  if (i == 0) return b.value;
  const Entry a = entry(history, i - 1);
  return a.value + (b.value - a.value) * (time - a.time) / (b.time - a.time);
}

}  // namespace

KSHistory *kshistory_get_history(const char *tag) { return Histories::get(tag); }

KSHistory *kshistory_create(int maxn, const char *name, const char *file, char *tag) {
  const char *const self = "kshistory_create";
  Histories::none(tag);
  if (!Histories::open(self)) return nullptr;
  HistoryPtr history = new_record(maxn, name, file);
  if (history == nullptr) return ksutil::fail_memory(self);
  if (!open_entries(*history)) return nullptr;
  return Histories::publish(self, std::move(history), tag);
}

int kshistory_add(const char *tag, double time, double value) {
  const KSHistory *const history = Histories::find("kshistory_add", tag);
  if (history == nullptr) return -1;
  if (count(*history) > 0 && count(*history) >= history->maxn &&
      shifttbl(history->entries) == nullptr) {
    return fail("kshistory_add", "shifttbl() error");
  }
  Entry added{time, value};
  if (pushtbl(history->entries, &added) >= 0) return 0;
  return fail("kshistory_add", "pushtbl() error");
}

int kshistory_eval(const char *tag, double *value, double time) {
  const KSHistory *const history = Histories::find("kshistory_eval", tag);
  if (history == nullptr) return -1;
  if (count(*history) == 0) {
    return fail("kshistory_eval", "No points in kshistory %s", tag);
  }
  *value = evaluate(*history, time);
  return 0;
}

int kshistory_maxmin(const char *tag, double *tmin, double *tmax, double *vmin,
                     double *vmax) {
  const KSHistory *const history = Histories::find("kshistory_maxmin", tag);
  if (history == nullptr) return -1;
  const long n = count(*history);
  if (n == 0) return fail("kshistory_maxmin", "No points in kshistory %s", tag);
  Entry low = entry(*history, 0), high = low;
  for (long i = 1; i < n; ++i) {
    const Entry e = entry(*history, i);
    low = {std::fmin(low.time, e.time), std::fmin(low.value, e.value)};
    high = {std::fmax(high.time, e.time), std::fmax(high.value, e.value)};
  }
  *tmin = low.time;
  *tmax = high.time;
  *vmin = low.value;
  *vmax = high.value;
  return 0;
}

int kshistory_get_points(const char *tag, int *n, double **times, double **values) {
  const KSHistory *const history = Histories::find("kshistory_get_points", tag);
  if (history == nullptr) return -1;
  const long points = count(*history);
  ksutil::MallocPtr<double> t, v;
  if (points > 0) {
    const std::size_t bytes = static_cast<std::size_t>(points) * sizeof(double);
    t.reset(static_cast<double *>(ks_malloc(bytes)));
    if (t != nullptr) v.reset(static_cast<double *>(ks_malloc(bytes)));
    if (v == nullptr) return fail_errno("kshistory_get_points", "malloc() error");
  }
  for (long i = 0; i < points; ++i) {
    const Entry e = entry(*history, i);
    t.get()[i] = e.time;
    v.get()[i] = e.value;
  }
  *n = static_cast<int>(points);
  *times = t.release();
  *values = v.release();
  return 0;
}

int kshistory_free(const char *tag) {
  KSHistory *const history = Histories::get_as("kshistory_free", "kshistorys", tag);
  return history == nullptr ? -1 : Histories::free_record(history);
}

int kshistory_free_tag(const char *name) {
  return Histories::free_tag("kshistory_free_tag", name);
}

int kshistory_free_history(KSHistory *history) {
  return Histories::free_record(history);
}
