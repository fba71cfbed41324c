/* A password in a log is a password lost; a server that is away must not keep its users
 * waiting. */
#include "platform/db/postgresql/internal/pg_connection.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil::db {
namespace {

TEST(PgConnection, KeepsPasswordsOutOfDescriptorsAndMessages) {
  for (const char *text :
       {"host=a password=geheim", "postgresql://me:geheim@a/db",
        "postgresql://a/db?password=geheim", "host=a geheim", "host='geheim",
        "postgresql://me:geheim@a:port/db", "geheim=x"}) {
    PgOptions options;
    EXPECT_FALSE(options.parse("dbopen", text)) << text;
    const std::string told = ksutil::test::taken_messages();
    EXPECT_NE(told, "");
    EXPECT_EQ(told.find("geheim"), told.npos) << told;
  }
  PgOptions options;
  ASSERT_TRUE(options.parse("dbopen", "host=a,b port=1,2 user=me dbname=net"));
  EXPECT_EQ(options.place(), "host=a,b port=1,2 dbname=net");
}

TEST(PgConnection, ServerThatIsAwayIsTriedAgainAfterAPause) {
  const ksutil::test::TempFolder folder;
  PgOptions options;
  ASSERT_TRUE(options.parse("dbopen", "host=" + std::string(folder / "none")));
  PgConnection connection(options, PgConnection::Purpose::kRead);
  EXPECT_FALSE(connection.connect());
  EXPECT_NE(connection.error().find("Cannot connect"), std::string::npos);
  EXPECT_FALSE(connection.connect());
  EXPECT_NE(connection.error().find("next attempt"), std::string::npos)
      << connection.error();
  EXPECT_FALSE(connection.run("SELECT 1"));
}

TEST(PgConnection, NamesCannotEndTheirQuotes) {
  EXPECT_EQ(pg_name("origin"), "\"origin\"");
  EXPECT_EQ(pg_name("a\"; DROP TABLE b; --"), "\"a\"\"; DROP TABLE b; --\"");
}

}  // namespace
}  // namespace ksutil::db
