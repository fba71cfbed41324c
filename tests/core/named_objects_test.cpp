/* Users refer to objects by name: a name that led to another object, or a refused name that
 * took over the first binding, would make them change the wrong one. */
#include "core/named_objects.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/register.h"
#include "platform/stock/memory.h"

namespace {

/* The directory lives as long as the process: every case uses names of its own. */
std::string registered_text() {
  const ksutil::MallocPtr<char> text(ks_elog_string(0));
  return text.get();
}

std::string decimal_address(const void *object) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(object));
}

TEST(NamedObjects, FindEachOtherWithTheirType) {
  static int grid = 0;
  std::string name = "velocity";
  std::string type = "grid";
  ASSERT_EQ(KS_SetName(name.c_str(), type.c_str(), &grid), 0);
  name.assign("overwritten");
  type.assign("overwritten");
  const char *found_type = nullptr;
  EXPECT_EQ(KS_GetObject("velocity", &found_type), &grid);
  EXPECT_STREQ(found_type, "grid");
  found_type = nullptr;
  EXPECT_STREQ(KS_GetName(&grid, &found_type), "velocity");
  EXPECT_STREQ(found_type, "grid");
  EXPECT_EQ(KS_GetObject("velocity", nullptr), &grid);
  EXPECT_STREQ(KS_GetName(&grid, nullptr), "velocity");
}

TEST(NamedObjects, UnknownOnesLeaveTheTypeUntouched) {
  static int unnamed = 0;
  const char *type = "before";
  EXPECT_EQ(KS_GetObject("nobody", &type), nullptr);
  EXPECT_EQ(KS_GetObject(nullptr, &type), nullptr);
  EXPECT_STREQ(KS_GetName(&unnamed, &type), "");
  EXPECT_STREQ(type, "before");
}

TEST(NamedObjects, ARefusedNameKeepsItsFirstBinding) {
  static int first = 0, second = 0;
  ASSERT_EQ(KS_SetName("taken", "vector", &first), 0);
  ks_clear_register(0);
  EXPECT_EQ(KS_SetName("taken", "history", &second), -1);
  EXPECT_EQ(registered_text(), "KS_SetName: Name 'taken' already in use.\n");
  const char *type = nullptr;
  EXPECT_EQ(KS_GetObject("taken", &type), &first);
  EXPECT_STREQ(type, "vector");
  EXPECT_STREQ(KS_GetName(&second, nullptr), "");
}

TEST(NamedObjects, LaterOfTwoNamesIsTheObjectsName) {
  static int object = 0;
  const char *type = nullptr;
  ASSERT_EQ(KS_SetName("old name", "a", &object), 0);
  const char *const old_name = KS_GetName(&object, nullptr);
  ASSERT_EQ(KS_SetName("new name", "b", &object), 0);
  EXPECT_STREQ(KS_GetName(&object, &type), "new name");
  EXPECT_STREQ(type, "b");
  EXPECT_EQ(KS_GetObject("old name", &type), &object);
  EXPECT_STREQ(type, "a");
  EXPECT_STREQ(old_name, "old name") << "texts once handed out stay";
}

TEST(NamedObjects, ANameThatSpellsANamedAddressIsRefused) {
  static int named = 0, other = 0;
  EXPECT_EQ(KS_SetName(decimal_address(&other).c_str(), "digits", &named), 0)
      << "not the address of a named object yet";
  EXPECT_EQ(KS_SetName(decimal_address(&named).c_str(), "digits", &other), -1);
  EXPECT_EQ(KS_GetObject(decimal_address(&named).c_str(), nullptr), nullptr);
}

TEST(NamedObjects, MissingTextsAndShortMemoryChangeNothing) {
  static int object = 0;
  ks_clear_register(0);
  EXPECT_EQ(KS_SetName(nullptr, "type", &object), -1);
  EXPECT_EQ(KS_SetName("untyped", nullptr, &object), -1);
  EXPECT_EQ(registered_text(),
            "KS_SetName: Name and type must be given.\n"
            "KS_SetName: Name and type must be given.\n");
  ks_clear_register(0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(KS_SetName("untyped", "type", &object), -1);
  EXPECT_TRUE(registered_text().starts_with("KS_SetName: malloc() error.\n"));
  EXPECT_EQ(KS_GetObject("untyped", nullptr), nullptr);
  EXPECT_STREQ(KS_GetName(&object, nullptr), "");
  EXPECT_EQ(KS_SetName("untyped", "type", &object), 0);
}

}  // namespace
