/* params: reads typed values from parameter files and splits texts into words.
 * Errors: -1 with a message; a destination is written only on success. */
#ifndef KSUTIL_CORE_PARAMS_H
#define KSUTIL_CORE_PARAMS_H

#include "platform/pf/pf.h"
#include "platform/stock/export.h"

/* Type codes of parse_param and what is stored through the destination. */
enum {
  P_SHORT = 0,    // short: strtol with base 0, truncated to 16 bits
  P_INT = 1,      // int: strtol with base 0, truncated to 32 bits
  P_FLOAT = 2,    // float
  P_DOUBLE = 3,   // double
  P_STRING = 4,   // char *: a new copy that the caller frees
  P_TBL = 5,      // Tbl *: the tree's own list, items Pf *
  P_TBLCOPY = 6,  // Tbl *: a new list of the tree's texts; freetbl(t, 0)
  P_TBLPF = 7,    // Pf *: the table's sub-tree
  P_ARR = 8,      // Arr *: the tree's own map, values Pf *
  P_ARRCOPY = 9,  // Arr *: a new map of the tree's texts; freearr(a, 0)
  P_ARRPF = 10,   // Pf *: the array's sub-tree
  P_BOOL = 11,   // int: 0 for "0" and, in any case, n, no, f, false; every other word 1
  P_STRCPY = 12  // char[]: the text with its NUL, in a buffer that must be large enough
};

/* One member of a structure that pf2struc fills. */
struct Pf2StrucMember {
  const char *name;  // of the parameter
  int type;          // a code above
  int required;      // non-zero: its absence is an error
  int offset;        // of the member in the structure, bytes
};

extern "C" {

/* Reads one parameter; 0 or -1.  If the parameter is absent or of another kind, the
 * result is -1 when `required` is non-zero, else 0 with the destination untouched.  A
 * text that is not a number is an error for P_SHORT and P_INT; for P_FLOAT and P_DOUBLE
 * it counts as 0.0, with pfget_double's message in the register and result 0. */
KSUTIL_API int parse_param(Pf *pf, const char *name, int type, int required,
                           void *dest);

/* Reads n members in order; 0 or -1.  Stops at the first failure; members read before
 * it keep their values. */
KSUTIL_API int pf2struc(Pf *pf, int n, const Pf2StrucMember *members, void *base);

/* Splits a text into words at blanks and tabs (splitlist) or at the characters of
 * `delims` (splitlistc).  Adjacent delimiters count as one.
 *
 * argc, argv   out: the number of words and a new array of them (null when there are
 *              none), which the caller frees with freeargs
 * 0; -1 when the text or the delimiters are null or memory is short (the messages of
 * both functions name splitlist).  After -1 *argv is null or untouched, and *argc may
 * count words that were lost: free nothing.  Safe from any thread. */
KSUTIL_API int splitlist(const char *string, int *argc, char ***argv);
KSUTIL_API int splitlistc(const char *string, int *argc, char ***argv,
                          const char *delims);

/* Frees a word list; a null array and null words are accepted. */
KSUTIL_API void freeargs(int argc, char **argv);

}  // extern "C"
#endif
