#include "tools/ksdb/index_command.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "formats/waveform_index/waveform_index.h"
#include "tools/common/cli.h"
#include "tools/common/progress.h"
#include "tools/ksdb/import_target.h"

namespace ksutil::tools {
namespace {

/* Complains about the first `most` files of one kind, and counts the others. */
class FileComplaints {
 public:
  FileComplaints(std::string rest, std::int64_t most)
      : rest_(std::move(rest)), most_(most) {}
  void add(Progress &progress, const std::string &path, const std::string &what) {
    if (++count_ > most_) return;
    progress.wipe();
    complain(path + ": " + what);
  }
  void finish() const {
    if (count_ > most_) complain(std::to_string(count_ - most_) + " more " + rest_);
  }
  std::int64_t count() const { return count_; }

 private:
  const std::string rest_;
  const std::int64_t most_;
  std::int64_t count_ = 0;
};

}  // namespace

bool is_waveform_input(const std::string &path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return true;
  const waveform_index::FileKind kind = waveform_index::kind_of_file(path);
  return kind == waveform_index::FileKind::kMiniseed ||
         kind == waveform_index::FileKind::kSac;
}

int index_waveform_files(const IndexArguments &arguments) {
  constexpr std::int64_t kMost = 100, kMostOthers = 10;
  FileComplaints refused("files or pieces refused", kMost), noted("notes", kMost),
      others("files of other kinds", kMostOthers);
  const auto finish = [&] {
    refused.finish();
    noted.finish();
    others.finish();
  };
  waveform_index::IndexCounts counts;
  std::int64_t files = 0;
  {
    Progress progress("reading " + arguments.path, 0, arguments.quiet, "files");
    waveform_index::ScanListener heard;
    heard.reached = [&](std::int64_t done) { progress.reach(static_cast<long>(done)); };
    heard.refused = [&](const std::string &path, const std::string &why) {
      refused.add(progress, path, why);
    };
    heard.noted = [&](const std::string &path, const std::string &what) {
      noted.add(progress, path, what);
    };
    heard.other = [&](const std::string &path) {
      others.add(progress, path, "neither miniSEED nor SAC");
    };
    waveform_index::Scan scan(heard);
    if (!scan.add(arguments.path)) return kFailure;
    files = static_cast<std::int64_t>(scan.files().size());
    progress.wipe();
    if (arguments.strict && refused.count() > 0) {
      finish();
      complain("nothing imported (--strict)");
      return kFailure;
    }
    ImportTarget target;
    if (!target.open(arguments.database, arguments.schema, arguments.dry_run)) {
      return kFailure;
    }
    Progress writing("indexing", static_cast<long>(files), arguments.quiet, "files");
    waveform_index::IndexListener listener;
    listener.reached = [&](std::int64_t done) {
      writing.reach(static_cast<long>(done));
    };
    listener.refused = [&](const std::string &path, const std::string &why) {
      refused.add(writing, path, why);
    };
    listener.noted = [&](const std::string &path, const std::string &what) {
      noted.add(writing, path, what);
    };
    if (!waveform_index::index_waveforms(target.store(), scan, arguments.dry_run,
                                         arguments.strict, listener, counts)) {
      finish();
      if (arguments.strict && counts.refused > 0) {
        complain("nothing imported (--strict)");
      }
      return kFailure;
    }
    if (counts.added > 0 || refused.count() == 0) target.keep();
  }
  finish();
  if (!arguments.quiet) {
    std::printf(
        "%s%lld added, %lld changed, %lld unchanged, %lld refused: %lld files\n",
        arguments.dry_run ? "would be: " : "", static_cast<long long>(counts.added),
        static_cast<long long>(counts.changed),
        static_cast<long long>(counts.unchanged),
        static_cast<long long>(refused.count()), static_cast<long long>(files));
    const auto tell = [](const char *format, std::int64_t count) {
      if (count > 0) std::printf(format, static_cast<long long>(count));
    };
    tell("new channels: %lld\n", counts.channels);
    tell("rows kept of pieces that their files no longer have: %lld\n", counts.stale);
    tell("rows kept of files that are gone: %lld\n", counts.gone);
    tell("files of other kinds: %lld\n", others.count());
  }
  return refused.count() == 0 ? kOk : kFailure;
}

}  // namespace ksutil::tools
