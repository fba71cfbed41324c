/* kssac: seismograms in the memory image of a SAC file, addressed by the tags "sac0",
 * "sac1", ...
 *
 * A SAC file (binary, header version 6) is a header of 632 bytes, with variables of fixed
 * names at fixed places, followed by single-precision samples.  Files are written in the
 * byte order of this machine.  kssac_read_from_file_kssac refuses a file of the other order
 * for its header version; kssac_read_from_file_either_order and kssac_read_segment read
 * both orders.
 * Times in the header are seconds after a reference time, which the header holds to the
 * millisecond.
 *
 * Ownership: a record belongs to whoever created or read it, and is freed with one of the
 * free functions; texts and samples given to functions are copied.
 * Threads: creating, finding and freeing happen on one thread at a time; different records
 * may otherwise be used on different threads.
 * Errors: -1 or null, with a message in the error register.  Unless a function says
 * otherwise the record and the caller's variables are then as they were.
 * Source of the layout: the SAC data format, header version 6, as published with the
 * format's own program. */
#ifndef KSUTIL_FORMATS_KSSAC_H
#define KSUTIL_FORMATS_KSSAC_H

#include <stdint.h>

#include "objects/tags.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

namespace ksutil {
struct Segment;
}

enum {
  KSSAC_HEADER_SIZE = 632,  // bytes
  KSSAC_HEADER_COUNT = 133  // variables
};

/* Types of header variables, with their width in bytes and their null. */
enum {
  KSSAC_FLOAT = 1,   // 4, -12345.0
  KSSAC_INTEGER,     // 4, -12345
  KSSAC_ENUMERATED,  // 4, -12345
  KSSAC_LOGICAL,     // 4, 0
  KSSAC_STRING8,     // 8, "-12345"
  KSSAC_STRING16     // 16, "-12345"
};

/* One header variable. */
struct KSSacDefine {
  const char *name;
  int type;
  int offset;  // bytes from the beginning of the header
  const char *description;
};

struct SacImage {
  char header[KSSAC_HEADER_SIZE];  // as in the file, in the order of this machine
  float *data;                     // the samples, or null
  int64_t npts_data;               // how many there are
  int64_t data_bytes;              // their size in bytes
};

struct KSSac {
  char *name;  // the caller's name, or null
  SacImage *image;
};

/* The kinds of values in a header table. */
enum { KSSAC_KIND_REAL = 1, KSSAC_KIND_INTEGER, KSSAC_KIND_STRING };

/* An element of a header table (a Tbl of inline elements). */
struct KSSacHeaderValue {
  char *name;
  int kind;
  union {
    double d;
    int64_t i;
    char *s;  // without the blanks at its right end
  } value;
};

