/* tbl: a growable list of untyped pointers, or of fixed-size elements held inline.
 *
 * Ownership: the list owns its storage.  Pointer items belong to the caller until
 * freetbl is given a function that releases them; inline elements are copies.
 * Threads: one thread at a time per list.
 * Errors: null or -1; nothing is logged.  A null list counts as an empty list. */
#ifndef KSUTIL_PLATFORM_STOCK_TBL_H
#define KSUTIL_PLATFORM_STOCK_TBL_H

#include "platform/stock/export.h"

struct Tbl;

extern "C" {

/* A new empty list of pointers with room for `hint` items (0 or less: a default). */
KSUTIL_API Tbl *newtbl(long hint);

/* A new empty list of elements of `element_size` bytes, held inline. */
KSUTIL_API Tbl *inittbl(long hint, int element_size);

/* Item i of a pointer list; the address of element i of an inline list, valid until the
 * list changes.  Null outside 0..count-1. */
KSUTIL_API void *gettbl(Tbl *tbl, long i);

/* Stores at index i, or appends when i is -1; a gap is filled with null or zero bytes.
 * An inline list copies element_size bytes from `item`.  Returns the index stored at,
 * -1 on failure (other negative index, no memory). */
KSUTIL_API long settbl(Tbl *tbl, long i, void *item);

/* settbl at the end. */
KSUTIL_API long pushtbl(Tbl *tbl, void *item);

/* Removes the first item, the last item, item i; later items move down.  Returns the
 * item of a pointer list; of an inline list the address of a copy that stays valid
 * until the next such call.  Null when there is none. */
KSUTIL_API void *shifttbl(Tbl *tbl);
KSUTIL_API void *poptbl(Tbl *tbl);
KSUTIL_API void *deltbl(Tbl *tbl, long i);

KSUTIL_API long counttbl(Tbl *tbl);

/* A new list with the same items (inline elements copied; pointers shared). */
KSUTIL_API Tbl *duptbl(Tbl *tbl);

/* Frees the list, after `release` (when it is not null) of every item that is not null;
 * of an inline list, of every element's address. */
KSUTIL_API void freetbl(Tbl *tbl, void (*release)(void *));

}  // extern "C"
#endif
