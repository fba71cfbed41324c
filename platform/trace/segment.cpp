#include "platform/trace/segment.h"

#include <algorithm>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/trace/shared/waveform_samples.h"
#include "platform/trace/shared/waveform_window.h"

namespace ksutil {
namespace {

constexpr char kReadSegment[] = "read_segment";

/* The samples of a window in a file, in memory that the segment owns. */
template <class Sample>
bool read_owned(const WaveformWindow &window, Segment &segment) {
  const auto count = static_cast<std::size_t>(window.count);
  std::shared_ptr<Sample[]> block;
  const auto allocate = [&] {
    block = std::make_shared_for_overwrite<Sample[]>(count);
    return block.get();
  };
  if (!read_samples_into<Sample>(window.row, window.first, window.count, allocate)) {
    return false;
  }
  segment.samples = std::span<const Sample>(block.get(), count);
  segment.owner = std::move(block);
  return true;
}

template <class Number>
void copy_all(const Segment &segment, Number *to) {
  std::visit(
      [to](const auto &samples) {
        std::transform(samples.begin(), samples.end(), to,
                       [](auto sample) { return static_cast<Number>(sample); });
      },
      segment.samples);
}

}  // namespace

std::size_t Segment::size() const {
  return std::visit([](const auto &span) { return span.size(); }, samples);
}

double Segment::endtime() const {
  return size() == 0 ? time : time + static_cast<double>(size() - 1) / samprate;
}

void Segment::copy_to(float *to) const { copy_all(*this, to); }
void Segment::copy_to(double *to) const { copy_all(*this, to); }

bool read_segment(Dbptr record, double tstart, double tend, Segment &segment) {
  return at_boundary(kReadSegment, [&] {
    WaveformWindow window;
    if (!find_window(kReadSegment, record, tstart, tend, window)) return false;
    Segment found;
    found.sta = window.row.sta;
    found.chan = window.row.chan;
    found.time = window.time();
    found.samprate = window.row.samprate;
    found.calib = window.row.calib;
    if (window.data != nullptr) {
      found.samples = Segment::Floats(window.data + window.first,
                                      static_cast<std::size_t>(window.count));
    } else {
      bool counts = false;
      if (!find_kind(window.row, counts) ||
          !(counts ? read_owned<std::int32_t>(window, found)
                   : read_owned<float>(window, found))) {
        return false;
      }
    }
    segment = std::move(found);
    return true;
  });
}

}  // namespace ksutil
