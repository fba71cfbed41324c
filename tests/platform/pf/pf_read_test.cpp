/* Settings are spread over several directories: a file missed, or merged in the wrong
 * order, silently runs a site with the defaults of another. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace {

namespace fs = std::filesystem;
using ksutil::test::taken_messages;

class PfRead : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(top_ / "site");
    fs::create_directories(top_ / "user");
    const std::string path =
        (top_ / "site").string() + ":/nonexistent:" + (top_ / "user").string();
    setenv("KSUTIL_PF_PATH", path.c_str(), 1);
    elog_clear_register(0);
  }
  void TearDown() override { unsetenv("KSUTIL_PF_PATH"); }

  void write(const std::string &file, const std::string &text) {
    std::ofstream(top_ / file, std::ios::binary) << text;
  }
  static PfHandle read(const std::string &name) {
    Pf *pf = nullptr;
    const int result = pfread(name.c_str(), &pf);
    EXPECT_EQ(result, pf == nullptr ? -1 : 0);
    return PfHandle(pf);
  }

  const ksutil::test::TempFolder folder_;
  const fs::path top_ = folder_.path();
};

TEST_F(PfRead, LaterDirectoriesReplaceAndExtendEarlierOnes) {
  write("site/server.pf", "a 1\nb 1\nt &Tbl{\nx\ny\n}\nm &Arr{\nk 1\nl 1\n}\n");
  write("user/server.pf", "b 2\nt &Tbl{\nz\n}\nm &Arr{\nl 2\nn 2\n}\nc 2\n");
  const PfHandle both = read("server");
  ASSERT_NE(both, nullptr);
  EXPECT_EQ(taken(pf2string(both.get())),
            "a 1\nb 2\nt &Tbl{\n  z\n}\nm &Arr{\n  k 1\n  l 2\n  n 2\n}\nc 2\n");
  const PfHandle one = read((top_ / "site/server.pf").string());
  ASSERT_NE(one, nullptr);
  EXPECT_EQ(pfget_int(one.get(), "b"), 1);
}

TEST_F(PfRead, NamesFileAndLineOfAnError) {
  write("site/server.pf", "a 1\n");
  write("user/server.pf", std::string("a 2\n\nb x\0y\n", 11));
  EXPECT_EQ(read("server.pf"), nullptr);
  EXPECT_EQ(taken_messages(), "pfread: " + (top_ / "user/server.pf").string() +
                                  ":3: The line holds a NUL byte.\n");
}

TEST_F(PfRead, TellsAnAbsentFileFromAnUnreadableOne) {
  EXPECT_EQ(read("absent"), nullptr);
  EXPECT_EQ(taken_messages(), "pfread: Cannot find absent.pf in " +
                                  std::string(getenv("KSUTIL_PF_PATH")) + ".\n");
  elog_clear_register(0);
  write("site/server.pf", "a 1\n");
  fs::create_directory(top_ / "user/server.pf");
  EXPECT_EQ(read("server"), nullptr);
  EXPECT_TRUE(taken_messages().starts_with("pfread: Cannot read " +
                                           (top_ / "user/server.pf").string() + ".\n"));
}

}  // namespace
