#include "platform/db/store/internal/scratch_store.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <new>

#include "platform/clock/clock.h"
#include "platform/db/row_removal.h"
#include "platform/db/store/internal/block_snapshot.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* Each state of each scratch table has its own number. */
long next_state() {
  static std::atomic<long> state{0};
  return ++state;
}

/* All blocks of a scratch table are its only copy, so there is no budget for them. */
std::shared_ptr<BlockBudget> no_limit() {
  return std::make_shared<BlockBudget>(static_cast<std::size_t>(-1));
}

class ScratchSnapshot final : public BlockSnapshot {
 public:
  ScratchSnapshot(std::shared_ptr<const Relation> layout, const Stamp &stamp,
                  std::shared_ptr<BlockBudget> budget,
                  const std::vector<BlockPtr> &contents)
      : BlockSnapshot(layout, stamp, std::move(budget), "scratch." + layout->name) {
    for (std::size_t index = 0; index < blocks(); ++index) {
      slots_[index].block = contents[index];
      slots_[index].rows = static_cast<std::uint32_t>(expected_rows(index));
      slots_[index].current = slots_[index].whole = slots_[index].ready = true;
    }
  }

 private:
  void load(std::size_t, BlockSlot &, bool) const override {}
};

class ScratchTable final : public TableStore,
                           public TableStore::Exclusive,
                           public RowRemoval {
 public:
  explicit ScratchTable(const Relation &relation)
      : layout_(std::make_shared<const Relation>(relation)),
        length_(static_cast<std::size_t>(layout_->width) + 1),
        shift_(block_shift(length_)),
        name_("scratch." + relation.name) {}

  const Relation &layout() override { return *layout_; }
  bool stamp(Stamp &stamp) override {
    stamp = stamp_;
    return true;
  }
  std::shared_ptr<const Snapshot> snapshot() override {
    if (snapshot_ == nullptr || snapshot_->stamp() != stamp_) {
      snapshot_ =
          std::make_shared<ScratchSnapshot>(layout_, stamp_, budget_, contents_);
    }
    return snapshot_;
  }
  /* No other program can change the rows. */
  std::shared_ptr<const Snapshot> snapshot_anew() override {
    snapshot_.reset();
    return snapshot();
  }
  bool exclusively(const std::function<bool(TableStore::Exclusive &)> &work) override {
    return work(*this);
  }
  const std::string &file_name() const override { return name_; }
  const std::string &directory() const override { return directory_; }

 private:
  long append(std::string_view row) override { return append_all(row); }

  long append_all(std::string_view rows) override {
    std::string text(rows);
    if (!text.empty() && text.back() != '\n') text += '\n';
    if (text.empty() || !whole_rows(text)) return -1;
    const long first = stamp_.count;
    try {
      for (std::size_t at = 0; at < text.size(); at += length_) {
        add(std::string_view(text).substr(at, length_),
            first + static_cast<long>(at / length_));
      }
    } catch (const std::bad_alloc &) {
      return fail("dbadd", "%s: No memory for more records", name_.c_str());
    }
    change(first + static_cast<long>(text.size() / length_));
    return first;
  }

  bool overwrite(long record, std::string_view row) override {
    std::string text(row);
    if (!text.empty() && text.back() != '\n') text += '\n';
    if (text.size() != length_ || !whole_rows(text)) return false;
    if (record < 0 || record >= stamp_.count) {
      return fail("dbput", "%s: No record %ld among %ld", name_.c_str(), record,
                  stamp_.count);
    }
    const auto number = static_cast<std::size_t>(record);
    BlockPtr &block = contents_[number >> shift_];
    try {
      /* Another object may hold texts of the block as it was. */
      snapshot_.reset();
      if (block.shared()) {
        BlockPtr copy = BlockPtr::make(block.size());
        std::memcpy(copy.fill(), block.data(), used_bytes(number >> shift_));
        block = std::move(copy);
      }
    } catch (const std::bad_alloc &) {
      return fail("dbput", "%s: No memory to change a record", name_.c_str());
    }
    std::memcpy(block.fill() + place(number), text.data(), length_);
    change(stamp_.count);
    return true;
  }

  bool remove(const std::vector<long> &records) override {
    if (records.front() < 0 || records.back() >= stamp_.count) {
      return fail("remove_rows", "%s: A record to be removed is not there",
                  name_.c_str());
    }
    std::vector<BlockPtr> before;
    before.swap(contents_);
    snapshot_.reset();
    try {
      long kept = 0;
      std::size_t next = 0;
      for (long record = 0; record < stamp_.count; ++record) {
        if (next < records.size() && records[next] == record) {
          ++next;
          continue;
        }
        const auto number = static_cast<std::size_t>(record);
        add({before[number >> shift_].data() + place(number), length_}, kept++);
      }
      change(kept);
    } catch (const std::bad_alloc &) {
      contents_.swap(before);
      return fail("remove_rows", "%s: No memory for the records that stay",
                  name_.c_str());
    }
    return true;
  }

  bool whole_rows(const std::string &text) const {
    bool whole = text.size() % length_ == 0;
    for (std::size_t end = length_ - 1; whole && end < text.size(); end += length_) {
      whole = text.find('\n', end + 1 - length_) == end;
    }
    if (!whole) {
      fail("dbadd", "%s: A record has %zu characters and a newline", name_.c_str(),
           length_ - 1);
    }
    return whole;
  }

  std::size_t place(std::size_t number) const {
    return (number & ((std::size_t{1} << shift_) - 1)) * length_;
  }
  std::size_t used_bytes(std::size_t index) const {
    const std::size_t before = index << shift_;
    return std::min(std::size_t{1} << shift_,
                    static_cast<std::size_t>(stamp_.count) - before) *
           length_;
  }

  /* Fills the next place of the last block, which no snapshot shows yet.  Blocks start
   * small and double, since most scratch tables hold a few rows. */
  void add(std::string_view row, long record) {
    const auto number = static_cast<std::size_t>(record);
    const std::size_t index = number >> shift_, from = place(number);
    if (index == contents_.size()) contents_.push_back(BlockPtr::make(length_));
    BlockPtr &block = contents_[index];
    if (from + length_ > block.size()) {
      const std::size_t room = std::min((from / length_) * 2, std::size_t{1} << shift_);
      BlockPtr larger = BlockPtr::make(std::max(room * length_, from + length_));
      std::memcpy(larger.fill(), block.data(), from);
      block = std::move(larger);
    }
    std::memcpy(block.fill() + from, row.data(), length_);
  }

  void change(long count) {
    stamp_.exists = true;
    stamp_.count = count;
    stamp_.time = std::max(std_now(), stamp_.time + 1e-6);
    stamp_.identity[0] = next_state();
  }

  const std::shared_ptr<const Relation> layout_;
  const std::size_t length_;
  const unsigned shift_;
  const std::string name_, directory_;
  Stamp stamp_;
  std::vector<BlockPtr> contents_;
  const std::shared_ptr<BlockBudget> budget_ = no_limit();
  std::shared_ptr<const ScratchSnapshot> snapshot_;
};

