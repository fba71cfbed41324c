/* butterworth: filters samples with cascades of recursive second-order sections. */
#ifndef KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_BUTTERWORTH_H
#define KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_BUTTERWORTH_H

#include <span>
#include <vector>

namespace ksutil {

class ButterworthFilter {
 public:
  /* Corners in cycles per sample, 1e-7 or more away from 0 and from 0.5; 0 for none, not
   * both; low < high by as much.  order 1 or more.  Throws std::bad_alloc. */
  ButterworthFilter(double low, double high, int order);

  /* Filters in place, as if the input had been samples[0] for ever before. */
  void run_forward(std::span<double> samples) const;

  /* The same from the last sample to the first. */
  void run_backward(std::span<double> samples) const;

  /* Samples after which the answer to an impulse has fallen to 1e-12 or so. */
  double memory() const;

 private:
  /* (b0 + b1/z + b2/z^2) / (1 + a1/z + a2/z^2) */
  struct Section {
    double b0, b1, b2, a1, a2;
  };
  template <class Iterator>
  void run(Iterator first, Iterator last) const;

  std::vector<Section> sections_;
  double radius_ = 0;  // of the outermost pole
};

}  // namespace ksutil
#endif
