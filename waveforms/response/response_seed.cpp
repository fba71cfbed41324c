/* response_seed: reads the text form of SEED station metadata (RESP files).
 *
 * A line is "B053F07     label:   value", or for the rows of a list
 * "B053F10-13    index  numbers".  Blockettes 41 to 48 of a dictionary hold the same as 53
 * to 61 with other field numbers; the stage that they belong to stands in blockette 60. */
#include <algorithm>
#include <cmath>
#include <map>

#include "platform/stock/text.h"
#include "waveforms/response/internal/response_forms.h"

namespace ksutil {
namespace {

struct Line {
  int block = 0, field = 0;
  std::string_view value;             // behind the colon, or the whole rest
  std::vector<std::string_view> row;  // of a list, without the index
  bool is_row = false;
};

bool digits(std::string_view text, std::size_t at, std::size_t count, int &value) {
  value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (i >= text.size() || text[i] < '0' || text[i] > '9') return false;
    value = 10 * value + (text[i] - '0');
  }
  return true;
}

bool parse_line(std::string_view text, Line &line) {
  line = Line();
  if (!digits(text, 1, 3, line.block) || text.size() < 7 || text[4] != 'F' ||
      !digits(text, 5, 2, line.field)) {
    return false;
  }
  text.remove_prefix(7);
  line.is_row = text.starts_with('-');
  if (line.is_row) text.remove_prefix(std::min<std::size_t>(text.size(), 3));
  const std::size_t colon = text.find(':');
  /* Rows have no label; those of one field have no range either. */
  line.is_row = line.is_row || colon == std::string_view::npos;
  if (line.is_row) {
    line.row = response_words(text);
    if (!line.row.empty()) line.row.erase(line.row.begin());
  } else {
    line.value = trimmed(text.substr(colon + 1));
  }
  return true;
}

/* The dictionary blockettes as the others: field numbers become those of 53 to 61. */
void translate(Line &line) {
  struct Translation {
    int from, to;
    std::initializer_list<std::pair<int, int>> fields;
  };
  static const Translation kTranslations[] = {
      {41, 61, {{5, 5}, {6, 6}, {7, 7}, {8, 8}, {9, 9}}},
      {43,
       53,
       {{5, 3}, {6, 5}, {7, 6}, {8, 7}, {9, 8}, {10, 9}, {11, 10}, {15, 14}, {16, 15}}},
      {44, 54, {{5, 3}, {6, 5}, {7, 6}, {8, 7}, {9, 8}, {11, 10}, {12, 11}}},
      {45, 55, {{5, 4}, {6, 5}, {7, 6}, {8, 7}}},
      {47, 57, {{5, 4}, {6, 5}, {7, 6}, {8, 7}, {9, 8}}},
      {48, 58, {{5, 4}, {6, 5}}},
  };
  for (const Translation &each : kTranslations) {
    if (line.block != each.from) continue;
    line.block = each.to;
    const auto *const found =
        std::find_if(each.fields.begin(), each.fields.end(),
                     [&](const auto &pair) { return pair.first == line.field; });
    line.field = found == each.fields.end() ? 0 : found->second;
    return;
  }
}

/* The fields in which the blockettes of filters have what all of them have; 0: none. */
struct FilterFields {
  int block, stage, input, output;
  int zeros, poles;  // lengths of their lists
};
constexpr FilterFields kFilters[] = {{53, 4, 5, 6, 9, 14},
                                     {54, 4, 5, 6, 7, 10},
                                     {55, 3, 4, 5, 6, 0},
                                     {61, 3, 6, 7, 8, 0}};

/* "2003,071,00:00:00.0000"; false for "No Ending Time" and the like. */
bool read_time(std::string_view text, double &time) {
  std::string date(text);
  const std::size_t year = date.find(',');
  if (year == std::string::npos) return parse_date_text(date, time);
  date[year] = '-';
  const std::size_t day = date.find(',');
  if (day != std::string::npos) date[day] = 'T';
  return parse_date_text(date, time);
}

class SeedReader {
 public:
  SeedReader(ResponseLines &lines, double time) : lines_(lines), choice_(time) {}

