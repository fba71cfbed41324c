/* ksdsseis_motion: responses of a data set, and samples as ground motion. */
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/elog/failure.h"
#include "platform/geo/angle.h"
#include "platform/trace/segment.h"
#include "waveforms/dataset/internal/data_set.h"
#include "waveforms/response.h"
#include "waveforms/signal.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

using Complex = std::complex<double>;

/* The derivative of displacement that a type names; -1 with a message for none. */
int derivative_of(const char *who, std::string_view type) {
  if (type == "D") return 0;
  if (type == "V") return 1;
  if (type == "A") return 2;
  fail(who, "Type '%s' is not D, V or A", std::string(type).c_str());
  return -1;
}

/* The response of a channel to ground motion in metres and seconds. */
class GroundResponse {
 public:
  /* False with messages. */
  bool open(const char *who, const ksdsseis_channel &channel) {
    std::string problem;
    if (channel.response[0] == '\0') {
      return fail(who, "%s %s has no response file", channel.sta, channel.chan);
    }
    if (!read_response_file(channel.response, response_, problem, channel.time)) {
      return fail(who, "%s", problem.c_str());
    }
    const bool absolute = !response_.input_unit().empty();
    if (!absolute) set_unit(channel.rsptype);
    double metres;
    if (ground_unit(response_.input_unit(), metres) < 0) {
      return fail(who, "%s answers to %s, not to ground motion", channel.response,
                  response_.input_unit().c_str());
    }
    return absolute || set_scale(who, channel);
  }

  /* Counts for a metre, m/s or m/s^2. */
  Complex operator()(double frequency, int derivative) const {
    Complex value;
    ground_response(response_, frequency, derivative, value);
    return value * scale_;
  }

 private:
  /* The kind of motion that an instrument row gives for a plain file. */
  void set_unit(std::string_view rsptype) {
    if (rsptype == "V") response_.stages.front().input_unit = "NM/S";
    if (rsptype == "A") response_.stages.front().input_unit = "NM/S**2";
  }

  /* So that a count is calib nm (nm/s, nm/s^2) at the period calper. */
  bool set_scale(const char *who, const ksdsseis_channel &channel) {
    const double calib = channel.calib * channel.calratio;
    if (calib == 0.0 || !(channel.calper > 0.0)) return true;
    const double frequency = 1.0 / channel.calper;
    const int derivative = channel.segtype[0] == 'V'   ? 1
                           : channel.segtype[0] == 'A' ? 2
                                                       : 0;
    const double size = std::abs((*this)(frequency, derivative));
    if (!(size > 0.0) || !std::isfinite(size)) {
      return fail(who, "%s is zero at the period %g s of calib", channel.response,
                  channel.calper);
    }
    scale_ = 1.0 / (calib * 1e-9 * size);
    return true;
  }

  Response response_;
  double scale_ = 1.0;
};

/* The time-sampled vector of a tag; null with a message. */
ksvector2 *find_series(const char *who, const char *tag) {
  ksvector2 *const vector = tag == nullptr ? nullptr : ksvector2_get_vector(tag);
  if (vector == nullptr) return fail(who, "No vector of that tag");
  if (vector->tsamp == 0) return fail(who, "Not a time-sampled vector");
  return vector;
}

std::span<double> samples_of(ksvector2 &vector) {
  return {vector.data, static_cast<std::size_t>(vector.npts)};
}

}  // namespace

int ksdsseis_get_response(ksdsseis *set, int channel, Response &response) {
  constexpr char kSelf[] = "ksdsseis_get_response";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    const ksdsseis_channel &of = found->description;
    std::string problem;
    if (of.response[0] == '\0') {
      return fail(kSelf, "%s %s has no response file", of.sta, of.chan);
    }
    if (!read_response_file(of.response, response, problem, of.time)) {
      return fail(kSelf, "%s", problem.c_str());
    }
    return 0;
  });
}

ksvector2 *ksdsseis_response(ksdsseis *set, int channel, const char *type, double fmin,
                             double fmax, int n, char *tag) {
  constexpr char kSelf[] = "ksdsseis_response";
  if (tag != nullptr) *tag = '\0';
  return at_boundary(kSelf, [&]() -> ksvector2 * {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return nullptr;
    const int derivative = derivative_of(kSelf, type == nullptr ? "" : type);
    if (derivative < 0) return nullptr;
    if (!(fmin > 0.0) || !(fmin < fmax) || !std::isfinite(fmax) || n < 2 ||
        n > 1'000'000) {
      return fail(kSelf, "%d frequencies from %g to %g Hz are not possible", n, fmin,
                  fmax);
    }
    GroundResponse response;
    if (!response.open(kSelf, found->description)) return nullptr;
    char made[KS_TAG_SIZE] = "";
    ksvector2 *const vector =
        ksvector2_create(n, 2, channel_name(found->description).c_str(),
                         tag == nullptr ? nullptr : made);
    if (vector == nullptr) return fail(kSelf, "ksvector2_create() error");
    for (int i = 0; i < n; ++i) {
      const double frequency =
          i == n - 1 ? fmax
                     : fmin * std::pow(fmax / fmin, static_cast<double>(i) / (n - 1));
      const Complex value = response(frequency, derivative);
      double *const to = vector->data + static_cast<std::ptrdiff_t>(i) * 3;
      to[0] = frequency;
      to[1] = std::abs(value);
      to[2] = degrees(std::arg(value));
    }
    vector->npts = n;
    if (tag != nullptr) std::memcpy(tag, made, sizeof made);
    return vector;
  });
}

