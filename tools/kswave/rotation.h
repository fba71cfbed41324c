/* rotation: turns the components of a station to up, radial and transverse motion. */
#ifndef KSUTIL_TOOLS_KSWAVE_ROTATION_H
#define KSUTIL_TOOLS_KSWAVE_ROTATION_H

#include <array>
#include <string>
#include <vector>

#include "tools/kswave/selection.h"

namespace ksutil::tools {

/* Three channels of one sensor. */
struct Components {
  std::string name;    // up to the component: "NET.STA.LOC.BH" or "STA.BH"
  std::string behind;  // after it: the location code where the channel code has it
  std::array<int, 3> channels;
};

/* The channels of a set by sensor: station, location and the channel code up to its third
 * letter.  Messages name the sensors that do not have three. */
std::vector<Components> components_of(const ChannelSet &set);

/* The motion of three channels as vectors that are freed at the end of the scope. */
class Rotation {
 public:
  struct Motion {
    char component;  // 'Z', 'R' or 'T'
    char tag[KS_TAG_SIZE];
    double hang, vang;
  };

  /* seaz: azimuth of the event at the station, degrees.  False from good(), with
   * messages. */
  Rotation(const ChannelSet &set, const Components &components,
           const Processing &processing, double seaz);
  ~Rotation();
  Rotation(const Rotation &) = delete;
  Rotation &operator=(const Rotation &) = delete;

  bool good() const { return good_; }
  const std::array<Motion, 3> &motions() const { return motions_; }

 private:
  std::array<Motion, 3> motions_{};
  bool good_ = false;
};

}  // namespace ksutil::tools
#endif
