#include "platform/db/internal/database.h"

#include <atomic>
#include <climits>
#include <stdexcept>

#include "platform/db/internal/greatest_ids.h"

namespace ksutil::db {
namespace {

std::atomic<long> next_source{1};

}  // namespace

Database::Database(std::unique_ptr<DatabaseStore> store)
    : store_(std::move(store)),
      schema_(store_->schema()),
      sources_(schema_->relations().size()),
      greatest_ids_(std::make_unique<GreatestIds>()) {}

Database::~Database() = default;

RecordSource *Database::source(int table) {
  if (table < 0 || static_cast<std::size_t>(table) >= sources_.size()) return nullptr;
  std::unique_ptr<RecordSource> &source = sources_[static_cast<std::size_t>(table)];
  if (source == nullptr) {
    if (static_cast<std::size_t>(table) >= schema_->relations().size()) return nullptr;
    const std::string &name =
        schema_->relations()[static_cast<std::size_t>(table)].name;
    TableStore *const store = store_->table(name);
    if (store == nullptr) return nullptr;
    source = std::make_unique<TableSource>(*store, next_source++, store_->writable());
  }
  return source.get();
}

TableSource *Database::table(std::string_view name) {
  RecordSource *const found = source(table_index(name));
  return found == nullptr ? nullptr : found->table();
}

int Database::add_view(std::unique_ptr<RecordSource> view) {
  if (sources_.size() >= INT_MAX) throw std::length_error("too many views");
  sources_.push_back(std::move(view));
  return static_cast<int>(sources_.size()) - 1;
}

bool Database::free_view(int number) {
  const auto index = static_cast<std::size_t>(number);
  if (number < 0 || index < schema_->relations().size() || index >= sources_.size() ||
      sources_[index] == nullptr) {
    return false;
  }
  sources_[index] = nullptr;
  return true;
}

const char *Database::keep(const std::string &text) {
  return texts_.insert(text).first->c_str();
}

Tbl *Database::keep_list(const std::string &key,
                         const std::vector<std::string> &texts) {
  TblPtr &list = lists_[key];
  if (list == nullptr) {
    std::vector<const char *> kept;
    for (const std::string &text : texts) kept.push_back(keep(text));
    list = from_items(kept);
  }
  return list.get();
}

}  // namespace ksutil::db
