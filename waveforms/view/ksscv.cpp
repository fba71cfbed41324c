#include "waveforms/ksscv.h"

#include <algorithm>
#include <cmath>
#include <system_error>
#include <thread>

#include "platform/db/access.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "waveforms/view/internal/channel_view.h"

using ksutil::at_boundary;
using ksutil::fail;

struct ksscv {
  ksscv(Dbptr db, Dbptr table, const ksscv_options &options)
      : view(
            this, [](ksscv *self) { delete self; }, db, table, options) {}
  ksutil::scv::ChannelView view;
};

namespace {

constexpr long kDefaultCache = 256L << 20, kLeastCache = 4L << 20,
               kLeastCachePerThread = 2L << 20;
constexpr int kMostThreads = 64, kMostThreadsByDefault = 16;

ksscv_options settled(const ksscv_options *given) {
  ksscv_options options{0, 0, 0.0, 1};
  if (given != nullptr) options = *given;
  if (options.threads <= 0) {
    options.threads = std::clamp(static_cast<int>(std::thread::hardware_concurrency()),
                                 2, kMostThreadsByDefault);
  }
  options.threads = std::min(options.threads, kMostThreads);
  if (options.cache_bytes <= 0) options.cache_bytes = kDefaultCache;
  options.cache_bytes = std::max(
      {options.cache_bytes, kLeastCache, kLeastCachePerThread * options.threads});
  constexpr double kLongestPeriod = 1e6;
  if (options.period == 0.0 || std::isnan(options.period)) options.period = 1.0;
  options.period = std::min(options.period, kLongestPeriod);
  return options;
}

/* Closes a handle unless it was given away. */
struct OwnedHandle {
  Dbptr db = dbinvalid();
  ~OwnedHandle() {
    if (db.database != dbINVALID) dbclose(db);
  }
};

bool usable(double time) { return std::isfinite(time) && std::abs(time) <= 1e12; }

}  // namespace

ksscv *ksscv_open(Dbptr db, const ksscv_options *options) {
  static constexpr char kSelf[] = "ksscv_open";
  return at_boundary(kSelf, [&]() -> ksscv * {
    const Dbptr given = dblookup(db, nullptr, "wfdisc", nullptr, nullptr);
    const char *name = nullptr, *folder = nullptr;
    if (given.table == dbINVALID || dbquery(given, dbq_database_name, &name) != 0 ||
        dbquery(given, dbq_dir_name, &folder) != 0) {
      return fail(kSelf, "The database has no table wfdisc");
    }
    if (*folder == '\0') return fail(kSelf, "A scratch database has no files to read");
    OwnedHandle own;
    if (dbopen_noshare(name, "r", &own.db) != 0) {
      own.db = dbinvalid();
      return fail(kSelf, "dbopen_noshare(%s) error", name);
    }
    const Dbptr table = dblookup(own.db, nullptr, "wfdisc", nullptr, nullptr);
    if (table.table == dbINVALID || ksutil::db::table_store(table) == nullptr) {
      return fail(kSelf, "%s has no table wfdisc", name);
    }
    auto view = std::make_unique<ksscv>(own.db, table, settled(options));
    own.db = dbinvalid();
    view->view.start();
    return view.release();
  });
}

void ksscv_close(ksscv *view) {
  if (view != nullptr && view->view.close()) delete view;
}

int ksscv_set_channels(ksscv *view, int n, const char *const *stations,
                       const char *const *channels) {
  static constexpr char kSelf[] = "ksscv_set_channels";
  return at_boundary(kSelf, [&]() -> int {
    if (view == nullptr) return fail(kSelf, "No view given");
    if (n < 0) return fail(kSelf, "%d channels", n);
    std::vector<std::string> keys;
    for (int i = 0; i < n; i++) {
      if (stations == nullptr || channels == nullptr || stations[i] == nullptr ||
          channels[i] == nullptr) {
        return fail(kSelf, "No name given");
      }
      keys.push_back(ksutil::scv::channel_key(stations[i], channels[i]));
    }
    view->view.set_channels(std::move(keys));
    return 0;
  });
}

