#include "formats/exchange/isf/isf_writer.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "formats/exchange/error_ellipse.h"
#include "formats/exchange/event_types.h"
#include "formats/exchange/isf/ims_codes.h"
#include "formats/exchange/isf/isf_reader.h"
#include "formats/exchange/isf/isf_values.h"
#include "formats/exchange/text/columns.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

using namespace isf;

namespace {

bool is_source(std::string_view text) {
  return !text.empty() && text.size() <= 20 &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return std::isalnum(c) != 0 || c == '_' || c == '-';
         });
}

/* Whether the part of an id behind the colon can stand in eight columns. */
bool is_number(std::string_view text) {
  return !text.empty() && text.size() <= 8 && text.front() != '_' &&
         std::all_of(text.begin(), text.end(),
                     [](unsigned char c) {
                       return std::isalnum(c) != 0 || c == '-' || c == '.';
                     }) &&
         std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

/* "YYYY/MM/DD" and "hh:mm:ss.ss" */
std::string date_of(std::string text) {
  text.resize(10);
  text[4] = text[7] = '/';
  return text;
}
std::string clock_of(const std::string &text) { return text.substr(11); }

double factor(int freedom, double confidence) {
  if (confidence == kConfidence) return 1.0;
  if (confidence <= 0.0 || confidence >= 1.0) confidence = kOneSigma;
  return std::sqrt(chi_square(freedom, kConfidence) / chi_square(freedom, confidence));
}

/* The greatest element of a tensor, which settles its scale; else its moment. */
double greatest(const MomentTensor &tensor) {
  double value = 0.0;
  for (const double element : tensor.elements) {
    if (element != kNone) value = std::max(value, std::abs(element));
  }
  return value > 0.0 ? value : std::max(tensor.moment, 0.0);
}

int scale_of(double value) {
  return value > 0.0 ? static_cast<int>(std::floor(std::log10(value))) : 0;
}

/* Errors that put_errors turns to another level of confidence. */
bool has_scaled_errors(const Origin &origin) {
  return origin.major_axis >= 0.0 || origin.horizontal_error >= 0.0 ||
         origin.depth_error >= 0.0 || origin.time_error >= 0.0;
}

/* Whether the field of the moment magnitude, which has two decimals, gets back from the
 * moment what the tensor has. */
bool is_read_from_moment(const MomentTensor &tensor) {
  const double read =
      tensor.moment > 0.0 ? (std::log10(tensor.moment) - 9.1) / 1.5 : kNone;
  return std::round(100.0 * read) == std::round(100.0 * tensor.mw);
}

}  // namespace

std::string IsfWriter::source_of(const Event &event) const {
  const std::size_t colon = event.id.find(':');
  if (colon != std::string::npos && is_source(event.id.substr(0, colon)) &&
      is_number(event.id.substr(colon + 1))) {
    return event.id.substr(0, colon);
  }
  return is_source(event.author) ? event.author : "ksdb";
}

void IsfWriter::begin_message(const std::string &source) {
  if (begun_ && source == source_) return;
  if (begun_) text_ += "STOP\n\n";
  begun_ = true;
  source_ = source;
  text_ += "BEGIN IMS1.0\nMSG_TYPE DATA\nMSG_ID 1 " + source +
           "\nDATA_TYPE BULLETIN IMS1.0:short with ISF extensions\n" + source +
           " Bulletin\n";
}

IsfWriter::Number IsfWriter::number_of(const std::string &id, bool needed) {
  if (id.starts_with(source_ + ":") && is_number(id.substr(source_.size() + 1))) {
    return {id.substr(source_.size() + 1), ""};
  }
  if (id.empty() && !needed) return {};
  const std::string comment =
      id.empty() ? std::string() : " (#ID " + record_text(id) + ")\n";
  return {"_" + std::to_string(++last_number_ % 10000000), comment};
}

void IsfWriter::put_comments(const std::vector<std::string> &comments) {
  for (const std::string &comment : comments) {
    const std::string kept = record_text(comment);
    if (kept.empty()) continue;
    /* A blank tells them from formatted comments. */
    const bool formatted = kept.front() == '#' || kept.front() == '+';
    text_ += (formatted ? " ( " : " (") + kept + ")\n";
  }
}

