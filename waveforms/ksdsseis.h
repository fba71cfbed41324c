/* ksdsseis: a data set: the station channels of a database that have waveforms in a time
 * window, with their metadata, samples and responses.
 *
 * A data set is put together from rows of wfdisc and, each of the epoch that holds at the
 * first sample of a channel, rows of site, sitechan, sensor, instrument and seedcode.
 * Metadata that is missing is not an error: fields keep their nulls, and the description of
 * the channel says what was missing.
 * Times are those of wfdisc, as recorded.  A clock that is known to be wrong has its correction
 * in tshift of the description: true time = recorded time + tshift.  It is not applied
 * (kswave --correct-clock does that), so that samples, windows, arrivals that were picked on
 * the same records, views (ksscv.h) and the rows of files written agree.
 * Ownership: ksdsseis_close frees a data set with the descriptions that it has handed out.
 * The database must stay open for longer.  Vectors are those of the family ksvector2.
 * Threads: a data set belongs to one thread at a time, the thread of its database; vectors
 * have their own rule.
 * Errors: -1 or null, with a message in the error register.  Out-arguments change only on
 * success.  Channels are numbered from 0, in the order of station and channel code. */
#ifndef KSUTIL_WAVEFORMS_KSDSSEIS_H
#define KSUTIL_WAVEFORMS_KSDSSEIS_H

#include <vector>

#include "objects/ksvector2.h"
#include "objects/tags.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

namespace ksutil {
struct Segment;   // platform/trace/segment.h
struct Response;  // waveforms/response.h
}  // namespace ksutil

struct ksdsseis;

/* What of a channel was missing: bits of ksdsseis_channel::missing. */
enum {
  KSDSSEIS_NO_SITE = 1,        // no row of site: lat, lon, elev, dnorth, deast are null
  KSDSSEIS_NO_SITECHAN = 2,    // no row of sitechan: hang, vang, edepth are null
  KSDSSEIS_NO_SENSOR = 4,      // no row of sensor, and so none of instrument
  KSDSSEIS_NO_INSTRUMENT = 8,  // no row of instrument: instype, response are empty
  KSDSSEIS_NO_RESPONSE =
      16,  // the instrument names no response file, or it is not there
  KSDSSEIS_NO_SEEDCODE =
      32,                  // no row of seedcode: net, seedsta, seedchan, loc are empty
  KSDSSEIS_NO_CALIB = 64,  // neither wfdisc nor instrument has a calib
  KSDSSEIS_OTHER_SAMPRATE = 128  // segments of another sample rate: not in its vectors
};

/* The description of a channel. */
struct ksdsseis_channel {
  char sta[16], chan[16];                            // codes of the database
  char net[16], seedsta[16], seedchan[16], loc[16];  // of seedcode; "" unknown
  double lat, lon;                                   // degrees; -999 unknown
  double elev;                                       // km above sea level; -999 unknown
  double dnorth, deast;  // km from the reference station; 0 unknown
  double edepth;         // km below the surface; -1 unknown
  double hang, vang;     // degrees clockwise from north, and from upward; -1 unknown
  double samprate;       // Hz, of most of the samples
  double calib,
      calper;       // of the first segment: nm (nm/s, nm/s^2 by segtype) per count at
                    // the period calper, s; else of the instrument.  0 and -1 unknown
  double calratio;  // of sensor; 1 unknown.  The calibration is calib * calratio
  double tshift;    // s, of sensor: true time - recorded time; 0 unknown
  char segtype[8];  // "D", "V", "A": the unit of calib; else ""
  char instype[16], band[8], rsptype[16];  // of instrument; "" unknown
  char response[1024];                     // path of the response file; "" unknown
  double time, endtime;  // epoch seconds of the first and the last sample in the window
  long nsegments;        // rows of wfdisc in the window
  long nsamp;            // samples in the window; those of overlaps count each
  int missing;           // bits, see above
  /* The same in words, "site, sensor"; "" for nothing.  What follows from another thing that
   * is missing is not named: the response without an instrument. */
  char missing_text[128];
};

