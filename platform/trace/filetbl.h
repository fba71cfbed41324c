/* filetbl: keeps a Tbl of fixed-size elements in a file that outlives its process.
 *
 * Such a list grows at its end and shrinks at its ends: pushtbl, shifttbl and poptbl work
 * as on any list, gettbl, counttbl and duptbl too; setting an element that is there,
 * leaving a gap and deleting from the middle are refused.  gettbl points to a copy: writing
 * there changes nothing.  A push onto a full list is refused.
 * Each change is in the file when its call returns.  A process killed at any moment, also
 * between or within two writes, leaves a list with all entries but perhaps the one it was
 * pushing or shifting.  A power cut may cost entries of its last seconds at the ends.
 *
 * Errors: null or -1.  Faults of the file are logged, by pushes and shifts too, which
 * leave the list as it was.
 * Threads: one thread at a time per list.  The list holds an exclusive lock on the whole
 * file (of the open file description, so it conflicts within this process as well) until
 * freetbl or the end of the process.  After a fork the list and the lock stay with the
 * parent: in the child every change fails with EBADF, freetbl frees the memory of the
 * child's copy, and the file can be opened again as soon as the parent has ended.  (A child
 * made by a bare clone() system call, which runs no fork handlers, must call _exit or
 * execve: until then it shares the lock.)
 *
 * The file: a header, two states and the elements in a ring.  Numbers are big-endian, but
 * elements are kept as they are in memory, so that a file with numbers in them belongs to
 * machines of one byte order, which is checked.
 *     0   8  "ksfiltbl"          64  64  state of even generation
 *     8   4  version, 1         128  64  state of odd generation
 *    12   4  0x01020304,        192   -  slots: the element, then the hash (4 bytes) of
 *            as in memory                its sequence number (8) and itself
 *    16   4  bytes of an element
 *    20   4  0                  A state, 8 bytes each: generation, sequence number of the
 *    24  32  tag, NUL-padded    first entry, slots of the ring, slot of the first entry,
 *    56   4  hash of the above  count, maximum; 4 bytes: hash of these
 * The hash is FNV-1a of 32 bits (Fowler, Noll and Vo).  The valid state of the
 * higher generation holds; a change writes the slot, then the other state. */
#ifndef KSUTIL_PLATFORM_TRACE_FILETBL_H
#define KSUTIL_PLATFORM_TRACE_FILETBL_H

#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

extern "C" {

/* Opens the list kept in a file, which is made when it does not exist; freetbl closes it.
 *
 * path          of a regular file that may be read and written; an empty file is a list
 *               without entries
 * tag           1 to 31 characters that say what the elements are; the file has the same
 * maxn          the most entries the list takes, at least 1; at most
 *               filetbl_capacity(element_size) are kept: files stay below 1 GiB.  Of more
 *               entries in the file the newest maxn are the list; the others go with the
 *               first change
 * element_size  bytes of an element, at least 1; the file has the same
 *
 * Null, with a message: errno is EAGAIN when another list or program has the file locked.
 * A file of another kind, or a damaged one, is refused and stays as it was. */
KSUTIL_API Tbl *filetbl(const char *path, const char *tag, long maxn, int element_size);

/* The elements that are in such a file now, copied into a list in memory; the file may be
 * in use by another program, and is neither locked nor changed.  Null with a message. */
KSUTIL_API Tbl *filetbl_read(const char *path, const char *tag, int element_size);

/* The most entries that a list file with elements of this size can hold; 0 for a size below
 * 1 or beyond what fits into a file. */
KSUTIL_API long filetbl_capacity(int element_size);

/* The list's descriptor, which the list closes; -1 when it is not kept in a file. */
KSUTIL_API int filetbl_fd(Tbl *table);

/* The maxn with which the file was last changed (less when a file cannot hold as many), 0
 * when it never was; -1 when the list is not kept in a file. */
KSUTIL_API long filetbl_maximum(Tbl *table);

}  // extern "C"
#endif
