/* tags: declares the size of tags, the short texts that address vectors, grids, histories
 * and seismograms.
 *
 * A tag is the word of its family and a number, for example "vect12".  Numbers only grow:
 * no tag is given twice in one process.  Each family has its own registry; the
 * registries are not locked: all calls on one family come from one thread at a time. */
#ifndef KSUTIL_OBJECTS_TAGS_H
#define KSUTIL_OBJECTS_TAGS_H

/* The bytes of a buffer that is certain to hold any tag.  Functions write the tag and its
 * NUL only. */
enum { KS_TAG_SIZE = 32 };

#endif
