#include "platform/db/key_index.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/shared_work.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kFewestSlots = 64;

/* Lost keys that are remembered; many more mean that the table was written anew. */
constexpr std::size_t kMostLostKeys = std::size_t{1} << 16;

/* How far ahead of the row that is entered its slot is fetched. */
constexpr std::size_t kAhead = 12;

unsigned shift_for(std::size_t slots) {
  return 64U - static_cast<unsigned>(std::countr_zero(slots)) + 3U;
}

}  // namespace

/* KeyTaker: reads the keys of rows for several indexes of one table. */
class KeyIndex::KeyTaker final : public RowTaker {
 public:
  explicit KeyTaker(std::span<const Following> indexes) : indexes_(indexes) {
    for (auto &wide : wide_) wide.resize(indexes.size());
  }

  bool take(unsigned sharer, long first, std::size_t count,
            std::string_view rows) noexcept override {
    const std::size_t length = rows.size() / count;
    try {
      for (std::size_t i = 0; i < indexes_.size(); ++i) {
        KeyIndex &index = *indexes_[i].index;
        auto number = static_cast<std::size_t>(first);
        for (std::size_t at = 0; at < rows.size(); at += length, ++number) {
          std::int64_t key;
          if (!index.read(rows.substr(at, length), key)) continue;
          Node &node = index.nodes_[number];
          node = {static_cast<std::int32_t>(key), 0};
          if (key != node.low) wide_[sharer][i].emplace_back(number, key);
        }
      }
      return true;
    } catch (const std::bad_alloc &) {
      return false;
    }
  }

  /* Enters the keys of more than 32 bits, for which two threads would need a lock. */
  void finish() {
    for (const auto &wide : wide_) {
      for (std::size_t i = 0; i < indexes_.size(); ++i) {
        for (const auto &[row, key] : wide[i]) indexes_[i].index->set_key(row, key);
      }
    }
  }

 private:
  using WideKeys = std::vector<std::pair<std::size_t, std::int64_t>>;
  const std::span<const Following> indexes_;
  std::vector<WideKeys> wide_[kWorkSharers];  // by index
};

void KeyIndex::follow_all(std::span<const Following> all) {
  std::vector<Following> anew;
  for (const Following &each : all) {
    if (!each.index->follow_changes(each.snapshot)) anew.push_back(each);
  }
  if (!anew.empty()) rebuild_all(anew);
}

void KeyIndex::clear() {
  slots_ = {};
  nodes_ = {};
  high_ = {};
  used_ = 0;
  steps_.clear();
}

/* False when the index must be built anew. */
bool KeyIndex::follow_changes(const std::shared_ptr<const Snapshot> &snapshot) {
  if (snapshot == snapshot_) return true;
  /* No snapshot until the index is complete: memory may run short half way. */
  const std::shared_ptr<const Snapshot> before = std::exchange(snapshot_, nullptr);
  if (snapshot->count() > std::numeric_limits<std::int32_t>::max()) {
    fail("KeyIndex", "table %s has %ld records, too many to index",
         snapshot->layout().name.c_str(), snapshot->count());
    clear();
    return true;
  }
  lost_.clear();
  if (before == nullptr || !apply(before, *snapshot)) return false;
  remember(before);
  if (snapshot->complete()) snapshot_ = snapshot;
  return true;
}

/* Builds indexes that describe no snapshot. */
void KeyIndex::rebuild_all(std::vector<Following> &anew) {
  const auto rows = [](const Following &each) { return each.snapshot->count(); };
  const auto other_table = [](const Following &a, const Following &b) {
    return a.snapshot != b.snapshot;
  };
  for (auto first = anew.begin(); first != anew.end();) {
    auto end = std::adjacent_find(first, anew.end(), other_table);
    if (end != anew.end()) ++end;
    read_keys({first, end});
    if (!first->snapshot->complete()) return;
    first = end;
  }
  /* The long ones first, so that the second thread has short ones to end with. */
  std::stable_sort(
      anew.begin(), anew.end(),
      [&](const Following &a, const Following &b) { return rows(a) > rows(b); });
  std::size_t bytes = 0;
  for (const Following &each : anew) {
    bytes += static_cast<std::size_t>(rows(each)) * sizeof(Node);
  }
  if (anew.size() == 1 || !worth_sharing(bytes)) {
    for (const Following &each : anew) each.index->link();
  } else {
    std::atomic<bool> memory_short{false};
    share_work(anew.size(), [&](std::size_t place, unsigned) noexcept {
      try {
        anew[place].index->link();
      } catch (const std::bad_alloc &) {
        memory_short = true;
      }
    });
    if (memory_short) throw std::bad_alloc();
  }
  for (const Following &each : anew) each.index->snapshot_ = each.snapshot;
}