void IsfWriter::count_unplaced(const Event &event) {
  count_if(!event.name.empty(), "names of events");
  count_if(event.updated != 0.0, "times of update of events");
  count_if(event.author != source_, "authors of events");
  count_if(event.preferred_magnitude >= 0 || event.distant_magnitude.origin >= 0,
           "preferred magnitudes");
  count_if(event.preferred_tensor.origin >= 0, "preferred mechanisms");
  for (std::size_t i = 0; i < event.aliases.size(); i++) {
    count_if(true, "further ids of events");
  }
  const std::string read_as = ims_event_type(ims_code_of_event_type(event.type));
  count_if(event_type_code(read_as) != event_type_code(event.type),
           "types of events that IMS1.0 does not have");
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    count_if(origin.covariance.xx >= 0.0, "covariances of origins");
    count_if(origin.associated >= 0 || origin.depth_phases >= 0,
             "numbers of associated and depth phases");
    count_if(!origin.earth_model.empty(), "earth models");
    count_if(origin.confidence != kConfidence && has_scaled_errors(origin),
             "levels of confidence other than 0.9");
    count_if(ims_status(ims_code_of_status(origin.status)) != origin.status,
             "states of review that IMS1.0 does not have");
    count_if(ims_method(ims_code_of_method(origin.algorithm)) != origin.algorithm,
             "location methods that IMS1.0 does not have");
    count_if(
        origin.depth_type == 'r' || (origin.depth_type == 0 && origin.depth > kNone),
        "depth types other than free, fixed and from depth phases");
    count_if(i != event.preferred && !origin.associations.empty(),
             "phases of origins that are not preferred");
    count_if(i != event.preferred && !origin.station_magnitudes.empty(),
             "station magnitudes of origins that are not preferred");
    for (const Magnitude &magnitude : origin.magnitudes) {
      count_if(!magnitude.id.empty(), "ids of magnitudes");
    }
  }
}

bool IsfWriter::put(const Event &event) {
  text_.clear();
  begin_message(source_of(event));
  count_unplaced(event);
  const Number number = number_of(event.id, true);
  IsfLine line(unplaced_);
  line.text(1, 5, "Event");
  line.right(7, 14, number.column);
  line.text(16, 1000, event.place);
  text_ += line.end() + number.comment;
  put_comments(event.comments);
  text_ += "\n" + std::string(kIsfOrigins) + "\n";
  origin_columns_.clear();
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    const Number own = number_of(origin.id, true);
    origin_columns_.push_back(own.column);
    put_origin(event, origin, own);
    text_ += own.comment;
    if (i == event.preferred) text_ += " (#PRIME)\n";
    put_comments(origin.comments);
    const bool centroid =
        std::any_of(origin.tensors.begin(), origin.tensors.end(),
                    [](const MomentTensor &t) { return t.lat > kNone; });
    const bool here =
        centroid && std::all_of(origin.tensors.begin(), origin.tensors.end(),
                                [&](const MomentTensor &t) {
                                  return t.lat == origin.lat && t.lon == origin.lon &&
                                         t.depth == origin.depth;
                                });
    if (here) text_ += " (#CENTROID)\n";
    count_if(centroid && !here, "centroids away from their origin");
    for (const MomentTensor &tensor : origin.tensors) put_tensor(tensor);
  }
  put_magnitudes(event);
  put_phases(event);
  text_ += "\n\n";
  return sink_.put(text_);
}

bool IsfWriter::end() {
  text_.clear();
  if (!begun_) begin_message("ksdb");
  text_ += "STOP\n";
  begun_ = false;
  return sink_.put(text_);
}

