/* from_db: kssac from-db. */
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "platform/trace/waveform.h"
#include "tools/common/open_database.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/common/write_safely.h"
#include "tools/kssac/channel_codes.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/sac_file.h"
#include "tools/kssac/station_join.h"

namespace ksutil::tools {
namespace {

struct FromDbOptions {
  std::string database, where, directory = ".", start, end;
  long orid = -1;
  bool calibrate = false, force = false, quiet = false;
};

/* The part of the waveforms to copy. */
struct Window {
  double start = -std::numeric_limits<double>::infinity();
  double end = std::numeric_limits<double>::infinity();
};

/* Reads a date or epoch seconds; an empty text leaves the time as it is. */
bool parse_time(const std::string &text, double &time) {
  return text.empty() || parse_real(text, time) || parse_date_text(text, time);
}

/* The fault of the text of a time, for the parser; empty if there is none. */
std::string time_fault(const std::string &text) {
  double time = 0.0;
  return parse_time(text, time) ? "" : "'" + text + "' is not a time";
}

/* Copies waveforms of one database into files. */
class Extraction {
 public:
  Extraction(const FromDbOptions &options, Dbptr rows, Dbptr origin,
             const Window &window)
      : options_(options),
        join_(rows),
        codes_(rows),
        origin_(origin),
        window_(window) {}

  /* Writes the file of one row; false with messages. */
  bool write(Dbptr row) {
    WaveformSegment segment;
    if (!read_segment(row, segment)) return false;
    std::int64_t first;
    const std::int64_t count =
        samples_between(segment, window_.start, window_.end, first);
    if (count == 0) return true;
    const double time = segment.time + static_cast<double>(first) / segment.samprate;
    std::vector<float> samples;
    if (!read_samples(segment, first, count, samples)) return false;
    if (options_.calibrate) scale(samples, segment.calib);
    const KssacPtr kssac(kssac_create(nullptr, nullptr));
    const Dbptr joined = join_.record(row);
    /* The row's own time is that of the whole segment, so the samples are put after it;
     * the origin, whose time counts from the reference time, is put last. */
    return kssac != nullptr && joined.table != dbINVALID &&
           kssac_putevent_kssac(kssac.get(), joined, dbinvalid()) == 0 &&
           codes_.restore(row, kssac.get()) &&
           kssac_putdata_kssac(kssac.get(), static_cast<long>(count), samples.data(),
                               segment.segtype.c_str(), time, segment.samprate) == 0 &&
           kssac_putevent_kssac(kssac.get(), dbinvalid(), origin_) == 0 &&
           write_file(kssac.get(), time);
  }

 private:
  /* Samples with an unknown factor stay as they are. */
  static void scale(std::vector<float> &samples, double calib) {
    if (calib == 0.0 || !std::isfinite(calib)) return;
    for (float &sample : samples) {
      sample = static_cast<float>(static_cast<double>(sample) * calib);
    }
  }

  bool write_file(KSSac *kssac, double time) {
    const std::string path = (std::filesystem::path(options_.directory) /
                              waveform_file_name(channel_name(kssac), time, "sac"))
                                 .string();
    /* Two rows may have the same name; --force only replaces files of earlier runs. */
    if (!written_.insert(path).second) {
      elog_log(0, "%s is the file of another waveform too; choose them with --where.\n",
               path.c_str());
      return false;
    }
    if (!options_.force && ::access(path.c_str(), F_OK) == 0) {
      elog_log(0, "%s is there already.\n", path.c_str());
      return false;
    }
    const auto write = [&](const std::string &to) {
      return kssac_write_to_file_kssac(kssac, to.c_str()) == 0;
    };
    if (!write_safely(path, write)) return false;
    if (!options_.quiet) std::puts(path.c_str());
    return true;
  }

  const FromDbOptions &options_;
  StationJoin join_;
  ChannelCodes codes_;
  const Dbptr origin_;
  const Window window_;
  std::set<std::string> written_;  // by this run
};

/* The row of the chosen origin; false, with a complaint, when it is missing. */
bool find_origin(const OpenDatabase &database, long orid, Dbptr &origin) {
  if (orid < 0) return true;
  origin =
      dbsubset(database.table("origin"), ("orid == " + std::to_string(orid)).c_str());
  long count = 0;
  if (origin.table == dbINVALID || dbquery(origin, dbq_record_count, &count) != 0) {
    return false;
  }
  if (count == 0) {
    complain("there is no origin " + std::to_string(orid));
    return false;
  }
  origin.record = 0;
  return true;
}

int from_db(const FromDbOptions &options) {
  Window window;
  if (!parse_time(options.start, window.start) ||
      !parse_time(options.end, window.end)) {
    return kFailure;
  }
  const OpenDatabase database(options.database, "r");
  Dbptr origin = dbinvalid();
  if (!database || !find_origin(database, options.orid, origin)) return kFailure;
  Dbptr rows = database.table("wfdisc");
  if (rows.table != dbINVALID && !options.where.empty()) {
    rows = dbsubset(rows, options.where.c_str());
  }
  long count = 0;
  if (rows.table == dbINVALID || dbquery(rows, dbq_record_count, &count) != 0) {
    return kFailure;
  }
  if (count == 0) {
    complain("no row of wfdisc is meant");
    return kFailure;
  }
  Extraction extraction(options, rows, origin, window);
  Progress progress("waveforms", count, options.quiet);
  int result = kOk;
  for (rows.record = 0; rows.record < count; ++rows.record) {
    if (!extraction.write(rows)) {
      print_register();
      result = kFailure;
    }
    progress.reach(rows.record + 1);
  }
  return result;
}

void describe_from_db(CLI::App &command, FromDbOptions &options) {
  add_database(command, options.database);
  command.add_option("--where", options.where,
                     "Expression over wfdisc that chooses the rows");
  command
      .add_option("--start", options.start,
                  "Nothing before this time: a date or epoch seconds")
      ->check(time_fault);
  command.add_option("--end", options.end, "Nothing after this time")
      ->check(time_fault);
  command.add_option("--orid", options.orid, "Origin whose place and time to fill in")
      ->check(whole_number(0));
  command.add_option("--dir", options.directory, "Folder for the files")
      ->check(CLI::ExistingDirectory);
  command.add_flag(
      "--calib", options.calibrate,
      "Samples in physical units: multiplied with calib where it is known");
  command.add_flag("--force", options.force, "Replace files that are there already");
  command.add_flag("-q,--quiet", options.quiet, "Do not print the names of the files");
}

}  // namespace

Command from_db_command() {
  return make_command<FromDbOptions>(
      "from-db", "Writes the waveforms of a database to SAC files",
      {"kssac from-db --where \"sta == 'MLR'\" data/mlr/mlr",
       "kssac from-db --start 2010-05-20T00:01 --end 2010-05-20T00:02 data/mlr/mlr"},
      describe_from_db, from_db);
}

}  // namespace ksutil::tools
