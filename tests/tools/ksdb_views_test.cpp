/* The views of ksdb over tables that are longer than the windows in which their rows are
 * read, with nulls, equal keys and records that cannot be read.  A fault would show records
 * of other rows, lose some or order them wrongly, and nobody would notice in a long list:
 * each output is compared with a plain evaluation of the values that were written. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"
#include "platform/stock/text.h"
#include "tests/support/rows.h"
#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

struct Origin {
  long orid = 0, evid = 0;
  std::optional<double> depth;  // none: null
  std::string auth;
  bool readable = true;  // its depth
};

class KsdbViews : public testing::Test {
 protected:
  static constexpr std::size_t kOrigins = 30000, kEvents = 7000;

  KsdbViews() {
    const auto depth_offset = static_cast<std::size_t>(
        db::Schema::load("css3.0")->find("origin")->find("depth")->offset + 3);
    std::mt19937 random(7);
    const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
    std::string text;
    for (std::size_t i = 0; i < kOrigins; i++) {
      Origin origin;
      origin.orid = static_cast<long>(i) + 1;
      origin.evid = below(kEvents) + 1;
      if (below(10) > 0) origin.depth = below(1400) * 0.5;
      origin.auth = std::string("net") + static_cast<char>('a' + below(5));
      origin.readable = below(200) > 0;
      test::RowMaker row("origin");
      row.set("orid", origin.orid).set("evid", origin.evid).set("auth", origin.auth);
      if (origin.depth) row.set("depth", *origin.depth);
      text += row.text();
      if (!origin.readable) text[text.size() - row.text().size() + depth_offset] = 'x';
      origins_.push_back(std::move(origin));
    }
    folder_.write("db.origin", text);
    text.clear();
    for (std::size_t i = 0; i < kEvents; i++) {
      evids_.push_back(static_cast<long>(i) + 1);
    }
    std::shuffle(evids_.begin(), evids_.end(), random);
    for (const long evid : evids_) {
      text += test::RowMaker("event").set("evid", evid).text();
    }
    folder_.write("db.event", text);
    name_ = folder_.write("db", "schema css3.0\n");
    unreadable_ = std::count_if(origins_.begin(), origins_.end(),
                                [](const Origin &origin) { return !origin.readable; });
  }

  /* The lines below the heading.  The program tells how many records it left out. */
  std::string shown(const std::string &arguments, bool all_read = false) const {
    const ProgramRun run = run_program(kKsdb + " " + arguments);
    EXPECT_EQ(run.code, all_read ? 0 : 1) << run.errors;
    if (!all_read) {
      EXPECT_THAT(run.errors,
                  HasSubstr("ksdb: " + std::to_string(unreadable_) + " records of "));
    }
    return run.output.substr(run.output.find('\n') + 1);
  }

  std::vector<Origin> readable() const {
    std::vector<Origin> found = origins_;
    std::erase_if(found, [](const Origin &origin) { return !origin.readable; });
    return found;
  }

  const ScratchFolder folder_;
  std::string name_;
  std::vector<Origin> origins_;
  std::vector<long> evids_;  // in the order of the event table
  long unreadable_ = 0;
};

std::string cell(const std::optional<double> &depth) {
  return depth ? format_text("%.4f", *depth) : "";
}

std::string lines_of(const std::vector<Origin> &origins) {
  std::string text;
  for (const Origin &origin : origins) {
    text += std::to_string(origin.orid) + "," + cell(origin.depth) + "," + origin.auth +
            "\n";
  }
  return text;
}

const std::string kShown = " --csv --fields orid,depth,auth ";

TEST_F(KsdbViews, SubsetTakesTheRecordsOfItsConditions) {
  std::vector<Origin> expected = readable();
  std::erase_if(expected, [](const Origin &origin) {
    return !(origin.depth > 300.0 && origin.auth == "netb");
  });
  const std::string operands = name_ + " origin ";
  EXPECT_EQ(shown("subset" + kShown + operands + "'depth > 300 && auth == \"netb\"'"),
            lines_of(expected));
  EXPECT_EQ(
      shown("list" + kShown + "--where 'depth > 300 && auth == \"netb\"' " + operands),
      lines_of(expected));
  /* The limit ends the output, and not the count of what cannot be read. */
  expected.resize(5);
  EXPECT_EQ(shown("subset --where 'depth > 300'" + kShown + "--limit 5 " + operands +
                  "'auth == \"netb\"'"),
            lines_of(expected));
}

