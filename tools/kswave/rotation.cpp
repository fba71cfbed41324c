#include "tools/kswave/rotation.h"

#include <cmath>
#include <cstring>
#include <map>

#include "platform/elog/elog.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kBandAndInstrument = 2;  // the letters before the component

/* The name of a channel up to its component. */
std::string sensor_name(const ksdsseis_channel &channel) {
  const std::string name = channel_name(channel);
  const std::size_t code = name.rfind('.') + 1;
  return name.substr(0, code + kBandAndInstrument);
}

}  // namespace

std::vector<Components> components_of(const ChannelSet &set) {
  /* By location too: without seedcode it stands behind the component. */
  std::map<std::pair<std::string, std::string>, std::vector<int>> sensors;
  for (int i = 0; i < set.count(); ++i) {
    const std::string name = channel_name(set.channel(i));
    const std::string sensor = sensor_name(set.channel(i));
    const std::string behind =
        name.size() > sensor.size() ? name.substr(sensor.size() + 1) : "";
    sensors[{sensor, behind}].push_back(i);
  }
  std::vector<Components> found;
  for (const auto &[key, channels] : sensors) {
    if (channels.size() == 3) {
      found.push_back({key.first, key.second, {channels[0], channels[1], channels[2]}});
      continue;
    }
    elog_log(0, "%s has %zu components; three are needed to rotate them.\n",
             key.first.c_str(), channels.size());
  }
  return found;
}

Rotation::Rotation(const ChannelSet &set, const Components &components,
                   const Processing &processing, double seaz) {
  const Series first(set, components.channels[0], processing);
  const Series second(set, components.channels[1], processing);
  const Series third(set, components.channels[2], processing);
  if (!first.good() || !second.good() || !third.good()) return;
  const char *const tags[] = {first.tag(), second.tag(), third.tag()};
  char made[3][KS_TAG_SIZE] = {};
  if (ksdsseis_rotate_zrt(set.get(), components.channels.data(), tags, seaz, made) !=
      0) {
    return;
  }
  const auto bearing = [](double degrees) {
    const double rest = std::fmod(degrees, 360.0);
    return rest < 0.0 ? rest + 360.0 : rest;
  };
  motions_[0] = {'Z', "", 0.0, 0.0};
  motions_[1] = {'R', "", bearing(seaz + 180.0), 90.0};
  motions_[2] = {'T', "", bearing(seaz + 270.0), 90.0};
  for (std::size_t i = 0; i < 3; ++i) {
    std::memcpy(motions_[i].tag, made[i], sizeof made[i]);
  }
  good_ = true;
}

Rotation::~Rotation() {
  for (const Motion &motion : motions_) {
    if (motion.tag[0] != '\0') ksvector2_free(motion.tag);
  }
}

}  // namespace ksutil::tools
