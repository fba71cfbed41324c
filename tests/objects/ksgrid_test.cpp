/* Tags are all that callers hold: a tag that leads to a freed or another grid shows one
 * map in the place of another. */
#include "tests/objects/ksgrid_support.h"

namespace {

TEST(KsgridRegistry, TagsLeadToTheirGridsUntilTheseAreFreed) {
  char tag[KS_TAG_SIZE] = "old", copied[KS_TAG_SIZE], second[KS_TAG_SIZE];
  KSGrid *const grid = new_grid({1, 2}, {3}, tag, "map").release();
  const Floats frames = {7, 8};
  ASSERT_EQ(ksgrid_put(tag, 1, frames.data(), 100, 0.5), 0);
  grid->params[19] = 3;
  grid->gapval = -1;
  KSGrid *const copy = ksgrid_copy(tag, "copy", copied);
  ASSERT_NE(copy, nullptr);
  ASSERT_EQ(ksgrid_register_grid(grid, second), 0);
  EXPECT_EQ(ksgrid_get_grid(tag), grid);
  EXPECT_EQ(ksgrid_get_grid(second), grid);
  EXPECT_EQ(ksgrid_get_grid(copied), copy);

  ksgrid_free(tag);
  EXPECT_EQ(ksgrid_get_grid(tag), nullptr);
  EXPECT_EQ(ksgrid_get_grid(second), nullptr);
  EXPECT_EQ(taken_messages(), "ksgrid_get_grid: Cannot find " + std::string(tag) +
                                  "\nksgrid_get_grid: Cannot find " + second);
  EXPECT_STREQ(copy->name, "copy");
  KSGrid *const in_place = ksgrid_copy(copied, "", copied);
  ASSERT_NE(in_place, nullptr);
  EXPECT_EQ(ksgrid_get_grid(copied), in_place) << "the old tag was read before";
  ksgrid_free(copied);
  EXPECT_STREQ(copy->xtext1, "km");
  EXPECT_EQ(copy->xtext2, nullptr);
  EXPECT_EQ(values(*copy), frames);
  EXPECT_EQ(copy->time, 100);
  EXPECT_EQ(copy->dt, 0.5);
  EXPECT_EQ(copy->params[19], 3);
  EXPECT_EQ(copy->gapval, -1);
  ksgrid_free_ksgrid(copy);
  ksgrid_free(nullptr);
  EXPECT_EQ(taken_messages(), "");
}

TEST(KsgridRegistry, GroupsAreFreedByTheirName) {
  char first[KS_TAG_SIZE], other[KS_TAG_SIZE], last[KS_TAG_SIZE];
  static_cast<void>(new_grid({1}, {1}, first, "group").release());
  const OwnedGrid kept = new_grid({1}, {1}, other);
  static_cast<void>(new_grid({1}, {1}, last, "group").release());
  EXPECT_EQ(ksgrid_free_tag("group"), 0);
  EXPECT_EQ(ksgrid_get_grid(first), nullptr);
  EXPECT_EQ(ksgrid_get_grid(last), nullptr);
  EXPECT_EQ(ksgrid_get_grid(other), kept.get());
  taken_messages();
}

TEST(KsgridRegistry, EveryTagFormNamesItselfWithoutAGrid) {
  char tag[KS_TAG_SIZE] = "x", *packet = nullptr;
  float value = 0, *out = nullptr;
  int n = 0;
  /* So that there is a registry to look in. */
  const OwnedGrid any = new_grid({1}, {1}, tag);
  EXPECT_EQ(ksgrid_copy("no", "", tag), nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_EQ(ksgrid_put(nullptr, 1, &value, 0, 1), -1);
  EXPECT_EQ(ksgrid_putanddecimate("no", 1, &value, 1, 0, 1), -1);
  EXPECT_EQ(ksgrid_append_sample("no", &value), -1);
  EXPECT_EQ(ksgrid_trim("no", 1), -1);
  EXPECT_EQ(ksgrid_set_order("no", 1), -1);
  EXPECT_EQ(ksgrid_eval("no", 0, 1, &value, &value, "block", "none", &out, &n), -1);
  EXPECT_EQ(ksgrid_maxmin("no", 0, &value, 0, 0, 0, 0, 0), -1);
  EXPECT_EQ(ksgrid_d2slow("no", "ak135", 0, KSGRID_X), -1);
  EXPECT_EQ(ksgrid_eval_d2slow("no", "ak135", 0, 0, 1, &value, &value, "block", "none",
                               &out, &n),
            -1);
  EXPECT_EQ(ksgrid_stuff("no", &packet, &n, &n), -1);
  EXPECT_EQ(ksgrid_write_fd("no", 1), -1);
  std::string expected;
  for (const char *name :
       {"copy", "put", "putanddecimate", "append_sample", "trim", "set_order", "eval",
        "maxmin", "d2slow", "eval_d2slow", "stuff", "write_fd"}) {
    expected += "ksgrid_get_grid: Cannot find " +
                std::string(name == std::string("put") ? "" : "no") + "\nksgrid_" +
                name + ": ksgrid_get_grid() error.\n";
  }
  EXPECT_EQ(taken_messages(), expected);
}

TEST(KsgridCreate, RefusesImpossibleSizesAndSurvivesShortMemory) {
  char tag[KS_TAG_SIZE] = "x";
  const float one = 1;
  EXPECT_EQ(ksgrid_create("", 0, &one, "", "", 1, &one, "", "", "", "", "", tag),
            nullptr);
  EXPECT_EQ(
      ksgrid_create("", 1 << 16, &one, "", "", 1 << 15, &one, "", "", "", "", "", tag),
      nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_EQ(taken_messages(),
            "ksgrid_create: Illegal grid size 0 x 1.\n"
            "ksgrid_create: Illegal grid size 65536 x 32768.\n");
  /* Each allocation in turn, until there is none left to fail. */
  int failures = 0;
  for (OwnedGrid grid; grid == nullptr; ++failures) {
    ks_test_fail_alloc(failures + 1);
    grid = new_grid({1, 2}, {3}, nullptr, "name");
    if (grid != nullptr) break;
    EXPECT_THAT(taken_messages(), testing::HasSubstr(" error.\n"));
  }
  ks_test_fail_alloc(0);
  EXPECT_GT(failures, 8);
  ks_test_fail_alloc(1);
  EXPECT_EQ(new_grid({1}, {1}), nullptr);
  EXPECT_THAT(taken_messages(),
              testing::StartsWith("ksgrid_create: malloc(KSGrid," +
                                  std::to_string(sizeof(KSGrid)) + ") error.\n"));
}

}  // namespace
