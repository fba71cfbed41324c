/* What the tests of exports share: databases made of texts or records, and their rows. */
#ifndef KSUTIL_TESTS_FORMATS_EXCHANGE_EXPORT_SUPPORT_H
#define KSUTIL_TESTS_FORMATS_EXCHANGE_EXPORT_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "formats/exchange/export/event_source.h"
#include "formats/exchange/format.h"
#include "formats/exchange/import/importer.h"
#include "platform/db/db.h"
#include "platform/db/store.h"
#include "platform/elog/elog.h"
#include "tests/support/kept_text.h"
#include "tests/tools/scratch.h"

namespace ksutil::exchange {

inline const std::string kData = std::string(KSUTIL_SOURCE_DIR) + "/data/";

struct Exported {
  std::string text;
  std::vector<Unplaced> without_place;  // in the format
  std::vector<Unplaced> without_record;
  SourceFaults faults;
};

inline Exported export_text(const std::string &database, const std::string &word,
                            const EventSelection &selection = {}) {
  Exported exported;
  const auto store = db::open_store(database, "r", 1 << 24);
  std::string problem;
  if (store == nullptr) {
    ADD_FAILURE() << "cannot open " << database;
    return exported;
  }
  const auto source = EventSource::open(*store, selection, problem);
  if (source == nullptr) {
    ADD_FAILURE() << problem;
    return exported;
  }
  test::KeptText taker;
  const auto writer = format_of_word(word)->open_writer(taker);
  Event event;
  EXPECT_TRUE(writer->begin());
  while (source->next(event)) EXPECT_TRUE(writer->put(event));
  EXPECT_TRUE(writer->end());
  exported.text = std::move(taker.text);
  exported.without_place = writer->without_place();
  exported.without_record = source->without_place();
  exported.faults = source->faults();
  return exported;
}

inline void import_gathered(const std::string &database, Gathering &events) {
  const auto store = db::open_store(database, "r+", 1 << 24);
  ASSERT_NE(store, nullptr);
  ImportListener listener;
  listener.refused = [](std::int64_t line, const std::string &why) {
    ADD_FAILURE() << line << ": " << why;
  };
  ImportCounts counts;
  ASSERT_EQ(import_events(*store, events, {}, listener, counts), Imported::kYes);
}

/* A new database with the events of a text. */
inline void import_text(const std::string &database, const std::string &schema,
                        const std::string &text) {
  const tools::ScratchFolder folder;
  std::string problem;
  const auto input = Input::open(folder.write("text", text), problem);
  ASSERT_NE(input, nullptr) << problem;
  const auto reader = open_reader(*input, recognise(input->head()), problem);
  ASSERT_NE(reader, nullptr) << problem;
  Gathering events;
  Event event;
  for (;;) {
    const Reader::Got got = reader->next(event);
    if (got == Reader::Got::kEnd) break;
    ASSERT_EQ(got, Reader::Got::kRecord) << reader->line() << reader->problem();
    ASSERT_TRUE(events.add(event));
  }
  ASSERT_EQ(dbcreate(database.c_str(), schema.c_str()), 0);
  import_gathered(database, events);
}

inline void import_records(const std::string &database, const std::string &schema,
                           const std::vector<Event> &list) {
  Gathering events;
  for (const Event &event : list) ASSERT_TRUE(events.add(event));
  ASSERT_EQ(dbcreate(database.c_str(), schema.c_str()), 0);
  import_gathered(database, events);
}

/* The rows of a table, "field=text" for each field that is not among `without`. */
inline std::multiset<std::string> rows_of(const std::string &database,
                                          const char *table,
                                          const std::set<std::string> &without) {
  std::multiset<std::string> rows;
  const auto store = db::open_store(database, "r", 1 << 24);
  const auto snapshot = store->table(table)->snapshot();
  for (long record = 0; record < snapshot->count(); record++) {
    const std::string_view row = snapshot->row(record);
    std::string text;
    for (const db::Field &field : snapshot->layout().fields) {
      if (without.contains(field.name)) continue;
      text += field.name + "=" +
              std::string(row.substr(static_cast<std::size_t>(field.offset),
                                     static_cast<std::size_t>(field.width))) +
              " ";
    }
    rows.insert(text);
  }
  return rows;
}

/* Ids, which a new database numbers anew. */
inline std::set<std::string> ids_and(std::set<std::string> others = {}) {
  others.insert({"evid", "orid", "prefor", "magid", "mbid", "msid", "mlid", "mtid",
                 "arid", "commid", "tagid", "keyvalue"});
  return others;
}

inline void expect_same_rows(const std::string &a, const std::string &b,
                             const char *table, const std::set<std::string> &without) {
  const auto left = rows_of(a, table, without), right = rows_of(b, table, without);
  std::vector<std::string> lost, come;
  std::set_difference(left.begin(), left.end(), right.begin(), right.end(),
                      std::back_inserter(lost));
  std::set_difference(right.begin(), right.end(), left.begin(), left.end(),
                      std::back_inserter(come));
  EXPECT_TRUE(lost.empty() && come.empty())
      << table << ": " << lost.size() << " rows lost, as\n"
      << (lost.empty() ? "" : lost.front()) << "\n"
      << come.size() << " come, as\n"
      << (come.empty() ? "" : come.front());
}

}  // namespace ksutil::exchange
#endif
