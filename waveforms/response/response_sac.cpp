/* response_sac: reads pole-zero files of the form SAC. */
#include <cmath>

#include "platform/stock/text.h"
#include "waveforms/response/internal/response_forms.h"

namespace ksutil {
namespace {

/* One response of the file, as far as it has been read. */
struct Section {
  PoleZeroFilter filter;
  bool zeros = false, poles = false, constant = false;
  std::string input_unit = "M", output_unit = "COUNTS";
  ResponseEpoch epoch;

  bool complete() const { return constant && (zeros || poles); }
};

class SacReader {
 public:
  SacReader(ResponseLines &lines, double time) : lines_(lines), choice_(time) {}

  bool read(Response &response) {
    while (lines_.next()) {
      if (!read_line()) return false;
    }
    if (section_.complete()) {
      finish();
    } else if (section_.zeros || section_.poles || section_.constant) {
      return lines_.refuse("ZEROS, POLES and CONSTANT make a response");
    }
    return choice_.take(lines_, response);
  }

 private:
  bool read_line() {
    const std::string_view line = lines_.line();
    if (line.front() == '*') {
      /* Comments behind a response belong to the next one. */
      if (section_.complete()) finish();
      read_comment(line.substr(1));
      return true;
    }
    if (line.front() == '#') return true;
    const auto words = lines_.words();
    if (words.size() != 2) return lines_.refuse("a keyword and a number expected");
    if (is_word(words[0], {"constant"})) {
      if (section_.constant) finish();
      section_.constant = true;
      return read_finite(words[1], section_.filter.a0) ||
             lines_.refuse("a number expected");
    }
    const bool zeros = is_word(words[0], {"zeros"});
    if (!zeros && !is_word(words[0], {"poles"})) {
      return lines_.refuse("ZEROS, POLES or CONSTANT expected");
    }
    if (zeros ? section_.zeros : section_.poles) finish();
    (zeros ? section_.zeros : section_.poles) = true;
    return read_roots(words[1], zeros ? section_.filter.zeros : section_.filter.poles);
  }

  bool read_roots(std::string_view counted, std::vector<std::complex<double>> &roots) {
    long announced = 0;
    /* The rows that are missing take memory too. */
    if (!read_count(counted, 0, 10'000, announced)) {
      return lines_.refuse("a number of zeros or poles expected");
    }
    roots.clear();
    while (lines_.next()) {
      const auto words = lines_.words();
      if (words.empty() || std::isalpha(static_cast<unsigned char>(words[0][0])) != 0 ||
          lines_.line().front() == '*') {
        lines_.again();
        break;
      }
      double real = 0.0, imaginary = 0.0;
      if (words.size() < 2 || !read_finite(words[0], real) ||
          !read_finite(words[1], imaginary)) {
        return lines_.refuse("the two parts of a zero or pole expected");
      }
      if (static_cast<long>(roots.size()) == announced) {
        return lines_.refuse("more zeros or poles than announced");
      }
      roots.emplace_back(real, imaginary);
    }
    roots.resize(static_cast<std::size_t>(announced));
    return true;
  }

  /* "INPUT UNIT : M", "START : 2012-03-12T20:28:00", "EFFECTIVE 2003-03-12 00:00:00.0". */
  void read_comment(std::string_view text) {
    text = trimmed(text);
    const auto value_after = [&](std::string_view key, std::string_view &value) {
      if (!text.starts_with(key)) return false;
      value = trimmed(text.substr(key.size()));
      while (!value.empty() && (value.front() == ':' || value.front() == ' ')) {
        value.remove_prefix(1);
      }
      return true;
    };
    std::string_view value;
    double time;
    if (value_after("INPUT UNIT", value) && !value.empty()) {
      section_.input_unit = unit_of(value);
    } else if (value_after("OUTPUT UNIT", value) && !value.empty()) {
      section_.output_unit = unit_of(value);
    } else if ((value_after("START", value) || value_after("EFFECTIVE", value)) &&
               parse_date_text(value, time)) {
      section_.epoch.low = time;
    } else if ((value_after("ENDDATE", value) || value_after("END", value)) &&
               parse_date_text(value, time)) {
      section_.epoch.high = time;
    }
  }

  void finish() {
    Response response;
    ResponseStage &stage = response.stages.emplace_back();
    stage.name = "instrument";
    stage.input_unit = section_.input_unit;
    stage.output_unit =
        section_.output_unit == "COUNT" ? "COUNTS" : section_.output_unit;
    stage.filter = std::move(section_.filter);
    choice_.offer(std::move(response), section_.epoch);
    section_ = Section();
  }

  ResponseLines &lines_;
  ResponseChoice choice_;
  Section section_;
};

}  // namespace

bool read_sac_response(ResponseLines &lines, double time, Response &response) {
  return SacReader(lines, time).read(response);
}

}  // namespace ksutil
