/* TagRegistry: maps the tags of one family to its records, and records to their tags. */
#ifndef KSUTIL_OBJECTS_FAMILY_SHARED_TAG_REGISTRY_H
#define KSUTIL_OBJECTS_FAMILY_SHARED_TAG_REGISTRY_H

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "objects/tags.h"
#include "platform/stock/arr.h"
#include "platform/stock/owners.h"

namespace ksutil {

/* Writes a tag and its NUL, and nothing more, into a caller's buffer. */
inline void copy_tag(const char *from, char *to) {
  std::copy_n(from, std::strlen(from) + 1, to);
}

/* Neither owns the records nor logs: the messages are those of Family.  One thread at a
 * time. */
template <class Record>
class TagRegistry {
 public:
  /* `word` is the beginning of every tag and must outlive the registry. */
  explicit TagRegistry(const char *word) : word_(word) {}
  TagRegistry(const TagRegistry &) = delete;
  TagRegistry &operator=(const TagRegistry &) = delete;

  /* Makes the map unless it exists; false when memory is short. */
  bool open() {
    if (records_ == nullptr) records_ = newarr(nullptr);
    return records_ != nullptr;
  }

  bool opened() const { return records_ != nullptr; }

  /* The record under a tag; null when the tag is null or unknown. */
  Record *find(const char *tag) const {
    return tag == nullptr ? nullptr : static_cast<Record *>(getarr(records_, tag));
  }

  /* Enters the record under the next tag and writes the tag and its NUL, and nothing more,
   * into `tag`, which has room for KS_TAG_SIZE bytes.  False, with the buffer empty and the
   * counter unchanged, when memory is short.  The map must be open. */
  bool add(Record *record, char *tag) {
    tag[0] = '\0';
    char next[KS_TAG_SIZE];
    std::snprintf(next, sizeof next, "%s%ld", word_, counter_);
    try {
      const auto entry = tags_.emplace(record, next);
      setarr(records_, next, record);
      if (containsarr(records_, next) == 0) {
        tags_.erase(entry);
        return false;
      }
    } catch (const std::bad_alloc &) {
      return false;
    }
    ++counter_;
    copy_tag(next, tag);
    return true;
  }

  /* Forgets all tags of the record. */
  void remove(const Record *record) {
    const auto [first, last] = tags_.equal_range(record);
    for (auto entry = first; entry != last; ++entry) {
      delarr(records_, entry->second.c_str());
    }
    tags_.erase(first, last);
  }

  /* The registered records, each once, in the order of their tags as texts.  Throws
   * std::bad_alloc. */
  std::vector<Record *> records() const {
    const TblPtr tags(keysarr(records_));
    if (tags == nullptr && records_ != nullptr) throw std::bad_alloc();
    std::vector<Record *> found;
    std::unordered_set<const Record *> seen;
    for (long i = 0; i < counttbl(tags.get()); ++i) {
      Record *const record = find(static_cast<const char *>(gettbl(tags.get(), i)));
      if (seen.insert(record).second) found.push_back(record);
    }
    return found;
  }

 private:
  const char *word_;
  long counter_ = 0;
  Arr *records_ = nullptr;  // tag to record
  std::unordered_multimap<const Record *, std::string> tags_;
};

}  // namespace ksutil
#endif
