/* get: kswave get. */
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"
#include "platform/trace/trace.h"
#include "platform/trace/waveform.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/common/write_safely.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/event_picks.h"
#include "tools/kswave/rotation.h"
#include "tools/kswave/selection.h"

namespace ksutil::tools {
namespace {

enum class GetFormat { kSac, kMiniseed, kText };

struct GetOptions {
  Selection selection;
  Processing processing;
  EventChoice event;
  GetFormat format = GetFormat::kSac;
  std::string directory = ".", into;
  bool rotate = false, force = false, quiet = false;
  std::optional<double> seaz;
};

/* Writes the files of one run, each as a whole and none twice. */
class Extractor {
 public:
  /* into: the database that receives rows of miniSEED files; null for none */
  Extractor(const GetOptions &options, const ChannelSet &set, const EventPicks &event,
            const OpenDatabase *into)
      : options_(options), set_(set), event_(event), into_(into) {}

  bool write(int channel) {
    const Processing &processing = options_.processing;
    if (options_.format != GetFormat::kText && processing.none()) {
      return write_counts(channel);
    }
    const Series series(set_, channel, processing);
    if (!series.good()) return false;
    return options_.format == GetFormat::kText
               ? write_text(channel_name(set_.channel(channel)), series.vector())
               : write_series(channel, series);
  }

  /* Writes up, radial and transverse motion of three components. */
  bool write(const Components &components) {
    const double seaz = options_.seaz
                            ? *options_.seaz
                            : event_.azimuth(set_.channel(components.channels.front()));
    if (std::isnan(seaz)) {
      elog_log(0, "%s: the azimuth of the event is not known.\n",
               components.name.c_str());
      return false;
    }
    const Rotation rotation(set_, components, options_.processing, seaz);
    if (!rotation.good()) return false;
    for (const Rotation::Motion &motion : rotation.motions()) {
      if (!(options_.format == GetFormat::kText
                ? write_text(components.name + motion.component + components.behind,
                             *ksvector2_get_vector(motion.tag))
                : write_motion(components.channels.front(), motion))) {
        return false;
      }
    }
    return true;
  }

 private:
  void say(const std::string &path) const {
    if (!options_.quiet) std::puts(path.c_str());
  }

  /* Prints the paths that a function of the data set wrote. */
  bool say(int count, Tbl *list) const {
    const TblOfTexts paths(list);
    for_each<const char>(paths.get(), [&](const char *path) { say(path); });
    return count >= 0;
  }

  bool write_counts(int channel) const {
    Tbl *list = nullptr;
    const char *const dir = options_.directory.c_str();
    const int force = options_.force ? 1 : 0;
    const int count =
        options_.format == GetFormat::kSac
            ? ksdsseis_write_sac(set_.get(), channel, dir, event_.origin, force, &list)
            : ksdsseis_write_miniseed(set_.get(), channel, dir,
                                      into_ == nullptr ? dbinvalid() : into_->get(),
                                      force, &list);
    return say(count, list);
  }

  bool write_series(int channel, const Series &series) const {
    Tbl *list = nullptr;
    const int count = ksdsseis_write_vector(
        set_.get(), channel, series.tag(), options_.processing.motion.c_str(),
        options_.format == GetFormat::kSac ? "sac" : "mseed",
        options_.directory.c_str(), event_.origin, options_.force ? 1 : 0, &list);
    return say(count, list);
  }

  bool write_motion(int channel, const Rotation::Motion &motion) const {
    Tbl *list = nullptr;
    const int count = ksdsseis_write_component(
        set_.get(), channel, motion.tag, motion.component, motion.hang, motion.vang,
        options_.processing.motion.c_str(),
        options_.format == GetFormat::kSac ? "sac" : "mseed",
        options_.directory.c_str(), event_.origin, options_.force ? 1 : 0, &list);
    return say(count, list);
  }

  bool write_text(const std::string &name, const ksvector2 &vector) {
    const std::string path = (std::filesystem::path(options_.directory) /
                              waveform_file_name(name, vector.time, "txt"))
                                 .string();
    if (!written_.insert(path).second) {
      elog_log(0, "%s is the file of another channel too.\n", path.c_str());
      return false;
    }
    if (!options_.force && ::access(path.c_str(), F_OK) == 0) {
      elog_log(0, "%s is there already.\n", path.c_str());
      return false;
    }
    const bool good = write_safely(path, [&](const std::string &beside) {
      return write_lines(beside, name, vector);
    });
    if (good) say(path);
    return good;
  }

