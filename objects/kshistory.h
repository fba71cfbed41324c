/* kshistory: a bounded list of (time, value) pairs, the running record of a monitored
 * quantity; addressed by the tags "thst0", "thst1", ...
 *
 * Entries stay in the order in which they were added; a full list drops the oldest.
 * Evaluation assumes that this order is ascending in time.  A history may be kept in a
 * file, which outlives its process in every case; filetbl.h describes the file and what a
 * killed writer or a power cut can cost.
 *
 * Ownership: a history owns its name, its file's name and its entries.  It lives until it
 * is freed by tag, by name or by record.
 * Threads: all calls of the family come from one thread at a time.
 * Errors: null or -1, with a message in the error register.  A history that an operation
 * fails on stays as it was, except as kshistory_add says. */
#ifndef KSUTIL_OBJECTS_KSHISTORY_H
#define KSUTIL_OBJECTS_KSHISTORY_H

#include <stdint.h>

#include "objects/tags.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

struct KSHistoryEntry {
  double time, value;
};

struct KSHistory {
  int32_t maxn;  // the most entries kept
  char *name;    // the caller's name, or null
  char *file;    // the backing file, or null
  Tbl *entries;  // elements KSHistoryEntry
};

/* The tag of the list files of histories: filetbl_read with this tag and the size of
 * KSHistoryEntry reads the entries of a file, also while a history has it in use. */
inline constexpr char KSHISTORY_TABLE_TAG[] = "KSHistory";

extern "C" {

/* The history under a tag; null with a message. */
KSUTIL_API KSHistory *kshistory_get_history(const char *tag);

/* A new history.
 *
 * maxn   the most entries kept; with a file at least 1, and reduced to the most that a file
 *        can hold (53,687,081).  If the file has more, the history consists of the newest
 *        maxn; the next change drops the others
 * name   for kshistory_free_tag; may be null
 * file   where the entries are kept, read if it exists and made if not; null: in memory
 *        only.  It is locked against other histories, of this process and of others, until
 *        the history is freed; while another has it, the complaint "Can't lock '...' for
 *        exclusive use" goes to standard error as well.  A file of another kind, or a
 *        damaged one, is refused and stays as it was
 * tag    out: the new tag, KS_TAG_SIZE bytes; empty on failure.  Null: no tag leads to the
 *        history */
KSUTIL_API KSHistory *kshistory_create(int maxn, const char *name, const char *file,
                                       char *tag);

/* Appends an entry, after dropping the oldest of a full history.  When the file cannot be
 * written the entry is not there afterwards, and the oldest may be gone.  0 or -1. */
KSUTIL_API int kshistory_add(const char *tag, double time, double value);

/* Interpolates the value at a time linearly; before the first and after the last entry
 * gives the value of that entry.  If the first entry at or after `time` and the next one
 * have exactly this time, gives the mean of their values.  0, or -1 with *value untouched:
 * no entries. */
KSUTIL_API int kshistory_eval(const char *tag, double *value, double time);

/* The extremes of times and of values over all entries; NaN is ignored.
 * 0, or -1 with the outputs untouched: no entries. */
KSUTIL_API int kshistory_maxmin(const char *tag, double *tmin, double *tmax,
                                double *vmin, double *vmax);

/* All entries: *times and *values are new arrays [*n], which the caller frees; null for no
 * entries.  0, or -1 with the outputs untouched. */
KSUTIL_API int kshistory_get_points(const char *tag, int *n, double **times,
                                    double **values);

/* Frees a history: by tag, 0 or -1 with a message; all those of a name, always 0; by
 * record, always 0, also for null.  Its file stays. */
KSUTIL_API int kshistory_free(const char *tag);
KSUTIL_API int kshistory_free_tag(const char *name);
KSUTIL_API int kshistory_free_history(KSHistory *history);

}  // extern "C"
#endif
