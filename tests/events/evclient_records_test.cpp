/* These helpers choose the origin that a program shows and works on; their results -1
 * beside a filled record are relied upon. */
#include <gtest/gtest.h>

#include "tests/events/bare_server.h"

namespace {

/* An event with origins of the given ids. */
EVEvent event_of(std::initializer_list<long> orids, int pref_origin) {
  EVEvent event;
  event.evid = 1;
  event.pref_origin = pref_origin;
  for (const long orid : orids) {
    EVOrigin origin;
    origin.orid = orid;
    event.origins.push(origin);
  }
  return event;
}

struct OriginCase {
  const char *name;
  int pref_origin;
  long orid;
  int preferred;
  int result;
  long copied;  // orid in the output, 99 where it must stay as it was
};

class GetOrigin : public testing::TestWithParam<OriginCase> {};

TEST_P(GetOrigin, GivesIndexAndCopy) {
  const OriginCase &c = GetParam();
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent event = event_of({10, 11, 11, 12}, c.pref_origin);
  EVOrigin origin;
  origin.orid = 99;
  EXPECT_EQ(client.getOrigin(&event, c.orid, origin, c.preferred), c.result);
  EXPECT_EQ(origin.orid, c.copied);
}

INSTANTIATE_TEST_SUITE_P(
    Events, GetOrigin,
    testing::Values(OriginCase{"FirstOfEqualIds", 3, 11, 1, 1, 11},
                    OriginCase{"NoneLeavesTheOutput", 3, 77, 0, -1, 99},
                    OriginCase{"FallsBackToPreferred", 3, 77, 1, 3, 12},
                    OriginCase{"FallsBackToFirstWithoutIndex", -1, 77, 1, -1, 10},
                    OriginCase{"PreferredPastTheEnd", 4, 77, 1, -1, 10}),
    [](const auto &tested) { return tested.param.name; });

TEST(ClientRecords, OfEventsWithoutOriginsOrId) {
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent empty = event_of({}, 0);
  EVOrigin origin;
  origin.orid = 99;
  EXPECT_EQ(client.getOrigin(&empty, 10, origin, 1), -1);
  EXPECT_EQ(origin.orid, 99);
  EVEvent unnumbered = event_of({10}, 0);
  unnumbered.evid = -1;
  EXPECT_EQ(client.getOrigin(&unnumbered, 10, origin, 1), -1);
  EXPECT_EQ(origin.orid, -1);
  int index = 7;
  EXPECT_EQ(client.getPreferredOrigin(&empty, &index), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(client.findOrid(&empty, -1), nullptr);
}

TEST(ClientRecords, PointIntoTheEvent) {
  BareServer bare;
  EVClient client(bare.pointer());
  EVEvent event = event_of({10, 11}, -1);
  int index = 7;
  EXPECT_EQ(client.getPreferredOrigin(&event, &index), event.origins.ptr(0));
  EXPECT_EQ(index, -1);
  event.pref_origin = 1;
  EXPECT_EQ(client.getPreferredOrigin(&event, &index), event.origins.ptr(1));
  EXPECT_EQ(index, 1);
  EXPECT_EQ(client.getPreferredOrigin(&event, nullptr), event.origins.ptr(1));

  EVOrigin &origin = *event.origins.ptr(1);
  EXPECT_EQ(client.getPreferredMoment(&event), nullptr);
  event.pref_moment_origin = 1;
  EXPECT_EQ(client.getPreferredMoment(&event), nullptr);
  origin.moments.push(EVMoment());
  origin.moments.push(EVMoment());
  origin.pref_moment = 1;
  EXPECT_EQ(client.getPreferredMoment(&event), origin.moments.ptr(1));
  origin.pref_moment = 2;
  EXPECT_EQ(client.getPreferredMoment(&event), nullptr);
}

/* A pointer that is not a server must end the program before anything is read through it. */
TEST(ClientDeathTest, NeedsALivingServer) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char *const text =
      "EVClient::EVClient: input EVServer pointer does not point to a EVServer object.";
  BareServer bare;
  EXPECT_EXIT(EVClient(nullptr), testing::ExitedWithCode(1), text);
  EXPECT_EXIT(EVClient(reinterpret_cast<EVServer *>(16)), testing::ExitedWithCode(1),
              text);
  EXPECT_EXIT(
      {
        bare.end();
        EVClient client(bare.pointer());
      },
      testing::ExitedWithCode(1), text);
  EXPECT_EXIT(
      {
        bare.state.database.vars().mark = 0;
        EVClient client(bare.pointer());
      },
      testing::ExitedWithCode(1), text);
}

}  // namespace
