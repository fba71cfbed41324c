#include "formats/waveform_index/waveform_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>
#include <utility>

#include "formats/waveform_index/index_tables.h"
#include "platform/clock/clock.h"
#include "platform/db/shared/read_only_tables.h"
#include "platform/elog/elog.h"
#include "platform/trace/waveform.h"

namespace ksutil::waveform_index {
namespace {

/* Whether a path lies in a folder or below it. */
bool lies_under(std::string_view path, std::string_view folder) {
  if (folder == "/") return true;
  return path.size() > folder.size() && path.substr(0, folder.size()) == folder &&
         path[folder.size()] == '/';
}

class Entry {
 public:
  Entry(IndexTables &tables, const Scan &scan, const IndexListener &listener,
        IndexCounts &counts)
      : tables_(tables),
        scan_(scan),
        listener_(listener),
        counts_(counts),
        foff_(tables.layout(kWfdisc), "foff"),
        sta_(tables.layout(kWfdisc), "sta"),
        chan_(tables.layout(kWfdisc), "chan"),
        real_folders_(scan.folders().size()) {}

  bool run() {
    std::int64_t done = 0;
    for (const ScannedFile &file : scan_.files()) {
      if (!enter(file)) return false;
      listener_.reached(++done);
    }
    tell_of_the_gone();
    return tables_.write_counters();
  }

 private:
  struct Known {
    long row;
    std::int64_t foff;
    IndexTables::Channel channel;
    bool used = false;
  };

  std::string path_of(const ScannedFile &file) const {
    const std::string &folder = scan_.folders()[file.folder];
    return folder + (folder.back() == '/' ? "" : "/") + file.name;
  }

  /* The folder of a file behind symbolic links, by which rows are recognised. */
  const std::string &real_folder(const ScannedFile &file) {
    std::string &real = real_folders_[file.folder];
    if (real.empty()) {
      real = std::filesystem::weakly_canonical(scan_.folders()[file.folder]).string();
      if (real == "/") real = "";
    }
    return real;
  }

  /* The field dir for a folder: from the folder of wfdisc if it lies there, else absolute. */
  std::string dir_of(const ScannedFile &file) const {
    const std::string &folder = scan_.folders()[file.folder];
    if (folder == tables_.folder()) return ".";
    if (!lies_under(folder, tables_.folder())) return folder;
    return folder.substr(tables_.folder() == "/" ? 1 : tables_.folder().size() + 1);
  }

  std::string text(const db::TextColumn &column, std::string_view row) const {
    std::string_view value;
    return column.read(row, value) ? std::string(value) : "";
  }

  /* The rows that a file has. */
  std::vector<Known> known_rows(const std::string &path) {
    std::vector<Known> known;
    for (const long row : tables_.file_rows().find(path)) {
      const std::string_view record = tables_.rows(kWfdisc).row(row);
      if (record.empty() || tables_.path_of(record) != path) continue;
      std::int64_t foff = 0;
      foff_.read(record, foff);
      known.push_back({row, foff, {text(sta_, record), text(chan_, record)}});
      met_.push_back(row);
    }
    return known;
  }

  void refuse(const std::string &path, const std::string &why, std::int64_t pieces) {
    counts_.refused += pieces;
    listener_.refused(path, why);
  }

  /* "its name is longer than ..."; "" for a text that the field of wfdisc can hold. */
  std::string name_fault(const char *mention, std::string_view field,
                         const std::string &text) const {
    const db::Field *const place = tables_.layout(kWfdisc).find(field);
    const std::string fault = place == nullptr
                                  ? "has no field " + std::string(field) + " in wfdisc"
                                  : waveform_name_fault(*place, text);
    return fault.empty() ? "" : mention + fault;
  }

  bool enter(const ScannedFile &file) {
    const std::string path = path_of(file), dir = dir_of(file);
    std::string unfit = name_fault("its folder ", "dir", dir);
    if (unfit.empty()) unfit = name_fault("its name ", "dfile", file.name);
    if (!unfit.empty()) {
      refuse(path, unfit, static_cast<std::int64_t>(file.count));
      return true;
    }
    std::vector<Known> known = known_rows(real_folder(file) + "/" + file.name);
    /* By place and channel, and by channel alone; the first of equal ones is taken first. */
    std::multimap<std::tuple<std::int64_t, std::string, std::string>, Known *> by_place;
    std::multimap<std::pair<std::string, std::string>, Known *> by_channel;
    for (Known &row : known) {
      by_place.emplace(std::tuple(row.foff, row.channel.sta, row.channel.chan), &row);
    }
    std::vector<const ScannedPiece *> fresh;
    for (std::size_t i = file.first; i < file.first + file.count; ++i) {
      const ScannedPiece &piece = scan_.pieces()[i];
      IndexTables::Channel channel;
      std::string why;
      if (!tables_.find_channel(scan_.channels()[piece.channel], channel, why)) {
        if (why.empty()) return false;
        refuse(path, why, 1);
        continue;
      }
      const auto same =
          by_place.find(std::tuple(piece.foff, channel.sta, channel.chan));
      if (same == by_place.end()) {
        fresh.push_back(&piece);
        continue;
      }
      Known &row = *same->second;
      by_place.erase(same);
      row.used = true;
      if (!write(path, dir, file, piece, channel, row.row)) return false;
    }
    for (Known &row : known) {
      if (!row.used)
        by_channel.emplace(std::pair(row.channel.sta, row.channel.chan), &row);
    }
    /* A piece that has joined others, or begins elsewhere now, takes over a row that has
     * lost its own. */
    for (const ScannedPiece *const piece : fresh) {
      IndexTables::Channel channel;
      std::string why;
      tables_.find_channel(scan_.channels()[piece->channel], channel, why);
      const auto left = by_channel.find(std::pair(channel.sta, channel.chan));
      long row = -1;
      if (left != by_channel.end()) {
        row = left->second->row;
        left->second->used = true;
        by_channel.erase(left);
      }
      if (!write(path, dir, file, *piece, channel, row)) return false;
    }
    const auto stale = std::count_if(known.begin(), known.end(),
                                     [](const Known &row) { return !row.used; });
    if (stale > 0) {
      counts_.stale += stale;
      listener_.noted(path, std::to_string(stale) +
                                " rows of wfdisc stay that the file no longer has");
    }
    return true;
  }

