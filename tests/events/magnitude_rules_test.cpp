/* The preferred magnitude is the number that goes out to the public: a rule misread by
 * one row or a tie broken the other way publishes another magnitude. */
#include <gtest/gtest.h>

#include <random>

#include "events/reading/internal/magnitude_rules.h"
#include "tests/events/messages.h"
#include "tests/support/comma_locale.h"

using namespace ksutil::events;

namespace {

EVMagnitude magnitude(const char *type, double value) {
  EVMagnitude result;
  result.magtype = type;
  result.magnitude = value;
  return result;
}

MagnitudeRules default_rules() {
  MagnitudeRules rules;
  read_default_magnitude_rules(rules);
  return rules;
}

unsigned priority(const char *type, double value) {
  return magnitude_priority(default_rules(), magnitude(type, value));
}

}  // namespace

TEST(MagnitudeRules, DefaultsGiveEighteenRowsInOrder) {
  const MagnitudeRules rules = default_rules();
  const struct {
    const char *type;
    double minimum, maximum;
  } expected[] = {
      {"mww", 7, 999},    {"mwp", 6, 999},    {"mwc", 6, 8},      {"mwb", 4, 7},
      {"mwr", 3, 7},      {"mw", 4, 7},       {"ml", -1, 5},      {"mb", 3, 6},
      {"ms", 5, 7},       {"mww", -999, 999}, {"mwp", -999, 999}, {"mwc", -999, 999},
      {"mwb", -999, 999}, {"mwr", -999, 999}, {"mw", -999, 999},  {"ml", -999, 999},
      {"mb", -999, 999},  {"ms", -999, 999},
  };
  ASSERT_EQ(rules.size(), 18);
  for (long i = 0; i < 18; i++) {
    EXPECT_EQ(rules.ptr(i)->magtype, expected[i].type);
    EXPECT_EQ(rules.ptr(i)->minmag, expected[i].minimum);
    EXPECT_EQ(rules.ptr(i)->maxmag, expected[i].maximum);
  }
}

TEST(MagnitudeRules, RangesIncludeBothEnds) {
  EXPECT_EQ(priority("mww", 7.0), 18U);
  EXPECT_EQ(priority("mww", 6.99), 9U);
  EXPECT_EQ(priority("mwc", 8.0), 16U);
  EXPECT_EQ(priority("mwc", 8.01), 7U);
  EXPECT_EQ(priority("ml", -1.0), 12U);
  EXPECT_EQ(priority("ml", -1.01), 3U);
  EXPECT_EQ(priority("MS", 5.0), 10U);
  EXPECT_EQ(priority("ms", 999.5), 0U);
  EXPECT_EQ(priority("md", 3.0), 0U);
}

TEST(MagnitudeRules, ReadsEntriesLeniently) {
  MagnitudeRules rules;
  ASSERT_EQ(read_magnitude_rules("preferred_magnitudes &Tbl{\n"
                                 "  # only a comment\n"
                                 "  mww abc\n"
                                 "  mb 7 abc\n"
                                 "  MW  3.5 4.5 # trusted here\n"
                                 "  longmagtype 1\n"
                                 "}\n",
                                 rules),
            0);
  ASSERT_EQ(rules.size(), 4);
  EXPECT_EQ(rules.ptr(0)->minmag, -999.0);
  EXPECT_EQ(rules.ptr(1)->minmag, 7.0);
  EXPECT_EQ(rules.ptr(1)->maxmag, 999.0);
  EXPECT_EQ(rules.ptr(2)->maxmag, 4.5);
  /* Magnitudes are lowered and rules are not: this one never matches. */
  EXPECT_EQ(magnitude_priority(rules, magnitude("MW", 4.0)), 0U);
  EXPECT_EQ(rules.ptr(3)->magtype, "longmag");

  EXPECT_EQ(read_magnitude_rules("other value\n", rules), 0);
  EXPECT_EQ(rules.size(), 0);
}

/* Where numbers have a comma, "7.0" must not become 7 and "5.5 6.5" a rule without end. */
TEST(MagnitudeRules, AreReadTheSameInEveryLocale) {
  const CommaLocale locale;
  ASSERT_TRUE(locale.ready());
  MagnitudeRules rules;
  ASSERT_EQ(read_magnitude_rules("preferred_magnitudes &Tbl{\n mb 5.5 6.5\n}\n", rules),
            0);
  ASSERT_EQ(rules.size(), 1);
  EXPECT_EQ(rules.ptr(0)->minmag, 5.5);
  EXPECT_EQ(rules.ptr(0)->maxmag, 6.5);
}