void IsfWriter::put_errors(const Origin &origin, IsfLine &line) {
  const double plane = factor(2, origin.confidence);
  const double single = factor(1, origin.confidence);
  Ellipse ellipse{origin.major_axis, origin.minor_axis, origin.ellipse_strike};
  if (ellipse.major >= 0.0) {
    ellipse.major *= plane;
    if (ellipse.minor >= 0.0) ellipse.minor *= plane;
  } else if (origin.horizontal_error >= 0.0) {
    ellipse.major = origin.horizontal_error * plane;
  } else {
    ellipse = ellipse_of(origin.covariance, kConfidence);
  }
  double depth = origin.depth_error;
  if (depth >= 0.0) {
    depth *= single;
  } else if (origin.covariance.zz >= 0.0) {
    depth = std::sqrt(origin.covariance.zz * chi_square(1, kConfidence));
  }
  /* Tables keep hundredths of a second: more digits would be lost on the way back. */
  const double time = single == 1.0
                          ? origin.time_error
                          : std::round(100.0 * origin.time_error * single) / 100.0;
  if (origin.time_error >= 0.0) line.real(25, 29, 2, time);
  if (ellipse.major >= 0.0) line.real(56, 60, 1, ellipse.major);
  if (ellipse.minor >= 0.0) line.real(62, 66, 1, ellipse.minor);
  if (ellipse.strike >= 0.0) line.real(68, 70, 0, ellipse.strike);
  if (depth >= 0.0) line.real(79, 82, 1, depth);
}

void IsfWriter::put_origin(const Event &event, const Origin &origin,
                           const Number &number) {
  IsfLine line(unplaced_);
  const std::string time = time_text(origin.time, 2);
  line.text(1, 10, date_of(time));
  line.text(12, 22, clock_of(time));
  if (origin.rms >= 0.0) line.real(31, 35, 2, origin.rms);
  line.real(37, 44, 4, origin.lat);
  line.real(46, 54, 4, origin.lon);
  put_errors(origin, line);
  if (origin.depth > kNone) {
    line.real(72, 76, 1, origin.depth);
    const char type = origin.depth_type;
    line.letter(77, type == 'g' || type == 'r' ? 'f' : type == 'd' ? 'd' : ' ');
  }
  line.count(84, 87, origin.phases);
  if (origin.gap >= 0.0) line.real(94, 96, 0, origin.gap);
  if (origin.nearest >= 0.0) line.real(98, 103, 2, origin.nearest);
  line.letter(112, ims_code_of_status(origin.status));
  line.letter(114, ims_code_of_method(origin.algorithm));
  line.text(116, 117, ims_code_of_event_type(event.type));
  line.text(119, 127, origin.author);
  line.right(129, 136, number.column);
  text_ += line.end();
}

void IsfWriter::count_unplaced(const MomentTensor &tensor) {
  const bool elements = greatest(tensor) > 0.0, plane = tensor.plane1[0] > kNone;
  if (!elements && !plane && tensor.axes[1] <= kNone) {
    unplaced_.add("mechanisms without a tensor, a first plane and axes");
    return;
  }
  count_if(!tensor.id.empty(), "ids of moment tensors");
  count_if(tensor.double_couple > kNone || tensor.isotropic > kNone ||
               tensor.variance_reduction > kNone || (!elements && tensor.clvd > kNone),
           "parts and variance reductions of moment tensors");
  count_if(!tensor.comments.empty(), "comments on moment tensors");
  count_if(!tensor.status.empty(), "states of review of moment tensors");
  count_if(!plane && !tensor.algorithm.empty(),
           "methods of moment tensors without fault planes");
  count_if(!plane && tensor.plane2[0] > kNone, "second fault planes without a first");
  count_if(!elements && (tensor.components >= 0 || (!plane && tensor.stations >= 0)),
           "counts of stations and components of mechanisms without a tensor");
  count_if(!is_read_from_moment(tensor),
           "moment magnitudes other than that of the moment");
}