int ksscv_set_window(ksscv *view, double tstart, double tend, int columns) {
  static constexpr char kSelf[] = "ksscv_set_window";
  return at_boundary(kSelf, [&]() -> int {
    if (view == nullptr) return fail(kSelf, "No view given");
    if (!usable(tstart) || !usable(tend) || !(tstart < tend)) {
      return fail(kSelf, "The window from %.5f to %.5f is not one", tstart, tend);
    }
    if (columns < 1 || columns > KSSCV_MAX_COLUMNS) {
      return fail(kSelf, "%d columns", columns);
    }
    view->view.set_window({tstart, tend, columns});
    return 0;
  });
}

int ksscv_get(ksscv *view, int channel, int what, int calibrated, ksscv_data **data) {
  static constexpr char kSelf[] = "ksscv_get";
  return at_boundary(kSelf, [&]() -> int {
    if (view == nullptr || data == nullptr) return fail(kSelf, "No view given");
    if (what != KSSCV_ENVELOPE && what != KSSCV_SAMPLES) {
      return fail(kSelf, "%d is neither KSSCV_ENVELOPE nor KSSCV_SAMPLES", what);
    }
    auto answer = view->view.get(channel, what, calibrated != 0);
    if (answer == nullptr) return -1;
    *data = answer.release();
    return 0;
  });
}

void ksscv_free_data(ksscv_data *data) {
  delete static_cast<ksutil::scv::Answer *>(data);
}

ksvector2 *ksscv_get_vector(ksscv *view, int channel, int what, int calibrated,
                            const char *name, char *tag, int *state) {
  static constexpr char kSelf[] = "ksscv_get_vector";
  if (tag != nullptr) *tag = '\0';
  return at_boundary(kSelf, [&]() -> ksvector2 * {
    ksscv_data *data = nullptr;
    if (ksscv_get(view, channel, what, calibrated, &data) != 0) {
      return fail(kSelf, "ksscv_get() error");
    }
    const std::unique_ptr<ksscv_data, void (*)(ksscv_data *)> owner(data,
                                                                    ksscv_free_data);
    ksvector2 *vector = nullptr;
    if (what == KSSCV_SAMPLES) {
      if (data->n == 0) return fail(kSelf, "No samples in the window");
      vector = ksvector2_create_tsamp(data->n, data->samples, name, tag, data->time,
                                      1.0 / data->dt);
    } else {
      vector = ksvector2_create(data->n, 2, name, tag);
    }
    if (vector == nullptr) return fail(kSelf, "ksvector2_create() error");
    if (what == KSSCV_ENVELOPE) {
      const auto row = static_cast<std::size_t>(vector->nyalloc) + 1;
      for (int i = 0; i < data->n; i++) {
        double *const point = vector->data + static_cast<std::size_t>(i) * row;
        point[0] = data->time + (i + 0.5) * data->dt;
        point[1] = data->min[i];
        point[2] = data->max[i];
      }
      vector->npts = data->n;
    }
    if (state != nullptr) *state = data->state;
    return vector;
  });
}

int ksscv_set_callback(ksscv *view, ksscv_callback callback, void *context) {
  if (view == nullptr) return fail("ksscv_set_callback", "No view given");
  view->view.set_callback(callback, context);
  return 0;
}

int ksscv_refresh(ksscv *view) {
  if (view == nullptr) return fail("ksscv_refresh", "No view given");
  view->view.refresh();
  return 0;
}

int ksscv_wait(ksscv *view, double seconds) {
  if (view == nullptr) return fail("ksscv_wait", "No view given");
  return view->view.wait(seconds);
}

int ksscv_counters(ksscv *view, ksscv_counts *counts) {
  if (view == nullptr || counts == nullptr) {
    return fail("ksscv_counters", "No view given");
  }
  *counts = view->view.counters();
  return 0;
}
