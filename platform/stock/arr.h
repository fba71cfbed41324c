/* arr: an ordered map from texts to untyped pointers.  `rbtree` is the same type.
 *
 * Ownership: keys are copied; values belong to the caller until freearr is given a
 * function that releases them.
 * Threads: one thread at a time per map.
 * Errors: null or -1; nothing is logged.  A null map counts as an empty map. */
#ifndef KSUTIL_PLATFORM_STOCK_ARR_H
#define KSUTIL_PLATFORM_STOCK_ARR_H

#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

struct Arr;
using rbtree = Arr;

extern "C" {

/* A new empty map ordered by `compare` (null: strcmp). */
KSUTIL_API Arr *newarr(int (*compare)(const char *, const char *));

/* Stores a value (which may be null) under a copy of the key.  Returns the value that
 * it replaces, null when there is none.  When memory is short the map stays as it was
 * and the result is null: containsarr shows whether a new key was stored. */
KSUTIL_API void *setarr(Arr *arr, const char *key, void *value);

/* The value under the key; null when the key is absent. */
KSUTIL_API void *getarr(Arr *arr, const char *key);

/* Removes the key; returns its value, null when the key is absent. */
KSUTIL_API void *delarr(Arr *arr, const char *key);

/* 1 when the key is present, even with a null value; else 0. */
KSUTIL_API int containsarr(Arr *arr, const char *key);

/* A new list of the keys in order.  The texts belong to the map and live until their
 * key is removed; free the list with freetbl(list, 0). */
KSUTIL_API Tbl *keysarr(Arr *arr);

KSUTIL_API long countarr(Arr *arr);

/* Frees the map, after `release` (when it is not null) of every value that is not
 * null. */
KSUTIL_API void freearr(Arr *arr, void (*release)(void *));

}  // extern "C"
#endif
