/* answer: puts together what a channel has in a window.
 *
 * The work is in two steps: the first one, under the lock of the view, evaluates envelopes
 * and takes shares in samples; the second one, without the lock, goes through the samples. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_ANSWER_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_ANSWER_H

#include <memory>
#include <string>
#include <vector>

#include "waveforms/ksscv.h"
#include "waveforms/view/internal/cached_segment.h"

namespace ksutil::scv {

struct Window {
  double tstart, tend;  // epoch seconds
  int columns;
  double length() const { return tend - tstart; }
  double column_length() const { return length() / columns; }
  double column_begin(int column) const {
    return column == columns ? tend : tstart + column * column_length();
  }
};

/* Samples first ... end - 1 of a segment that are shown. */
struct Piece {
  std::shared_ptr<CachedSegment> segment;
  std::int64_t first, end;
  bool operator==(const Piece &) const = default;
};

/* A span of time in which rows or files are not as they should be. */
struct Fault {
  double from, to;
  std::string message;
  bool operator==(const Fault &) const = default;
};

/* The memory that a record of the public type owns. */
struct Answer : ksscv_data {
  std::vector<double> first_values, second_values;
  std::vector<unsigned char> here_values;
  std::string text;
  void publish();  // sets the pointers of ksscv_data
};

/* How the columns of a window are made from a segment. */
struct ColumnPlan {
  unsigned need;  // kAllSamples: from samples; else from blocks of 2^level
  int level;
  ColumnPlan(const CachedSegment &segment, const Window &window);
};

/* The part of a piece from one time to another (not included). */
struct SampleRange {
  std::int64_t first, end;
  bool empty() const { return first >= end; }
};
SampleRange range_in(const Piece &piece, double from, double to);

/* The blocks of 2^level samples that stand for samples first ... end - 1 of a piece: each
 * end is rounded to a whole block, at the ends of the piece outwards. */
SampleRange blocks_for(const Piece &piece, SampleRange samples, int level);
/* The chunks that have these blocks or samples. */
SampleRange chunks_of(const CachedSegment &segment, SampleRange blocks, int level);

/* The first of the pieces that may have samples at or after a time. */
std::vector<Piece>::const_iterator first_piece(const std::vector<Piece> &pieces,
                                               double from);

/* Factor for the samples of a row; false when the row has no calib. */
bool factor_of(const CachedSegment &segment, bool calibrated, double &factor);

/* Makes the envelope of a window. */
class EnvelopeMaker {
 public:
  EnvelopeMaker(const Window &window, bool calibrated);
  /* First step; true when samples of the piece in the window have not been read. */
  bool add(const Piece &piece);
  bool lacks_calib() const { return lacks_calib_; }
  /* Second step. */
  void finish(Answer &answer);

 private:
  struct RawPart {
    std::shared_ptr<const Samples> samples;
    std::size_t first, end;
    int column;
    double factor;
  };
  void add_column(const Piece &piece, const ColumnPlan &plan, SampleRange samples,
                  int column, double factor);
  void add_raw(const CachedSegment &segment, SampleRange samples, int column,
               double factor);
  void merge(int column, Extremes extremes, double factor);

  const Window window_;
  const bool calibrated_;
  bool lacks_calib_ = false, partial_ = false;
  std::vector<Extremes> columns_;
  std::vector<char> awaited_;
  std::vector<RawPart> raw_;
};

/* Makes the series of samples of a window. */
class SeriesMaker {
 public:
  SeriesMaker(const Window &window, bool calibrated);
  bool add(const Piece &piece);
  bool lacks_calib() const { return lacks_calib_; }
  /* False when there are more than KSSCV_MAX_SAMPLES. */
  bool finish(Answer &answer);

 private:
  struct Part {
    double time, samprate;  // of the row
    SampleRange samples;
    double factor;  // 0: gaps
    std::vector<std::shared_ptr<const Samples>> chunks;
    double time_of(std::int64_t sample) const {
      return time + static_cast<double>(sample) / samprate;
    }
  };
  void copy(const Part &part, double begin, double samprate, Answer &answer) const;

  const Window window_;
  const bool calibrated_;
  bool lacks_calib_ = false;
  std::vector<Part> parts_;
};

}  // namespace ksutil::scv
#endif
