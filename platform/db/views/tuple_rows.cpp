#include "platform/db/views/internal/tuple_rows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ksutil::db {
namespace {

constexpr std::size_t kWindowBytes = std::size_t{64}
                                     << 20;  // of the copies of a window
/* The first window is small, so that its rows are soon there. */
constexpr long kFirstWindow = 8192;  // tuples
constexpr long kGrowth = 8;          // of the next windows

/* Rows are read in place unless that would read many blocks anew. */
constexpr long kNear = 1024;  // rows between neighbours
constexpr long kMostJumps = 64;

}  // namespace

bool TupleRows::look(const char *who) {
  who_ = who;
  std::size_t bytes = 0;
  for (const Tuples::Part &part : tuples_.parts) {
    Part opened;
    opened.rows = tuples_.counted != nullptr ? tuples_.counted : part.source->look(who);
    if (opened.rows == nullptr) return false;
    opened.layout = part.source->bound_layout();
    bytes += static_cast<std::size_t>(opened.layout->relation().width) + 1;
    parts_.push_back(std::move(opened));
  }
  found_.resize(parts_.size());
  next_size_ = std::min(kFirstWindow, static_cast<long>(kWindowBytes / bytes));
  return true;
}

bool TupleRows::is_scattered(std::size_t part) const {
  long jumps = 0;
  for (long i = first_ + 1; i < end_; ++i) {
    const long step = tuples_.tuple(i)[part] - tuples_.tuple(i - 1)[part];
    if (std::abs(step) > kNear && ++jumps > kMostJumps) return true;
  }
  return false;
}

/* Takes a new snapshot when the row was overwritten after its block had left memory. */
std::string_view TupleRows::row(std::size_t part, long number) {
  Part &from = parts_[part];
  const std::string_view found = from.rows->row(number);
  if (!found.empty() || !from.rows->overtaken()) return found;
  const std::shared_ptr<const Snapshot> now = tuples_.parts[part].source->look(who_);
  if (now == nullptr || now == from.rows ||
      !same_layout(now->layout(), from.layout->relation())) {
    return {};
  }
  from.rows = now;
  return from.rows->row(number);
}

void TupleRows::copy_rows(std::size_t part) {
  struct Wanted {
    long row, place;
  };
  Part &to = parts_[part];
  const auto size = static_cast<std::size_t>(end_ - first_);
  const std::size_t length = static_cast<std::size_t>(to.layout->relation().width) + 1;
  std::vector<Wanted> wanted(size);
  for (std::size_t i = 0; i < size; ++i) {
    const long place = static_cast<long>(i);
    wanted[i] = {tuples_.tuple(first_ + place)[part], place};
  }
  std::sort(wanted.begin(), wanted.end(),
            [](const Wanted &a, const Wanted &b) { return a.row < b.row; });
  to.copies.resize(size * length);
  to.readable.assign(size, false);
  for (const auto &[row, place] : wanted) {
    const std::string_view text = this->row(part, row);
    if (text.size() != length) continue;
    const auto at = static_cast<std::size_t>(place);
    std::memcpy(&to.copies[at * length], text.data(), length);
    to.readable[at] = true;
  }
}

std::size_t TupleRows::tuple_bytes() const {
  std::size_t bytes = 0;
  for (const Part &part : parts_) {
    bytes += static_cast<std::size_t>(part.layout->relation().width) + 1;
  }
  return bytes;
}

void TupleRows::open_window(long first) {
  const std::size_t bytes = tuple_bytes();
  first_ = first;
  end_ = std::min(first + next_size_, tuples_.count());
  next_size_ =
      std::min(next_size_ * kGrowth, static_cast<long>(kWindowBytes / bytes) + 1);
  for (std::size_t part = 0; part < parts_.size(); ++part) {
    parts_[part].scattered = is_scattered(part);
    if (parts_[part].scattered) copy_rows(part);
  }
}

const std::string_view *TupleRows::read(long number) {
  if (number < first_ || number >= end_) open_window(number);
  const long *const tuple = tuples_.tuple(number);
  for (std::size_t part = 0; part < parts_.size(); ++part) {
    const Part &from = parts_[part];
    if (!from.scattered) {
      found_[part] = row(part, tuple[part]);
      if (found_[part].empty()) return nullptr;
      continue;
    }
    const auto at = static_cast<std::size_t>(number - first_);
    if (!from.readable[at]) return nullptr;
    const std::size_t length =
        static_cast<std::size_t>(from.layout->relation().width) + 1;
    found_[part] = {&from.copies[at * length], length};
  }
  return found_.data();
}

void TupleRecord::add_fields(const TupleRows &rows, std::size_t part) {
  const BoundLayout &layout = rows.layout(part);
  for (std::size_t i = 0; i < layout.relation().fields.size(); ++i) {
    places_.push_back({&layout, static_cast<int>(i), part});
  }
}

TupleRecord::TupleRecord(const TupleRows &rows, std::size_t part) {
  add_fields(rows, part);
}

TupleRecord::TupleRecord(const RecordSource &source, const TupleRows &rows) {
  const auto *const view = dynamic_cast<const ViewSource *>(&source);
  if (view == nullptr) {
    add_fields(rows, 0);
    return;
  }
  for (const ViewSource::Place &place : view->places()) {
    places_.push_back({&rows.layout(place.part), place.field, place.part});
  }
}

}  // namespace ksutil::db
