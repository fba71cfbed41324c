/* Runs the tests of every store on flat files. */
#include <filesystem>
#include <fstream>

#include "platform/db/db.h"
#include "tests/platform/db/conformance/store_backend.h"
#include "tests/platform/db/conformance/suites.h"
#include "tests/support/folder.h"

namespace ksutil::db::conformance {

namespace {

class FlatBackend final : public StoreBackend {
 public:
  FlatBackend() { EXPECT_EQ(dbcreate(name_.c_str(), "css3.0"), 0); }
  const std::string &name() const override { return name_; }
  void damage(const std::string &table, long record) override {
    const auto width = Schema::load("css3.0")->find(table)->width + 1;
    std::fstream file(name_ + "." + table,
                      std::ios::binary | std::ios::in | std::ios::out);
    file.seekp((record + 1) * width - 1);
    file << "x";
  }

 private:
  const ksutil::test::TempFolder folder_;
  const std::string name_ = folder_ / "db";
};

KSUTIL_INSTANTIATE_STORE_TESTS(FlatFiles,
                               (StoreKind{"Flat", [] {},
                                          [] {
                                            return std::unique_ptr<StoreBackend>(
                                                std::make_unique<FlatBackend>());
                                          }}));

}  // namespace
}  // namespace ksutil::db::conformance
