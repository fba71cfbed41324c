/* What the subjects that import into a database have in common: databases that are made
 * anew for each input, and what must hold in them. */
#ifndef KSUTIL_TESTS_FUZZ_IMPORT_SUBJECT_H
#define KSUTIL_TESTS_FUZZ_IMPORT_SUBJECT_H

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "formats/exchange/format.h"
#include "platform/db/store_plugin.h"
#include "tests/fuzz/subject.h"
#include "tests/support/folder.h"
#include "tools/ksdb/verify_database.h"

namespace ksutil::fuzz {

/* A folder for databases. */
class Databases {
 public:
  /* A database without rows; what had its name goes with all of its files. */
  std::string make(const std::string &name) const {
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
      if (entry.path().filename().string().starts_with(name)) {
        std::filesystem::remove_all(entry.path(), none);
      }
    }
    require(db::create_database({folder_ / name, "css3.0", db::kFlatFilesStore, ""}),
            "a database can be made");
    return folder_ / name;
  }

 private:
  const test::TempFolder folder_;
};

inline std::unique_ptr<db::DatabaseStore> open_store(const std::string &path) {
  auto store = db::open_store(path, "r+", std::size_t{64} << 20);
  require(store != nullptr, "a database can be opened");
  return store;
}

/* Ends the process, with what was found, unless `ksdb verify` is content with the ids, the
 * references and the fields of a database.  Dates, mechanisms and samples are what a file says. */
inline void require_verified(const std::string &path) {
  const tools::OpenDatabase database(path, "r");
  tools::Problems problems(5);
  require(bool(database) && tools::verify_database(database, true, problems),
          "a database can be verified");
  problems.each(
      [](const std::string &table, const std::string &kind, long, const auto &kept) {
        if (kind == "load dates" || kind.ends_with("their tensor") ||
            kind.starts_with("waveform files") || kind == "doubled waveform rows") {
          return;
        }
        for (const tools::Problems::Problem &problem : kept) {
          std::fprintf(stderr, "%s record %ld: %s\n", table.c_str(), problem.record,
                       problem.text.c_str());
        }
        require(false, "what was imported is a sound database");
      });
}

/* Keeps what a writer writes. */
class KeptText final : public exchange::TextSink {
 public:
  bool put(std::string_view text) override {
    text_ += text;
    return true;
  }
  const std::string &text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace ksutil::fuzz
#endif