extern "C" {

/* Opens a data set.
 *
 * db             an open database; or a table wfdisc or a view with it, whose rows are taken
 * sta, chan      regular expressions of the expression language that match the whole code;
 *                null or "": all
 * tstart, tend   epoch seconds: rows with samples from tstart to tend, both included within
 *                a hundredth of a sample interval; both 0: all.  What is read of the data
 *                set lies in this window
 * A data set without channels is not an error.  Rows that cannot be used are passed over,
 * see ksdsseis_unusable; rows of other tables that cannot be read are missing metadata,
 * with a message.  Null for a pattern that does not compile, tstart > tend, or a
 * database that cannot be read. */
KSUTIL_API ksdsseis *ksdsseis_open(Dbptr db, const char *sta, const char *chan,
                                   double tstart, double tend);

/* Frees a data set; null is not an error. */
KSUTIL_API void ksdsseis_close(ksdsseis *set);

/* The number of channels, or -1 for null; rows of wfdisc that matched and cannot be used
 * (without time, sample rate or file). */
KSUTIL_API int ksdsseis_count(const ksdsseis *set);
KSUTIL_API long ksdsseis_unusable(const ksdsseis *set);

/* The description of a channel, which belongs to the data set; null for none. */
KSUTIL_API const ksdsseis_channel *ksdsseis_describe(const ksdsseis *set, int channel);

/* The times of the first and the last sample in the window of a row of wfdisc, epoch
 * seconds, and its sample rate, Hz; any pointer may be null.  segment is 0 ... nsegments - 1
 * in the order of time.  0 or -1. */
KSUTIL_API int ksdsseis_get_segment(const ksdsseis *set, int channel, int segment,
                                    double *time, double *endtime, double *samprate);

/* The number of the channel of these codes; -1, without a message, for none. */
KSUTIL_API int ksdsseis_find(const ksdsseis *set, const char *sta, const char *chan);

/* -- Samples --
 *
 * Segments whose samples cannot be read (a file that is missing, too short, or of another
 * data type) leave a message each and are passed over; a channel without any that can be
 * read is an error. */

/* The samples of a channel as one vector, "NET.STA.LOC.CHAN" or "STA.CHAN" by name.
 *
 * tag       out, as for ksvector2_create_tsamp; may be null
 * The vector reaches from the first to the last sample in the window; what no segment has
 * is a gap.  Where segments overlap, those of the row with the later lddate count, of equal
 * ones those of the later row.  Values are counts, without calib.  Segments whose sample
 * rate is another than the channel's are left out.  Null also for more than 250 000 000
 * samples. */
KSUTIL_API ksvector2 *ksdsseis_read(ksdsseis *set, int channel, char *tag);

/* Reads all channels into vectors; `tags` receives a list of their tags, new texts, which
 * the caller frees with freetbl(tags, free); a text is "" for a channel that could not be
 * read.  The number of vectors, or -1 when memory is short. */
KSUTIL_API int ksdsseis_read_all(ksdsseis *set, Tbl **tags);

/* The segments of a channel in the order of time, as the rows have them: overlaps and all
 * sample rates.  0 or -1. */
KSUTIL_API int ksdsseis_read_segments(ksdsseis *set, int channel,
                                      std::vector<ksutil::Segment> &segments);

/* Writes a channel to SAC files, one for each stretch without gaps.
 *
 * channel   -1: all channels
 * dir       an existing folder
 * origin    a record with origin, whose place and time go into the header, with distance
 *           and azimuths; dbinvalid(): none
 * replace   non-zero: files that are there already are replaced; 0: they are an error
 * paths     out, may be null: a new list of the paths written, new texts, of a failed call
 *           too; freed with freetbl(paths, free)
 * Files are named NET.STA.LOC.CHAN.YYYYDDD.hhmmss.mmm.sac by their first sample, as those of
 * kssac from-db, with a shorter time where the name would be longer than the 32 characters of
 * dfile; a call writes no file twice.  A file appears when it is whole.  The number
 * of files, or -1 with what was written before in place. */
KSUTIL_API int ksdsseis_write_sac(ksdsseis *set, int channel, const char *dir,
                                  Dbptr origin, int replace, Tbl **paths);

/* Writes a channel to a miniSEED file, and enters the file into a database.
 *
 * channel, dir, paths   as for ksdsseis_write_sac
 * db                    a database open for writing, which may be that of the data set: its
 *                       table wfdisc receives a row for each stretch without gaps and of one
 *                       calibration, with the codes sta and chan, calib, calper and segtype
 *                       of the rows read, and the chanid of its table sitechan.
 *                       dbinvalid(): no rows
 * replace               as for ksdsseis_write_sac; with rows only 0
 * A file has all stretches of a channel and is named NET.STA.LOC.CHAN.YYYYDDD.hhmmss.mmm.mseed
 * by its first sample, with a shorter time as those of SAC.  Samples are counts (Steim 2,
 * records of 512 bytes) in stretches of whole numbers, else single-precision floats.  The
 * rows are those that an import of the files would make, and point to the files from the
 * folder of wfdisc where they lie below it.  Tables other than wfdisc and lastid stay as they are.
 * The number of files, or -1.  Of several channels, one that fails does not keep the others
 * from being written, with their rows.  When the rows cannot be added there are none, and no
 * file of the call either. */
KSUTIL_API int ksdsseis_write_miniseed(ksdsseis *set, int channel, const char *dir,
                                       Dbptr db, int replace, Tbl **paths);

/* Writes a vector of a channel, such as its ground motion, as ksdsseis_write_sac and
 * ksdsseis_write_miniseed (without rows) write its counts.
 *
 * tag       of a time-sampled vector
 * type      "D", "V" or "A": ground motion in m, m/s or m/s^2, as ksdsseis_deconvolve makes
 *           it; null or "": other numbers.  SAC files have motion in nm, nm/s or nm/s^2, and
 *           say so by IDEP; miniSEED files have the numbers of the vector
 * format    "sac" or "mseed"
 * origin    of SAC files: as for ksdsseis_write_sac
 * The number of files, or -1. */
KSUTIL_API int ksdsseis_write_vector(ksdsseis *set, int channel, const char *tag,
                                     const char *type, const char *format,
                                     const char *dir, Dbptr origin, int replace,
                                     Tbl **paths);

/* Writes a vector made of several channels of a station, such as one of radial motion, as
 * ksdsseis_write_vector does.
 *
 * channel      one of them, whose codes and place the files have
 * component    takes the place of the third letter of the channel codes, or of the last of
 *              a shorter code: 'R' makes BHR of BHE
 * hang, vang   of the component, degrees clockwise from north and from upward; -1: unknown
 * The number of files, or -1, also for a component that is not a letter or a digit. */
KSUTIL_API int ksdsseis_write_component(ksdsseis *set, int channel, const char *tag,
                                        char component, double hang, double vang,
                                        const char *type, const char *format,
                                        const char *dir, Dbptr origin, int replace,
                                        Tbl **paths);

/* -- Responses and transforms --
 *
 * `type` is "D", "V" or "A": displacement in m, velocity in m/s, acceleration in m/s^2.
 *
 * A response file that gives its input unit (RESP, SAC, or written by this library) is
 * absolute: counts for a unit of ground motion.  One without (a plain CSS3.0 file) counts as
 * relative, of displacement, or of what rsptype "V" or "A" says: it is scaled so that a
 * count is calib * calratio at the period calper.  Without calib or calper it is taken as it
 * stands, in counts for a nm. */

/* Reads the response file of a channel as it stands; 0 or -1. */
KSUTIL_API int ksdsseis_get_response(ksdsseis *set, int channel,
                                     ksutil::Response &response);

/* The response to ground motion as a vector of points: x the frequency, y[0] the amplitude
 * in counts for a unit of `type`, y[1] the phase in degrees, -180 to 180.
 *
 * fmin, fmax   Hz, 0 < fmin < fmax
 * n            points, 2 to 1 000 000, at equal steps of the logarithm */
KSUTIL_API ksvector2 *ksdsseis_response(ksdsseis *set, int channel, const char *type,
                                        double fmin, double fmax, int n, char *tag);

/* Turns counts of a vector of the channel into ground motion, in place.
 *
 * corners       [4] of the pre-filter in Hz, ascending, or null: none
 * water_level   dB below the largest response in the pass band; 0 or less: none
 * Each run between gaps loses its mean, is tapered over 5 % at each end and divided by the
 * response in the frequency domain: see deconvolve() in waveforms/signal.h for method and
 * source.  ksvector2_filter filters.  0; -1 with the samples unchanged. */
KSUTIL_API int ksdsseis_deconvolve(ksdsseis *set, int channel, const char *tag,
                                   const char *type, const double *corners,
                                   double water_level);

/* The samples of a vector at another sample rate (Hz) as a new vector, through a windowed
 * sinc without aliasing: see resample() in waveforms/signal.h.  Null also for a vector that
 * is not time-sampled. */
KSUTIL_API ksvector2 *ksdsseis_resample(const char *tag, double samprate,
                                        const char *name, char *new_tag);

/* Three components of a station as new vectors of up, radial and transverse motion.
 *
 * channels   [3] channels with known hang and vang, that do not lie in a plane
 * tags       [3] their vectors, of one sample rate
 * seaz       azimuth of the event at the station, degrees; R points away from the event, T
 *            90 degrees clockwise from R
 * new_tags   out: [3] tags of Z, R and T over the time that all three have
 * Samples are taken as simultaneous when they are at most half an interval apart.  0; -1
 * with no vector made. */
KSUTIL_API int ksdsseis_rotate_zrt(ksdsseis *set, const int *channels,
                                   const char *const *tags, double seaz,
                                   char (*new_tags)[KS_TAG_SIZE]);

}  // extern "C"
#endif
