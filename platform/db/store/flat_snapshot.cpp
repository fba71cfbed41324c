#include "platform/db/store/internal/flat_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/elog/failure.h"
#include "platform/stock/fingerprint.h"

namespace ksutil::db {

FlatSnapshot::FlatSnapshot(const FlatFile &file, std::shared_ptr<FlatShared> shared)
    : BlockSnapshot(file.layout, file.stamp, shared->budget, file.path),
      handle_(file.handle),
      missing_end_(file.missing_end),
      shared_(std::move(shared)) {}

void FlatSnapshot::follow(const FlatSnapshot &before, long changed_from,
                          long changed_to) {
  const std::size_t common = std::min(blocks(), before.blocks());
  for (std::size_t index = 0; index < common; ++index) {
    const long first = static_cast<long>(index << shift_);
    const long end = first + static_cast<long>(expected_rows(index));
    BlockSlot &slot = slots_[index];
    slot = before.slots_[index];
    slot.singles.clear();
    if (slot.altered) slot.drop_block();
    if (changed_from >= end || changed_to <= first) continue;
    slot.current = slot.ready = slot.whole = false;
  }
}

ssize_t FlatSnapshot::fetch(std::size_t first, std::size_t rows, char *to) const {
  const std::size_t wanted = rows * length_;
  const ssize_t got =
      read_at(handle_->get(), to, wanted, static_cast<off_t>(first * length_));
  if (got < 0) return got;
  const bool last = first + rows == static_cast<std::size_t>(count());
  if (last && static_cast<std::size_t>(got) + missing_end_.size() == wanted) {
    std::memcpy(to + got, missing_end_.data(), missing_end_.size());
    return static_cast<ssize_t>(wanted);
  }
  return got;
}

bool FlatSnapshot::load_row(std::size_t number, char *to) const {
  return fetch(number, 1, to) == static_cast<ssize_t>(length_);
}

bool FlatSnapshot::fetch_block(std::size_t index, char *to, RowPrints &prints,
                               bool &whole) const {
  const std::size_t expected = expected_rows(index);
  const ssize_t got = fetch(index << shift_, expected, to);
  if (got < 0) return false;
  const std::size_t rows = static_cast<std::size_t>(got) / length_;
  whole = rows == expected;
  prints.resize(rows);
  const Fingerprint fingerprint;
  const char *at = to;
  for (std::uint64_t &print : prints) {
    print = fingerprint({at, length_});
    at += length_;
    whole = whole && at[-1] == '\n';
  }
  return true;
}

void FlatSnapshot::load(std::size_t index, BlockSlot &slot, bool bytes) const {
  const std::size_t wanted = expected_rows(index) * length_;
  const bool follows = !slot.current && slot.prints != nullptr;
  try {
    BlockPtr fresh;
    char *to;
    if (follows) {
      if (shared_->scratch.size() < wanted) shared_->scratch.resize(wanted);
      to = shared_->scratch.data();
    } else {
      fresh = budget_->new_block(wanted);
      to = fresh.fill();
    }
    RowPrints &read = shared_->prints;
    bool whole;
    if (!fetch_block(index, to, read, whole)) {
      const std::size_t first = index << shift_;
      fail_errno("dbget", "%s: Cannot read records %zu to %zu", file_.c_str(), first,
                 first + expected_rows(index) - 1);
      return;
    }
    const std::size_t rows = read.size();
    /* Packing reads all bytes. */
    if (fresh) std::memset(to + rows * length_, 0, wanted - rows * length_);
    const bool same = slot.prints != nullptr && *slot.prints == read;
    const bool reread = slot.current;
    std::shared_ptr<const RowPrints> prints = slot.prints;
    if (!same && !reread) prints = std::make_shared<const RowPrints>(read);
    const bool wants_bytes = !same || ((bytes || keeps_rows()) && !slot.block);
    if (follows && wants_bytes) {
      fresh = budget_->new_block(wanted);
      std::memcpy(fresh.fill(), to, rows * length_);
      std::memset(fresh.fill() + rows * length_, 0, wanted - rows * length_);
    }

    slot.altered = reread && !same;
    if (!same && !reread) {
      slot.prints = std::move(prints);
      slot.packed = slot.block = BlockPtr();
    }
    if (!reread) slot.whole = whole;
    slot.current = true;
    slot.ready = slot.whole && slot.block;
    if (fresh) {
      hold(slot, std::move(fresh), rows);
      slot.fresh = true;
    }
  } catch (const std::bad_alloc &) {
    fail("dbget", "%s: No memory for a block of records", file_.c_str());
  }
}

}  // namespace ksutil::db