  /* Adds the row of a piece, or brings row `record` up to date. */
  bool write(const std::string &path, const std::string &dir, const ScannedFile &file,
             const ScannedPiece &piece, const IndexTables::Channel &channel,
             long record) {
    const std::string before =
        record < 0 ? "" : std::string(tables_.rows(kWfdisc).row(record));
    std::string row = record < 0 ? tables_.null_row(kWfdisc) : before;
    std::string refused;
    {
      const ElogScope quiet;  // refused() names the field
      RowFill fill(tables_.layout(kWfdisc), row);
      fill.put("time", piece.time)
          .put("jdate", std::int64_t{yearday(piece.time)})
          .put("endtime", piece.endtime)
          .put("nsamp", piece.nsamp)
          .put("samprate", piece.samprate)
          .put("datatype", std::string_view(piece.datatype))
          .put("foff", piece.foff);
      if (record < 0) {
        fill.put("sta", channel.sta)
            .put("chan", channel.chan)
            .put("calib", piece.calib)
            .put("dir", dir)
            .put("dfile", file.name);
      }
      refused = fill.refused();
    }
    double held = 0.0;
    db::RealColumn(tables_.layout(kWfdisc), "samprate").read(row, held);
    const bool precise = std::abs(held / piece.samprate - 1.0) < 1e-3;
    if (!refused.empty() || !precise) {
      refuse(
          path,
          (refused.empty() ? "samprate" : refused) + " of a piece does not fit wfdisc",
          1);
      return true;
    }
    if (row == before) {
      counts_.unchanged++;
      return true;
    }
    RowFill fill(tables_.layout(kWfdisc), row);
    fill.put("lddate", tables_.now());
    if (record >= 0) {
      counts_.changed++;
      return tables_.change(kWfdisc, record, row);
    }
    std::int64_t chanid = -1;
    bool added = false;
    if (!tables_.find_chanid(channel, piece.time, chanid, added)) return false;
    counts_.channels += added ? 1 : 0;
    const std::int64_t wfid = tables_.take_wfid();
    if (wfid < 0) return false;
    fill.put("wfid", wfid).put("chanid", chanid);
    if (!fill.refused().empty()) return false;
    counts_.added++;
    return tables_.add(kWfdisc, row);
  }

  /* Rows under the folders scanned whose files are not there. */
  void tell_of_the_gone() {
    if (scan_.roots().empty()) return;
    std::sort(met_.begin(), met_.end());
    std::map<std::string, std::int64_t> files;
    const db::Snapshot &rows = tables_.rows(kWfdisc);
    for (long row = 0; row < rows.count(); row++) {
      if (std::binary_search(met_.begin(), met_.end(), row)) continue;
      const std::string_view record = rows.row(row);
      if (record.empty()) continue;
      const std::string path = tables_.path_of(record);
      const bool ours =
          std::any_of(scan_.roots().begin(), scan_.roots().end(),
                      [&](const std::string &root) { return lies_under(path, root); });
      struct stat status {};
      if (ours && ::stat(path.c_str(), &status) != 0 && errno == ENOENT) files[path]++;
    }
    for (const auto &[path, count] : files) {
      counts_.gone += count;
      listener_.noted(
          path, "the file is gone; its " + std::to_string(count) +
                    (count == 1 ? " row of wfdisc stays" : " rows of wfdisc stay"));
    }
  }

  IndexTables &tables_;
  const Scan &scan_;
  const IndexListener &listener_;
  IndexCounts &counts_;
  const db::IntegerColumn foff_;
  const db::TextColumn sta_, chan_;
  std::vector<std::string> real_folders_;
  std::vector<long> met_;  // rows of files that were scanned
};

}  // namespace

bool index_waveforms(db::DatabaseStore &store, const Scan &scan, bool dry_run,
                     bool strict, const IndexListener &listener, IndexCounts &counts) {
  const std::vector<std::string> names = IndexTables::names(store);
  if (names.empty()) return false;
  const auto work = [&](db::Transaction &step) {
    counts = {};
    IndexTables tables(store, step, names);
    return tables.open() && Entry(tables, scan, listener, counts).run() &&
           !(strict && counts.refused > 0);
  };
  if (!dry_run) return store.transaction(names, work);
  db::ReadOnlyTables step(store, names);
  return work(step);
}

}  // namespace ksutil::waveform_index
