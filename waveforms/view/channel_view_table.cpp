#include <algorithm>
#include <map>
#include <new>
#include <utility>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "waveforms/view/internal/channel_view.h"

namespace ksutil::scv {
namespace {

constexpr double kForever = std::numeric_limits<double>::infinity();
/* Rows of a window beside which those of its neighbours are looked up at once. */
constexpr std::size_t kFewRows = 256;
/* Files that one look looks at. */
constexpr std::size_t kFilesPerLook = 4096;
/* A look that takes long is followed by a pause of as many times its length. */
constexpr int kPausesPerLook = 4;

double end_of(const WaveformSegment &row) {
  return row.time +
         static_cast<double>(std::max<std::int64_t>(row.nsamp - 1, 0)) / row.samprate;
}

}  // namespace

struct ChannelView::FreshRow {
  WaveformSegment row;
  double lddate = 0.0;
  long record = -1;
  FileStamp stamp;
  std::int64_t count = 0;  // samples in the file
};

struct ChannelView::Work {
  long list_number = 0;
  std::size_t channel = 0;
  std::string key;
  Window window{};
  double from = 0.0, to = 0.0;
  std::vector<FreshRow> rows;
  std::vector<Fault> faults;
};

void ChannelView::follow_table() {
  while (!stop_) {
    try {
      follow_once();
    } catch (const std::bad_alloc &) {
      Lock lock(mutex_);
      looking_ = false;
      if (!stop_) table_work_.wait_for(lock, kMemoryPause);
    }
  }
}

void ChannelView::follow_once() {
  Lock lock(mutex_);
  if (stop_) return;
  if (look_asked_ || Clock::now() >= next_look_) {
    const Clock::time_point begin = Clock::now();
    look(lock);
    const auto pause = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::max(options_.period, 0.0)));
    next_look_ =
        options_.period < 0
            ? Clock::time_point::max()
            : Clock::now() + std::max(pause, kPausesPerLook * (Clock::now() - begin));
    return;
  }
  Work work;
  if (next_work(work)) {
    lock.unlock();
    const bool found = look_up(work);
    lock.lock();
    if (found) apply(work);
    progress_.notify_all();
    return;
  }
  if (plan_due_) {
    replan();
    progress_.notify_all();
    return;
  }
  if (next_look_ == Clock::time_point::max()) {
    table_work_.wait(lock);
  } else {
    table_work_.wait_until(lock, next_look_);
  }
}

void ChannelView::look(Lock &lock) {
  look_asked_ = false;
  looking_ = true;
  lock.unlock();
  look_at_table();
  look_at_files();
  lock.lock();
  looking_ = false;
  counts_.looks++;
  progress_.notify_all();
}

void ChannelView::look_at_table() try {
  const ElogScope dropped;
  std::set<std::string> changed;
  bool all = false;
  const auto go_on = [this] { return !stop_; };
  const std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(table_);
  std::string error;
  if (rows == nullptr || !index_.follow(rows, go_on, changed, all)) {
    error = "The table wfdisc cannot be read";
    index_.follow(nullptr, go_on, changed, all);
    all = false;
  } else {
    rows_ = rows;
  }
  const Lock lock(mutex_);
  if (error != table_error_) {
    table_error_ = error;
    mark_all_dirty();
  }
  counts_.rows = rows == nullptr ? 0 : rows->count();
  for (std::size_t i = 0; i < channels_.size(); i++) {
    if (all || changed.contains(channels_[i].key)) mark_stale(i);
  }
} catch (const std::bad_alloc &) {
  const Lock lock(mutex_);
  table_error_ = "Memory is short";
  mark_all_dirty();
}

