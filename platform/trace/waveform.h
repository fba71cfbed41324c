/* waveform: reads waveform files as the rows of the table wfdisc describe them.  A Segment
 * (segment.h) has the samples as well.
 *
 * Threads: reading rows belongs to the thread of their database; read_samples may run
 * concurrently.
 * Errors: false, with a message in the error register and the results untouched.  Rows
 * are not trusted: what a row asks for is checked against the size of the file before
 * anything is allocated, and only regular files are read. */
#ifndef KSUTIL_PLATFORM_TRACE_WAVEFORM_H
#define KSUTIL_PLATFORM_TRACE_WAVEFORM_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/stock/export.h"

namespace ksutil::db {
struct Field;
}

namespace ksutil {

/* The description of evenly spaced samples of one channel in a file. */
struct WaveformSegment {
  std::string sta, chan;
  double time = 0.0;      // of the first sample, epoch seconds
  double samprate = 0.0;  // 1/s, above 0
  std::int64_t nsamp = 0;
  double calib = 0.0;    // nm, nm/s or nm/s^2 per count; 0 unknown
  double calper = -1.0;  // s, the period at which calib holds; -1 unknown
  std::string segtype;   // "-" unknown
  std::string datatype;  // "s4", "f4", ...
  std::int64_t wfid = -1;
  std::string path;  // of the file, relative to the working directory or absolute
  /* The byte in the file at which the first sample begins, or the first of the records. */
  std::int64_t foff = 0;
};

/* Reads a row of wfdisc, or the one in a record of a view.  A relative `dir` counts
 * from the folder of the table's file; a null one, and ".", are that folder.  Fails for
 * a row without time, file name or data type, whose sample rate is not finite and positive,
 * or with a negative count or offset.  Does not look at the file. */
KSUTIL_API bool read_segment(Dbptr row, WaveformSegment &segment);

/* Samples first ... first + count - 1 of a segment, as numbers: counts where the file has
 * counts, without calib.
 *
 * first, count   0 <= first, 0 <= count, first + count <= nsamp
 * samples        out: [count].  A number that a float cannot hold exactly is rounded;
 *                one beyond its range becomes an infinity
 * Data types, with the bytes of a sample:
 *   s4 (4), s3 (3), s2 (2)      big-endian integers
 *   i4 (4), i2 (2)              little-endian integers
 *   t4 (4), t8 (8)              big-endian floating point
 *   f4 (4), f8 (8)              little-endian floating point
 *   c0 (12), a0 (15), b0 (24)   numbers as text, with blanks or a newline around them
 *   sd                          miniSEED records of one channel from foff on (miniseed.h)
 * Others (gain-ranged and compressed ones) are refused, and sd by a library that was built
 * without miniSEED.  So is a segment of which the
 * file does not hold all the samples asked for. */
KSUTIL_API bool read_samples(const WaveformSegment &segment, std::int64_t first,
                             std::int64_t count, std::vector<float> &samples);
KSUTIL_API bool read_samples(const WaveformSegment &segment, std::int64_t first,
                             std::int64_t count, std::vector<double> &samples);

/* Which samples of a segment lie in tstart ... tend (both ends included, within a
 * hundredth of a sample interval): the first of them and how many, 0 for none. */
KSUTIL_API std::int64_t samples_between(const WaveformSegment &segment, double tstart,
                                        double tend, std::int64_t &first);

/* The name of a file with samples of one channel from a time on (epoch seconds):
 * "CHANNEL.YYYYDDD.hhmmss.mmm.ENDING", the time rounded to milliseconds; a day that begins by
 * this rounding is the day of the name.  In the channel ("NET.STA.LOC.CHAN") slashes, blanks
 * and control characters become underscores.
 * A name has at most the 32 characters of dfile: a longer one takes the first of these forms
 * that fits, and names of different channels or times stay different:
 *   CHANNEL.YYYYDDDhhmmssmmm.ENDING
 *   CHANNEL.YYYYDDDhhmmss.ENDING     at a whole second
 *   CHANNEL.YYDDDtttttt.ENDING       from 1970 to 2069; tttttt are the milliseconds of the
 *                                    day to base 36 ("0" to "9", "a" to "z")
 *   CHANNEL.ttttttttt.ENDING         the milliseconds since 1970 to base 36
 *   BEGINNING.hhhhhhhhhhhhh.ENDING   what fits of the channel, and a number made of the whole
 *                                    name, to base 36
 * An ending has at most 8 characters. */
KSUTIL_API std::string waveform_file_name(const std::string &channel, double time,
                                          std::string_view ending);

/* The reason why `text` cannot stand in a field of wfdisc that names a file or a folder
 * (dfile, dir), in words that follow its mention: "is longer than the 32 characters of dfile".
 * Also refused are the null of the field, blanks at either end, which readers leave out, and
 * control characters: a row with these would point to another file.  "" when it can. */
KSUTIL_API std::string waveform_name_fault(const db::Field &field,
                                           std::string_view text);

/* Bytes of a sample; 0 for a data type that read_samples refuses and for sd, whose samples
 * differ in size. */
KSUTIL_API int sample_size(std::string_view datatype);

}  // namespace ksutil
#endif
