#include "tests/formats/exchange/importer_fixture.h"

namespace ksutil::exchange {
namespace {

/* Beyond its memory the gathering writes to a file: order, revisions and contents must not
 * depend on where an event lies. */
TEST(Gathering, KeepsMoreThanItsMemoryHolds) {
  constexpr int kEvents = 3000;
  const std::string filler(40000, 'x');
  Gathering gathering;
  for (int pass = 0; pass < 2; pass++) {
    for (int i = 0; i < kEvents; i++) {
      Event event = event_at("e" + std::to_string(i * 7 % kEvents), 1e9 - i);
      event.place = std::to_string(pass) + (pass == 0 ? filler : "");
      event.updated += pass;
      ASSERT_TRUE(gathering.add(event)) << gathering.problem();
    }
  }
  EXPECT_EQ(gathering.superseded(), kEvents);
  double last = 0.0;
  for (const std::uint32_t index : gathering.by_time()) {
    Event event;
    ASSERT_TRUE(gathering.get(index, event));
    EXPECT_EQ(event.place, "1");
    EXPECT_GT(event.origins[0].time, last);
    last = event.origins[0].time;
  }
}

}  // namespace
}  // namespace ksutil::exchange