void ChannelView::look_at_files() {
  struct Known {
    std::shared_ptr<CachedSegment> segment;
    WaveformSegment row;
    FileStamp stamp;
    std::int64_t count;
    std::size_t channel;
    bool gone, suspended;
  };
  std::vector<Known> known;
  long list_number;
  {
    const Lock lock(mutex_);
    list_number = list_number_;
    std::size_t all = 0;
    for (const Channel &channel : channels_) all += channel.segments.size();
    if (next_file_ >= all) next_file_ = 0;
    std::size_t number = 0;
    for (std::size_t i = 0; i < channels_.size(); i++) {
      for (const auto &segment : channels_[i].segments) {
        const bool due = number >= next_file_ && number < next_file_ + kFilesPerLook;
        number++;
        if (!due && !segment->suspended) continue;
        known.push_back({segment, segment->row, segment->stamp, segment->count, i,
                         segment->gone, segment->suspended});
      }
    }
    next_file_ += kFilesPerLook;
  }
  std::map<std::string, FileStamp> files;
  std::set<std::size_t> stale;
  for (const Known &one : known) {
    const auto [file, fresh] = files.try_emplace(one.row.path);
    std::string ignored;
    if (fresh) file->second = look_at_file(one.row.path, ignored);
    const FileStamp &now = file->second;
    const FileChange change = file_change(one.stamp, now);
    const bool moved = now.exists() == one.gone;
    const bool longer = now.exists() && samples_in_file(one.row, now.size) > one.count;
    if (one.suspended || moved || longer || change == FileChange::kReplaced) {
      stale.insert(one.channel);
    }
  }
  if (stale.empty()) return;
  const Lock lock(mutex_);
  if (list_number != list_number_) {
    look_asked_ = true;  // at the files of the new channels
    return;
  }
  for (const std::size_t channel : stale) mark_stale(channel);
}

/* Has the rows of a channel looked up again. */
void ChannelView::mark_stale(std::size_t channel) {
  channels_[channel].stale = true;
  first_unknown_ = std::min(first_unknown_, channel);
  first_narrow_ = std::min(first_narrow_, channel);
}

bool ChannelView::next_work(Work &work) {
  if (!window_ || !table_error_.empty()) return false;
  const Window &window = *window_;
  const auto set = [&](std::size_t i, double from, double to) {
    work.list_number = list_number_;
    work.channel = i;
    work.key = channels_[i].key;
    work.window = window;
    work.from = from;
    work.to = to;
    return true;
  };
  for (std::size_t &i = first_unknown_; i < channels_.size(); i++) {
    if (!channels_[i].knows(window)) return set(i, window.tstart, window.tend);
  }
  if (options_.prefetch == 0) return false;
  /* Not with each step of a window that moves slowly. */
  const double half = 0.5 * window.length();
  for (std::size_t &i = first_narrow_; i < channels_.size(); i++) {
    const Channel &channel = channels_[i];
    if (channel.known_from > window.tstart - half ||
        channel.known_to < window.tend + half) {
      return set(i, window.tstart - window.length(), window.tend + window.length());
    }
  }
  return false;
}

