/* response_css: reads and writes response files of the form CSS3.0. */
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <numbers>

#include "platform/stock/draft_file.h"
#include "platform/stock/text.h"
#include "waveforms/response/internal/response_forms.h"

namespace ksutil {
namespace {

using Complex = std::complex<double>;
using std::numbers::pi;

/* A "#:" comment holds a keyword and words; an unknown unit is "-" there. */
constexpr char kNoUnit[] = "-";

class CssReader {
 public:
  explicit CssReader(ResponseLines &lines) : lines_(lines) {}

  bool read(Response &response) {
    while (lines_.next()) {
      if (lines_.line().front() == '#') {
        if (!read_comment()) return false;
      } else if (!read_group()) {
        return false;
      }
    }
    if (found_.stages.empty()) return lines_.refuse("the file ends before a response");
    guess_decimations();
    response = std::move(found_);
    return true;
  }

 private:
  /* The next line that is not a comment; false after refuse(). */
  bool next(const char *expected) {
    while (lines_.next()) {
      if (lines_.line().front() != '#') return true;
    }
    return lines_.refuse(std::string("the file ends before ") + expected);
  }

  bool number(const char *expected, double &value) {
    if (!next(expected)) return false;
    return read_finite(lines_.words().front(), value) ||
           lines_.refuse(std::string(expected) + " expected");
  }
  /* A count is not trusted: rows are kept as they are read. */
  bool count(const char *expected, long &value) {
    if (!next(expected)) return false;
    return read_count(lines_.words().front(), 0, 100'000'000, value) ||
           lines_.refuse(std::string(expected) + " expected");
  }
  /* A row of numbers, at least `least` of them; the first five are kept. */
  bool row(const char *expected, std::size_t least, double (&values)[5]) {
    if (!next(expected)) return false;
    const auto words = lines_.words();
    std::fill(std::begin(values), std::end(values), 0.0);
    if (words.size() < least) {
      return lines_.refuse(std::string(expected) + " expected");
    }
    for (std::size_t i = 0; i < std::min<std::size_t>(words.size(), 5); ++i) {
      if (!read_finite(words[i], values[i])) {
        return lines_.refuse(std::string(expected) + " expected");
      }
    }
    return true;
  }

  bool read_group() {
    const auto words = lines_.words();
    long stage = 0;
    if (!is_word(words[0], {"theoretical", "measured"})) {
      return lines_.refuse("\"theoretical\" or \"measured\" expected");
    }
    if (words.size() < 4 || !read_count(words[1], 0, kMaxResponseStages, stage)) {
      return lines_.refuse("a stage number, a name and a kind of response expected");
    }
    if (found_.stages.size() >= static_cast<std::size_t>(kMaxResponseStages)) {
      return lines_.refuse("too many stages");
    }
    const bool complete = is_word(words[2], {"complete"});
    if (complete_ && !complete) return skip_group(words[3]);
    if (complete && !complete_) found_.stages.clear();
    complete_ = complete;
    found_.measured = is_word(words[0], {"measured"});
    if (words.size() > 4) found_.author = words[4];
    const std::string name(words[2]), kind = lowered(words[3]);
    if (kind == "paz") return read_poles(stage, name);
    if (kind == "fap" || kind == "fap2") return read_table(stage, name);
    if (kind == "fir") return read_coefficients(stage, name);
    if (kind == "pazfir") {
      return read_poles(stage, name) && read_coefficients(stage, name);
    }
    return lines_.refuse("paz, fap, fap2, fir or pazfir expected");
  }

  /* Reads a group that the complete response stands for already. */
  bool skip_group(std::string_view kind) {
    CssReader reader(lines_);
    const bool poles = is_word(kind, {"paz", "pazfir"});
    if (poles && !reader.read_poles(0, "")) return false;
    if (is_word(kind, {"fap", "fap2"})) return reader.read_table(0, "");
    if (is_word(kind, {"fir", "pazfir"})) return reader.read_coefficients(0, "");
    return poles || lines_.refuse("paz, fap, fap2, fir or pazfir expected");
  }

  ResponseStage &new_stage(long number, const std::string &name) {
    ResponseStage &stage = found_.stages.emplace_back();
    stage.name = name;
    number_ = number;
    return stage;
  }