class ScratchDatabase final : public DatabaseStore {
 public:
  explicit ScratchDatabase(std::shared_ptr<const Schema> schema)
      : schema_(std::move(schema)) {}
  const std::string &name() const override { return name_; }
  std::shared_ptr<const Schema> schema() const override { return schema_; }
  bool writable() const override { return true; }
  TableStore *table(std::string_view name) override {
    const auto known = tables_.find(name);
    if (known != tables_.end()) return known->second.get();
    const Relation *relation = schema_->find(name);
    if (relation == nullptr) {
      return fail("dblookup", "The schema %s has no table %.*s",
                  schema_->name().c_str(), static_cast<int>(name.size()), name.data());
    }
    return tables_.emplace(relation->name, std::make_unique<ScratchTable>(*relation))
        .first->second.get();
  }
  bool transaction(const std::vector<std::string> &,
                   const std::function<bool(Transaction &)> &) override {
    return fail("dbput", "A scratch database has no transactions");
  }

 private:
  const std::shared_ptr<const Schema> schema_;
  const std::string name_ = "scratch";
  std::map<std::string, std::unique_ptr<ScratchTable>, std::less<>> tables_;
};

}  // namespace

std::unique_ptr<DatabaseStore> open_scratch(const std::string &schema) {
  auto loaded = Schema::load(schema);
  if (loaded == nullptr) return nullptr;
  return std::make_unique<ScratchDatabase>(std::move(loaded));
}

std::unique_ptr<DatabaseStore> open_scratch_store(const std::string &schema) {
  return open_scratch(schema);
}

}  // namespace ksutil::db