bool ChannelView::look_up(Work &work) try {
  const ElogScope dropped;
  std::vector<long> records = index_.find(work.key, work.from, work.to);
  if (records.size() <= kFewRows && options_.prefetch != 0) {
    work.from = work.window.tstart - work.window.length();
    work.to = work.window.tend + work.window.length();
    records = index_.find(work.key, work.from, work.to);
  }
  const long bad = index_.bad_row(work.key);
  if (bad >= 0) {
    work.faults.push_back(
        {-kForever, kForever,
         "Record " + std::to_string(bad) + " of wfdisc: its time cannot be used"});
  }
  std::map<std::string, std::pair<FileStamp, std::string>> files;
  for (const long record : records) {
    if (stop_) return false;
    FreshRow fresh;
    fresh.record = record;
    Dbptr row = table_;
    row.record = record;
    if (!read_segment(row, fresh.row)) {
      work.faults.push_back(
          {work.from, work.to,
           "Record " + std::to_string(record) + " of wfdisc cannot be used"});
      continue;
    }
    const std::string_view text = rows_->row(record);
    const db::RealColumn lddate(rows_->layout(), "lddate");
    if (text.empty() || !lddate.read(text, fresh.lddate)) fresh.lddate = lddate.null();
    auto [file, unseen] = files.try_emplace(fresh.row.path);
    auto &[stamp, message] = file->second;
    if (unseen) stamp = look_at_file(fresh.row.path, message);
    fresh.stamp = stamp;
    fresh.count = stamp.exists() ? samples_in_file(fresh.row, stamp.size) : 0;
    if (!stamp.exists()) {
      work.faults.push_back({fresh.row.time, end_of(fresh.row), message});
    } else if (fresh.count < fresh.row.nsamp) {
      work.faults.push_back(
          {fresh.row.time + static_cast<double>(fresh.count) / fresh.row.samprate,
           end_of(fresh.row),
           fresh.row.path + ": has " + std::to_string(fresh.count) + " of the " +
               std::to_string(fresh.row.nsamp) + " samples of record " +
               std::to_string(record)});
    }
    work.rows.push_back(std::move(fresh));
  }
  return true;
} catch (const std::bad_alloc &) {
  work.rows.clear();
  work.faults = {{-kForever, kForever, "Memory is short"}};
  return true;
}

void ChannelView::apply(Work &work) {
  if (work.list_number != list_number_) return;
  Channel &channel = channels_[work.channel];
  const std::vector<Piece> old_pieces = std::move(channel.pieces);
  const std::vector<Fault> old_faults = std::move(channel.faults);
  const bool knew =
      channel.known_from <= work.window.tstart && channel.known_to >= work.window.tend;
  /* Held until the new rows have been found, so that they keep what was read of them. */
  const auto old_segments = std::move(channel.segments);
  channel.segments.clear();
  channel.pieces.clear();
  channel.faults = std::move(work.faults);
  bool changed = false;
  std::vector<RowSpan> spans;
  for (const FreshRow &fresh : work.rows) {
    if (!apply_row(fresh, channel, changed)) continue;
    const CachedSegment &segment = *channel.segments.back();
    spans.push_back({segment.row.time, segment.row.samprate, segment.count,
                     fresh.lddate, fresh.record});
  }
  for (const RowPart &part : shown_parts(spans)) {
    channel.pieces.push_back({channel.segments[part.row], part.first, part.end});
  }
  channel.known_from = work.from;
  channel.known_to = work.to;
  channel.stale = false;
  const bool awaited = std::exchange(channel.said_unknown, false);
  if (changed || !knew || awaited || channel.pieces != old_pieces ||
      channel.faults != old_faults) {
    mark_dirty(work.channel);
  }
  cache_.reserve(0, false);  // rows take room, too
  plan_soon();
}

bool ChannelView::apply_row(const FreshRow &fresh, Channel &channel, bool &changed) {
  const std::shared_ptr<CachedSegment> segment = cache_.find(fresh.row, fresh.count);
  if (segment == nullptr) {
    channel.faults.push_back({fresh.row.time, end_of(fresh.row),
                              "The cache of " + std::to_string(cache_.bound()) +
                                  " bytes is too small for these rows"});
    return false;
  }
  const bool other_calib = segment->row.calib != fresh.row.calib;
  segment->row = fresh.row;
  segment->suspended = false;
  segment->gone = !fresh.stamp.exists();
  if (other_calib) changed = true;
  if (fresh.stamp.exists()) {
    if (file_change(segment->stamp, fresh.stamp) == FileChange::kReplaced ||
        fresh.count < segment->count) {
      cache_.drop(*segment, fresh.count);
      changed = true;
    } else if (fresh.count > segment->count) {
      segment->extend(fresh.count);
      cache_.count_segment(*segment);
      changed = true;
    }
    if (fresh.stamp != segment->stamp) segment->file_retry = {};
    segment->stamp = fresh.stamp;
  }
  channel.segments.push_back(segment);
  return true;
}

}  // namespace ksutil::scv
