/* FlatFiles: a folder for the table files of a database, and the database that reads them. */
#ifndef KSUTIL_TESTS_PLATFORM_DB_FLAT_FILES_FIXTURE_H
#define KSUTIL_TESTS_PLATFORM_DB_FLAT_FILES_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/db/store/internal/flat_files.h"
#include "platform/elog/elog.h"
#include "table_files.h"

namespace ksutil::db::testing {

class FlatFiles : public ::testing::Test {
 protected:
  ~FlatFiles() override { elog_clear_register(0); }
  std::string path(const std::string &table) const {
    return directory_ / ("db." + table);
  }
  TableStore &table(const std::string &name, const char *mode = "r") {
    stores_.push_back(open_flat_files(directory_ / "db", mode));
    if (stores_.back() == nullptr) throw std::runtime_error(messages());
    return *stores_.back()->table(name);
  }
  TempDirectory directory_;
  std::vector<std::unique_ptr<DatabaseStore>> stores_;
};

}  // namespace ksutil::db::testing
#endif