/* Null depths come first, and equal keys stay in the order of the table. */
TEST_F(KsdbViews, SortOrdersByAllKeys) {
  std::vector<Origin> expected = readable();
  const auto key = [](const Origin &origin) {
    return std::tuple(origin.auth, origin.depth ? -*origin.depth : -1e9);
  };
  const auto before = [&](const Origin &a, const Origin &b) { return key(a) < key(b); };
  std::stable_sort(expected.begin(), expected.end(), before);
  const std::string operands = name_ + " origin -- auth -depth";
  EXPECT_EQ(shown("sort" + kShown + operands), lines_of(expected));

  std::vector<Origin> first = expected;
  first.erase(
      std::unique(first.begin(), first.end(),
                  [&](const Origin &a, const Origin &b) { return key(a) == key(b); }),
      first.end());
  EXPECT_EQ(shown("sort --unique" + kShown + operands), lines_of(first));

  std::stable_sort(expected.begin(), expected.end(),
                   [](const Origin &a, const Origin &b) { return a.orid < b.orid; });
  std::stable_sort(expected.begin(), expected.end(),
                   [&](const Origin &a, const Origin &b) { return before(b, a); });
  EXPECT_EQ(shown("sort --reverse" + kShown + operands), lines_of(expected));
}

TEST_F(KsdbViews, JoinFindsAllRecordsOfEachKey) {
  std::map<long, std::vector<const Origin *>> of_event;
  for (const Origin &origin : origins_) of_event[origin.evid].push_back(&origin);
  std::string expected;
  for (const long evid : evids_) {
    for (const Origin *origin : of_event[evid]) {
      expected += std::to_string(evid) + "," + std::to_string(origin->orid) + "\n";
    }
  }
  EXPECT_EQ(shown("join --csv --fields evid,orid " + name_ + " event origin", true),
            expected);
}

TEST_F(KsdbViews, GroupCountsAndMeasuresEachValueOfItsKeys) {
  struct Figures {
    long count = 0, nulls = 0;
    double least = 1e9, greatest = -1e9;
  };
  std::map<std::pair<bool, std::string>, Figures> groups;
  for (const Origin &origin : readable()) {
    Figures &figures = groups[{origin.depth > 350.0, origin.auth}];
    figures.count++;
    if (!origin.depth) {
      figures.nulls++;
      continue;
    }
    figures.least = std::min(figures.least, *origin.depth);
    figures.greatest = std::max(figures.greatest, *origin.depth);
  }
  std::string expected;
  for (const auto &[key, figures] : groups) {
    expected += std::to_string(key.first ? 1 : 0) + "," + key.second + "," +
                std::to_string(figures.count) + "," + std::to_string(figures.nulls) +
                format_text(",%g,%g\n", figures.least, figures.greatest);
  }
  EXPECT_EQ(shown("group --csv --aggregate 'nulls(depth),min(depth),max(depth)' " +
                  name_ + " origin 'depth > 350' auth"),
            expected);
}

/* An id that two rows have, and one that names no event. */
TEST_F(KsdbViews, VerifyFindsOneWrongIdAmongMany) {
  std::string origins = read_text(name_ + ".origin");
  const std::size_t length = origins.find('\n') + 1;
  const auto schema = db::Schema::load("css3.0");
  const db::Relation &layout = *schema->find("origin");
  const auto set = [&](long row, const char *field, std::int64_t value) {
    const std::size_t at = static_cast<std::size_t>(row) * length;
    std::string text = origins.substr(at, length);
    EXPECT_TRUE(db::write_integer(*layout.find(field), value, text));
    origins.replace(at, length, text);
  };
  set(20000, "orid", 11);
  set(123, "evid", kEvents + 1);
  folder_.write("db.origin", origins);
  const ProgramRun run = run_program(kKsdb + " verify " + name_);
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.output,
              HasSubstr("origin record 20000: orid 11 is that of record 10\n"));
  EXPECT_THAT(run.output, HasSubstr("origin: 1 repeated ids"));
  EXPECT_THAT(run.output, HasSubstr("origin record 123: evid 7001 is not in event\n"));
  EXPECT_THAT(run.output, HasSubstr("origin: 1 dangling references"));
}

}  // namespace
}  // namespace ksutil::tools
