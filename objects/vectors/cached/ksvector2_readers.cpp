/* ksvector2_readers: reads files and tables into vectors. */
#include <algorithm>
#include <climits>
#include <utility>

#include "objects/readers/internal/vector_readers.h"
#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/failure.h"

namespace {

using namespace ksutil::vector2;
using ksutil::fail;

class NewVector : public ksutil::NewPoints {
 public:
  explicit NewVector(const char *name) : name_(name) {}

  const char *make(long points, int ny) override {
    const int npts = static_cast<int>(std::min<long>(points, INT_MAX));
    vector_.reset(ksvector2_create(npts, ny, name_, nullptr));
    return vector_ == nullptr ? "vector" : nullptr;
  }
  Taken take(double x, const double *y, const char *label) override {
    switch (insert_point(*vector_, vector_->npts, x, y, label)) {
      case Inserted::kYes:
        return Taken::kYes;
      case Inserted::kNoRoom:
        return Taken::kNoRoom;
      case Inserted::kNoLabel:
        break;
    }
    return Taken::kNoLabel;
  }

  ksvector2 *publish(const char *function, char *tag) {
    return Vectors2::publish(function, std::move(vector_), tag);
  }

 private:
  const char *name_;
  Vector2Ptr vector_;
};

/* The result of a creator with a status. */
ksvector2 *publish(NewVector &points, const char *function, char *tag, int *status) {
  if (*status != ksutil::kReadDone) return nullptr;
  ksvector2 *const vector = points.publish(function, tag);
  if (vector == nullptr) *status = ksutil::kReadFailed;
  return vector;
}

}  // namespace

ksvector2 *ksvector2_create_response_fap(const char *file, const char *name, char *tag,
                                         int *status) {
  const char *const self = "ksvector2_create_response_fap";
  *status = ksutil::kReadFailed;
  if (!begin_creation(self, tag)) return nullptr;
  NewVector points(name);
  *status = ksutil::read_response(self, file, points);
  return publish(points, self, tag, status);
}

ksvector2 *ksvector2_create_from_pf(Pf *pf, const char *key, const char *name,
                                    char *tag, int *status) {
  const char *const self = "ksvector2_create_from_pf";
  *status = ksutil::kReadFailed;
  if (!begin_creation(self, tag)) return nullptr;
  NewVector points(name);
  *status = ksutil::read_pf_table(self, pf, key, points);
  return publish(points, self, tag, status);
}

ksvector2 *ksvector2_read(const char *file, const char *name, int nskip, int xcol,
                          int ny, const int *ycols, int labelcol, char *tag) {
  const char *const self = "ksvector2_read";
  if (!begin_creation(self, tag)) return nullptr;
  NewVector points(name);
  if (points.make(0, ny == 0 ? 1 : ny) != nullptr) {
    return fail("ksvector2_read", "ksvector2_create() error");
  }
  const ksutil::TableColumns columns{nskip, xcol, ksutil::y_columns(ny, ycols),
                                     labelcol};
  if (!ksutil::read_text_table("ksvector2", file, columns, points)) return nullptr;
  return points.publish(self, tag);
}

int ksvector2_read_from_trblob(const char *file, Dbptr *trace, char *tag) {
  static constexpr ksutil::SeriesMaker kMaker{
      "ksvector2_read_from_trblob", "ksvector2_create_tsamp",
      [](const ksutil::Segment &segment, char *made) {
        return ksutil::vector2::create_series("ksvector2_create_tsamp", segment,
                                              nullptr, made) != nullptr;
      },
      ksvector2_free};
  return ksutil::read_trace_blob(kMaker, file, trace, tag);
}
