/* pieces: settles which samples of overlapping rows of a channel are shown. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_PIECES_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_PIECES_H

#include <cstdint>
#include <vector>

namespace ksutil::scv {

/* A row as far as its place in time goes. */
struct RowSpan {
  double time;      // of the first sample, epoch seconds
  double samprate;  // Hz
  std::int64_t count;
  double lddate;
  long record;
};

/* Samples first ... end - 1 of a row that are shown. */
struct RowPart {
  std::size_t row;  // place in the list of rows
  std::int64_t first, end;
};

/* The parts of all rows, ascending in time and apart from each other.  A row covers the time
 * from half a sample interval before its first sample to half an interval after its last;
 * there it hides rows of an earlier lddate, or of the same lddate and a lower record. */
std::vector<RowPart> shown_parts(const std::vector<RowSpan> &rows);

}  // namespace ksutil::scv
#endif
