/* dump: kssac dump. */
#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/raw_file.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

struct DumpOptions {
  std::string file;
  bool raw = false, relative = false;
  long limit = LONG_MAX;
  Form form = Form::kText;
};

/* The shortest text that gives the same number. */
std::string number_text(float value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value);
  return {text, end.ptr};
}

/* The text of a sample: null if it is not finite, unless values are shown as stored. */
std::string value_text(float value, const DumpOptions &options) {
  if (std::isfinite(value)) return number_text(value);
  if (options.form == Form::kJson) return "null";
  return options.raw ? number_text(value) : "";
}

/* The times of the samples, in seconds after the reference time. */
class SampleTimes {
 public:
  /* False, with a message, when the header does not give them. */
  bool open(KSSac *kssac, const std::string &path) {
    std::int64_t even = 0;
    known(kssac, "LEVEN", even);
    if (even == 0) return read_times(kssac, path);
    if (!is_evenly_sampled(kssac, path)) return false;
    known(kssac, "B", begin_);
    known(kssac, "DELTA", delta_);
    /* The decimal number that was meant: 0.01 rather than the nearest single-precision
     * number, whose error adds up to a sample after some hours. */
    parse_real(number_text(static_cast<float>(delta_)), delta_);
    return true;
  }
  double at(std::size_t i) const {
    return times_.empty() ? begin_ + static_cast<double>(i) * delta_
                          : static_cast<double>(times_[i]);
  }

 private:
  /* The times of unevenly spaced samples follow their values. */
  bool read_times(KSSac *kssac, const std::string &path) {
    if (kssac->image->data == nullptr) {
      complain(path + " holds " + kssac_file_type_text(kssac) + ", not samples");
      return false;
    }
    const FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
    times_.resize(static_cast<std::size_t>(kssac->image->npts_data));
    const std::size_t bytes = times_.size() * sizeof(float);
    const auto at = static_cast<off_t>(KSSAC_HEADER_SIZE + bytes);
    if (file &&
        read_at(file.get(), times_.data(), bytes, at) == static_cast<ssize_t>(bytes)) {
      if (is_swapped(path)) {
        reverse_words(reinterpret_cast<char *>(times_.data()), bytes,
                      KSSAC_HEADER_SIZE);
      }
      return true;
    }
    complain(path + " lacks the times of its unevenly spaced samples");
    return false;
  }

  double begin_ = 0.0, delta_ = 0.0;
  std::vector<float> times_;
};

int dump(const DumpOptions &options) {
  const KssacPtr kssac = read_sac(options.file);
  SampleTimes times;
  if (kssac == nullptr || !times.open(kssac.get(), options.file)) return kFailure;
  double reference = 0.0;
  const bool absolute = !options.relative && reference_time(kssac.get(), reference);
  if (options.raw && !absolute) {
    complain(options.file + " has no reference time");
    return kFailure;
  }
  const bool date = absolute && !options.raw;
  const bool json = options.form == Form::kJson, csv = options.form == Form::kCsv;
  if (csv) std::puts("time,value");
  if (!json && !csv) std::puts(date ? "time value" : "time/s value");
  if (json) std::puts("[");
  const float *const data = kssac->image->data;
  const auto count = static_cast<std::size_t>(
      std::min(static_cast<long>(kssac->image->npts_data), options.limit));
  for (std::size_t i = 0; i < count; ++i) {
    const double time = times.at(i);
    const std::string when =
        date ? time_cell(reference + time)
             : format_text("%.6f", absolute ? reference + time : time);
    const std::string value = value_text(data[i], options);
    if (json) {
      std::printf(date ? " {\"time\": \"%s\", \"value\": %s}%s\n"
                       : " {\"time\": %s, \"value\": %s}%s\n",
                  when.c_str(), value.c_str(), i + 1 < count ? "," : "");
    } else {
      std::printf("%s%c%s\n", when.c_str(), csv ? ',' : ' ', value.c_str());
    }
  }
  if (json) std::puts("]");
  return kOk;
}

void describe_dump(CLI::App &command, DumpOptions &options) {
  command.add_option("file", options.file, "SAC file")->required();
  CLI::Option *raw =
      command.add_flag("--raw,--epoch", options.raw,
                       "Times as epoch seconds, values that are not finite too");
  command
      .add_flag("--relative", options.relative,
                "Times as seconds after the reference time, as in files without one")
      ->excludes(raw);
  add_limit(command, options.limit, "samples");
  add_form_options(command, options.form);
}

}  // namespace

Command dump_command() {
  return make_command<DumpOptions>(
      "dump", "Prints the samples with their times",
      {"kssac dump --limit 10 MLR.BHZ.2010140.000000.019.sac",
       "kssac dump --csv --relative MLR.BHZ.2010140.000000.019.sac"},
      describe_dump, dump);
}

}  // namespace ksutil::tools