  /* A line for each sample: time and value; gaps have none. */
  bool write_lines(const std::string &path, const std::string &name,
                   const ksvector2 &vector) const {
    std::FILE *const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
      elog_log(1, "cannot make %s.\n", path.c_str());
      return false;
    }
    std::string text = "# " + name + " " + format_text("%.10g", 1.0 / vector.dt) +
                       " Hz, " + Series::unit(options_.processing) + "\n";
    bool good = true;
    for (int i = 0; i < vector.npts && good; ++i) {
      const double value = vector.data[i];
      if (!is_gap_sample(value)) {
        text +=
            time_cell(vector.time + i * vector.dt) + " " + shortest_cell(value) + "\n";
      }
      if (text.size() > 60000 || i + 1 == vector.npts) {
        good = std::fwrite(text.data(), 1, text.size(), file) == text.size();
        text.clear();
      }
    }
    if (std::fclose(file) != 0 || !good) {
      elog_log(1, "cannot write %s.\n", path.c_str());
      return false;
    }
    return true;
  }

  const GetOptions &options_;
  const ChannelSet &set_;
  const EventPicks &event_;
  const OpenDatabase *const into_;
  std::set<std::string> written_;
};

int get(const GetOptions &options) {
  if (!options.into.empty() &&
      (options.format != GetFormat::kMiniseed || options.force || options.rotate ||
       !options.processing.none())) {
    complain("--into goes with --format mseed, new files and unprocessed samples");
    return kUsage;
  }
  if (options.rotate != (options.seaz || options.event.any()) &&
      (options.rotate || options.seaz)) {
    complain(options.rotate ? "--rotate needs --evid, --orid or --seaz"
                            : "--seaz goes with --rotate");
    return kUsage;
  }
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  EventPicks event;
  if (options.event.any() && !read_event(set.database(), options.event, event)) {
    return kFailure;
  }
  std::unique_ptr<OpenDatabase> into;
  if (!options.into.empty()) {
    into = std::make_unique<OpenDatabase>(options.into, "r+");
    if (!*into) return kFailure;
  }
  int result = set.report();
  Extractor extractor(options, set, event, into.get());
  std::vector<Components> stations;
  if (options.rotate) stations = components_of(set);
  const int count = options.rotate ? static_cast<int>(stations.size()) : set.count();
  if (options.rotate && anything_registered()) {
    print_register();
    result = kFailure;
  }
  Progress progress(options.rotate ? "stations" : "channels", count, options.quiet);
  for (int i = 0; i < count; ++i) {
    const bool written = options.rotate
                             ? extractor.write(stations[static_cast<std::size_t>(i)])
                             : extractor.write(i);
    /* Also of segments that were passed over. */
    if (!written || anything_registered()) {
      progress.wipe();
      print_register();
      result = kFailure;
    }
    progress.reach(i + 1);
  }
  return result;
}

void describe_get(CLI::App &command, GetOptions &options) {
  static const std::map<std::string, GetFormat> formats{{"sac", GetFormat::kSac},
                                                        {"mseed", GetFormat::kMiniseed},
                                                        {"text", GetFormat::kText}};
  add_selection(command, options.selection);
  command
      .add_option("--format", options.format,
                  "sac (a file for each stretch without gaps), mseed or text")
      ->transform(CLI::CheckedTransformer(formats));
  command.add_option("--dir", options.directory, "Folder for the files")
      ->check(CLI::ExistingDirectory);
  command.add_option("--into", options.into,
                     "Database that receives rows of wfdisc for the miniSEED files");
  add_processing(command, options.processing);
  add_event_choice(command, options.event);
  command.add_flag("--rotate", options.rotate,
                   "Up, radial and transverse motion of each three components");
  command
      .add_option("--seaz", options.seaz,
                  "Of --rotate: azimuth of the event at the stations, in degrees;\n"
                  "without it that of the origin")
      ->check(number_between(-360, 360));
  command.add_flag("--force", options.force, "Replace files that are there already");
  command.add_flag("-q,--quiet", options.quiet, "Do not print the names of the files");
}

}  // namespace

Command get_command() {
  return make_command<GetOptions>(
      "get", "Writes waveforms to SAC, miniSEED or text files",
      {"kswave get --force --start 2010-05-20T00:01 data/mlr/mlr",
       "kswave get --format text --chan BHZ data/mlr/mlr",
       "kswave get --motion V --corners 0.02,0.05,10,15 --force --chan BHZ "
       "data/mlr/mlr"},
      describe_get, get);
}

}  // namespace ksutil::tools
