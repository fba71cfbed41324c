/* Family: registers, finds and frees the records of one family of tag-addressed objects.
 *
 * A new family (moment tensors, data sets, ...) writes one traits struct and calls the
 * functions below from its plain ones:
 *
 *     struct ThingTraits {
 *       using Record = KSThing;
 *       static constexpr char kWord[] = "thing";          // tags "thing0", "thing1", ...
 *       static constexpr char kGet[] = "ksthing_get_thing";
 *       static constexpr char kPlural[] = "things";       // "...: No things defined"
 *       static constexpr char kEntering[] = "setarr";     // "...: setarr() error.\n", and
 *       static constexpr char kListing[] = "malloc";      // "...: malloc() error.\n" of
 *                                                         // free_tag: memory is short
 *       static bool is_record(const KSThing &);           // the identity field; or true
 *       static const char *name(const KSThing &);         // the caller's name, or null
 *       static void destroy(KSThing *);                   // frees an unregistered record
 *       static long bytes(const KSThing &);               // only for heap_size()
 *     };
 *     using Things = ksutil::Family<ThingTraits>;
 *
 *     KSThing *ksthing_get_thing(const char *tag) { return Things::get(tag); }
 *     int ksthing_free_thing(KSThing *thing) { return Things::free_record(thing); }
 *     int ksthing_free_tag(const char *name) {
 *       return Things::free_tag("ksthing_free_tag", name);
 *     }
 *
 * A creator calls open() first, makes the record, owned by a Things::Ptr, and returns
 * publish().  An operation on a tag begins with find().
 *
 * Messages: `who` is the name of the public function.  A shortage of memory sets errno to
 * ENOMEM and has flag 1, all other messages have flag 0.
 * Threads: one thread at a time for each family; different families do not share state. */
#ifndef KSUTIL_OBJECTS_FAMILY_SHARED_FAMILY_H
#define KSUTIL_OBJECTS_FAMILY_SHARED_FAMILY_H

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "objects/family/shared/tag_registry.h"
#include "platform/elog/failure.h"

namespace ksutil {

template <class Traits>
class Family {
 public:
  using Record = typename Traits::Record;

  struct Free {
    void operator()(Record *record) const { free_record(record); }
  };
  /* Owns a record, registered or not, until it is handed to the caller. */
  using Ptr = std::unique_ptr<Record, Free>;

  /* Makes the registry unless it exists.  False with "who: newarr() error.\n". */
  static bool open(const char *who) {
    if (registry().open()) return true;
    errno = ENOMEM;
    return fail_errno(who, "newarr() error");
  }

  /* The record under a tag.  Null with one of "kGet: No kPlural defined" (no call of open()
   * has succeeded), "kGet: Cannot find TAG" and "kGet: Wrong ident for TAG"; these texts
   * have neither full stop nor newline. */
  static Record *get(const char *tag) {
    return get_as(Traits::kGet, Traits::kPlural, tag);
  }

  /* The same with other names in the texts. */
  static Record *get_as(const char *who, const char *plural, const char *tag) {
    if (!registry().opened()) {
      elog_log(0, "%s: No %s defined", who, plural);
      return nullptr;
    }
    const char *const shown = tag == nullptr ? "" : tag;
    Record *const record = registry().find(tag);
    if (record == nullptr) {
      elog_log(0, "%s: Cannot find %s", who, shown);
      return nullptr;
    }
    if (!Traits::is_record(*record)) {
      elog_log(0, "%s: Wrong ident for %s", who, shown);
      return nullptr;
    }
    return record;
  }

  /* The record under a tag, for an operation: a failure adds "who: kGet() error.\n" to the
   * message of get(). */
  static Record *find(const char *who, const char *tag) {
    Record *const record = get(tag);
    if (record == nullptr) fail(who, "%s() error", Traits::kGet);
    return record;
  }

  /* Registers a record under the next tag and writes the tag into `tag` (KS_TAG_SIZE
   * bytes); a null `tag` registers nothing.  False, with `tag` empty, the record
   * unregistered and "who: kEntering() error.\n", when memory is short.  open() must have
   * succeeded. */
  static bool enter(const char *who, Record *record, char *tag) {
    if (tag == nullptr || registry().add(record, tag)) return true;
    errno = ENOMEM;
    return fail_errno(who, "%s() error", Traits::kEntering);
  }

  /* Enters a new record and hands it to the caller; null, with the record freed, when
   * enter() fails. */
  static Record *publish(const char *who, Ptr record, char *tag) {
    return enter(who, record.get(), tag) ? record.release() : nullptr;
  }

  /* For a creator that fails: empties the tag buffer (which may be null) and gives null. */
  static Record *none(char *tag) {
    if (tag != nullptr) *tag = '\0';
    return nullptr;
  }

  /* Forgets all tags of a record; for families whose free function does more. */
  static void forget(const Record *record) { registry().remove(record); }

  /* Forgets all tags of a record and destroys it.  Null is not an error.  Always 0. */
  static int free_record(Record *record) {
    if (record == nullptr) return 0;
    forget(record);
    Traits::destroy(record);
    return 0;
  }

  /* The registered records, each once; throws std::bad_alloc. */
  static std::vector<Record *> records() { return registry().records(); }

  /* Frees the record under a tag; an unknown tag is not an error and leaves no message.
   * Always 0. */
  static int free_if_known(const char *tag) {
    Record *record = nullptr;
    {
      const ElogScope unheard;
      record = get(tag);
    }
    return free_record(record);
  }

  /* Frees the registered records of a name; null names none.  `name` may be that of one of
   * the records.  Always 0; a shortage of memory leaves records and a message. */
  static int free_tag(const char *who, const char *name) {
    if (name == nullptr) return 0;
    try {
      const std::string group(name);
      for (Record *const record : records()) {
        if (is_named(*record, group.c_str())) free_record(record);
      }
    } catch (const std::bad_alloc &) {
      list_failure(who);
    }
    return 0;
  }

  /* Counts records and sums their Traits::bytes: those of a name; for a null name the one
   * under `tag`; with both null all registered ones.  0; -1 with both outputs 0. */
  static int heap_size(const char *who, const char *name, const char *tag, int *count,
                       long *bytes) {
    *count = 0;
    *bytes = 0;
    if (name == nullptr && tag != nullptr) {
      const Record *const record = find(who, tag);
      if (record == nullptr) return -1;
      *count = 1;
      *bytes = static_cast<long>(Traits::bytes(*record));
      return 0;
    }
    try {
      for (const Record *const record : records()) {
        if (name != nullptr && !is_named(*record, name)) continue;
        ++*count;
        *bytes += static_cast<long>(Traits::bytes(*record));
      }
      return 0;
    } catch (const std::bad_alloc &) {
      return list_failure(who);
    }
  }

 private:
  static bool is_named(const Record &record, const char *name) {
    const char *const own = Traits::name(record);
    return own != nullptr && std::strcmp(own, name) == 0;
  }

  static Failure list_failure(const char *who) {
    errno = ENOMEM;
    return fail_errno(who, "%s() error", Traits::kListing);
  }

  /* Never destroyed: destructors of other static objects may still free records.  Takes no
   * memory, so that the first call of a family cannot throw here. */
  static TagRegistry<Record> &registry() {
    alignas(TagRegistry<Record>) static unsigned char room[sizeof(TagRegistry<Record>)];
    static auto *const tags = new (room) TagRegistry<Record>(Traits::kWord);
    return *tags;
  }
};

}  // namespace ksutil
#endif
