/* pf_tree: the tree behind the parameter-file functions: texts, tables and arrays of
 * nodes.
 *
 * For the library's own rooms.  Nodes own their children; `depth` bounds every
 * recursion. */
#ifndef KSUTIL_PLATFORM_PF_SHARED_PF_TREE_H
#define KSUTIL_PLATFORM_PF_SHARED_PF_TREE_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/pf/pf.h"
#include "platform/stock/owners.h"

namespace ksutil {

using PfPtr = std::unique_ptr<Pf>;

/* The items of a "&Tbl{ }", never changed once the tree is made. */
class PfTable {
 public:
  void push(PfPtr item) { items_.push_back(std::move(item)); }
  const std::vector<PfPtr> &items() const { return items_; }

  /* The items as a platform list, made at the first call from any thread. */
  Tbl *view();

 private:
  std::vector<PfPtr> items_;
  std::mutex view_mutex_;  // guards the making of view_
  TblPtr view_;
};

/* The entries of an "&Arr{ }" or of a whole file: sorted by name, and in the order in
 * which the names were first written. */
class PfArray {
 public:
  using Entries = std::map<std::string, PfPtr, std::less<>>;

  Pf *find(std::string_view name) const;
  void put(std::string_view name, PfPtr value);
  void remove(std::string_view name);

  const Entries &sorted() const { return entries_; }
  const std::vector<Entries::iterator> &written() const { return written_; }

  /* The entries as a platform map, made at the first call and kept up to date. */
  Arr *view();

 private:
  Entries entries_;
  std::vector<Entries::iterator> written_;
  std::mutex view_mutex_;  // guards the making of view_
  ArrPtr view_;
};

}  // namespace ksutil

struct Pf {
  using Table = std::unique_ptr<ksutil::PfTable>;
  using Array = std::unique_ptr<ksutil::PfArray>;

  Pf(int kind, int depth_in_tree);
  Pf(std::string text, int depth_in_tree);

  int kind() const { return static_cast<int>(content.index()) + PFSTRING; }
  std::string *text() { return std::get_if<std::string>(&content); }
  ksutil::PfTable *table();
  ksutil::PfArray *array();
  const std::string *text() const { return std::get_if<std::string>(&content); }
  const ksutil::PfTable *table() const { return const_cast<Pf *>(this)->table(); }
  const ksutil::PfArray *array() const { return const_cast<Pf *>(this)->array(); }

  std::variant<std::string, Table, Array> content;  // in the order of the kinds
  int depth;                                        // 0: the root, which pffree frees
};

namespace ksutil {

/* A copy of a node and all below it, as a node of the given depth; null when it would
 * reach below kPfMaxDepth. */
PfPtr copy_tree(const Pf &from, int depth);

}  // namespace ksutil
#endif
