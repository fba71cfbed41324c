/* pf_edit: makes, changes and compares trees. */
#include <algorithm>

#include "platform/elog/failure.h"
#include "platform/pf/pf.h"
#include "platform/pf/shared/pf_tree.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::PfArray;
using ksutil::PfPtr;
using ksutil::PfTable;

namespace {

void merge_into(Pf &into, const Pf &from) {
  for (const auto &entry : from.array()->written()) {
    Pf *const present = into.array()->find(entry->first);
    const Pf &value = *entry->second;
    if (present != nullptr && present->kind() == PFARR && value.kind() == PFARR) {
      merge_into(*present, value);
    } else {
      into.array()->put(entry->first, ksutil::copy_tree(value, into.depth + 1));
    }
  }
}

bool equal(const Pf &a, const Pf &b) {
  if (a.kind() != b.kind()) return false;
  if (const PfTable *table = a.table()) {
    return std::equal(table->items().begin(), table->items().end(),
                      b.table()->items().begin(), b.table()->items().end(),
                      [](const PfPtr &x, const PfPtr &y) { return equal(*x, *y); });
  }
  if (const PfArray *array = a.array()) {
    return std::equal(array->sorted().begin(), array->sorted().end(),
                      b.array()->sorted().begin(), b.array()->sorted().end(),
                      [](const auto &x, const auto &y) {
                        return x.first == y.first && equal(*x.second, *y.second);
                      });
  }
  return *a.text() == *b.text();
}

}  // namespace

Pf *pfnew(void) {
  return at_boundary("pfnew", [] { return new Pf(PFARR, 0); });
}

int pfput_string(Pf *pf, const char *name, const char *text) {
  PfArray *array = pf == nullptr ? nullptr : pf->array();
  if (array == nullptr || name == nullptr) {
    return fail("pfput_string", "An array and a name must be given");
  }
  return at_boundary("pfput_string", [&] {
    if (text == nullptr) {
      array->remove(name);
    } else {
      array->put(name, std::make_unique<Pf>(text, pf->depth + 1));
    }
    return 0;
  });
}

int pfmerge(Pf *into, Pf *from) {
  if (pf_kind(into) != PFARR || pf_kind(from) != PFARR) {
    return fail("pfmerge", "Both trees must be arrays");
  }
  return at_boundary("pfmerge", [&]() -> int {
    /* Merges a copy: `from` may be part of the entry that it replaces. */
    const PfPtr copy = ksutil::copy_tree(*from, into->depth);
    if (copy == nullptr) {
      return fail("pfmerge", "The merged tree would be nested deeper than %d",
                  static_cast<int>(kPfMaxDepth));
    }
    merge_into(*into, *copy);
    return 0;
  });
}

int pfequal(Pf *a, Pf *b) {
  if (a == nullptr || b == nullptr) return a == b ? 1 : 0;
  return equal(*a, *b) ? 1 : 0;
}