  bool read_roots(const char *counted, const char *expected,
                  std::vector<Complex> &roots) {
    long announced = 0;
    if (!count(counted, announced)) return false;
    for (long i = 0; i < announced; ++i) {
      double values[5];
      if (!row(expected, 2, values)) return false;
      roots.emplace_back(values[0], values[1]);
    }
    return true;
  }

  bool read_poles(long stage_number, const std::string &name) {
    PoleZeroFilter filter;
    if (!number("the normalisation a0", filter.a0) ||
        !read_roots("the number of poles", "a pole", filter.poles) ||
        !read_roots("the number of zeros", "a zero", filter.zeros)) {
      return false;
    }
    const bool constant = filter.poles.empty() && filter.zeros.empty();
    if (constant && !found_.stages.empty() && stage_number == number_ && !gain_known_) {
      found_.stages.back().gain = filter.a0;
      gain_known_ = true;
      return true;
    }
    gain_known_ = constant;
    ResponseStage &stage = new_stage(stage_number, name);
    if (constant) {
      stage.gain = filter.a0;
    } else {
      stage.filter = std::move(filter);
    }
    return true;
  }

  bool read_table(long stage_number, const std::string &name) {
    TableFilter filter;
    long announced = 0;
    if (!count("the number of rows", announced)) return false;
    if (announced == 0) return lines_.refuse("a table has no rows");
    for (long i = 0; i < announced; ++i) {
      double values[5];
      if (!row("frequency, amplitude and phase", 3, values)) return false;
      if (values[0] < 0.0 ||
          (!filter.rows.empty() && values[0] <= filter.rows.back().frequency)) {
        return lines_.refuse("frequencies do not ascend");
      }
      filter.rows.push_back({values[0], values[1], values[2], values[3], values[4]});
    }
    gain_known_ = false;
    new_stage(stage_number, name).filter = std::move(filter);
    return true;
  }

  bool read_list(const char *counted, const char *expected,
                 std::vector<double> &numbers) {
    long announced = 0;
    if (!count(counted, announced)) return false;
    for (long i = 0; i < announced; ++i) {
      double values[5];
      if (!row(expected, 1, values)) return false;
      numbers.push_back(values[0]);
    }
    return true;
  }

  bool read_coefficients(long stage_number, const std::string &name) {
    CoefficientFilter filter;
    double samprate = 0.0;
    if (!number("the sample rate", samprate)) return false;
    if (samprate <= 0.0) return lines_.refuse("the sample rate is not positive");
    if (!read_list("the number of numerators", "a numerator", filter.numerators)) {
      return false;
    }
    if (filter.numerators.empty()) return lines_.refuse("a filter has no numerators");
    if (!read_list("the number of denominators", "a denominator",
                   filter.denominators)) {
      return false;
    }
    gain_known_ = false;
    ResponseStage &stage = new_stage(stage_number, name);
    stage.filter = std::move(filter);
    stage.decimation.emplace().samprate = samprate;
    return true;
  }

