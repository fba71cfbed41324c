/* version: gives the version of the library that a program is compiled with.
 *
 * A program that needs a later version can say so:
 *
 *   #if KSUTIL_VERSION_NUMBER < 100
 *   #error "this program needs libksutil 0.1.0"
 *   #endif
 *
 * Versions with the same MAJOR.MINOR serve programs that were compiled with either. */
#ifndef KSUTIL_CORE_VERSION_H
#define KSUTIL_CORE_VERSION_H

#define KSUTIL_VERSION_MAJOR 0
#define KSUTIL_VERSION_MINOR 1
#define KSUTIL_VERSION_PATCH 0

/* 10000 * MAJOR + 100 * MINOR + PATCH. */
#define KSUTIL_VERSION_NUMBER \
  (10000 * KSUTIL_VERSION_MAJOR + 100 * KSUTIL_VERSION_MINOR + KSUTIL_VERSION_PATCH)

/* The text "MAJOR.MINOR.PATCH". */
#define KSUTIL_VERSION \
  KSUTIL_VERSION_TEXT_(KSUTIL_VERSION_MAJOR, KSUTIL_VERSION_MINOR, KSUTIL_VERSION_PATCH)
#define KSUTIL_VERSION_TEXT_(major, minor, patch) \
  KSUTIL_VERSION_JOIN_(major, minor, patch)
#define KSUTIL_VERSION_JOIN_(major, minor, patch) #major "." #minor "." #patch

#endif