void IsfWriter::put_tensor(const MomentTensor &tensor) {
  count_unplaced(tensor);
  const double size = greatest(tensor);
  if (size > 0.0) {
    const int scale = scale_of(size);
    const double unit = std::pow(10.0, scale);
    text_ +=
        " (#MOMTENS sc    M0 fCLVD    MRR    MTT    MPP    MRT    MTP    MPR NST1 NST2 "
        "Author   )\n"
        " (#             eM0 eCLVD    eRR    eTT    ePP    eRT    eTP    ePR NCO1 NCO2 "
        "Duration )\n";
    IsfLine first(unplaced_), second(unplaced_);
    first.text(2, 3, "(#");
    first.count(12, 13, scale);
    if (tensor.moment > 0.0) first.real(15, 19, 3, tensor.moment / unit);
    if (tensor.clvd > kNone) first.real(21, 25, 3, tensor.clvd / 100.0);
    /* rr tt pp rt rp tp become MRR MTT MPP MRT MTP MPR. */
    static constexpr std::size_t kOrder[6] = {0, 1, 2, 3, 5, 4};
    for (std::size_t i = 0; i < 6; i++) {
      const double element = tensor.elements[kOrder[i]];
      if (element != kNone) first.real(27 + 7 * i, 32 + 7 * i, 3, element / unit);
    }
    first.count(69, 72, tensor.stations);
    first.text(79, 87, tensor.author);
    first.letter(88, ')');
    second.text(2, 3, "(#");
    second.count(69, 72, tensor.components);
    second.letter(88, ')');
    text_ += first.end() + second.end();
  }
  if (tensor.plane1[0] > kNone) {
    text_ += " (#FAULT_PLANE Typ Strike   Dip    Rake  NP  NS Plane Author   )\n";
    for (const auto *plane : {&tensor.plane1, &tensor.plane2}) {
      const bool is_first = plane == &tensor.plane1;
      if ((*plane)[0] <= kNone) continue;
      IsfLine line(unplaced_);
      line.text(2, 3, is_first ? "(#" : "(+");
      if (is_first) line.text(16, 18, tensor.algorithm);
      line.real(20, 25, 2, (*plane)[0]);
      line.real(27, 31, 2, (*plane)[1]);
      line.real(33, 39, 2, (*plane)[2]);
      if (is_first && size <= 0.0) line.count(45, 47, tensor.stations);
      if (is_first) line.text(55, 63, tensor.author);
      line.letter(64, ')');
      text_ += line.end();
    }
  }
  if (tensor.axes[1] > kNone) {
    double value = 0.0;
    for (const std::size_t i : {0U, 3U, 6U}) {
      if (tensor.axes[i] != kNone) value = std::max(value, std::abs(tensor.axes[i]));
    }
    const int scale = scale_of(value);
    text_ +=
        " (#PRINAX sc  T_val T_azim  T_pl  B_val B_azim  B_pl  P_val P_azim  P_pl "
        "Author   "
        ")\n";
    IsfLine line(unplaced_);
    line.text(2, 3, "(#");
    line.count(11, 12, scale);
    for (std::size_t axis = 0; axis < 3; axis++) {
      const double *a = &tensor.axes[3 * axis];
      if (a[0] != kNone) {
        line.real(14 + 20 * axis, 19 + 20 * axis, 3, a[0] / std::pow(10.0, scale));
      }
      if (a[2] > kNone) line.real(21 + 20 * axis, 26 + 20 * axis, 2, a[2]);
      if (a[1] > kNone) line.real(28 + 20 * axis, 32 + 20 * axis, 2, a[1]);
    }
    line.text(74, 82, tensor.author);
    line.letter(83, ')');
    text_ += line.end();
  }
}

void IsfWriter::put_magnitudes(const Event &event) {
  text_ += "\n" + std::string(kIsfMagnitudes) + "\n";
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    for (const Magnitude &magnitude : event.origins[i].magnitudes) {
      IsfLine line(unplaced_);
      line.text(1, 5, magnitude.type);
      line.real(7, 10, 1, magnitude.value);
      if (magnitude.error >= 0.0) line.real(12, 14, 1, magnitude.error);
      line.count(16, 19, magnitude.stations);
      line.text(21, 29, magnitude.author);
      line.right(31, 38, origin_columns_[i]);
      text_ += line.end();
      put_comments(magnitude.comments);
    }
  }
}

}  // namespace ksutil::exchange