  bool read(Response &response) {
    while (lines_.next()) {
      const std::string_view text = lines_.line();
      if (text.front() == '#') continue;
      Line line;
      if (text.front() != 'B' || !parse_line(text, line)) {
        return lines_.refuse("a line of a blockette (\"B053F03 ...\") expected");
      }
      translate(line);
      if (!take(line)) return false;
    }
    return finish() && choice_.take(lines_, response);
  }

 private:
  /* A stage while its lines come. */
  struct Stage {
    ResponseStage stage;
    int filter = 0;             // the blockette of its filter; 0: none yet
    int block = 0;              // that named it last
    long zeros = 0, poles = 0;  // announced, or numerators and denominators, or rows
    char symmetry = 'A';
    PoleZeroFilter roots;
    CoefficientFilter coefficients;
    TableFilter table;
  };

  bool take(const Line &line) {
    switch (line.block) {
      case 50:
        /* A new channel begins with its station. */
        return line.field != 3 || finish();
      case 52:
        return take_channel(line);
      case 53:
      case 54:
      case 55:
      case 61:
        return take_filter(line);
      case 57:
        return take_decimation(line);
      case 58:
        return take_gain(line);
      case 60:
        if (line.field != 4 || line.is_row) return true;
        return begin_stage(line, 60);
      case 62:
        return lines_.refuse("polynomial responses (blockette 62) are not understood");
      default:
        return true;
    }
  }

  bool take_channel(const Line &line) {
    double time;
    if (line.field == 22 && read_time(line.value, time)) epoch_.low = time;
    if (line.field == 23 && read_time(line.value, time)) epoch_.high = time;
    return true;
  }

  /* The stage of a blockette, by the number in the line. */
  bool begin_stage(const Line &line, int block) {
    long number = 0;
    if (!read_count(line.value, 0, kMaxResponseStages, number)) {
      return lines_.refuse("a stage number expected");
    }
    now_ = &stages_[number];
    now_->block = block;
    return true;
  }
  bool in_stage() {
    return now_ != nullptr || lines_.refuse("a stage number expected before this line");
  }
  /* Remembers that the stage has a filter; there can be one. */
  bool begin_filter(int block) {
    if (!in_stage()) return false;
    if (now_->filter != 0 && now_->filter != block) {
      return lines_.refuse("a stage has two filters");
    }
    now_->filter = block;
    return true;
  }
  bool number(const Line &line, double &value) {
    const auto words = response_words(line.value);
    return (!words.empty() && read_finite(words[0], value)) ||
           lines_.refuse("a number expected");
  }
  bool count(const Line &line, long &value) {
    return read_count(line.value, 0, 10'000'000, value) ||
           lines_.refuse("a count expected");
  }
  bool row(const Line &line, std::size_t least, double (&values)[5]) {
    std::fill(std::begin(values), std::end(values), 0.0);
    if (line.row.size() < least) return lines_.refuse("numbers expected");
    for (std::size_t i = 0; i < std::min<std::size_t>(line.row.size(), 5); ++i) {
      if (!read_finite(line.row[i], values[i]))
        return lines_.refuse("numbers expected");
    }
    return true;
  }
  void take_unit(const Line &line, bool input) {
    std::string unit = unit_of(line.value);
    if (unit == "COUNT") unit = "COUNTS";
    (input ? now_->stage.input_unit : now_->stage.output_unit) = unit;
  }

