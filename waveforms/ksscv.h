/* ksscv: shows station channels in a time window, for displays that pan and zoom over
 * months of data.
 *
 * A view is an ordered list of station channels, a time window and a width in columns, over
 * the table wfdisc of a database.  Threads of the view read the waveform files into a cache
 * that is bounded in bytes.  The cache holds samples by chunks of 65536, and for each chunk
 * envelopes: the least and the greatest of each 64, 128, 256 ... samples, which stay when
 * the samples are dropped.  Drawing a window therefore costs as much as its columns cost,
 * whatever its length.
 *
 *     ksscv *view = ksscv_open(db, nullptr);
 *     ksscv_set_callback(view, on_more, &display);
 *     ksscv_set_channels(view, 2, stations, channels);
 *     ksscv_set_window(view, tstart, tend, 1000);
 *     ...                                   // in on_more, and after each pan:
 *     ksscv_data *data = nullptr;
 *     if (ksscv_get(view, 0, KSSCV_ENVELOPE, 0, &data) == 0) draw(*data);
 *     ksscv_free_data(data);
 *
 * Asking never waits for a file: a call gives what is in the cache and says whether more is
 * coming.  A new window takes the place of the one before: of the chunks that only the
 * window before needed, those that are being read are finished, the others are not begun.
 * When a window is complete, the windows of the same length before and after it are read
 * ahead, as far as the cache has room.
 *
 * Real time: the view looks at the table and at the files of the window every `period`
 * seconds.  Rows that were added, changed or removed, rows whose nsamp grew, files that grew
 * and files that were replaced show up, and the callback is called.  A file counts as grown
 * when it is the same file and has become larger: what was read before is kept.  It counts
 * as replaced when it is another file, has shrunk, or has a new time of change at the same
 * size: what was read before is dropped.  What was read
 * from a file that has vanished stays, and the channel's state tells that it is gone.
 *
 * Rows: `nsamp`, not `endtime`, says how long a row is.  Of rows of a channel that overlap,
 * the row with the later lddate is shown (of equal ones the later in the table), from half a
 * sample interval before its first sample to half a sample interval after its last one.
 *
 * Gaps: samples above 1e30, infinities and NaN in files are gaps.
 *
 * Errors: functions give -1 or null, with a message in the error register, and leave
 * out-arguments untouched.  What goes wrong in a thread of the view (a bad row, an
 * unreadable file) concerns one channel: it is told by ksscv_get, in the channel's state and
 * message, and not registered.  Reading is tried again after a pause, which grows from
 * kKsscvFirstPause to kKsscvLongestPause seconds.
 *
 * Threads: all functions of a view may be called from any thread, also from its callback;
 * ksscv_close must be the last call on the view.  ksscv_open uses `db` during the call,
 * on the thread of that database; afterwards the view reads with a handle of its own.
 * ksscv_get_vector belongs to the thread that uses ksvector2.
 *
 * Fork: a view belongs to the process that opened it.  Its threads do not exist in a child
 * process, where its lock may be held for ever: the child must not call any function with
 * the view, ksscv_close included, and opens a view of its own after it has opened the
 * database. */
#ifndef KSUTIL_WAVEFORMS_KSSCV_H
#define KSUTIL_WAVEFORMS_KSSCV_H

#include "objects/ksvector2.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"

/* A view. */
struct ksscv;

/* The kinds of answers about a channel. */
enum {
  KSSCV_ENVELOPE = 1,  // the least and the greatest sample of each column
  KSSCV_SAMPLES = 2    // every sample
};

/* States of a channel in the window. */
enum {
  KSSCV_COMPLETE = 0,  // all samples that the rows announce are in the answer
  KSSCV_COMING = 1,   // more is being read, and the callback will tell when it is there
  KSSCV_NOTHING = 2,  // no row has samples in the window
  KSSCV_ERROR = 3     // something cannot be read (message); the rest is in the answer
};

/* States of a column or a sample of the answer. */
enum {
  KSSCV_GAP = 0,   // no row has samples there, or they are gaps: the value is null
  KSSCV_HERE = 1,  // the value is final
  KSSCV_AWAITED =
      2  // not all samples are there: the value is null or of a part of them
};

enum {
  KSSCV_MAX_COLUMNS = 1 << 20,  // columns of a window
  KSSCV_MAX_SAMPLES = 1 << 24   // samples (and gaps between them) of one answer
};

inline constexpr double kKsscvFirstPause = 0.5, kKsscvLongestPause = 60.0;  // s

/* Settings of a view. */
struct ksscv_options {
  long cache_bytes;  // bound of the cache; 0: 256 MB.  At least 4 MB, and 2 MB a thread
  int threads;       // that read files, at most 64; 0: as many as cores, from 2 to 16
  double period;  // s between two looks at table and files; 0: 1 s; below 0: looks only
                  // when ksscv_refresh asks
  int prefetch;   // 1: reads ahead; 0: reads what the window shows, no more
};

/* What a channel has in the window.  All belongs to the record, which ksscv_free_data
 * frees. */
struct ksscv_data {
  int what;     // KSSCV_ENVELOPE or KSSCV_SAMPLES
  int state;    // KSSCV_COMPLETE ... KSSCV_ERROR
  int n;        // columns or samples; 0 samples when there are none
  double time;  // epoch seconds: where the first column begins, or of the first sample
  double dt;    // s: width of a column, or sample interval (0 without samples)
  double *min;  // [n] of an envelope; null values are 1e34 (tr_isgap)
  double *max;  // [n]
  double *samples;      // [n] of samples; null values are 1e34
  unsigned char *here;  // [n] KSSCV_GAP, KSSCV_HERE or KSSCV_AWAITED
  char *message;        // what is wrong; "" when nothing is
};