extern "C" {

/* The header variables, in the order of the file. */
KSUTIL_API extern const KSSacDefine SacHeaderDefines[KSSAC_HEADER_COUNT];

/* A new record with a nulled header and no samples.
 *
 * name   the caller's own, copied; null: none.  Several records may share one
 * tag    out: the record's tag, in KS_TAG_SIZE bytes; null: the record is not registered,
 *        and only the caller's pointer leads to it */
KSUTIL_API KSSac *kssac_create(const char *name, char *tag);

/* The record of a tag; null with a message. */
KSUTIL_API KSSac *kssac_get_kssac(const char *tag);

/* Frees the record of a tag: 0, or -1 when there is none. */
KSUTIL_API int kssac_free(const char *tag);

/* Frees all registered records of that name; 0.  Null names none. */
KSUTIL_API int kssac_free_tag(const char *name);

/* Frees a record, registered or not; 0.  Null is not an error. */
KSUTIL_API int kssac_free_kssac(KSSac *kssac);

/* Fills the 632 bytes of a header with each variable's null, and NVHDR with 6.  String
 * nulls end in NUL bytes, not in blanks.  0 or -1. */
KSUTIL_API int kssac_fill_null_header(void *header632);

/* The definition of a variable, by its name in capitals; null, without a message, for
 * none. */
KSUTIL_API const KSSacDefine *kssac_get_header_define(const char *name);

/* All header variables as a table in the order of the file.
 *
 * table   in/out: a table that is there already is freed; the new one belongs to the caller
 *         and is freed with kssac_free_header_tbl */
KSUTIL_API int kssac_header_2_tbl(KSSac *kssac, Tbl **table);

/* Sets the variables that a table names; others stay.  An undefined name, or a kind that
 * is not the variable's, is an error and nothing is set.  0 or -1. */
KSUTIL_API int kssac_tbl_2_header(Tbl *table, KSSac *kssac);

/* Frees a header table with the texts of its elements; null is not an error. */
KSUTIL_API void kssac_free_header_tbl(Tbl *table);

/* Sets header variables: name, value, ..., (char *)0.
 * Values: double for floats, int64_t for integers, enumerations and logicals, const char *
 * for strings.  An int, or a float variable given as an integer, is an error that no
 * compiler sees.
 * A float is stored as the nearest single-precision number (infinity beyond their range),
 * an integer by its low 32 bits, a string cut to its field or filled with blanks; a null
 * string is stored as "-12345".  An undefined name is an error and nothing is set. */
KSUTIL_API int kssac_puthdr_kssac(KSSac *kssac, ...);

/* Reads header variables: name, address, ..., (char *)0.
 * Addresses: double *, int64_t *, and for strings a char * with room for the width and one
 * byte.  Strings end at the first NUL, and blanks at their right end are cut.  An undefined
 * name is an error and nothing is read. */
KSUTIL_API int kssac_gethdr_kssac(KSSac *kssac, ...);

/* Stores samples and what the header says of them.
 *
 * nsamp      1 to INT_MAX.  Below 1: an error, and the samples held are freed
 * samples    [nsamp], copied; those that the record holds may be given
 * type       "D" displacement, "V" velocity, "A" acceleration; other or null: unknown
 * time       of the first sample, epoch seconds, finite
 * samprate   1/s, above 0 and finite
 * Sets the reference time to `time` cut to the millisecond (NZYEAR ... NZMSEC, IZTYPE 9), B
 * to what remains, E, DELTA, NPTS, IFTYPE 1, LEVEN, IDEP, SCALE 1 and DEPMIN, DEPMAX,
 * DEPMEN.  A time x.123 s that is stored just below that number gets the millisecond 122
 * and B 0.001. */
KSUTIL_API int kssac_putdata_kssac(KSSac *kssac, long nsamp, const float *samples,
                                   const char *type, double time, double samprate);

/* Copies the samples out.
 *
 * nsamp      out: NPTS; 0, with the other variables untouched, when the record holds no
 *            samples or NPTS is negative
 * time       out: of the first sample, epoch seconds
 * samprate   out: 1/DELTA, in double precision: a DELTA of 0.025 gives 39.9999994
 * samples    in/out: the caller's malloced buffer or null, freed; [nsamp], which the caller
 *            frees.  Zero where NPTS is above the number of samples held
 * type       out: 2 bytes: "D", "V", "A", or "-"; may be null
 * Fails for a file type (IFTYPE) other than 1, evenly or unevenly spaced samples. */
KSUTIL_API int kssac_getdata_kssac(KSSac *kssac, long *nsamp, double *time,
                                   double *samprate, float **samples, char *type);

/* The reference time in epoch seconds; with IZTYPE 10 the beginning of its day.  0 or -1. */
KSUTIL_API int kssac_getreftime_kssac(KSSac *kssac, double *reftime);

/* Copies from database rows into the header, and the samples of a trace row.
 *
 * wf       a record of a table or view with any of wfdisc or trace, site, sitechan and
 *          affiliation; invalid: left out
 * origin   a record of a table or view with origin; invalid: left out
 *
 *   sta, chan, net           KSTNM, KCMPNM, KNETWK
 *   loc of seedcode          KHOLE
 *   lat, lon, elev, edepth   STLA, STLO, and in metres STEL, STDP
 *   hang, vang               CMPAZ, CMPINC, degrees
 *   wfid                     NWFID
 *   time, samprate, nsamp    the reference time, B, DELTA, NPTS
 *   data, segtype            samples, as by kssac_putdata_kssac
 *   lat, lon, depth          EVLA, EVLO, and in metres EVDP
 *   time, orid, evid         O (after the reference time), NORID, NEVID
 * Nulls, and fields that the view lacks, are stored as the header's null, but a row without
 * time or samprate leaves the time variables and the samples.  O needs a reference time in
 * the header.  Then, when the header has the places of event and station: GCARC, AZ (at
 * the event), BAZ (at the station), degrees, and DIST, km on a sphere of 6371 km; otherwise
 * their nulls.  Rows or a table seedcode that cannot be read are a failure, which leaves the
 * header as it was. */
KSUTIL_API int kssac_putevent_kssac(KSSac *kssac, Dbptr wf, Dbptr origin);

/* Copies from the header into database rows, which must be writable (a view's rows are
 * those of its tables): the inverse of the list above, except KHOLE, GCARC, AZ, BAZ and
 * DIST.  A header null never overwrites a field, and a
 * reference time with a null in it is none.
 *
 * With the time come endtime and jdate.  samprate is 1/DELTA to the digits that DELTA has:
 * a DELTA of 0.025 gives 40.  segtype is set for "D", "V" and "A".
 * A trace row gets a copy of the samples, which belongs to the trace database; those that
 * it had are freed unless another row has them too.  From a record without samples it
 * keeps its own, with its nsamp.
 * Each row is written whole; a value that does not fit its field is an error. */
KSUTIL_API int kssac_getevent_kssac(KSSac *kssac, Dbptr wf, Dbptr origin);

/* Writes header and samples to a file, which is created (mode 0666) or truncated.  A
 * failure can leave a piece of the file.  0 or -1. */
KSUTIL_API int kssac_write_to_file_kssac(KSSac *kssac, const char *path);

/* Reads a file into a new record; name and tag as for kssac_create.
 *
 * The samples are read for IFTYPE 1 and NPTS of 1 or more: NPTS of them, even when the file
 * is longer; a file that has fewer is refused, before memory is taken for them.  Files of
 * other types (spectra, pairs of x and y) are read without samples: kssac_file_type_text
 * names the type. */
KSUTIL_API KSSac *kssac_read_from_file_kssac(const char *path, const char *name,
                                             char *tag);

/* Reads a file of either byte order into a new record in the order of this machine;
 * otherwise like kssac_read_from_file_kssac, with messages in its own name. */
KSUTIL_API KSSac *kssac_read_from_file_either_order(const char *path, const char *name,
                                                    char *tag);

/* The kind of data that the header declares, for messages: "a time series", "a spectrum
 * (real and imaginary parts)", "a spectrum (amplitudes and phases)", "pairs of x and y",
 * "values over a plane (x, y, z)" or "data of unknown type"; "nothing" for a null record.
 * Records of all kinds but the first are read without samples. */
KSUTIL_API const char *kssac_file_type_text(const KSSac *kssac);

/* -- Segments, see platform/trace/segment.h -- */

/* The samples of a record as a segment: KSTNM, KCMPNM, the reference time + B, the sample
 * rate for which DELTA stands (40 Hz for 0.025 s), and all samples held, which stay the
 * record's and live until it gets other samples or is freed.  calib is 0, unknown.
 * 0; -1 with `segment` untouched: a record of another kind than an evenly spaced time
 * series, without samples, or without reference time, B or DELTA. */
KSUTIL_API int kssac_get_segment_kssac(KSSac *kssac, ksutil::Segment &segment);

/* Reads a file of either byte order as a segment that owns its samples, which are not
 * copied after they have been read.  0, or -1 as above and for a file that cannot be
 * read. */
KSUTIL_API int kssac_read_segment(const char *path, ksutil::Segment &segment);

/* A new record of the samples of a segment, which are copied once; floats stay as they are
 * (gaps too), counts beyond 2^24 are rounded.  The header is that of kssac_putdata_kssac,
 * with KSTNM and KCMPNM; type, name and tag as there and for kssac_create.  Null for a
 * segment without samples, with more than INT_MAX, or with a time or sample rate that
 * kssac_putdata_kssac refuses. */
KSUTIL_API KSSac *kssac_create_from_segment(const ksutil::Segment &segment,
                                            const char *type, const char *name,
                                            char *tag);

}  // extern "C"
#endif
