/* ksvector_readers: reads files and tables into vectors. */
#include <utility>

#include "objects/readers/internal/vector_readers.h"
#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/failure.h"

namespace {

using ksutil::fail;
using ksutil::VectorPtr;
using ksutil::Vectors;

/* Room for exactly the points that a file announces, and more when they come. */
class NewVector : public ksutil::NewPoints {
 public:
  explicit NewVector(const char *name) : name_(name) {}

  const char *make(long points, int ny) override {
    const char *missing = "vector->point";
    vector_ =
        ksutil::make_point_vector(ksutil::slots_for(points, 0), ny, name_, &missing);
    return vector_ == nullptr ? missing : nullptr;
  }
  Taken take(double x, const double *y, const char *label) override {
    if (vector_->npts == vector_->nalloc && !ksutil::grow_vector(*vector_)) {
      return Taken::kNoRoom;
    }
    return ksutil::add_point(*vector_, x, y, label) ? Taken::kYes : Taken::kNoLabel;
  }

  /* The result of a creator. */
  KSVector *publish(const char *function, char *tag, int *status) {
    if (*status != ksutil::kReadDone) return Vectors::none(tag);
    KSVector *const published = Vectors::publish(function, std::move(vector_), tag);
    if (published == nullptr) *status = ksutil::kReadFailed;
    return published;
  }

 private:
  const char *name_;
  VectorPtr vector_;
};

/* A registered vector, which always keeps one slot free. */
class RegisteredVector : public ksutil::PointTaker {
 public:
  explicit RegisteredVector(KSVector &vector) : vector_(vector) {}
  Taken take(double x, const double *y, const char *label) override {
    if (!ksutil::grow_for_one(vector_)) return Taken::kNoRoom;
    return ksutil::add_point(vector_, x, y, label) ? Taken::kYes : Taken::kNoLabel;
  }

 private:
  KSVector &vector_;
};

}  // namespace

KSVector *ksvector_create_response_fap(const char *file, const char *name, char *tag,
                                       int *status) {
  const char *const self = "ksvector_create_response_fap";
  *status = ksutil::kReadFailed;
  if (!Vectors::open(self)) return Vectors::none(tag);
  NewVector points(name);
  *status = ksutil::read_response(self, file, points);
  return points.publish(self, tag, status);
}

KSVector *ksvector_create_from_pf(Pf *pf, const char *key, const char *name, char *tag,
                                  int *status) {
  const char *const self = "ksvector_create_from_pf";
  *status = ksutil::kReadFailed;
  if (!Vectors::open(self)) return Vectors::none(tag);
  NewVector points(name);
  *status = ksutil::read_pf_table(self, pf, key, points);
  return points.publish(self, tag, status);
}

KSVector *ksvector_read(const char *file, const char *name, int nskip, int xcol, int ny,
                        const int *ycols, int labelcol, char *tag) {
  if (!Vectors::open("ksvector_read")) return Vectors::none(tag);
  KSVector *const vector =
      tag == nullptr ? nullptr : ksvector_create(0, ny == 0 ? 1 : ny, name, tag);
  if (vector == nullptr) return fail("ksvector_read", "ksvector_create() error");
  RegisteredVector points(*vector);
  const ksutil::TableColumns columns{nskip, xcol, ksutil::y_columns(ny, ycols),
                                     labelcol};
  if (ksutil::read_text_table("ksvector", file, columns, points)) return vector;
  ksvector_free_vector(vector);
  return Vectors::none(tag);
}

int ksvector_read_from_trblob(const char *file, Dbptr *trace, char *tag) {
  static constexpr ksutil::SeriesMaker kMaker{
      "ksvector_read_from_trblob", "ksvector_create_tsamp",
      [](const ksutil::Segment &segment, char *made) {
        return ksutil::create_series("ksvector_create_tsamp", segment, nullptr, made) !=
               nullptr;
      },
      ksvector_free};
  return ksutil::read_trace_blob(kMaker, file, trace, tag);
}
