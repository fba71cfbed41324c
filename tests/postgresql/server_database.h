/* ServerDatabase: an empty css3.0 database on the tests' own PostgreSQL server. */
#ifndef KSUTIL_TESTS_POSTGRESQL_SERVER_DATABASE_H
#define KSUTIL_TESTS_POSTGRESQL_SERVER_DATABASE_H

#include <stdexcept>
#include <string>

#include "platform/db/store.h"
#include "platform/db/store_plugin.h"
#include "tests/support/folder.h"
#include "tests/support/postgresql_cluster.h"
#include "tests/support/register.h"

namespace ksutil::test {

class ServerDatabase {
 public:
  explicit ServerDatabase(PostgresqlCluster &cluster = shared_cluster(),
                          const std::string &settings = "")
      : cluster_(cluster), database_(cluster.make_database(settings)) {
    if (!db::create_database({name_, "css3.0", "postgresql", connection()})) {
      throw std::runtime_error(taken_messages());
    }
  }

  PostgresqlCluster &cluster() const { return cluster_; }
  /* The name under which programs open it. */
  const std::string &name() const { return name_; }
  /* How plain SQL clients reach it. */
  std::string connection(const std::string &server = "primary") const {
    return cluster_.connection(database_, server);
  }
  /* The name under which programs open the same database by way of other hosts. */
  std::string name_by_way_of(const std::string &hosts) {
    const std::string name = folder_ / ("by" + std::to_string(++ways_));
    write_file(name, "schema css3.0\nstore postgresql\nconnection host=" + hosts +
                         " user=postgres dbname=" + database_ + "\n");
    return name;
  }
  std::unique_ptr<db::DatabaseStore> open(const char *mode = "r+") const {
    return open(name_, mode);
  }
  static std::unique_ptr<db::DatabaseStore> open(const std::string &name,
                                                 const char *mode = "r+") {
    auto store = db::open_store(name, mode, std::size_t{64} << 20);
    if (store == nullptr) throw std::runtime_error(taken_messages());
    return store;
  }

 private:
  PostgresqlCluster &cluster_;
  const std::string database_;
  const TempFolder folder_;
  const std::string name_ = folder_ / "db";
  int ways_ = 0;
};

}  // namespace ksutil::test
#endif
