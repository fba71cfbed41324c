#include <algorithm>
#include <new>

#include "platform/elog/elog.h"
#include "waveforms/view/internal/channel_view.h"

namespace ksutil::scv {

struct ChannelView::Read {
  std::shared_ptr<CachedSegment> segment;
  WaveformSegment row;  // as it was when the reading began
  int version = 0;
  std::int64_t chunk = 0, count = 0;
  std::size_t reserved = 0;
  bool of_window = false;  // not ahead of it
  FileStamp before, after;
  std::string message;  // "" for success
  std::shared_ptr<const Samples> samples;
  Levels fine, coarse;
};

void ChannelView::read_chunks() {
  while (!stop_) {
    try {
      read_next();
    } catch (const std::bad_alloc &) {
      Lock lock(mutex_);
      cursor_ = {};
      if (!stop_) reader_work_.wait_for(lock, kMemoryPause);
    }
  }
}

void ChannelView::read_next() {
  Lock lock(mutex_);
  if (stop_) return;
  if (plan_due_ && Clock::now() >= next_plan_) replan();
  Read read;
  if (!next_read(read)) {
    const Clock::time_point next =
        plan_due_ ? std::min(next_plan_, next_retry_) : next_retry_;
    if (next == Clock::time_point::max()) {
      reader_work_.wait(lock);
    } else {
      reader_work_.wait_until(lock, next);
    }
    return;
  }
  lock.unlock();
  perform(read);
  lock.lock();
  publish(read);
}

bool ChannelView::next_read(Read &read) {
  const Clock::time_point now = Clock::now();
  if (now >= next_retry_) {
    next_retry_ = Clock::time_point::max();
    cursor_ = {};
  }
  for (; cursor_.phase < 2; cursor_ = {cursor_.phase + 1}) {
    if (cursor_.phase == 1) progress_.notify_all();
    const std::vector<Range> &ranges = cursor_.phase == 0 ? now_ : ahead_;
    for (; cursor_.range < ranges.size(); cursor_.range++, cursor_.chunk = -1) {
      const Range &range = ranges[cursor_.range];
      CachedSegment &segment = *range.segment;
      if (cursor_.chunk < 0) cursor_.chunk = range.first;
      const std::int64_t end = std::min(range.end, segment.chunk_count());
      for (; cursor_.chunk < end; cursor_.chunk++) {
        Chunk &chunk = segment.chunks[static_cast<std::size_t>(cursor_.chunk)];
        if (chunk.reading || !segment.lacks(cursor_.chunk, range.need) ||
            segment.blocked(cursor_.chunk, now, next_retry_)) {
          continue;
        }
        const std::int64_t count = segment.expected(cursor_.chunk);
        const std::size_t bytes = SegmentCache::sample_bytes(segment, count) +
                                  SegmentCache::fine_bytes(count) +
                                  SegmentCache::coarse_bytes(count);
        read.segment = range.segment;
        read.row = segment.row;
        if (!cache_.reserve(bytes, cursor_.phase == 1)) {
          if (cursor_.phase == 1) {
            cursor_ = {2};
            return false;
          }
          /* The plan fits: there is room when the chunks that are being read are done, or
           * when another thread has left the rows that it still looks at. */
          if (reading_ == 0) next_retry_ = std::min(next_retry_, now + kMemoryPause);
          return false;
        }
        chunk.reading = true;
        read.version = segment.version;
        read.chunk = cursor_.chunk;
        read.count = count;
        read.reserved = bytes;
        read.of_window = cursor_.phase == 0;
        reading_++;
        if (read.of_window) reading_now_++;
        cursor_.chunk++;
        return true;
      }
    }
  }
  return false;
}

void ChannelView::perform(Read &read) const try {
  const ElogScope dropped;  // failures are told by the state of the channel
  const std::int64_t first = read.chunk << kChunkShift;
  read.before = look_at_file(read.row.path, read.message);
  if (!read.before.exists()) return;
  auto samples = std::make_shared<Samples>();
  if (!read_chunk(read.row, first, read.count, *samples)) {
    read.message = read.row.path + ": cannot read samples " + std::to_string(first) +
                   " to " + std::to_string(first + read.count - 1) + " of data type " +
                   read.row.datatype;
    return;
  }
  read.after = look_at_file(read.row.path, read.message);
  build_levels(*samples, read.fine, read.coarse);
  read.samples = std::move(samples);
} catch (const std::bad_alloc &) {
  read.message = read.row.path + ": memory is short";
  read.samples = nullptr;
}

void ChannelView::publish(Read &read) {
  CachedSegment &segment = *read.segment;
  cache_.release(read.reserved);
  reading_--;
  if (read.of_window) reading_now_--;
  if (segment.version != read.version) {
    cursor_ = {};
  } else {
    const auto number = static_cast<std::size_t>(read.chunk);
    segment.chunks[number].reading = false;
    /* A new time of change alone is left to the next look at the files: a file that is
     * written all the time would never be read otherwise. */
    const auto other_file = [](const FileStamp &a, const FileStamp &b) {
      return a.exists() && b.exists() && (!a.same_file(b) || b.size < a.size);
    };
    if (other_file(segment.stamp, read.before) || other_file(read.before, read.after)) {
      segment.suspended = true;
      look_asked_ = true;
      table_work_.notify_one();
    } else if (read.samples == nullptr) {
      counts_.failed_reads++;
      const bool told = segment.failed(read.chunk) && segment.message == read.message;
      segment.message = read.message;
      Retry &retry =
          read.before.exists() ? segment.chunk_retries[read.chunk] : segment.file_retry;
      retry.fail();
      next_retry_ = std::min(next_retry_, retry.at);
      if (!told) mark_dirty(segment);
    } else {
      const int size = sample_size(read.row.datatype);
      counts_.chunks_read++;
      counts_.bytes_read += read.count * (size > 0 ? size : long{sizeof(double)});
      segment.file_retry = {};
      segment.chunk_retries.erase(read.chunk);
      cache_.put(segment, read.chunk, read.count, std::move(read.samples),
                 std::move(read.fine), std::move(read.coarse));
      if (read.of_window || segment.now.covers(plan_, read.chunk)) mark_dirty(segment);
      if (segment.expected(read.chunk) > read.count) cursor_ = {};  // it has grown
    }
  }
  /* Those that wait for room, and those that wait for the end. */
  reader_work_.notify_all();
  progress_.notify_all();
}

}  // namespace ksutil::scv
