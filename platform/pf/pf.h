/* pf: reads, changes and writes parameter files, trees of named values.
 *
 *   # a comment
 *   name value that goes to the end of the line
 *   quoted "text with \n, \t, \", \\, # and { inside"
 *   list &Tbl{
 *     first item
 *     &Arr{
 *       nested yes
 *     }
 *   }
 *   map &Arr{
 *     key value
 *   }
 *
 * Blanks at both ends of a value do not belong to it; "#" begins a comment at the start
 * of a line and after a blank.  A later value of the same name replaces the earlier
 * one.  Nesting is bounded (kPfMaxDepth), and so are the size of a file (kPfMaxBytes)
 * and the number of its entries.  docs/parameter-files.md describes the form in full.
 *
 * Ownership: a tree owns everything in it, sub-trees included: only what pfcompile and
 * pfread made is freed with pffree.  Texts and sub-trees obtained from a tree live as
 * long as the tree and until the entry is replaced.
 * Threads: a tree may be read by many threads at once, but not while one changes it.
 * Errors: -1 or null.  Compilation and reading register a message with file, line and
 * cause; look-ups register nothing unless it is said below. */
#ifndef KSUTIL_PLATFORM_PF_PF_H
#define KSUTIL_PLATFORM_PF_PF_H

#include "platform/stock/arr.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

struct Pf;

enum { kPfMaxDepth = 64, kPfMaxBytes = 64 * 1024 * 1024 };
enum { PFSTRING = 1, PFTBL = 2, PFARR = 3, PFINVALID = -1 };

extern "C" {

/* Compiles a text; 0, or -1 with *pf null. */
KSUTIL_API int pfcompile(const char *text, Pf **pf);

/* Reads a parameter file; 0, or -1 with *pf null.  A name with a slash is a path.  Any
 * other is looked for, with ".pf" added when it has no such ending, in each directory
 * of the colon-separated KSUTIL_PF_PATH (default "."), and the trees of all files found
 * are merged, later directories over earlier ones. */
KSUTIL_API int pfread(const char *name, Pf **pf);

/* Frees a whole tree; null accepted.  A sub-tree is not freed. */
KSUTIL_API void pffree(Pf *pf);

/* The kind of an entry: PFSTRING with *value its text (char *), PFTBL or PFARR with
 * *value its sub-tree (Pf *), PFINVALID with *value null when it is absent or `pf` is
 * not an array.  `value` may be null. */
KSUTIL_API int pfget(Pf *pf, const char *name, void **value);

/* The kind of a (sub-)tree itself, and what it holds: the items of a table and the
 * values of an array are Pf *; pf_text is the text of a string.  Null when it is
 * another kind. */
KSUTIL_API int pf_kind(Pf *pf);
KSUTIL_API Tbl *pf_tbl(Pf *pf);
KSUTIL_API Arr *pf_arr(Pf *pf);
KSUTIL_API char *pf_text(Pf *pf);

/* The text of an entry; null when there is none. */
KSUTIL_API char *pfget_string(Pf *pf, const char *name);

/* The number of an entry, read in the C locale; 0 for an absent entry.  If the text as
 * a whole is not a number (for pfget_int: not a decimal integer, or one outside int),
 * the result is 0 and the message is "pfget_double: Cannot parse '%s' for %s.\n"
 * (pfget_int in its own name). */
KSUTIL_API double pfget_double(Pf *pf, const char *name);
KSUTIL_API int pfget_int(Pf *pf, const char *name);

/* A new list or map of the texts of an entry, to be freed with freetbl(t, 0) or
 * freearr(a, 0); the texts belong to the tree, a nested entry is a null item.  Null
 * when the entry is absent or another kind. */
KSUTIL_API Tbl *pfget_tbl(Pf *pf, const char *name);
KSUTIL_API Arr *pfget_arr(Pf *pf, const char *name);

/* A new list of the keys of an array, sorted; the texts belong to the tree. */
KSUTIL_API Tbl *pfkeys(Pf *pf);

/* The same, in the order in which they were written. */
KSUTIL_API Tbl *pfkeys_in_order(Pf *pf);

/* Stores a text under a name (null removes the entry); 0 or -1. */
KSUTIL_API int pfput_string(Pf *pf, const char *name, const char *text);

/* A new empty array tree. */
KSUTIL_API Pf *pfnew(void);

/* A new text that compiles to an equal tree, keys in the order written; values that
 * hold "#", braces, line breaks, quotes or outer blanks are written quoted.  The caller
 * frees the text.  For a table: its items, one a line; for a text: the text itself. */
KSUTIL_API char *pf2string(Pf *pf);

/* Copies the entries of `from` over those of `into`; nested arrays are merged, texts
 * and tables replaced.  0; -1 with `into` unchanged and a message when one of them is
 * not an array or the result would be nested too deeply. */
KSUTIL_API int pfmerge(Pf *into, Pf *from);

/* 1 when both trees hold the same, regardless of the order of keys; else 0. */
KSUTIL_API int pfequal(Pf *a, Pf *b);

}  // extern "C"
#endif