int ksdsseis_deconvolve(ksdsseis *set, int channel, const char *tag, const char *type,
                        const double *corners, double water_level) {
  constexpr char kSelf[] = "ksdsseis_deconvolve";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    ksvector2 *const vector = find_series(kSelf, tag);
    if (vector == nullptr) return -1;
    const int derivative = derivative_of(kSelf, type == nullptr ? "" : type);
    if (derivative < 0) return -1;
    GroundResponse response;
    if (!response.open(kSelf, found->description)) return -1;
    Deconvolution how;
    if (corners != nullptr) std::copy_n(corners, 4, how.corners.begin());
    how.water_level = water_level;
    std::string problem;
    const bool good = deconvolve(
        samples_of(*vector), 1.0 / vector->dt,
        [&](double frequency) { return response(frequency, derivative); }, how,
        problem);
    if (good) return 0;
    return fail(kSelf, "The deconvolution cannot be done: %s", problem.c_str());
  });
}

ksvector2 *ksdsseis_resample(const char *tag, double samprate, const char *name,
                             char *new_tag) {
  constexpr char kSelf[] = "ksdsseis_resample";
  return at_boundary(kSelf, [&]() -> ksvector2 * {
    ksvector2 *const vector = find_series(kSelf, tag);
    if (new_tag != nullptr) *new_tag = '\0';
    if (vector == nullptr) return nullptr;
    std::vector<double> samples;
    std::string problem;
    if (!resample(samples_of(*vector), 1.0 / vector->dt, samprate, samples, problem)) {
      return fail(kSelf, "The samples cannot be resampled: %s", problem.c_str());
    }
    ksvector2 *const made =
        ksvector2_create_tsamp(static_cast<int>(samples.size()), samples.data(), name,
                               new_tag, vector->time, samprate);
    if (made == nullptr) fail(kSelf, "ksvector2_create_tsamp() error");
    return made;
  });
}

namespace {

/* Three series over the time that all have; false with a message. */
bool cut_to_common(const char *who, ksvector2 *const (&vectors)[3],
                   std::span<double> (&parts)[3], double &time) {
  const double dt = vectors[0]->dt;
  double begin = vectors[0]->time, end = 1e300;
  for (const ksvector2 *const each : vectors) {
    if (!same_samprate(1.0 / each->dt, 1.0 / dt)) {
      return fail(who, "The components differ in sample rate");
    }
    begin = std::max(begin, each->time);
    end = std::min(end, each->time + (each->npts - 1) * dt);
  }
  const double count = std::floor((end - begin) / dt + 0.5) + 1.0;
  if (!(count >= 1.0)) return fail(who, "The components have no time in common");
  auto shared = static_cast<std::size_t>(count);
  std::size_t firsts[3];
  for (int i = 0; i < 3; ++i) {
    const double steps = (begin - vectors[i]->time) / dt;
    firsts[i] = static_cast<std::size_t>(std::llround(steps));
    shared = std::min(shared, static_cast<std::size_t>(vectors[i]->npts) - firsts[i]);
  }
  for (int i = 0; i < 3; ++i) {
    parts[i] = samples_of(*vectors[i]).subspan(firsts[i], shared);
  }
  time = begin;
  return true;
}

}  // namespace

int ksdsseis_rotate_zrt(ksdsseis *set, const int *channels, const char *const *tags,
                        double seaz, char (*new_tags)[KS_TAG_SIZE]) {
  constexpr char kSelf[] = "ksdsseis_rotate_zrt";
  return at_boundary(kSelf, [&]() -> int {
    if (channels == nullptr || tags == nullptr || new_tags == nullptr) {
      return fail(kSelf, "Three channels and vectors are needed");
    }
    ksvector2 *vectors[3];
    std::array<Orientation, 3> orientations;
    for (std::size_t i = 0; i < 3; ++i) {
      const Channel *const found = find_channel(kSelf, set, channels[i]);
      vectors[i] = found == nullptr ? nullptr : find_series(kSelf, tags[i]);
      if (vectors[i] == nullptr) return -1;
      const ksdsseis_channel &of = found->description;
      if (of.vang < 0.0 || (of.hang < 0.0 && of.vang > 0.0 && of.vang < 180.0)) {
        return fail(kSelf, "The orientation of %s %s is not known", of.sta, of.chan);
      }
      orientations[i] = {of.hang < 0.0 ? 0.0 : of.hang, of.vang};
    }
    std::span<double> parts[3];
    double time;
    if (!cut_to_common(kSelf, vectors, parts, time)) return -1;
    std::array<std::vector<double>, 3> work;
    std::array<std::span<double>, 3> components;
    for (std::size_t i = 0; i < 3; ++i) {
      work[i].assign(parts[i].begin(), parts[i].end());
      components[i] = work[i];
    }
    std::string problem;
    if (!rotate_to_zrt(orientations, seaz, components, problem)) {
      return fail(kSelf, "The components cannot be rotated: %s", problem.c_str());
    }
    char made[3][KS_TAG_SIZE] = {};
    for (std::size_t i = 0; i < 3; ++i) {
      static constexpr const char *kNames[] = {"Z", "R", "T"};
      if (ksvector2_create_tsamp(static_cast<int>(work[i].size()), work[i].data(),
                                 kNames[i], made[i], time,
                                 1.0 / vectors[0]->dt) == nullptr) {
        for (std::size_t j = 0; j < i; ++j) ksvector2_free(made[j]);
        return fail(kSelf, "ksvector2_create_tsamp() error");
      }
    }
    std::memcpy(new_tags, made, sizeof made);
    return 0;
  });
}
