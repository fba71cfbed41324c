#include "tools/kssac/row_lookup.h"

#include <utility>

namespace ksutil::tools {

RowLookup::RowLookup(std::vector<std::string> key, std::vector<std::string> table)
    : key_texts_(std::move(key)),
      table_texts_(std::move(table)),
      key_(newtbl(4)),
      table_(newtbl(4)) {
  for (std::string &text : key_texts_) pushtbl(key_, text.data());
  for (std::string &text : table_texts_) pushtbl(table_, text.data());
}

RowLookup::~RowLookup() {
  freetbl(key_, nullptr);
  freetbl(table_, nullptr);
  free_hook(&hook_);
}

long RowLookup::find(Dbptr key, Dbptr &table) {
  Tbl *records = nullptr;
  const long count = dbmatches(key, table, &key_, &table_, &hook_, &records);
  if (count > 0) table.record = reinterpret_cast<long>(gettbl(records, 0));
  freetbl(records, nullptr);
  return count;
}

}  // namespace ksutil::tools
