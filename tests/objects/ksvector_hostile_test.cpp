/* Files that were cut, mixed up or made to harm: whatever they hold, the readers end with a
 * vector or a message, leave nothing behind and take no memory on their word. */
#include <gtest/gtest.h>

#include "tests/objects/ksvector_support.h"

namespace {

/* What is left of vectors, once the one under `tag` is gone. */
int left_over(const char *tag) {
  int count = 0;
  long bytes = 0;
  ksvector_free(tag);
  ksvector_get_heap_size(nullptr, nullptr, &count, &bytes);
  return count;
}

/* A vector that was read can be used. */
void use(const KSVector *vector, const char *tag) {
  ASSERT_LE(vector->npts, vector->nalloc);
  ASSERT_LE(vector->nalloc, 130'000);
  double y[8];
  ksvector_eval(tag, y, 1.0);
}

TEST(KSVectorHostile, ResponsesEndWithAVectorOrAMessage) {
  const MemoryFile file;
  for_each_damage(
      "# c\nm 1 c fap\n3\n1 2 3\n4 5 6 7\n7 8 9\n", [&](const std::string &text) {
        char tag[KS_TAG_SIZE];
        int status = 0;
        ks_clear_register(0);
        const KSVector *const vector =
            ksvector_create_response_fap(file.write(text), "r", tag, &status);
        ASSERT_EQ(vector != nullptr, status == 0) << text;
        ASSERT_EQ(taken_messages().empty(), vector != nullptr) << text;
        if (vector != nullptr) use(vector, tag);
        ASSERT_EQ(left_over(tag), 0) << text;
      });
}

TEST(KSVectorHostile, AnyTextIsATable) {
  const MemoryFile file;
  for_each_damage("# c\nx y l\n1 2 a\n3,4\tb\n5 6 #c\n", [&](const std::string &text) {
    char tag[KS_TAG_SIZE];
    const int ycols[] = {1};
    const KSVector *const vector =
        ksvector_read(file.write(text), "t", 1, 0, 1, ycols, 0, tag);
    ASSERT_NE(vector, nullptr) << text;
    use(vector, tag);
    ASSERT_EQ(left_over(tag), 0);
  });
}

/* A device of zeros has no end, and a sparse file of some GB takes long to reach it. */
TEST(KSVectorHostile, LinesOfZerosAreNotReadToTheirEnd) {
  const int ycols[] = {1};
  const char *const file = "/dev/zero";
  char tag[KS_TAG_SIZE];
  int status = 0;
  ks_clear_register(0);
  EXPECT_EQ(ksvector_create_response_fap(file, "r", tag, &status), nullptr);
  EXPECT_EQ(status, -1);
  EXPECT_NE(taken_messages().find("fgets(/dev/zero) error."), std::string::npos);
  EXPECT_EQ(ksvector_read(file, "t", 0, 0, 1, ycols, -1, tag), nullptr);
  EXPECT_NE(taken_messages().find("fgets(/dev/zero) error."), std::string::npos);
  EXPECT_EQ(ksvector_read(file, "t", 2, 0, 1, ycols, -1, tag), nullptr);
  EXPECT_EQ(left_over(tag), 0);
}

}  // namespace
