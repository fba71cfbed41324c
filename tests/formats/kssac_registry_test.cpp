/* A record that stays under its tag after it was freed crashes the application later, far
 * from the cause. */
#include "formats/kssac.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::HasSubstr;

/* First in its program: the registry does not exist before. */
TEST(KssacRegistry, SaysWhenThereAreNone) {
  EXPECT_EQ(kssac_get_kssac("sac0"), nullptr);
  EXPECT_EQ(messages(), "kssac_get_kssac: No kssacs defined");
  EXPECT_EQ(kssac_free("sac0"), -1);
  EXPECT_EQ(messages(), "kssac_free: No kssacs defined");
  EXPECT_EQ(kssac_free_tag("group"), 0);
  EXPECT_EQ(kssac_free_kssac(nullptr), 0);

  char tag[KS_TAG_SIZE];
  const KSSacPtr alone = new_sac();
  KSSac *const first = kssac_create("first", tag);
  EXPECT_STREQ(tag, "sac0");
  EXPECT_EQ(kssac_get_kssac(tag), first);
  EXPECT_STREQ(first->name, "first");
  EXPECT_EQ(kssac_free(tag), 0);
}

TEST(KssacRegistry, WritesTheTagAndItsNulAndNothingMore) {
  char tag[KS_TAG_SIZE];
  std::fill_n(tag, sizeof tag, '#');
  const KSSacPtr kssac(kssac_create(nullptr, tag));
  const std::size_t used = std::strlen(tag) + 1;
  EXPECT_LT(used, 16U);
  EXPECT_EQ(std::string(tag + used, sizeof tag - used),
            std::string(sizeof tag - used, '#'));
}

TEST(KssacRegistry, ForgetsWhatIsFreed) {
  char tag[3][KS_TAG_SIZE];
  kssac_create("group", tag[0]);
  KSSac *const other = kssac_create("other", tag[1]);
  kssac_create("group", tag[2]);
  EXPECT_EQ(kssac_free_tag("group"), 0);
  EXPECT_EQ(kssac_free_tag(nullptr), 0);
  elog_clear_register(0);
  EXPECT_EQ(kssac_get_kssac(tag[0]), nullptr);
  EXPECT_EQ(messages(), std::string("kssac_get_kssac: Cannot find ") + tag[0]);
  EXPECT_EQ(kssac_free(tag[2]), -1);
  EXPECT_EQ(messages(), std::string("kssac_free: Cannot find ") + tag[2]);
  EXPECT_EQ(kssac_get_kssac(nullptr), nullptr);
  EXPECT_EQ(kssac_get_kssac(tag[1]), other);
  kssac_free_kssac(other);
  EXPECT_EQ(kssac_get_kssac(tag[1]), nullptr);
  elog_clear_register(0);
}

TEST(KssacRegistry, CreatesNothingWhenMemoryIsShort) {
  char first[KS_TAG_SIZE];  // what is made once in a process is there
  kssac_free_kssac(kssac_create("first", first));
  elog_clear_register(0);
  const char *const expected[] = {"malloc(KSSac) error.\n", "malloc(KSSac) error.\n",
                                  "malloc(SacImage) error.\n"};
  for (long n = 1; n <= 3; ++n) {
    char tag[KS_TAG_SIZE] = "old";
    ks_test_fail_alloc(n);
    EXPECT_EQ(kssac_create("name", tag), nullptr);
    EXPECT_STREQ(tag, "");
    EXPECT_THAT(messages(), HasSubstr(std::string("kssac_create: ") + expected[n - 1]));
  }
}

}  // namespace
}  // namespace ksutil::sac::test
