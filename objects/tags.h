/* Tags: the short texts by which vectors, grids, histories and seismograms are addressed.
 *
 * A tag is the word of its family and a number, for example "vect12".  Numbers only grow,
 * so a tag is never given twice in one process.  Each family has its own registry; the
 * registries are not locked: all calls on one family come from one thread at a time. */
#ifndef KSUTIL_OBJECTS_TAGS_H
#define KSUTIL_OBJECTS_TAGS_H

/* Bytes that a buffer for a tag holds at least, in every function that writes one. */
enum { KS_TAG_SIZE = 32 };

#endif