/* Reads the keys of indexes of one table. */
void KeyIndex::read_keys(std::span<const Following> indexes) {
  const Snapshot &snapshot = *indexes.front().snapshot;
  for (const Following &each : indexes) each.index->prepare(snapshot);
  KeyTaker taker(indexes);
  const std::vector<RowRange> left = snapshot.scan(taker);
  taker.finish();
  for (const RowRange &range : left) {
    for (long row = range.first; row < range.end; ++row) {
      const std::string_view text = snapshot.row(row);
      for (const Following &each : indexes) {
        std::int64_t key;
        if (each.index->read(text, key)) {
          each.index->note_key(static_cast<std::size_t>(row), key);
        }
      }
    }
  }
}

void KeyIndex::prepare(const Snapshot &snapshot) {
  column_ = IntegerColumn(snapshot.layout(), field_);
  clear();
  resize(snapshot.count());
}

/* Notes the key of a row that link() will enter. */
void KeyIndex::note_key(std::size_t row, std::int64_t key) {
  set_key(row, key);
  nodes_[row].next = 0;
}

void KeyIndex::set_key(std::size_t row, std::int64_t key) {
  nodes_[row].low = static_cast<std::int32_t>(key);
  if (high_.empty()) {
    if (key == nodes_[row].low) return;
    high_.resize(nodes_.size());
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      high_[i] = nodes_[i].low < 0 ? -1 : 0;
    }
  }
  high_[row] = static_cast<std::int32_t>(key >> 32);
}

/* Makes room for rows without a key, with a sixteenth to spare when a table grows. */
void KeyIndex::resize(long rows) {
  const auto size = static_cast<std::size_t>(rows);
  if (!nodes_.empty() && size > nodes_.capacity()) nodes_.reserve(size + size / 16);
  nodes_.resize(size, Node{0, kNoKey});
  if (high_.empty()) return;
  if (size > high_.capacity()) high_.reserve(size + size / 16);
  high_.resize(size);
}

/* Enters the rows whose keys are noted. */
void KeyIndex::link() {
  /* As many keys as there are at most when the rows of each lie behind each other, so
   * that the slots need not grow on the way. */
  std::size_t runs = 0;
  std::int64_t before = 0;
  for (std::size_t row = 0; row < nodes_.size(); ++row) {
    if (nodes_[row].next == kNoKey) continue;
    const std::int64_t key = key_at(row);
    if (runs == 0 || key != before) ++runs;
    before = key;
  }
  const std::size_t size = std::max(kFewestSlots, std::bit_ceil(runs + runs / 2 + 2));
  slots_.assign(size, kFree);
  shift_ = shift_for(size);
  for (std::size_t row = 0; row < nodes_.size(); ++row) {
    if (row + kAhead < nodes_.size()) {
      __builtin_prefetch(&slots_[place(key_at(row + kAhead))]);
    }
    if (nodes_[row].next == kNoKey) continue;
    nodes_[row].next = kNoKey;
    append(key_at(row), static_cast<std::int32_t>(row));
  }
  /* The rows of a key lay far apart. */
  if (slots_.size() > kFewestSlots && 8 * used_ < slots_.size()) grow();
}

/* Moves the rows that changed since the index's snapshot; false when the changes are
 * not known, or when following them takes more steps along the rows of a key than
 * building a new index would. */
bool KeyIndex::apply(const std::shared_ptr<const Snapshot> &earlier,
                     const Snapshot &snapshot) {
  if (snapshot.count() < earlier->count()) return go_back(*earlier, snapshot);
  const Changes changes = changes_between(*earlier, snapshot);
  if (!changes.known) return false;
  const std::size_t steps = nodes_.size() + changes.changed.size();
  resize(snapshot.count());
  if (!move(snapshot, changes.changed, steps)) return false;
  std::int64_t key;
  for (long row = changes.old_count; row < snapshot.count(); ++row) {
    if (read(snapshot.row(row), key)) append(key, static_cast<std::int32_t>(row));
  }
  return true;
}

/* The same towards a snapshot with fewer rows, which a long reading has taken before
 * another one brought the index further. */
bool KeyIndex::go_back(const Snapshot &earlier, const Snapshot &snapshot) {
  const Changes changes = changes_between(snapshot, earlier);
  if (!changes.known) return false;
  std::size_t steps = nodes_.size();
  std::int64_t key;
  for (long row = earlier.count() - 1; row >= snapshot.count(); --row) {
    if (!key_of(row, key)) continue;
    lost_.push_back(key);
    if (!remove(static_cast<std::int32_t>(row), steps)) return false;
  }
  resize(snapshot.count());
  return move(snapshot, changes.changed, steps);
}

bool KeyIndex::move(const Snapshot &snapshot, const std::vector<long> &changed,
                    std::size_t steps) {
  for (const long number : changed) {
    const auto row = static_cast<std::int32_t>(number);
    std::int64_t before = 0, after = 0;
    const bool was = key_of(number, before);
    const bool is = read(snapshot.row(number), after);
    if (was && is && before == after) continue;
    if (was) {
      lost_.push_back(before);
      if (!remove(row, steps)) return false;
    }
    if (is && !insert(after, row, steps)) return false;
  }
  return true;
}

