/* Lists, filters and alarms rest on what a query says about an event: a field read at the
 * wrong place of a row is a wrong depth on an operator's screen. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "tests/events/bare_server.h"
#include "tests/events/query_database.h"
#include "tests/support/folder.h"

namespace ksutil::events::test {
namespace {

using testing::HasSubstr;

struct Example {
  std::string kind, query, value;
};

std::vector<Example> manual_examples() {
  std::vector<Example> examples;
  std::ifstream manual(KSUTIL_SOURCE_DIR "/docs/query-language.md");
  std::string kind;
  for (std::string line; std::getline(manual, line);) {
    if (line.starts_with("```")) {
      kind = line.substr(3);
      if (kind == "cpp") kind.clear();  // a program, which check_docs compiles
    } else if (const std::size_t arrow = line.rfind(" -> ");
               !kind.empty() && arrow != line.npos) {
      examples.push_back({kind, line.substr(0, arrow), line.substr(arrow + 4)});
    } else if (!kind.empty()) {
      ADD_FAILURE() << "no arrow: " << line;
    }
  }
  return examples;
}

void expect_manual_holds(EVClient &client, EVEvent &event) {
  EVOrigin &origin = *event.origins.ptr(0);
  const std::vector<Example> examples = manual_examples();
  EXPECT_GT(examples.size(), 60U);
  for (const Example &example : examples) {
    const bool of_event = example.kind == "event";
    EXPECT_EQ(of_event ? answer(client, event, example.query)
                       : answer(client, origin, example.query),
              example.value)
        << example.query;
  }
}

TEST(QueryManual, ExamplesHold) {
  const QueryDatabase database("css3.0");
  Session session(database);
  expect_manual_holds(session.client, session.expanded);
}

/* Readers of the manual try its examples on the database that ships. */
TEST(QueryManual, ItsEventShips) {
  const QueryDatabase database("css3.0");
  const std::string shipped = KSUTIL_SOURCE_DIR "/data/ridge";
  for (const char *table :
       {"event", "origin", "origerr", "netmag", "arrival", "assoc", "site"}) {
    const std::string file = std::string(".") + table;
    EXPECT_EQ(ksutil::test::read_file(shipped + file),
              ksutil::test::read_file(database.name() + file))
        << table;
  }
}

/* Files of the wide layout, declared or under a descriptor that says otherwise. */
/* A listing asks such queries before it reads the rest of an event. */
TEST(QueryOutline, IsEnoughForFieldsOfEventAndOriginAlone) {
  const QueryDatabase database("css3.0");
  Session session(database);
  const auto enough = [&session](const char *text) {
    std::vector<EVQueryToken> tokens;
    EXPECT_EQ(session.client.parse_query(text, tokens), 0) << text;
    return needs_outline_only(tokens);
  };
  for (const char *text : {"evid", "time > 0", "depth > 300 && lat < 0", "origin.nass",
                           "event.auth == \"x\"", "origins[0].time", "norigins > 1",
                           "origins[1].lat - lat", "1 < 2"}) {
    EXPECT_TRUE(enough(text)) << text;
  }
  for (const char *text :
       {"magnitude > 5", "magtype == \"mb\"", "nmagnitudes", "origins[0].magnitude",
        "netmag.auth == \"x\"", "sminax", "origin.recno_origerr", "nmoments",
        "lddate_view", "depth > 300 && magnitude > 5", "access_time"}) {
    EXPECT_FALSE(enough(text)) << text;
  }
}

TEST(QueryLayout, WideRowsAreReadInTheirOwnLayout) {
  for (const bool declared : {true, false}) {
    QueryDatabase database("kbcore");
    if (!declared) database.pretend("css3.0");
    Session session(database);
    expect_manual_holds(session.client, session.expanded);
    EXPECT_EQ(answer(session.client, session.expanded, "origin.lddate"), "1234.5");
  }
}

TEST(QueryLayout, LoadDatesOfAnyWidthAreRead) {
  QueryDatabase database("css3.0");
  for (const char *table : {"event", "origin", "origerr", "netmag"}) {
    database.edit(table, [](const std::string &line) { return line + "  "; });
  }
  Session session(database);
  expect_manual_holds(session.client, session.expanded);
  EXPECT_EQ(answer(session.client, session.expanded, "origin.lddate"), "1234.5");

  /* Parsed when nobody can say any more how the files were laid out. */
  session.leave();
  expect_manual_holds(session.client, session.expanded);
  EXPECT_EQ(answer(session.client, session.expanded, "origin.lddate"), "1234.5");
}

TEST(QueryLayout, DetachedRowsOfTheWideLayoutAreRead) {
  QueryDatabase database("kbcore");
  database.pretend("css3.0");
  for (const char *table : {"event", "origin", "netmag"}) {
    database.edit(table, [](const std::string &line) { return line + " "; });
  }
  Session session(database);
  session.leave();
  expect_manual_holds(session.client, session.expanded);
}

