#include "core/named_objects.h"

#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "core/Array.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using ksutil::at_boundary;
using ksutil::fail;

namespace {

struct KS_Name : ksutil::SeamAllocated {
  std::string name;
  std::string type;
  void *object = nullptr;
};

/* Both maps point to the same records, which are never removed. */
struct Directory {
  Array<std::string, KS_Name *> names;
  Array<std::string, KS_Name *> objects;  // by object_key
};

/* Never destroyed, so that destructors of other static objects may still ask it. */
Directory &directory() {
  static Directory *const only = new Directory;
  return *only;
}

/* The address as "%lu" prints it. */
std::string object_key(const void *object) {
  return std::to_string(
      static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(object)));
}

std::unique_ptr<KS_Name> new_record(const char *name, const char *type, void *object) {
  std::unique_ptr<KS_Name> record(new (std::nothrow) KS_Name);
  if (record == nullptr) throw std::bad_alloc();
  record->name = name;
  record->type = type;
  record->object = object;
  return record;
}

/* Enters the record under its name and its object's key, or under neither. */
void enter(Directory &known, std::unique_ptr<KS_Name> record) {
  const std::string key = object_key(record->object);
  known.names.set(record->name, record.get());
  try {
    known.objects.set(key, record.get());
  } catch (...) {
    known.names.del(record->name);
    throw;
  }
  record.release();
}

/* Hands out the type of a record. */
void give_type(const KS_Name &record, const char **type) {
  if (type != nullptr) *type = record.type.c_str();
}

}  // namespace

int KS_SetName(const char *name, const char *type, void *object) {
  return at_boundary("KS_SetName", [&]() -> int {
    if (name == nullptr || type == nullptr) {
      return fail("KS_SetName", "Name and type must be given");
    }
    Directory &known = directory();
    /* The second look-up searches the objects' addresses for the name, on purpose: a
     * user who types an address as a name must never reach another object. */
    if (known.names.contains(name) || known.objects.contains(name)) {
      return fail("KS_SetName", "Name '%s' already in use", name);
    }
    enter(known, new_record(name, type, object));
    return 0;
  });
}

void *KS_GetObject(const char *name, const char **type) {
  return at_boundary("KS_GetObject", [&]() -> void * {
    if (name == nullptr) return nullptr;
    const KS_Name *const record = directory().names.get(name);
    if (record == nullptr) return nullptr;
    give_type(*record, type);
    return record->object;
  });
}

const char *KS_GetName(const void *object, const char **type) {
  return at_boundary("KS_GetName", "", [&] {
    const KS_Name *const record = directory().objects.get(object_key(object));
    if (record == nullptr) return "";
    give_type(*record, type);
    return record->name.c_str();
  });
}