TEST(MagnitudeRules, LooksAtTheFirst1020CharactersOfAnEntry) {
  MagnitudeRules rules;
  const std::string blanks(1020, ' ');
  const std::string list = "preferred_magnitudes &Tbl{\n ";
  EXPECT_EQ(
      read_magnitude_rules((list + "mb 3" + blanks + "4 too many\n}\n").c_str(), rules),
      0);
  ASSERT_EQ(rules.size(), 1);
  EXPECT_EQ(rules.ptr(0)->minmag, 3.0);
  EXPECT_EQ(rules.ptr(0)->maxmag, 999.0);
  EXPECT_EQ(
      read_magnitude_rules((list + std::string(5000, 'm') + "\n}\n").c_str(), rules),
      0);
  EXPECT_EQ(rules.ptr(0)->magtype, "mmmmmmm");
}

TEST(MagnitudeRules, KeepsWhatStandsBeforeAFailingEntry) {
  MagnitudeRules rules = default_rules();
  taken_messages();
  EXPECT_EQ(read_magnitude_rules("preferred_magnitudes &Tbl{\n"
                                 "  mb 3 6\n"
                                 "  ms 1 2 x\n"
                                 "  ml\n"
                                 "}\n",
                                 rules),
            -1);
  EXPECT_EQ(rules.size(), 1);
  EXPECT_NE(taken_messages().find(
                "EVServer::readPreferredMagnitudes: Too many fields in 'ms 1 2 x'.\n"),
            std::string::npos);

  EXPECT_EQ(read_magnitude_rules("preferred_magnitudes &Tbl{\n", rules), -1);
  EXPECT_NE(taken_messages().find("EVServer::readPreferredMagnitudes: "
                                  "pfcompile(preferred_magnitudes &Tbl{\n) error.\n"),
            std::string::npos);
}

TEST(PreferredMagnitude, TakesTheLaterOfEquals) {
  Table<EVMagnitude> magnitudes;
  int best = -1;
  EXPECT_EQ(find_preferred_magnitude(default_rules(), magnitudes, best), -1);
  magnitudes.push(magnitude("MW", 5.0));
  magnitudes.push(magnitude("mb", 4.5));
  EXPECT_EQ(find_preferred_magnitude(default_rules(), magnitudes, best), 0);
  EXPECT_EQ(best, 13);
  magnitudes.push(magnitude("mw", 5.5));
  EXPECT_EQ(find_preferred_magnitude(default_rules(), magnitudes, best), 2);

  Table<EVMagnitude> unlisted;
  unlisted.push(magnitude("md", 1.0));
  unlisted.push(magnitude("mx", 2.0));
  EXPECT_EQ(find_preferred_magnitude(default_rules(), unlisted, best), 1);
  EXPECT_EQ(best, 0);
  EXPECT_EQ(find_preferred_magnitude(MagnitudeRules(), magnitudes, best), 2);
}

TEST(PreferredMagnitude, OfAnOriginFollowsItsList) {
  EVOrigin origin;
  origin.magnitude = 3.0;
  origin.magtype = "mb";
  set_preferred_magnitude(default_rules(), origin);
  EXPECT_EQ(origin.pref_magnitude, -1);
  EXPECT_EQ(origin.magnitude, -999.0);
  EXPECT_EQ(origin.magtype, "");
}

/* The event's choice, written as the sentence it is: the greatest (priority, preferred)
 * wins, the earlier origin on a tie. */
TEST(PreferredMagnitude, OfAnEventAgreesWithASmallModel) {
  const char *const types[] = {"mw", "MB", "ml", "ms", "md", "mww"};
  const MagnitudeRules rules = default_rules();
  std::mt19937 random(7);
  const auto pick = [&](int n) { return static_cast<int>(random() % unsigned(n)); };
  for (int round = 0; round < 2000; round++) {
    EVEvent event;
    const int origins = pick(4);
    for (int i = 0; i < origins; i++) {
      EVOrigin origin;
      for (int k = pick(3); k > 0; k--) {
        origin.magnitudes.push(magnitude(types[pick(6)], pick(9)));
      }
      event.origins.push(origin);
    }
    event.pref_origin = pick(origins + 1) - 1;

    std::pair<int, int> best{-1, 0};
    int winner = -1;
    double value = -999.0;
    for (int i = 0; event.pref_origin >= 0 && i < origins; i++) {
      std::pair<int, int> own{-1, i == event.pref_origin ? 1 : 0};
      double own_value = 0.0;
      for (const EVMagnitude &candidate : event.origins.ptr(i)->magnitudes) {
        const int rank = static_cast<int>(magnitude_priority(rules, candidate));
        if (rank < own.first) continue;
        own.first = rank;
        own_value = candidate.magnitude;
      }
      if (own.first < 0 || (winner >= 0 && own <= best)) continue;
      best = own;
      winner = i;
      value = own_value;
    }

    set_preferred_magnitude(rules, event);
    ASSERT_EQ(event.pref_magnitude_origin, winner) << "round " << round;
    ASSERT_EQ(event.magnitude, value) << "round " << round;
  }
}