  /* What the blockettes of filters share: stage, units and the lengths of their lists. */
  bool take_filter(const Line &line) {
    const FilterFields &fields = *std::find_if(
        std::begin(kFilters), std::end(kFilters),
        [&](const FilterFields &each) { return each.block == line.block; });
    if (line.field == 3 && fields.stage != 3) return take_type(line);
    if (line.field == fields.stage) {
      return allows_type(line.block) && begin_stage(line, line.block) &&
             hold_filter(line.block);
    }
    if (!in_stage()) return false;
    if (line.field == fields.input || line.field == fields.output) {
      take_unit(line, line.field == fields.input);
      return true;
    }
    if (line.field == fields.zeros) return count(line, now_->zeros);
    if (fields.poles != 0 && line.field == fields.poles) {
      return count(line, now_->poles);
    }
    return take_numbers(line);
  }

  /* The type of a transfer function; in a dictionary blockette the stage is known before. */
  bool take_type(const Line &line) {
    type_ = line.value.empty() ? ' ' : line.value.front();
    if (now_ == nullptr || now_->block != 60) return true;
    return allows_type(line.block) && hold_filter(line.block);
  }
  bool allows_type(int block) {
    return block != 54 || type_ == 'D' ||
           lines_.refuse("coefficients of an analog filter are not understood");
  }
  bool hold_filter(int block) {
    if (!begin_filter(block)) return false;
    if (block != 53) return true;
    using Domain = PoleZeroFilter::Domain;
    switch (type_) {
      case 'A':
        now_->roots.domain = Domain::kRadians;
        return true;
      case 'B':
        now_->roots.domain = Domain::kHertz;
        return true;
      case 'D':
        now_->roots.domain = Domain::kDigital;
        return true;
      default:
        return lines_.refuse("a transfer function of type A, B or D expected");
    }
  }

  /* The numbers of a filter. */
  bool take_numbers(const Line &line) {
    constexpr auto place = [](int block, int field) { return 100 * block + field; };
    switch (place(line.block, line.field)) {
      case place(53, 7):
        return number(line, now_->roots.a0);
      case place(53, 8):
        return number(line, now_->roots.a0_frequency);
      case place(53, 10):
        return take_root(line, now_->roots.zeros);
      case place(53, 15):
        return take_root(line, now_->roots.poles);
      case place(54, 8):
      case place(61, 9):
        return take_coefficient(line, now_->coefficients.numerators);
      case place(54, 11):
        return take_coefficient(line, now_->coefficients.denominators);
      case place(55, 7):
        return take_table_row(line);
      case place(61, 5):
        now_->symmetry = line.value.empty() ? 'A' : line.value.front();
        return begin_filter(61);
      default:
        return true;
    }
  }
  template <class Root>
  bool take_root(const Line &line, std::vector<Root> &roots) {
    double values[5];
    if (!row(line, 2, values)) return false;
    roots.emplace_back(values[0], values[1]);
    return true;
  }
  bool take_coefficient(const Line &line, std::vector<double> &list) {
    double values[5];
    if (!row(line, 1, values)) return false;
    list.push_back(values[0]);
    return true;
  }
  bool take_table_row(const Line &line) {
    double values[5];
    if (!row(line, 5, values)) return false;
    auto &rows = now_->table.rows;
    if (values[0] < 0.0 || (!rows.empty() && values[0] <= rows.back().frequency)) {
      return lines_.refuse("frequencies do not ascend");
    }
    rows.push_back({values[0], values[1], values[3], values[2], values[4]});
    return true;
  }

  bool take_decimation(const Line &line) {
    if (line.field == 3) return begin_stage(line, 57) && make_decimation();
    if (!in_stage() || !make_decimation()) return false;
    Decimation &each = *now_->stage.decimation;
    long whole = 0;
    switch (line.field) {
      case 4:
        if (!number(line, each.samprate)) return false;
        return each.samprate > 0.0 || lines_.refuse("the sample rate is not positive");
      case 5:
        if (!count(line, whole)) return false;
        each.factor = static_cast<int>(std::max(whole, 1L));
        return true;
      case 6:
        if (!count(line, whole)) return false;
        each.offset = static_cast<int>(whole);
        return true;
      case 7:
        return number(line, each.delay);
      case 8:
        return number(line, each.correction);
      default:
        return true;
    }
  }
  bool make_decimation() {
    if (!now_->stage.decimation) now_->stage.decimation.emplace();
    return true;
  }

