/* NdkReader: events with moment tensors from the NDK files of the global CMT project.
 *
 * Five lines of 80 columns make an event: the hypocentre of another catalogue with mb and
 * MS, the name and the data, the centroid, the tensor, and its axes, moment and planes.
 * Moments are given in dyne cm.  Mw = 2/3 (log10 M0 - 16.1), M0 in dyne cm.
 * Source: "Explanation of the NDK format", globalcmt.org; Hanks & Kanamori (1979). */
#ifndef KSUTIL_FORMATS_EXCHANGE_NDK_NDK_READER_H
#define KSUTIL_FORMATS_EXCHANGE_NDK_NDK_READER_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/text/text_lines.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

/* Whether a line has the form of the first line of an event. */
bool is_ndk_hypocentre(std::string_view line);

class NdkReader final : public Reader {
 public:
  explicit NdkReader(Input &input) : lines_(input) {}

  Got next(Event &event) override;
  std::int64_t line() const override { return line_; }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }

 private:
  static constexpr std::size_t kLines = 5;

  bool find_first();
  bool real(std::string_view text, const char *name, double &value);
  bool reals(std::string_view text, const char *name, double *values,
             std::size_t count);
  bool read_hypocentre(Event &event);
  bool read_centroid(Event &event, MomentTensor &tensor);
  bool read_tensor(MomentTensor &tensor);
  bool read_planes(MomentTensor &tensor);
  void read_data(MomentTensor &tensor) const;
  void count_rest();
  bool refuse(const char *name, std::string_view text);

  TextLines lines_;
  std::array<std::string, kLines> text_;
  bool first_known_ = false;  // text_[0] is the first line of the next event
  std::int64_t line_ = 0;
  int exponent_ = 0;
  std::string problem_;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
