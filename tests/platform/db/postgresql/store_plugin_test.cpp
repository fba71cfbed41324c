/* The word that a descriptor gives becomes the name of a file that is loaded into the
 * program: it must not lead anywhere else. */
#include "platform/db/store_plugin.h"

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil::db {
namespace {

using ksutil::test::taken_messages;
using ksutil::test::TempFolder;
using ksutil::test::write_file;

std::string opening(const std::string &store) {
  const TempFolder folder;
  write_file(folder / "db", "schema css3.0\nstore \"" + store + "\"\n");
  EXPECT_EQ(open_store(folder / "db", "r", 1 << 20), nullptr);
  return taken_messages();
}

TEST(StorePlugin, NamesOfStoresAreNoPaths) {
  for (const char *store : {"../evil", "/tmp/evil", "Evil", "a.b", "a b", "a\\nb"}) {
    EXPECT_NE(opening(store).find("is no name of a store"), std::string::npos) << store;
  }
}

TEST(StorePlugin, MessageNamesTheMissingFileAndWhereItWasLookedFor) {
  const TempFolder folder;
  setenv("KSUTIL_STORE_PATH", (folder / "plugins").c_str(), 1);
  const std::string told = opening("nowhere");
  EXPECT_NE(told.find("ksutil_store_nowhere.so"), told.npos) << told;
  EXPECT_NE(told.find(folder / "plugins"), told.npos) << told;
  write_file(folder / "ksutil_store_broken.so", "no library");
  setenv("KSUTIL_STORE_PATH", std::string(folder / "").c_str(), 1);
  EXPECT_NE(opening("broken").find("Cannot load"), std::string::npos);
  unsetenv("KSUTIL_STORE_PATH");
}

bool created = true;
const StorePlugin kPlugin{kStorePluginVersion,
                          [](const StoreDescriptor &descriptor, bool, std::size_t) {
                            EXPECT_EQ(descriptor.connection, "a = 'b # c'");
                            return open_scratch_store(descriptor.schema);
                          },
                          [](const StoreDescriptor &) { return created; }};

TEST(StorePlugin, DescriptorIsMadeAfterTheTablesAndReadAsItWasGiven) {
  register_store("memory", &kPlugin);
  const TempFolder folder;
  const StoreDescriptor descriptor{folder / "db", "css3.0", "memory", "a = 'b # c'"};
  created = false;
  EXPECT_FALSE(create_database(descriptor));
  EXPECT_EQ(open_store(descriptor.name, "r", 1 << 20), nullptr);
  created = true;
  taken_messages();
  ASSERT_TRUE(create_database(descriptor)) << taken_messages();
  EXPECT_NE(open_store(descriptor.name, "r", 1 << 20), nullptr) << taken_messages();
  EXPECT_FALSE(create_database(descriptor));  // the descriptor stays as it is
  EXPECT_NE(taken_messages().find("there already"), std::string::npos);
}

}  // namespace
}  // namespace ksutil::db
