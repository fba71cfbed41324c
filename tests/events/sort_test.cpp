/* An operator who clicks a column acts on the row that comes up first: an order that loses
 * a record, or a row that opens another event, sends the alarm about the wrong one. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "events/client/internal/sort_order.h"
#include "tests/events/bare_server.h"

namespace ksutil::events {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<int> list(const Table<int> &table) { return {table.begin(), table.end()}; }

EVClient_sort_value none(int status = 1) {
  EVClient_sort_value value;
  value.status = status;
  value.type = EV_DOUBLE;
  return value;
}
EVClient_sort_value integer(int64_t i) {
  EVClient_sort_value value;
  value.status = 0;
  value.type = EV_INTEGER;
  value.i = i;
  return value;
}
EVClient_sort_value real(double d) {
  EVClient_sort_value value;
  value.status = 0;
  value.type = EV_DOUBLE;
  value.d = d;
  return value;
}
EVClient_sort_value text(const std::string &text) {
  EVClient_sort_value value;
  value.status = 0;
  value.type = EV_TEXT;
  std::copy_n(text.begin(), std::min<std::size_t>(text.size(), 32), value.text);
  return value;
}

/* Less in the plainest words. */
bool less(const EVClient_sort_value &a, const EVClient_sort_value &b) {
  const auto rank = [](const EVClient_sort_value &v) {
    if (v.status != 0 || v.type < 1 || v.type > 3) return 0;
    if (v.type == EV_DOUBLE && std::isnan(v.d)) return 0;
    return v.type == EV_TEXT ? 2 : 1;
  };
  if (rank(a) != rank(b)) return rank(a) < rank(b);
  if (rank(a) == 0) return false;
  if (rank(a) == 2)
    return std::string(a.text, strnlen(a.text, 32)) <
           std::string(b.text, strnlen(b.text, 32));
  const auto number = [](const EVClient_sort_value &v) {
    return v.type == EV_INTEGER ? static_cast<double>(v.i) : v.d;
  };
  return number(a) < number(b);
}

TEST(SortOrder, AgreesWithAPlainModel) {
  std::mt19937 random(7);
  const double odd[] = {0.0,      -0.0,      1.5, -1.5, 1e300,  -1e300,
                        INFINITY, -INFINITY, NAN, -NAN, 5e-324, -999.0};
  for (int round = 0; round < 300; round++) {
    std::vector<EVClient_sort_value> values;
    const auto n = random() % 60;
    for (unsigned i = 0; i < n; i++) {
      switch (random() % (round % 2 == 0 ? 3 : 5)) {
        case 0:
          values.push_back(none(random() % 2 == 0 ? 1 : -1));
          break;
        case 1:
          values.push_back(real(odd[random() % std::size(odd)]));
          break;
        case 2:
          values.push_back(real(static_cast<double>(random() % 9) - 4.0));
          break;
        case 3:
          values.push_back(integer(static_cast<int>(random() % 9) - 4));
          break;
        default:
          values.push_back(text(std::string(random() % 3 * 15, 'a') +
                                char('a' + random() % 3) +
                                std::string(random() % 2, '\xe9')));
      }
    }
    std::vector<int> expected(values.size());
    std::iota(expected.begin(), expected.end(), 0);
    std::stable_sort(expected.begin(), expected.end(), [&](int a, int b) {
      return less(values[static_cast<std::size_t>(a)],
                  values[static_cast<std::size_t>(b)]);
    });
    ASSERT_EQ(list(ascending_order(values)), expected) << "round " << round;
  }
}

TEST(SortOrder, IntegersKeepAllTheirDigits) {
  const int64_t big = int64_t{1} << 60;
  EXPECT_THAT(list(ascending_order({integer(big + 1), integer(big), integer(INT64_MIN),
                                    integer(-1), integer(INT64_MAX)})),
              ElementsAre(2, 3, 1, 0, 4));
}

TEST(SortOrder, TextsCountOnTheirKeptBytes) {
  const std::string stem(31, 'x');
  EXPECT_THAT(list(ascending_order({text(stem + "b"), text(stem + "a"),
                                    text(stem + "az"), text(stem), text("")})),
              ElementsAre(4, 3, 1, 2, 0));
}

class Sorting : public testing::Test {
 protected:
  Sorting() : client(bare.pointer()) {
    for (const auto &[evid, magnitude] :
         {std::pair(30L, 5.0), std::pair(10L, -999.0), std::pair(20L, 3.0),
          std::pair(40L, 5.0), std::pair(50L, 4.0)}) {
      EVEvent event;
      event.evid = evid;
      event.magnitude = magnitude;
      events.push(event);
      EVOrigin origin;
      origin.orid = evid;
      origin.magnitude = magnitude;
      origins.push(origin);
    }
    ks_clear_register(0);
  }

  BareServer bare;
  EVClient client;
  Table<EVEvent> events;
  Table<EVOrigin> origins;
};

TEST_F(Sorting, PutsRecordsWithoutValueFirstAndReversedLast) {
  int status = 5;
  EXPECT_THAT(list(client.sort(&events, "magnitude", 0, &status)),
              ElementsAre(1, 2, 4, 0, 3));
  EXPECT_EQ(status, 0);
  EXPECT_THAT(list(client.sort(&events, "magnitude", 1, nullptr)),
              ElementsAre(3, 0, 4, 2, 1));
  EXPECT_THAT(list(client.sort(&origins, "-orid", 0, nullptr)),
              ElementsAre(4, 3, 0, 2, 1));
  Table<EVEvent> empty;
  EXPECT_EQ(client.sort(&empty, "evid", 0, nullptr).size(), 0);
}

