/* NonLinLocReader: events of NonLinLoc hypocentre-phase files (.hyp), one or many.
 *
 * A block from NLLOC to END_NLLOC is an event with one origin.  Locations that are not
 * LOCATED (REJECTED, ABORTED, IGNORED) are refused with the message of the program.
 * The id is the one of PUBLIC_ID, else the name of the file of the location without folder
 * and without ".grid0": "nll:rhur.20060715.172120".
 * The program's x is east and y is north, turned by RotCW; the covariance is turned to
 * north and east.  With TRANSFORM GLOBAL it is left out, since x and y are degrees, and
 * distances are in degrees instead of km.  The ellipse is for a confidence of 0.68.
 * Source: A. Lomax, "NonLinLoc software guide", file formats: "Hypocenter-Phase file". */
#ifndef KSUTIL_FORMATS_EXCHANGE_NONLINLOC_NONLINLOC_READER_H
#define KSUTIL_FORMATS_EXCHANGE_NONLINLOC_NONLINLOC_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/text/line_reader.h"

namespace ksutil::exchange {

class NonLinLocReader final : public LineReader {
 public:
  explicit NonLinLocReader(Input &input) : LineReader(input) {}

 protected:
  bool ends_event(const std::string &line) override;
  bool take(const std::string &line) override;
  bool finish(Event &event) override;
  bool is_cut_off(const std::string &line) override {
    return in_event() && !line.starts_with("END_NLLOC");
  }

 private:
  using Words = std::vector<std::string_view>;

  bool take_header(const std::string &line);
  void take_signature(const std::string &line);
  bool take_geographic(const Words &words);
  bool take_quality(const Words &words);
  bool take_statistics(const Words &words);
  bool take_transform(const Words &words);
  bool take_origin_quality(const Words &words);
  bool take_uncertainty(const Words &words);
  bool take_mechanism(const Words &words);
  bool take_phase(const Words &words);
  bool number_after(const Words &words, std::string_view word, double low, double high,
                    double &value);
  Origin &origin() { return event().origins.front(); }

  bool refused_ = false;   // the lines of a location that is not one are skipped
  bool complete_ = false;  // END_NLLOC has been seen
  bool in_phases_ = false, in_scatter_ = false;
  bool located_ = false;  // GEOGRAPHIC has been read
  bool global_ = false;
  double rotation_ = 0.0;  // RotCW, degrees
};

}  // namespace ksutil::exchange
#endif
