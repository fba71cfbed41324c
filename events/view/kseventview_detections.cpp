/* KSEventView: reads the detections around an origin or in a span of time, and looks up
 * the stations of an origin. */
#include <cmath>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "events/reading/internal/read_rows.h"
#include "events/view/internal/origin_stations.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kRefresh = "KSEventView::refreshDetections";
constexpr const char *kLookUpStation = "KSEventView::lookupStation";
using DetectionPtr = ViewRecords::Ptr<KSEVDetection>;

/* The distance of a detection from its predicted time; the greatest without a
 * prediction. */
double misfit(const KSEVDetection &detection) {
  constexpr double kFarthest = 1e30;
  if (detection.presidual != kNoValue) return std::abs(detection.presidual);
  if (detection.sresidual != kNoValue) return std::abs(detection.sresidual);
  return kFarthest;
}

/* Collects the detections of an origin: all of them, or the best of each station, which
 * takes the place of the first of that station. */
class Collection {
 public:
  explicit Collection(bool best) : best_(best) {}

  void add(DetectionPtr detection) {
    if (best_) {
      const auto [place, first] = places_.try_emplace(detection->sta, kept_.size());
      if (!first) {
        DetectionPtr &rival = kept_[place->second];
        if (misfit(*detection) < misfit(*rival)) rival = std::move(detection);
        return;
      }
    }
    kept_.push_back(std::move(detection));
  }

  ViewRecords::ListPtr<KSEVDetection> take(ViewRecords &records) {
    auto list = records.new_list<KSEVDetection>();
    for (DetectionPtr &detection : kept_) ViewRecords::push(list, std::move(detection));
    return list;
  }

 private:
  const bool best_;
  std::vector<DetectionPtr> kept_;
  std::map<std::string, std::size_t> places_;
};

/* Reads rows and hands those of a signal to `visit`, which returns a negative number to
 * end the reading.  Rows that cannot be read are reported and left out with result
 * 10. */
template <class Visit>
int each_signal(TreeReader &reader, const std::vector<long> &rows, const Visit &visit) {
  int result = 0;
  for (const long row : rows) {
    EVDetection detection;
    DetectionFields fields;
    const int read = reader.read_detection(row, detection, fields);
    if (read != 0) fail(kRefresh, "dbgetv(detection) error");
    if (read < 0) return read;
    result = graver(result, read);
    if (read != 0 || !fields.signal()) continue;
    result = graver(result, visit(detection, fields));
    if (result < 0) return result;
  }
  return result;
}

int read_around(ViewState &state, TreeReader &reader, KSEVOrigin &origin, bool best) {
  ViewRecords &records = state.records;
  Collection collection(best);
  try {
    const int result = each_signal(
        reader, reader.detections_around(origin.time),
        [&](const EVDetection &source, const DetectionFields &fields) -> int {
          DetectionPtr detection = records.make(source, fields);
          KSEVOriginStation *station = nullptr;
          if (look_up_station(state, reader, origin, detection->sta, origin.time,
                              station) < 0) {
            return fail(kRefresh, "lookupStation(%s_%s) error", detection->sta,
                        detection->chan);
          }
          locate(*detection, *station);
          collection.add(std::move(detection));
          return 0;
        });
    if (result >= 0) records.replace(origin.detections, collection.take(records));
    return result;
  } catch (const std::bad_alloc &) {
    return fail_memory_for(kRefresh, best ? "best_detection" : "KSEVDetection");
  }
}

int read_span(ViewState &state, TreeReader &reader, double time, double span,
              Tbl *&detections) {
  ViewRecords &records = state.records;
  auto list = records.new_list<KSEVDetection>();
  const int result =
      each_signal(reader, reader.detections_between(time, time + span),
                  [&](EVDetection &source, const DetectionFields &fields) -> int {
                    const int read = reader.read_site(
                        fields.sta, fields.time, source.recno_site, source.record_site);
                    if (read != 0) return fail(kRefresh, "dbgetv(site) error");
                    ViewRecords::push(list, records.make(source, fields));
                    return 0;
                  });
  if (result >= 0) detections = list.release();
  return result;
}

/* Looks a station up and hands it to `use`, unless that fails. */
template <class Use>
int with_station(ViewState &state, KSEVOrigin *origin, const char *sta, double time,
                 const Use &use) {
  if (sta == nullptr) return fail(kLookUpStation, "no station is given");
  const ReadingName name{kLookUpStation, "dbmatches(site) error"};
  return read_rows(state.database, name, kReadSites, [&](TreeReader &reader) {
    KSEVOriginStation *found = nullptr;
    const int result = look_up_station(state, reader, *origin, sta, time, found);
    if (result >= 0) use(*found);
    return result;
  });
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;
using ksutil::fail;

int KSEventView::refreshDetections(KSEVOrigin *origin, int best) {
  if (origin == nullptr) return fail(kRefresh, "no record is given");
  return read_rows(state_->database, {kRefresh, "dbmatches(detection) error"},
                   kReadDetections, [&](TreeReader &reader) {
                     return read_around(*state_, reader, *origin, best != 0);
                   });
}

int KSEventView::refreshDetections(Tbl **detections, double time, double span) {
  if (detections == nullptr) return fail(kRefresh, "no place for the list is given");
  return read_rows(state_->database, {kRefresh, "dbmatches(detection) error"},
                   kReadDetections, [&](TreeReader &reader) {
                     return read_span(*state_, reader, time, span, *detections);
                   });
}

int KSEventView::lookupStation(KSEVOrigin *origin, const char *sta, double time,
                               KSEVOriginStation **station) {
  if (origin == nullptr) return fail(kLookUpStation, "no record is given");
  return with_station(*state_, origin, sta, time, [&](KSEVOriginStation &found) {
    if (station != nullptr) *station = &found;
  });
}

int KSEventView::lookupStation(KSEVDetection *detection, const char *sta,
                               KSEVOrigin *origin) {
  if (detection == nullptr || origin == nullptr) {
    return fail(kLookUpStation, "no record is given");
  }
  return with_station(
      *state_, origin, sta, origin->time,
      [&](const KSEVOriginStation &found) { locate(*detection, found); });
}