  /* A comment of write_response_file belongs to the stage before it. */
  bool read_comment() {
    std::string_view line = lines_.line();
    if (!line.starts_with("#:")) return true;
    const auto words = response_words(line.substr(2));
    if (words.empty()) return true;
    if (words[0] == "sensitivity" && words.size() == 3) {
      return (read_finite(words[1], found_.sensitivity) &&
              read_finite(words[2], found_.sensitivity_frequency)) ||
             lines_.refuse("a sensitivity and its frequency expected");
    }
    if (found_.stages.empty()) return true;
    ResponseStage &stage = found_.stages.back();
    if (words[0] == "units" && words.size() == 3) {
      stage.input_unit = words[1] == kNoUnit ? "" : unit_of(words[1]);
      stage.output_unit = words[2] == kNoUnit ? "" : unit_of(words[2]);
      return true;
    }
    if (words[0] == "frequencies" && words.size() == 3) {
      double of_filter = 0.0;
      if (!read_finite(words[1], of_filter) ||
          !read_finite(words[2], stage.gain_frequency)) {
        return lines_.refuse("two frequencies expected");
      }
      if (auto *const poles = std::get_if<PoleZeroFilter>(&stage.filter)) {
        poles->a0_frequency = of_filter;
      }
      return true;
    }
    if (words[0] == "decimation" && words.size() == 6) {
      Decimation read;
      long factor = 1, offset = 0;
      if (!read_finite(words[1], read.samprate) || read.samprate <= 0.0 ||
          !read_count(words[2], 1, 1'000'000'000, factor) ||
          !read_count(words[3], 0, 1'000'000'000, offset) ||
          !read_finite(words[4], read.delay) ||
          !read_finite(words[5], read.correction)) {
        return lines_.refuse(
            "sample rate, factor, offset, delay and correction expected");
      }
      read.factor = static_cast<int>(factor);
      read.offset = static_cast<int>(offset);
      stage.decimation = read;
    }
    return true;
  }

  /* The plain form has no decimations: the next sample rate tells. */
  void guess_decimations() {
    Decimation *before = nullptr;
    for (ResponseStage &stage : found_.stages) {
      if (!stage.decimation) continue;
      if (before != nullptr && before->factor == 1) {
        const double factor = before->samprate / stage.decimation->samprate;
        if (factor > 1.5 && factor < 1e6 &&
            std::abs(factor - std::round(factor)) < 1e-3 * factor) {
          before->factor = static_cast<int>(std::lround(factor));
        }
      }
      before = &*stage.decimation;
    }
  }

  ResponseLines &lines_;
  Response found_;
  long number_ = -1;         // of the last stage
  bool gain_known_ = false;  // of the last stage, from a group of its own
  bool complete_ = false;
};

std::string real_text(double value) { return format_text("%.17g", value); }

/* Blanks would part words, and a control character could end a line. */
std::string one_word(const std::string &text, const char *otherwise) {
  std::string word = text.substr(0, 64);
  for (char &c : word) {
    if (static_cast<unsigned char>(c) <= ' ' || c == ',' || c == '\x7f') c = '_';
  }
  return word.empty() ? otherwise : word;
}

/* The coefficients, from the constant on, of (1 - root 1 / z) (1 - root 2 / z) ... */
std::vector<double> expanded(const std::vector<Complex> &roots) {
  std::vector<Complex> all{1.0};
  for (const Complex root : roots) {
    all.push_back(0.0);
    for (std::size_t i = all.size() - 1; i > 0; --i) all[i] -= root * all[i - 1];
  }
  std::vector<double> real;
  for (const Complex each : all) real.push_back(each.real());
  return real;
}

/* A digital filter of poles and zeros as coefficients: powers of 1 / z. */
CoefficientFilter as_coefficients(const PoleZeroFilter &filter) {
  CoefficientFilter result{expanded(filter.zeros), expanded(filter.poles)};
  for (double &each : result.numerators) each *= filter.a0;
  const std::size_t zeros = filter.zeros.size(), poles = filter.poles.size();
  if (poles > zeros) {
    result.numerators.insert(result.numerators.begin(), poles - zeros, 0.0);
  } else {
    result.denominators.insert(result.denominators.begin(), zeros - poles, 0.0);
  }
  return result;
}

class CssWriter {
 public:
  explicit CssWriter(const Response &response) : response_(response) {}

  /* The text; empty, with the problem, when the response cannot be written. */
  std::string text(std::string &problem) {
    text_ = "# Instrument response, written by libksutil\n";
    if (response_.sensitivity != 0.0) {
      text_ += "#: sensitivity " + number(response_.sensitivity) + " " +
               number(response_.sensitivity_frequency) + "\n";
    }
    long stage_number = 0;
    for (const ResponseStage &stage : response_.stages) write(stage, ++stage_number);
    if (response_.stages.empty()) problem_ = "a response without stages";
    if (stage_number > kMaxResponseStages / 2) problem_ = "too many stages";
    if (!problem_.empty()) {
      problem = problem_;
      return {};
    }
    return std::move(text_);
  }

 private:
  std::string number(double value) {
    if (!std::isfinite(value)) problem_ = "a number is not finite";
    return real_text(value);
  }

  void head(const ResponseStage &stage, long stage_number, const char *kind) {
    /* "complete" would hide the stages beside it. */
    std::string name =
        one_word(stage.name, stage.decimation ? "digitizer" : "instrument");
    if (is_word(name, {"complete"})) name = "instrument";
    text_ += response_.measured ? "measured" : "theoretical";
    text_ += " " + std::to_string(stage_number) + " " + name + " " + kind + " " +
             one_word(response_.author, kNoUnit) + "\n";
  }

  void roots(const std::vector<Complex> &roots, double scale) {
    text_ += std::to_string(roots.size()) + "\n";
    for (const Complex root : roots) {
      text_ +=
          number(root.real() * scale) + " " + number(root.imag() * scale) + " 0 0\n";
    }
  }

  void write_filter(const PoleZeroFilter &filter, const ResponseStage &stage, long n) {
    if (filter.domain == PoleZeroFilter::Domain::kDigital) {
      write_filter(as_coefficients(filter), stage, n);
      return;
    }
    const bool hertz = filter.domain == PoleZeroFilter::Domain::kHertz;
    const double scale = hertz ? 2 * pi : 1.0;
    const double powers = static_cast<double>(filter.poles.size()) -
                          static_cast<double>(filter.zeros.size());
    head(stage, n, "paz");
    text_ += number(filter.a0 * (hertz ? std::pow(scale, powers) : 1.0)) + "\n";
    roots(filter.poles, scale);
    roots(filter.zeros, scale);
  }

  void list(const std::vector<double> &numbers) {
    text_ += std::to_string(numbers.size()) + "\n";
    for (const double each : numbers) text_ += number(each) + " 0\n";
  }

  void write_filter(const CoefficientFilter &filter, const ResponseStage &stage,
                    long n) {
    if (!stage.decimation || filter.numerators.empty()) {
      problem_ = "a digital filter without sample rate or numerators";
      return;
    }
    head(stage, n, "fir");
    text_ += number(stage.decimation->samprate) + "\n";
    list(filter.numerators);
    list(filter.denominators);
  }

  void write_filter(const TableFilter &filter, const ResponseStage &stage, long n) {
    if (filter.rows.empty()) problem_ = "a table without rows";
    head(stage, n, "fap");
    text_ += std::to_string(filter.rows.size()) + "\n";
    for (const TableFilter::Row &row : filter.rows) {
      text_ += number(row.frequency) + " " + number(row.amplitude) + " " +
               number(row.phase) + " " + number(row.amplitude_error) + " " +
               number(row.phase_error) + "\n";
    }
  }

  void write_filter(std::monostate, const ResponseStage &stage, long n) {
    write_gain(stage, n);
  }

  void write_gain(const ResponseStage &stage, long n) {
    head(stage, n, "paz");
    text_ += number(stage.gain) + "\n0\n0\n";
  }

  void write(const ResponseStage &stage, long n) {
    std::visit([&](const auto &filter) { write_filter(filter, stage, n); },
               stage.filter);
    if (stage.filter.index() != 0 && stage.gain != 1.0) write_gain(stage, n);
    if (!stage.input_unit.empty() || !stage.output_unit.empty()) {
      text_ += "#: units " + one_word(stage.input_unit, kNoUnit) + " " +
               one_word(stage.output_unit, kNoUnit) + "\n";
    }
    const auto *const poles = std::get_if<PoleZeroFilter>(&stage.filter);
    const double of_filter = poles != nullptr ? poles->a0_frequency : 0.0;
    if (of_filter != 0.0 || stage.gain_frequency != 0.0) {
      text_ += "#: frequencies " + number(of_filter) + " " +
               number(stage.gain_frequency) + "\n";
    }
    if (stage.decimation) {
      const Decimation &each = *stage.decimation;
      text_ += "#: decimation " + number(each.samprate) + " " +
               std::to_string(each.factor) + " " + std::to_string(each.offset) + " " +
               number(each.delay) + " " + number(each.correction) + "\n";
      if (!(each.samprate > 0.0) || each.factor < 1 || each.offset < 0) {
        problem_ = "a decimation is not possible";
      }
    }
  }

  const Response &response_;
  std::string text_, problem_;
};

}  // namespace

bool read_css_response(ResponseLines &lines, Response &response) {
  return CssReader(lines).read(response);
}

bool write_response_file(const std::string &path, const Response &response,
                         std::string &problem) {
  std::string why;
  const std::string text = CssWriter(response).text(why);
  if (text.empty()) {
    problem = path + ": " + why;
    return false;
  }
  DraftFile file(DraftFile::Existing::kReplace, DraftFile::Sync::kLater);
  if (file.open(path) && file.write(text) && file.put_in_place()) return true;
  problem = path + ": " + std::strerror(errno);
  return false;
}

}  // namespace ksutil