struct ksscv_counts {
  long hits;          // answers of ksscv_get that were complete
  long misses;        // answers that were not
  long chunks_read;   // from files
  long bytes_read;    // in the files' own format where known, else of the samples
  long failed_reads;  // reads that failed, and will be tried again
  long evictions;     // of samples or fine envelopes of a chunk, or of all of a segment
  long cache_bytes;   // held now: never above the bound
  long cache_bound;   // the bound in use
  long queue;         // chunks that the window lacks and that nobody is reading yet
  long reading;       // chunks that are being read
  long segments;      // rows that the view keeps track of
  long rows;          // of the table
  long looks;         // at the table
  long callbacks;     // calls of the callback that have returned
};

/* Tells that channels have more, or have changed.
 *
 * channels   [n], ascending: places in the list of channels, of which each is to be asked
 *            again.  A call that had begun when ksscv_set_channels came has places in the
 *            earlier list
 * context    of ksscv_set_callback
 * It runs on a thread of the view, one call at a time, and under no lock: it may call every
 * function of this view and of others.  While it runs, changes are collected for the
 * next call. */
typedef void (*ksscv_callback)(ksscv *view, const int *channels, int n, void *context);

extern "C" {

/* Opens a view without channels and without a window.
 *
 * db        a database in files; any position in it.  It may have no wfdisc yet.  A
 *           scratch database is refused
 * options   null: all 0, but with prefetch
 * The caller closes the view with ksscv_close. */
KSUTIL_API ksscv *ksscv_open(Dbptr db, const ksscv_options *options);

/* Ends the threads of the view and frees it.  A null view is not an error.
 *
 * Waits for the callback in progress, and for the reads in progress, each of one chunk.
 * From within the callback of the view it returns at once: the view takes no more calls,
 * this call of the callback is the last one, and the threads end when it has returned. */
KSUTIL_API void ksscv_close(ksscv *view);

/* Sets the list of channels; a station and channel name exactly as in the rows.
 *
 * n          0 or more
 * stations   [n]
 * channels   [n]
 * 0 or -1. */
KSUTIL_API int ksscv_set_channels(ksscv *view, int n, const char *const *stations,
                                  const char *const *channels);

/* Sets the window: tstart <= time < tend, in epoch seconds, of `columns` columns of equal
 * length, 1 to KSSCV_MAX_COLUMNS.  A sample belongs to the window, and to a column, when
 * it is at most a hundredth of a sample interval before its beginning, and more than that
 * before its end.  0; -1 for numbers that are not finite, not ascending, and more than
 * 1e12 s from 1970. */
KSUTIL_API int ksscv_set_window(ksscv *view, double tstart, double tend, int columns);

/* Asks for a channel in the window.
 *
 * channel      place in the list
 * what         KSSCV_ENVELOPE or KSSCV_SAMPLES.  Envelopes are read without being asked for;
 *              samples from the first time that they are asked for in a window until a window
 *              in which only envelopes are
 * calibrated   0: as in the file (counts).  Else multiplied with the calib of each row (nm,
 *              nm/s or nm/s^2); rows without calib are gaps then, with a message
 * data         out: the caller's, freed with ksscv_free_data
 *
 * Envelope: n is the number of columns.  With fewer than 512 samples in a column min and max
 * are those of exactly the column's samples.  With more, a column borrows from its neighbours
 * or lends to them up to a sixteenth of its samples at each side (and, where rows
 * overlap, of the hidden row up to an eighth): every sample is in one column.  A column that
 * lies between two samples is a gap: ask for samples when columns are that short.
 *
 * Samples: evenly spaced at the highest sample rate of the rows in the window, from the first
 * to the last sample that they have there; samples of other rows are put at the times
 * nearest to theirs, those of a lower rate repeatedly.  Equal rates are those that differ by
 * less than a millionth.  More than KSSCV_MAX_SAMPLES are an error of the channel.
 *
 * When the cache is too small for all channels of a window, the last ones of the list have
 * state KSSCV_ERROR; envelopes are given also where only the samples do not fit.
 * 0; -1 for a channel that is not in the list, another `what`, a view without window. */
KSUTIL_API int ksscv_get(ksscv *view, int channel, int what, int calibrated,
                         ksscv_data **data);
KSUTIL_API void ksscv_free_data(ksscv_data *data);

/* The same as a vector, for the thread that uses ksvector2: samples as a series, an envelope
 * as points with the middle of a column as x, and min and max as y; null values are 1e34.
 *
 * name, tag   as for ksvector2_create; both may be null
 * state       out, may be null: KSSCV_COMPLETE ... KSSCV_ERROR
 * Null with a message on failure, and for samples when there are none. */
KSUTIL_API ksvector2 *ksscv_get_vector(ksscv *view, int channel, int what,
                                       int calibrated, const char *name, char *tag,
                                       int *state);

/* Sets the function to call after changes; null: none.  Does not wait for a call of the
 * function before.  A channel that changed before is not reported again.  0 or -1. */
KSUTIL_API int ksscv_set_callback(ksscv *view, ksscv_callback callback, void *context);

/* Lets the view look at the table and at the files now; does not wait for it.  0 or -1. */
KSUTIL_API int ksscv_refresh(ksscv *view);

/* For programs without a display: waits until no channel of the window is coming, and until
 * a look that was asked for has been done.  1 then; 0 after `seconds`; -1 when called
 * from the callback, without a window, or when the view is being closed. */
KSUTIL_API int ksscv_wait(ksscv *view, double seconds);

/* Copies the counters.  0 or -1. */
KSUTIL_API int ksscv_counters(ksscv *view, ksscv_counts *counts);

}  // extern "C"
#endif
