/* Programs keep tags in texts of their own: a function that writes more than the tag and its
 * NUL overwrites what stands behind it, or shows bytes of its own memory. */
#include <cstring>
#include <functional>

#include "objects/ksgrid.h"
#include "objects/kshistory.h"
#include "objects/ksvector2.h"
#include "tests/objects/ksvector_support.h"

namespace {

struct Writer {
  const char *name;
  std::function<void(char *tag)> write;  // and free what was made
};

Tbl *list_of(char *tag) {
  Tbl *const tags = newtbl(1);
  pushtbl(tags, tag);
  return tags;
}

TEST(TagBuffers, GetTheTagAndItsNulAndNothingMore) {
  const double sample = 1.0;
  const float axis[] = {0.0F, 1.0F};
  const Writer writers[] = {
      {"ksvector_create",
       [](char *tag) {
         ksvector_create(1, 1, nullptr, tag);
         ksvector_free(tag);
       }},
      {"ksvector_stats",
       [](char *tag) {
         char first[KS_TAG_SIZE];
         ksvector_create(1, 1, nullptr, first);
         Tbl *const tags = list_of(first);
         ksvector_stats(tags, "max", nullptr, tag);
         freetbl(tags, nullptr);
         ksvector_free(first);
         ksvector_free(tag);
       }},
      {"ksvector_read_from_trblob",
       [](char *tag) {
         Dbptr trace = dbinvalid();
         ksvector_read_from_trblob("/dev/null", &trace, tag);
       }},
      {"ksvector2_create_tsamp",
       [&](char *tag) {
         ksvector2_create_tsamp(1, &sample, nullptr, tag, 0.0, 1.0);
         ksvector2_free(tag);
       }},
      {"ksgrid_create",
       [&](char *tag) {
         ksgrid_create(nullptr, 2, axis, nullptr, nullptr, 2, axis, nullptr, nullptr,
                       nullptr, nullptr, nullptr, tag);
         ksgrid_free(tag);
       }},
      {"kshistory_create",
       [](char *tag) {
         kshistory_create(1, nullptr, nullptr, tag);
         kshistory_free(tag);
       }},
  };
  for (const Writer &writer : writers) {
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    writer.write(buffer);
    const std::size_t length = strnlen(buffer, sizeof buffer);
    ASSERT_LT(length, 16U) << writer.name;
    EXPECT_EQ(std::string(buffer + length + 1, sizeof buffer - length - 1),
              std::string(sizeof buffer - length - 1, '#'))
        << writer.name;
  }
  ks_clear_register(0);
}

}  // namespace
