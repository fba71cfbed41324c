/* Runs the tests of every store on PostgreSQL. */
#include "tests/platform/db/conformance/suites.h"
#include "tests/postgresql/server_database.h"

namespace ksutil::db::conformance {
namespace {

class PostgresqlBackend final : public StoreBackend {
 public:
  const std::string &name() const override { return database_.name(); }
  void damage(const std::string &table, long record) override {
    ksutil::test::Sql(database_.connection())
        .run("UPDATE " + table +
             " SET auth = repeat('x', 100) WHERE orid = " + std::to_string(record));
  }

 private:
  ksutil::test::ServerDatabase database_;
};

KSUTIL_INSTANTIATE_STORE_TESTS(Postgresql,
                               (StoreKind{"Postgresql",
                                          [] { KSUTIL_SKIP_WITHOUT_POSTGRESQL(); },
                                          [] {
                                            return std::unique_ptr<StoreBackend>(
                                                std::make_unique<PostgresqlBackend>());
                                          }}));

}  // namespace
}  // namespace ksutil::db::conformance
