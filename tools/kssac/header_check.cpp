#include "tools/kssac/header_check.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <initializer_list>

#include "tools/common/cli.h"
#include "tools/kssac/header_names.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

struct RealRange {
  const char *name;
  double least, most;
};
constexpr RealRange kReals[] = {
    {"STLA", -90, 90},    {"EVLA", -90, 90},  {"STLO", -180, 360}, {"EVLO", -180, 360},
    {"CMPAZ", -360, 360}, {"CMPINC", 0, 180}, {"AZ", -360, 360},   {"BAZ", -360, 360},
    {"GCARC", 0, 180},    {"DIST", 0, 40100},
};

struct IntegerRange {
  const char *name;
  std::int64_t least, most;
};
constexpr IntegerRange kIntegers[] = {
    {"NZYEAR", 1, 9999}, {"NZJDAY", 1, 366}, {"NZHOUR", 0, 23},
    {"NZMIN", 0, 59},    {"NZSEC", 0, 60},   {"NZMSEC", 0, 999},
};

struct Choice {
  const char *name;
  std::initializer_list<std::int64_t> values;
};
const Choice kChoices[] = {
    {"IFTYPE", {1, 2, 3, 4, 51}},
    {"IDEP", {5, 6, 7, 8, 50}},
    {"IZTYPE", {5, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22}},
};

/* The text of a bound in messages. */
std::string text_of(double bound) {
  return std::to_string(static_cast<std::int64_t>(bound));
}

class Check {
 public:
  Check(KSSac *kssac, const std::set<std::string> &changed, const std::string &path)
      : kssac_(kssac), changed_(changed), path_(path) {}

  bool reals() {
    for (const std::string &name : changed_) {
      const KSSacDefine *const define = kssac_get_header_define(name.c_str());
      double value = 0.0;
      if (define->type != KSSAC_FLOAT) continue;
      kssac_gethdr_kssac(kssac_, name.c_str(), &value, (char *)nullptr);
      if (!std::isfinite(value)) return refuse(name, "must be a finite number");
    }
    for (const RealRange &range : kReals) {
      double value;
      if (!is_set(range.name, value) || (value >= range.least && value <= range.most)) {
        continue;
      }
      return refuse(range.name, "must be between " + text_of(range.least) + " and " +
                                    text_of(range.most));
    }
    double delta;
    if (is_set("DELTA", delta) && !(delta > 0.0)) {
      return refuse("DELTA", "must be above 0");
    }
    return true;
  }

  bool integers() {
    for (const IntegerRange &range : kIntegers) {
      std::int64_t value;
      if (!is_set(range.name, value) || (value >= range.least && value <= range.most)) {
        continue;
      }
      return refuse(range.name, "must be between " + std::to_string(range.least) +
                                    " and " + std::to_string(range.most));
    }
    for (const Choice &choice : kChoices) {
      std::int64_t value;
      if (!is_set(choice.name, value) ||
          std::find(choice.values.begin(), choice.values.end(), value) !=
              choice.values.end()) {
        continue;
      }
      std::string names;
      for (const std::int64_t known : choice.values) {
        names += " " + enumerated_name(known);
      }
      return refuse(choice.name, "must be one of" + names);
    }
    return true;
  }

  /* Day 366 is allowed in leap years only. */
  bool day_of_year() {
    std::int64_t year, day;
    if (!changed_.contains("NZJDAY") && !changed_.contains("NZYEAR")) return true;
    if (!known(kssac_, "NZYEAR", year) || !known(kssac_, "NZJDAY", day) || day < 366) {
      return true;
    }
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return leap ||
           refuse("NZJDAY", "must be between 1 and 365 in " + std::to_string(year));
  }

  /* The file must have room for the data that its header announces: spectra, and
   * unevenly spaced samples with their times, take two values for each of NPTS. */
  bool room() {
    std::int64_t npts = 0, type = 0, even = 0, nx = 0, ny = 0;
    if (!changed_.contains("IFTYPE") && !changed_.contains("LEVEN")) return true;
    known(kssac_, "NPTS", npts);
    known(kssac_, "IFTYPE", type);
    known(kssac_, "LEVEN", even);
    constexpr std::int64_t kSeries = 1, kReal = 2, kPolar = 3, kPairs = 4, kPlane = 51;
    std::error_code error;
    const auto bytes =
        static_cast<std::int64_t>(std::filesystem::file_size(path_, error));
    const std::int64_t held = error ? 0 : (bytes - KSSAC_HEADER_SIZE) / 4;
    if (type == kReal || type == kPolar) {
      return npts <= held / 2 ||
             refuse("IFTYPE",
                    "is not a spectrum: the file has one value for each sample");
    }
    if (type == kPlane) {
      const bool plane = known(kssac_, "NXSIZE", nx) && known(kssac_, "NYSIZE", ny) &&
                         nx > 0 && ny > 0 && nx <= held && ny <= held / nx;
      return plane ||
             refuse("IFTYPE", "is not a plane: the file lacks NXSIZE or NYSIZE");
    }
    if ((type == kSeries || type == kPairs) && even == 0) {
      return npts <= held / 2 ||
             refuse("LEVEN", "must be TRUE: the file has one value for each sample");
    }
    return true;
  }

  /* The samples stay as they are, so NPTS must be the number in the file. */
  bool count(long samples) {
    std::int64_t npts = 0;
    if (!changed_.contains("NPTS")) return true;
    if (is_set("NPTS", npts) && npts == samples) return true;
    return refuse("NPTS", "must be " + std::to_string(samples) +
                              ", the number of samples in the file");
  }

  /* E is the time of the last sample. */
  bool end() {
    double begin, delta, end;
    std::int64_t npts, even = 0;
    if (!known(kssac_, "LEVEN", even) || even == 0 || !known(kssac_, "B", begin) ||
        !known(kssac_, "DELTA", delta) || !known(kssac_, "NPTS", npts) || npts < 1) {
      return true;
    }
    const double last = begin + static_cast<double>(npts - 1) * delta;
    if (is_set("E", end)) {
      return std::abs(end - last) <= delta / 2 ||
             refuse("E", "must be B + (NPTS - 1) DELTA");
    }
    if (!changed_.contains("B") && !changed_.contains("DELTA") &&
        !changed_.contains("NPTS")) {
      return true;
    }
    return kssac_puthdr_kssac(kssac_, "E", last, (char *)nullptr) == 0;
  }

 private:
  /* Whether a variable was changed to a value. */
  template <class Value>
  bool is_set(const char *name, Value &value) const {
    return changed_.contains(name) && known(kssac_, name, value);
  }

  bool refuse(const std::string &name, const std::string &why) const {
    complain(path_ + ": " + name + " " + why);
    return false;
  }

  KSSac *const kssac_;
  const std::set<std::string> &changed_;
  const std::string &path_;
};

}  // namespace

bool check_changes(KSSac *kssac, const std::set<std::string> &changed, long samples,
                   const std::string &path) {
  Check check(kssac, changed, path);
  return check.reals() && check.integers() && check.day_of_year() && check.room() &&
         check.count(samples) && check.end();
}

}  // namespace ksutil::tools
