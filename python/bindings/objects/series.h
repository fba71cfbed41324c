/* series: evenly sampled time series of the family ksvector2 as objects of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_OBJECTS_SERIES_H
#define KSUTIL_PYTHON_BINDINGS_OBJECTS_SERIES_H

#include <ksutil/objects/ksvector2.h>
#include <ksutil/platform/trace/segment.h>
#include <pybind11/numpy.h>

#include <functional>
#include <memory>
#include <string>

namespace ksutil::python {

namespace py = pybind11;

/* A vector with its tag; freed with the last object or array that holds it. */
struct SeriesRecord {
  SeriesRecord() = default;
  ~SeriesRecord();
  SeriesRecord(const SeriesRecord &) = delete;
  SeriesRecord &operator=(const SeriesRecord &) = delete;

  ksvector2 *vector = nullptr;
  char tag[KS_TAG_SIZE] = "";
};

/* The codes of the channel that a series belongs to; "" unknown. */
struct SeriesCodes {
  std::string net, sta, loc, chan;
};

/* The samples of a series never move, so that arrays over them stay valid whatever is done
 * to it; what changes the samples changes the arrays. */
class Series {
 public:
  explicit Series(std::shared_ptr<SeriesRecord> record, SeriesCodes codes = {})
      : record_(std::move(record)), codes_(std::move(codes)) {}

  const ksvector2 &vector() const { return *record_->vector; }
  const char *tag() const { return record_->tag; }
  SeriesCodes &codes() { return codes_; }
  const SeriesCodes &codes() const { return codes_; }
  double samprate() const;
  double endtime() const;

  /* The samples without a copy; gaps are values above 1e30. */
  py::array_t<double> data(bool writable = false) const;

  /* The samples as a segment with the codes: whole numbers as counts, unless `counts` is
   * false or one does not fit, else floats.  Without the GIL. */
  Segment segment(bool counts) const;

 private:
  std::shared_ptr<SeriesRecord> record_;
  SeriesCodes codes_;
};

/* A series of what `make` gives, which is called without the GIL, under the lock `source`
 * (null: none) and that of the family, with the buffer for the tag; Error when it gives
 * null.  Needs the GIL. */
Series make_series(const std::function<ksvector2 *(char *tag)> &make,
                   SeriesCodes codes = {}, std::mutex *source = nullptr);

/* "NET.STA.LOC.CHAN" of the codes that are known, "" for none. */
std::string name_of(const SeriesCodes &codes);

/* 0.1 + 0.2 samples a second stand for 0.3: a rate to 12 digits. */
double rate_of_interval(double dt);

}  // namespace ksutil::python
#endif
