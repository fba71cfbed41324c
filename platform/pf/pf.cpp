#include "platform/pf/pf.h"

#include <limits>

#include "platform/elog/failure.h"
#include "platform/pf/shared/pf_tree.h"
#include "platform/pf/shared/pf_write.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"

using ksutil::ArrPtr;
using ksutil::at_boundary;
using ksutil::fail;
using ksutil::new_list;
using ksutil::PfArray;
using ksutil::PfPtr;
using ksutil::PfTable;
using ksutil::push_item;
using ksutil::TblPtr;

namespace {

Pf *find_entry(Pf *pf, const char *name) {
  if (pf == nullptr || name == nullptr) return nullptr;
  const PfArray *array = pf->array();
  return array == nullptr ? nullptr : array->find(name);
}

char *text_of(Pf *pf) {
  std::string *text = pf == nullptr ? nullptr : pf->text();
  return text == nullptr ? nullptr : text->data();
}

}  // namespace

void pffree(Pf *pf) {
  if (pf != nullptr && pf->depth == 0) delete pf;
}

int pfget(Pf *pf, const char *name, void **value) {
  if (value != nullptr) *value = nullptr;
  Pf *const entry = find_entry(pf, name);
  if (entry == nullptr) return PFINVALID;
  if (value != nullptr) {
    *value = entry->kind() == PFSTRING ? static_cast<void *>(text_of(entry)) : entry;
  }
  return entry->kind();
}

int pf_kind(Pf *pf) { return pf == nullptr ? PFINVALID : pf->kind(); }

Tbl *pf_tbl(Pf *pf) {
  PfTable *table = pf == nullptr ? nullptr : pf->table();
  if (table == nullptr) return nullptr;
  return at_boundary("pf_tbl", [&] { return table->view(); });
}

Arr *pf_arr(Pf *pf) {
  PfArray *array = pf == nullptr ? nullptr : pf->array();
  if (array == nullptr) return nullptr;
  return at_boundary("pf_arr", [&] { return array->view(); });
}

char *pf_text(Pf *pf) { return text_of(pf); }

char *pfget_string(Pf *pf, const char *name) { return text_of(find_entry(pf, name)); }

double pfget_double(Pf *pf, const char *name) {
  const char *const text = pfget_string(pf, name);
  if (text == nullptr) return 0.0;
  char *end = nullptr;
  const double number = fix_strtod(text, &end);
  if (end == text || !ksutil::trimmed(end).empty()) {
    fail("pfget_double", "Cannot parse '%s' for %s", text, name);
    return 0.0;
  }
  return number;
}

int pfget_int(Pf *pf, const char *name) {
  const char *const text = pfget_string(pf, name);
  if (text == nullptr) return 0;
  std::int64_t number = 0;
  if (!ksutil::parse_integer(text, number) ||
      number < std::numeric_limits<int>::min() ||
      number > std::numeric_limits<int>::max()) {
    fail("pfget_int", "Cannot parse '%s' for %s", text, name);
    return 0;
  }
  return static_cast<int>(number);
}

Tbl *pfget_tbl(Pf *pf, const char *name) {
  Pf *const entry = find_entry(pf, name);
  const PfTable *table = entry == nullptr ? nullptr : entry->table();
  if (table == nullptr) return nullptr;
  return at_boundary("pfget_tbl", [&] {
    TblPtr list = new_list(table->items().size());
    for (const PfPtr &item : table->items()) push_item(list.get(), text_of(item.get()));
    return list.release();
  });
}

Arr *pfget_arr(Pf *pf, const char *name) {
  Pf *const entry = find_entry(pf, name);
  const PfArray *array = entry == nullptr ? nullptr : entry->array();
  if (array == nullptr) return nullptr;
  return at_boundary("pfget_arr", [&] {
    ArrPtr map(newarr(nullptr));
    if (map == nullptr) throw std::bad_alloc();
    for (const auto &[key, value] : array->sorted()) {
      setarr(map.get(), key.c_str(), text_of(value.get()));
      if (!containsarr(map.get(), key.c_str())) throw std::bad_alloc();
    }
    return map.release();
  });
}

Tbl *pfkeys(Pf *pf) {
  const PfArray *array = pf == nullptr ? nullptr : pf->array();
  if (array == nullptr) return nullptr;
  return at_boundary("pfkeys", [&] {
    TblPtr list = new_list(array->sorted().size());
    for (const auto &entry : array->sorted())
      push_item(list.get(), entry.first.c_str());
    return list.release();
  });
}

Tbl *pfkeys_in_order(Pf *pf) {
  const PfArray *array = pf == nullptr ? nullptr : pf->array();
  if (array == nullptr) return nullptr;
  return at_boundary("pfkeys_in_order", [&] {
    TblPtr list = new_list(array->written().size());
    for (const auto &entry : array->written()) {
      push_item(list.get(), entry->first.c_str());
    }
    return list.release();
  });
}

char *pf2string(Pf *pf) {
  if (pf == nullptr) return nullptr;
  return at_boundary("pf2string", [&] {
    char *const text = ks_strdup(ksutil::write_pf(*pf).c_str());
    if (text == nullptr) throw std::bad_alloc();
    return text;
  });
}