/* The listed event has no associations yet; all else is the same. */
TEST(Query, ListedAndExpandedEventsAgree) {
  const QueryDatabase database("css3.0");
  Session session(database);
  ASSERT_EQ(session.events.size(), 1);
  EVEvent &listed = *session.events.ptr(0);
  EXPECT_EQ(answer(session.client, listed, "nassociations"), "0");
  EXPECT_EQ(answer(session.client, listed, "associations[0].sta"), "none");
  for (const Example &example : manual_examples()) {
    if (example.kind != "event" || example.query.find("assoc") != std::string::npos) {
      continue;
    }
    EXPECT_EQ(answer(session.client, listed, example.query), example.value)
        << example.query;
  }
}

TEST(Query, SyntaxErrorsNameThePositionAndKeepTheTokens) {
  BareServer bare;
  EVClient client(bare.pointer());
  std::vector<EVQueryToken> tokens;
  ASSERT_EQ(client.parse_query("evid", tokens), 0);
  for (const auto &[query, position] :
       {std::pair("depth + ", "at position 8"),
        std::pair("evid + nosuch", "position 7"),
        std::pair("origins[-1].lat", "position 7"), std::pair("", "position 0"),
        std::pair("orid + prefor + nix", "position 16")}) {
    ks_clear_register(0);
    EXPECT_LT(client.parse_query(query, tokens), 0) << query;
    const std::string message = taken_messages();
    EXPECT_THAT(message, HasSubstr("EVClient::parse_query: "));
    EXPECT_THAT(message, HasSubstr(position));
  }
  ASSERT_EQ(tokens.size(), 1U);
  EXPECT_EQ(tokens[0].text, "evid");
}

TEST(Query, ErrorsAreNegativeAndLeaveTheResult) {
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent event;
  event.origins.push(EVOrigin());
  event.pref_origin = 0;
  EVOrigin &origin = *event.origins.ptr(0);
  const auto status = [&](auto &record, const char *query) {
    std::vector<EVQueryToken> tokens;
    EXPECT_EQ(client.parse_query(query, tokens), 0) << query;
    alignas(8) char value[EV_VALUE_SIZE] = "untouched";
    int type = 99;
    const int result = client.getValue(&record, tokens, &type, value);
    if (result < 0) {
      EXPECT_STREQ(value, "untouched");
      EXPECT_EQ(type, 99);
      EXPECT_THAT(taken_messages(), HasSubstr("EVClient::getValue: "));
    }
    return result;
  };
  origin.record_origin = "no row of any layout\n";
  EXPECT_EQ(status(event, "depth"), -1);
  EXPECT_EQ(status(event, "depth > 3"), -1);
  origin.record_origin = std::string(300, ' ') + "\n";
  EXPECT_EQ(status(event, "depth"), 1) << "blanks are a null";
  origin.record_origin = std::string(300, 'x');
  EXPECT_EQ(status(event, "depth"), -1);
  origin.record_origin = "\n";
  EXPECT_EQ(status(event, "depth"), 1);
  EXPECT_EQ(status(origin, "norigins"), -1) << "about events alone";
  EXPECT_EQ(status(event, "evname > 'x' ? 1 : 2"), 0) << "a comparison with a null";

  std::vector<EVQueryToken> none;
  int type = 0;
  EXPECT_EQ(client.getValue(&event, none, &type, &type), -1);
  EXPECT_EQ(client.getValue(static_cast<EVEvent *>(nullptr), none, &type, &type), -1);
}

TEST(Query, NansAndMissingRecordsAreNoValue) {
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent event;
  for (const char *query :
       {"evid", "time", "magnitude", "magtype", "lat", "origin.time", "netmag.magtype",
        "lddate_event", "evname"}) {
    EXPECT_EQ(answer(client, event, query), "none") << query;
  }
  EXPECT_EQ(answer(client, event, "norigins"), "0");
  event.magnitude = NAN;
  EXPECT_EQ(answer(client, event, "magnitude"), "none");
  event.magnitude = 0.0;
  EXPECT_EQ(answer(client, event, "magnitude"), "0");
}

TEST(Query, LongTextsAreCutToTheBuffer) {
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent event;
  event.magtype = std::string(700, 'a');
  EXPECT_EQ(answer(client, event, "magtype + magtype"), std::string(1023, 'a'));
  EXPECT_EQ(answer(client, event, "magtype"), event.magtype);
}

/* Tokens outlive the client that made them, and threads share them. */
TEST(Query, ThreadsShareAQuery) {
  const QueryDatabase database("css3.0");
  std::vector<EVQueryToken> tokens;
  EVEvent event;
  {
    Session session(database);
    event = session.expanded;
    ASSERT_EQ(session.client.parse_query("strtime(origin.time) + evname", tokens), 0);
  }
  BareServer bare;
  EVClient client(bare.pointer());
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; i++) {
        alignas(8) char value[EV_VALUE_SIZE];
        int type;
        if (client.getValue(&event, tokens, &type, value) == 0 &&
            std::string(value) == "2019-07-06T03:19:53.040Ridge") {
          good++;
        }
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(good, 2000);
}

}  // namespace
}  // namespace ksutil::events::test
