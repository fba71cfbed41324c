#include "platform/pf/shared/pf_tree.h"

#include <algorithm>
#include <utility>

namespace ksutil {

Tbl *PfTable::view() {
  const std::lock_guard lock(view_mutex_);
  if (view_ == nullptr) {
    TblPtr made = new_list(items_.size());
    for (const PfPtr &item : items_) push_item(made.get(), item.get());
    view_ = std::move(made);
  }
  return view_.get();
}

Pf *PfArray::find(std::string_view name) const {
  const auto entry = entries_.find(name);
  return entry == entries_.end() ? nullptr : entry->second.get();
}

void PfArray::put(std::string_view name, PfPtr value) {
  const auto known = entries_.lower_bound(name);
  if (known != entries_.end() && known->first == name) {
    known->second = std::move(value);
    if (view_) setarr(view_.get(), known->first.c_str(), known->second.get());
    return;
  }
  /* Reserves room first: a name must not be in the map alone. */
  if (written_.size() == written_.capacity()) written_.reserve(2 * written_.size() + 4);
  const auto entry = entries_.emplace_hint(known, std::string(name), std::move(value));
  written_.push_back(entry);
  if (view_ == nullptr) return;
  setarr(view_.get(), entry->first.c_str(), entry->second.get());
  if (!containsarr(view_.get(), entry->first.c_str())) {
    written_.pop_back();
    entries_.erase(entry);
    throw std::bad_alloc();
  }
}

void PfArray::remove(std::string_view name) {
  const auto entry = entries_.find(name);
  if (entry == entries_.end()) return;
  if (view_) delarr(view_.get(), entry->first.c_str());
  written_.erase(std::find(written_.begin(), written_.end(), entry));
  entries_.erase(entry);
}

Arr *PfArray::view() {
  const std::lock_guard lock(view_mutex_);
  if (view_ == nullptr) {
    ArrPtr made(newarr(nullptr));
    if (made == nullptr) throw std::bad_alloc();
    for (const auto &[name, value] : entries_) {
      setarr(made.get(), name.c_str(), value.get());
      if (!containsarr(made.get(), name.c_str())) throw std::bad_alloc();
    }
    view_ = std::move(made);
  }
  return view_.get();
}

namespace {

/* Copies the children of a container; false when they are nested too deeply. */
bool copy_children(const Pf &from, Pf &to) {
  if (const PfTable *table = from.table()) {
    for (const PfPtr &item : table->items()) {
      PfPtr copy = copy_tree(*item, to.depth + 1);
      if (copy == nullptr) return false;
      to.table()->push(std::move(copy));
    }
  } else if (const PfArray *array = from.array()) {
    for (const auto &entry : array->written()) {
      PfPtr copy = copy_tree(*entry->second, to.depth + 1);
      if (copy == nullptr) return false;
      to.array()->put(entry->first, std::move(copy));
    }
  }
  return true;
}

}  // namespace

PfPtr copy_tree(const Pf &from, int depth) {
  if (const std::string *text = from.text()) return std::make_unique<Pf>(*text, depth);
  if (depth > kPfMaxDepth) return nullptr;
  PfPtr copy = std::make_unique<Pf>(from.kind(), depth);
  return copy_children(from, *copy) ? std::move(copy) : nullptr;
}

}  // namespace ksutil

Pf::Pf(int kind, int depth_in_tree) : depth(depth_in_tree) {
  if (kind == PFTBL) content = std::make_unique<ksutil::PfTable>();
  if (kind == PFARR) content = std::make_unique<ksutil::PfArray>();
}

Pf::Pf(std::string text, int depth_in_tree)
    : content(std::move(text)), depth(depth_in_tree) {}

ksutil::PfTable *Pf::table() {
  const Table *table = std::get_if<Table>(&content);
  return table == nullptr ? nullptr : table->get();
}

ksutil::PfArray *Pf::array() {
  const Array *array = std::get_if<Array>(&content);
  return array == nullptr ? nullptr : array->get();
}
