/* vector_readers: reads files and tables and hands their points to either family of
 * vectors.  Failures are logged in the name of the given function or family ("ksvector"). */
#ifndef KSUTIL_OBJECTS_READERS_INTERNAL_VECTOR_READERS_H
#define KSUTIL_OBJECTS_READERS_INTERNAL_VECTOR_READERS_H

#include <cstddef>
#include <span>

#include "platform/db/db.h"
#include "platform/pf/pf.h"
#include "platform/trace/segment.h"

namespace ksutil {

/* Takes in points one after another. */
class PointTaker {
 public:
  enum class Taken { kYes, kNoRoom, kNoLabel };  // the latter with errno set

  virtual ~PointTaker() = default;
  virtual Taken take(double x, const double *y, const char *label) = 0;
};

/* A vector that a reader finds out the shape of. */
class NewPoints : public PointTaker {
 public:
  /* Makes the vector, with ny y values a point and room for `points` points; called once,
   * before any point.  Null; else what could not be allocated, with errno set. */
  virtual const char *make(long points, int ny) = 0;
};

/* The results of creators with a status. */
enum ReadStatus { kReadDone = 0, kReadUnparsable = 1, kReadFailed = -1 };

/* An amplitude and phase file: ny is 2 for "fap", 6 for "fap2". */
ReadStatus read_response(const char *function, const char *file, NewPoints &points);

/* A table of a parameter file, x and up to ten y values in each row. */
ReadStatus read_pf_table(const char *function, Pf *pf, const char *key,
                         NewPoints &points);

/* What is where in a text table; columns count from 0. */
struct TableColumns {
  int nskip;  // lines before it
  int x;
  std::span<const int> y;
  int label;
};

/* The columns of the y values that a caller asks for: with none of them, column 1. */
inline std::span<const int> y_columns(int ny, const int *ycols) {
  static constexpr int kSecond = 1;
  return ny > 0 ? std::span(ycols, static_cast<std::size_t>(ny))
                : std::span(&kSecond, 1);
}

/* Words between blanks and commas; false for a failure. */
bool read_text_table(const char *family, const char *file, const TableColumns &columns,
                     PointTaker &points);

/* What makes the time-sampled vectors of a family. */
struct SeriesMaker {
  const char *function;  // that reads
  const char *creator;   // the name of the creator in messages
  bool (*create)(const Segment &segment, char *tag);
  int (*free)(const char *tag);
};

/* The traces of a blob file: rows of a trace database and a vector each.  `tag` (may be
 * null) receives that of the last vector.  0 or -1. */
int read_trace_blob(const SeriesMaker &maker, const char *file, Dbptr *trace,
                    char *tag);

}  // namespace ksutil
#endif