TEST_F(Sorting, UnparsableQueriesKeepTheNaturalOrderEvenReversed) {
  int status = 5;
  EXPECT_THAT(list(client.sort(&events, "evid +", 1, &status)),
              ElementsAre(0, 1, 2, 3, 4));
  EXPECT_EQ(status, -1);
  EXPECT_THAT(taken_messages(), HasSubstr("EVClient::sort: parse_query() error.\n"));
  EVOriginsTab tab{&origins, {}, {}};
  client.sort(&tab, "?", 1);
  EXPECT_THAT(list(tab.rows), ElementsAre(0, 1, 2, 3, 4));
}

/* Rows that cannot be read have no value; the messages about them are not kept. */
TEST_F(Sorting, FailuresOnRecordsAreQuiet) {
  events.ptr(0)->record_event = "broken";
  ks_register_error(0, "earlier.\n");
  int status = 5;
  EXPECT_THAT(list(client.sort(&events, "ifnull(commid, -evid)", 0, &status)),
              ElementsAre(0, 4, 3, 2, 1));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(taken_messages(), "earlier.\n");
}

TEST_F(Sorting, CheckAsksEventsWithAPreferredOriginOnly) {
  EXPECT_EQ(client.checkSortQuery(&events, "commid"), 0);
  EXPECT_EQ(client.checkSortQuery(&events, "commid *"), -1);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVClient::checkSortQuery: parse_query(commid *) error.\n"));
  for (EVEvent &event : events) event.record_event = "broken";
  EXPECT_EQ(client.checkSortQuery(&events, "commid"), 0);
  events.ptr(3)->pref_origin = 0;
  EXPECT_EQ(client.checkSortQuery(&events, "commid"), 0) << "it has no origins";
  events.ptr(3)->origins = origins;
  EXPECT_EQ(client.checkSortQuery(&events, "commid"), -1);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVClient::checkSortQuery: getValue(commid) error.\n"));
  EXPECT_EQ(client.checkSortQuery(&origins, "orid"), 0);
  EXPECT_EQ(client.checkSortQuery(&origins, "norigins"), -1);
}

TEST_F(Sorting, TabMappingsAreInverse) {
  EVEventsTab tab{&events, {}, {}};
  client.setEventsTabs(&tab, nullptr);
  EXPECT_THAT(list(tab.index), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(list(tab.rows), ElementsAre(0, 1, 2, 3, 4));
  client.sort(&tab, "evid", 1);
  EXPECT_THAT(list(tab.index), ElementsAre(4, 3, 0, 2, 1));
  EXPECT_THAT(list(tab.rows), ElementsAre(2, 4, 3, 1, 0));
  for (int row = 0; row < 5; row++) {
    EXPECT_EQ(client.getRow(&tab, client.getIndex(&tab, row)), row);
  }
  EXPECT_EQ(client.findEvidIndex(&tab, 20), 2);
  EXPECT_EQ(client.findEvidRow(&tab, 20), 3);
  EXPECT_EQ(client.findEvidIndex(&tab, 21), -1);
  EXPECT_EQ(client.findEvidRow(&tab, 21), -1);
  for (const int outside : {-1, 5}) {
    EXPECT_EQ(client.getRow(&tab, outside), -1);
    EXPECT_EQ(client.getIndex(&tab, outside), -1);
  }
}

/* The list that a server gives for keeping is const: it sorts and shows like any other. */
TEST_F(Sorting, TakesConstLists) {
  const Table<EVEvent> &kept = events;
  const Table<EVOrigin> &below = origins;
  EXPECT_THAT(list(client.sort(&kept, "evid", 1, nullptr)), ElementsAre(4, 3, 0, 2, 1));
  EXPECT_EQ(client.checkSortQuery(&kept, "commid"), 0);
  EXPECT_EQ(client.checkSortQuery(&below, "norigins"), -1);
  EVConstEventsTab tab{&kept, {}, {}};
  client.sort(&tab, "evid", 1);
  EXPECT_EQ(client.getRow(&tab, 4), 0);
  EXPECT_EQ(client.getIndex(&tab, 0), 4);
  EXPECT_EQ(client.findEvidRow(&tab, 20), 3);
  EVConstOriginsTab origins_tab{&below, {}, {}};
  client.setOriginsTabs(&origins_tab, nullptr);
  EXPECT_EQ(client.findOridRow(&origins_tab, 20),
            client.findOridIndex(&origins_tab, 20));
}

/* An order of another list must not grow the mappings or write outside them. */
TEST_F(Sorting, OrdersWithForeignIndexesStayInside) {
  EVOriginsTab tab{&origins, {}, {}};
  Table<int> order;
  for (const int index : {2, 99, 0, -4}) order.push(index);
  client.setOriginsTabs(&tab, &order);
  EXPECT_THAT(list(tab.index), ElementsAre(2, 99, 0, -4));
  EXPECT_THAT(list(tab.rows), ElementsAre(2, -1, 0, -1));
  EXPECT_EQ(client.findOridRow(&tab, 20), 0);
  EXPECT_EQ(client.findOridRow(&tab, 50), -1) << "the list has grown since";
  client.setOriginsTabs(&tab, &tab.index);
  EXPECT_THAT(list(tab.index), ElementsAre(2, 99, 0, -4));
}

}  // namespace
}  // namespace ksutil::events
