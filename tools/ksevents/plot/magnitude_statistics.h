/* magnitude_statistics: the frequencies of magnitudes, and what follows from them.
 *
 * Sources: K. Aki, Bull. Earthq. Res. Inst. 43 (1965), 237-239 (maximum likelihood), with the
 * half bin of T. Utsu, Geophys. Bull. Hokkaido Univ. 13 (1965), 99-103; Y. Shi & B. A. Bolt,
 * Bull. Seism. Soc. Am. 72 (1982), 1677-1687 (error of b); S. Wiemer & M. Wyss, Bull. Seism.
 * Soc. Am. 90 (2000), 859-869 (maximum curvature); J. Woessner & S. Wiemer, Bull. Seism. Soc.
 * Am. 95 (2005), 684-698 (its correction of 0.2). */
#ifndef KSUTIL_TOOLS_KSEVENTS_PLOT_MAGNITUDE_STATISTICS_H
#define KSUTIL_TOOLS_KSEVENTS_PLOT_MAGNITUDE_STATISTICS_H

#include <optional>
#include <vector>

namespace ksutil::tools {

/* How many events have each magnitude: counts[i] those in the bin whose middle is
 * low + i * width. */
struct MagnitudeCounts {
  double low = 0.0, width = 0.1;
  std::vector<long> counts;
  double magnitude(std::size_t i) const { return low + width * static_cast<double>(i); }
  long at_least(std::size_t i) const;  // in this bin and above
};

/* NaN is left out; magnitudes beyond -10 ... 12 are too. */
MagnitudeCounts count_magnitudes(const std::vector<double> &magnitudes, double width);

/* The magnitude of completeness by maximum curvature: the fullest bin, plus 0.2.  None
 * without events. */
std::optional<double> completeness(const MagnitudeCounts &counts);

/* log10 N(M >= m) = a - b m, from the events of magnitude mc and above. */
struct FrequencyMagnitude {
  double b = 0.0, error = 0.0;  // one standard deviation
  double a = 0.0;
  long events = 0;
};
/* None for fewer than 10 events, or events of one magnitude alone. */
std::optional<FrequencyMagnitude> fit_frequencies(const std::vector<double> &magnitudes,
                                                  double mc, double width);

}  // namespace ksutil::tools
#endif