/* Notes the step that was made.  Steps from snapshots that nobody holds any more are
 * joined with the one before. */
void KeyIndex::remember(const std::shared_ptr<const Snapshot> &from) {
  std::size_t kept = 0, keys = 0;
  for (Step &step : steps_) {
    if (!step.from.expired()) {
      if (&steps_[kept] != &step) steps_[kept] = std::move(step);
      ++kept;
    } else if (kept > 0) {
      std::vector<std::int64_t> &joined = steps_[kept - 1].lost;
      joined.insert(joined.end(), step.lost.begin(), step.lost.end());
    }
  }
  steps_.erase(steps_.begin() + static_cast<std::ptrdiff_t>(kept), steps_.end());
  steps_.push_back({from, std::move(lost_)});
  lost_ = {};
  for (const Step &step : steps_) keys += step.lost.size();
  if (keys > kMostLostKeys) steps_.clear();
}

bool KeyIndex::lost_keys(const std::shared_ptr<const Snapshot> &earlier,
                         std::vector<std::int64_t> &keys) const {
  if (snapshot_ == nullptr) return false;
  if (earlier == snapshot_) return true;
  for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) {
    if (step->from.lock() != earlier) continue;
    for (auto later = step.base() - 1; later != steps_.end(); ++later) {
      keys.insert(keys.end(), later->lost.begin(), later->lost.end());
    }
    return true;
  }
  return false;
}

/* The slot of a key, one without rows when the key is new. */
std::size_t KeyIndex::claim(std::int64_t key) {
  if (3 * (used_ + 1) > 2 * slots_.size()) grow();
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = slot_of(key);
  if (slots_[slot] != kFree) return slot;
  for (std::size_t earlier = place(key); earlier != slot;
       earlier = (earlier + 1) & mask) {
    if (slots_[earlier] == kEmpty) return earlier;
  }
  ++used_;
  slots_[slot] = kEmpty;
  return slot;
}

/* Puts a row behind the rows of its key, all of which come before it. */
void KeyIndex::append(std::int64_t key, std::int32_t row) {
  set_key(static_cast<std::size_t>(row), key);
  std::int32_t &last = slots_[claim(key)];
  if (last < 0) {
    node(row).next = ~row;
  } else {
    node(row).next = std::exchange(node(last).next, row);
  }
  last = row;
}

/* Puts a row between the rows of its key; false when the steps are used up. */
bool KeyIndex::insert(std::int64_t key, std::int32_t row, std::size_t &steps) {
  const std::size_t slot = claim(key);
  const std::int32_t last = slots_[slot];
  if (last < row) {
    append(key, row);
    return true;
  }
  set_key(static_cast<std::size_t>(row), key);
  const std::int32_t first = ~node(last).next;
  if (row < first) {
    node(row).next = first;
    node(last).next = ~row;
    return true;
  }
  std::int32_t before = first;
  while (node(before).next < row) {
    if (steps-- == 0) return false;
    before = node(before).next;
  }
  node(row).next = std::exchange(node(before).next, row);
  return true;
}

/* Takes a row with a key out of the rows of its key; false when the steps are used up. */
bool KeyIndex::remove(std::int32_t row, std::size_t &steps) {
  std::int32_t &last = slots_[slot_of(key_at(static_cast<std::size_t>(row)))];
  const std::int32_t first = ~node(last).next;
  const std::int32_t next = std::exchange(node(row).next, kNoKey);
  if (first == last) {
    last = kEmpty;
  } else if (row == first) {
    node(last).next = ~next;
  } else {
    std::int32_t before = first;
    while (node(before).next != row) {
      if (steps-- == 0) return false;
      before = node(before).next;
    }
    node(before).next = next;
    if (row == last) last = before;
  }
  return true;
}

/* Makes room for more keys, and drops the slots of keys that have no rows left. */
void KeyIndex::grow() {
  const std::vector<std::int32_t> old = std::move(slots_);
  const auto live = static_cast<std::size_t>(std::count_if(
      old.begin(), old.end(), [](std::int32_t last) { return last >= 0; }));
  const std::size_t size = std::max(kFewestSlots, std::bit_ceil(2 * live));
  slots_.assign(size, kFree);
  shift_ = shift_for(size);
  used_ = 0;
  for (const std::int32_t last : old) {
    if (last < 0) continue;
    slots_[slot_of(key_at(static_cast<std::size_t>(last)))] = last;
    ++used_;
  }
}

std::int64_t KeyIndex::greatest() const {
  std::int64_t greatest = 0;
  for (const std::int32_t last : slots_) {
    if (last >= 0) {
      greatest = std::max(greatest, key_at(static_cast<std::size_t>(last)));
    }
  }
  return greatest;
}

}  // namespace ksutil::db
