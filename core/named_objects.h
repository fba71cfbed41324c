/* named_objects: finds objects of any kind by a name that users choose, and names by
 * the object.  Each object also has a type word.  The directory belongs to the process.
 *
 * Ownership: the directory copies names and types and keeps them for ever; it never
 * owns the objects.  Nothing is ever removed: after an object has been freed, its name
 * must not be looked up any more.
 * Threads: no locks.  One thread names and looks up, or the callers take turns. */
#ifndef KSUTIL_CORE_NAMED_OBJECTS_H
#define KSUTIL_CORE_NAMED_OBJECTS_H

#include "platform/stock/export.h"

extern "C" {

/* Gives an object a name and a type word.
 *
 * An object may get several names; KS_GetName then gives the latest.  A name that
 * spells the address of a named object in decimal digits counts as in use.
 * 0; -1 with a message and nothing changed when the name is in use (its object and type
 * stay), when name or type is null, or when memory is short. */
KSUTIL_API int KS_SetName(const char *name, const char *type, void *object);

/* The object of a name; null when the name is unknown (no message).
 *
 * type   may be null; out: the object's type word, which stays valid for the life of the
 *        process.  Untouched when the name is unknown. */
KSUTIL_API void *KS_GetObject(const char *name, const char **type);

/* The latest name of an object, which stays valid for the life of the process; "" when
 * the object has none (no message).  `type` as in KS_GetObject. */
KSUTIL_API const char *KS_GetName(const void *object, const char **type);

}  // extern "C"
#endif