  bool take_gain(const Line &line) {
    if (line.field == 3) return begin_stage(line, 58);
    if (!in_stage()) return false;
    if (line.field == 4) return number(line, now_->stage.gain);
    if (line.field == 5) return number(line, now_->stage.gain_frequency);
    return true;
  }

  /* Ends the response that is being read. */
  bool finish() {
    Response response;
    for (auto &[number, each] : stages_) {
      if (number == 0) {
        response.sensitivity = each.stage.gain;
        response.sensitivity_frequency = each.stage.gain_frequency;
        continue;
      }
      if (!complete(number, each)) return false;
      response.stages.push_back(std::move(each.stage));
    }
    /* A sensitivity alone is a response of sorts. */
    if (response.stages.empty() && response.sensitivity != 0.0) {
      response.stages.emplace_back().gain = response.sensitivity;
    }
    if (!response.stages.empty()) choice_.offer(std::move(response), epoch_);
    stages_.clear();
    now_ = nullptr;
    epoch_ = ResponseEpoch();
    return true;
  }

  bool complete(long number, Stage &each) {
    const std::string name = "stage " + std::to_string(number);
    ResponseStage &stage = each.stage;
    if (!each.roots.zeros.empty() || !each.roots.poles.empty() ||
        each.roots.a0 != 1.0) {
      if (static_cast<long>(each.roots.zeros.size()) != each.zeros ||
          static_cast<long>(each.roots.poles.size()) != each.poles) {
        return lines_.refuse(name +
                             " does not have as many zeros and poles as announced");
      }
      stage.filter = std::move(each.roots);
    } else if (!each.table.rows.empty()) {
      if (static_cast<long>(each.table.rows.size()) != each.zeros) {
        return lines_.refuse(name + " does not have as many rows as announced");
      }
      stage.filter = std::move(each.table);
    } else if (!each.coefficients.numerators.empty()) {
      CoefficientFilter &filter = each.coefficients;
      if (static_cast<long>(filter.numerators.size()) != each.zeros ||
          static_cast<long>(filter.denominators.size()) != each.poles) {
        return lines_.refuse(name + " does not have as many coefficients as announced");
      }
      /* Half of a symmetric filter is given, with the middle one for an odd number. */
      if (each.symmetry == 'B' || each.symmetry == 'C') {
        std::vector<double> half(
            filter.numerators.rbegin() + (each.symmetry == 'B' ? 1 : 0),
            filter.numerators.rend());
        filter.numerators.insert(filter.numerators.end(), half.begin(), half.end());
      }
      stage.filter = std::move(filter);
    } else if (each.zeros + each.poles > 0) {
      return lines_.refuse(name + " does not have the numbers that it announces");
    }
    const auto *const poles = std::get_if<PoleZeroFilter>(&stage.filter);
    const bool digital =
        std::holds_alternative<CoefficientFilter>(stage.filter) ||
        (poles != nullptr && poles->domain == PoleZeroFilter::Domain::kDigital);
    if (stage.decimation && !(stage.decimation->samprate > 0.0)) {
      stage.decimation.reset();
    }
    if (digital && !stage.decimation) {
      return lines_.refuse(name + " is digital and has no sample rate");
    }
    return true;
  }

  ResponseLines &lines_;
  ResponseChoice choice_;
  std::map<long, Stage> stages_;
  Stage *now_ = nullptr;
  char type_ = ' ';
  ResponseEpoch epoch_;
};

}  // namespace

bool read_seed_response(ResponseLines &lines, double time, Response &response) {
  return SeedReader(lines, time).read(response);
}

}  // namespace ksutil
