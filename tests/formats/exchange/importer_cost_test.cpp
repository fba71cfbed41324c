/* An import must not look at all rows again for each of its parts. */
#include "tests/formats/exchange/importer_fixture.h"

namespace ksutil::exchange {
namespace {

/* Rows of a table, which counts how often one is read. */
class CountingRows final : public db::Snapshot {
 public:
  CountingRows(std::shared_ptr<const db::Snapshot> rows, long &reads)
      : Snapshot(std::shared_ptr<const db::Relation>(rows, &rows->layout()),
                 rows->stamp()),
        rows_(std::move(rows)),
        reads_(reads) {}
  std::string_view row(long record) const override {
    reads_++;
    return rows_->row(record);
  }
  db::RowText text(long record) const override { return rows_->text(record); }
  bool complete() const override { return rows_->complete(); }
  db::Changes changes_to(const Snapshot &) const override { return {}; }

 private:
  const std::shared_ptr<const db::Snapshot> rows_;
  long &reads_;
};

class CountingTransaction final : public db::Transaction {
 public:
  CountingTransaction(db::Transaction &step, long &reads)
      : step_(step), reads_(reads) {}
  const db::Relation &layout(std::size_t table) const override {
    return step_.layout(table);
  }
  std::shared_ptr<const db::Snapshot> snapshot(std::size_t table) override {
    return std::make_shared<CountingRows>(step_.snapshot(table), reads_);
  }
  long append(std::size_t table, std::string_view rows) override {
    return step_.append(table, rows);
  }
  bool overwrite(std::size_t table, long record, std::string_view row) override {
    return step_.overwrite(table, record, row);
  }

 private:
  db::Transaction &step_;
  long &reads_;
};

class CountingStore final : public db::DatabaseStore {
 public:
  explicit CountingStore(db::DatabaseStore &store) : store_(store) {}
  const std::string &name() const override { return store_.name(); }
  std::shared_ptr<const db::Schema> schema() const override { return store_.schema(); }
  bool writable() const override { return true; }
  db::TableStore *table(std::string_view name) override { return store_.table(name); }
  bool transaction(const std::vector<std::string> &tables,
                   const std::function<bool(db::Transaction &)> &work) override {
    return store_.transaction(tables, [&](db::Transaction &step) {
      CountingTransaction counting(step, reads_);
      return work(counting);
    });
  }
  long reads() const { return reads_; }

 private:
  db::DatabaseStore &store_;
  long reads_ = 0;
};

/* A catalogue of a million events takes minutes when each part of an import looks at all
 * rows again. */
TEST_F(ImporterTest, ReadsRowsInProportionToTheEvents) {
  long added = 0;
  const auto reads_with = [&](long count) {
    std::vector<Event> events;
    for (; added < count; added++) {
      events.push_back(
          event_at("e" + std::to_string(added), 1e9 + static_cast<double>(added)));
    }
    import(events);
    Gathering again;
    for (long i = 0; i < count; i++) {
      EXPECT_TRUE(
          again.add(event_at("e" + std::to_string(i), 1e9 + static_cast<double>(i))));
    }
    const auto store = db::open_store(name_, "r+", 1 << 26);
    CountingStore counting(*store);
    ImportCounts counts;
    EXPECT_EQ(import_events(counting, again, {}, {}, counts), Imported::kYes);
    EXPECT_EQ(counts.unchanged, count);
    return counting.reads();
  };
  const long few = reads_with(1000), many = reads_with(4000);
  EXPECT_GT(few, 1000);
  EXPECT_LE(many, 4 * few + 100);
}

}  // namespace
}  // namespace ksutil::exchange
