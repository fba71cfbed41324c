/* Groups: collects the records of a view by the values of keys, in one pass over them. */
#ifndef KSUTIL_TOOLS_KSDB_GROUPS_H
#define KSUTIL_TOOLS_KSDB_GROUPS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/ksdb/aggregate.h"
#include "tools/ksdb/view_cells.h"

namespace ksutil::tools {

class Groups {
 public:
  Groups(ViewCells &keys, std::size_t key_count, Aggregates &figures)
      : keys_(keys), key_count_(key_count), figures_(figures) {}

  /* Takes a record, given by its rows, into its group; false when a key cannot be read. */
  bool take(const std::string_view *rows);

  struct Group {
    std::string key;                 // texts of keys are in the order of their values
    std::vector<std::string> cells;  // of the keys in the first record
    long count = 0;
    Aggregates::Figures figures;
  };

  /* The groups in the order of their keys, nulls first. */
  std::vector<Group> sorted();

 private:
  bool read_key(const std::string_view *rows);

  ViewCells &keys_;
  std::size_t key_count_;
  Aggregates &figures_;
  std::string key_;
  std::unordered_map<std::string, std::size_t> places_;
  std::vector<Group> groups_;
  std::size_t last_ = 0;  // the group of the record before
};

}  // namespace ksutil::tools
#endif
