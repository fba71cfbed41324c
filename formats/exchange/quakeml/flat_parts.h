/* FlatParts: keeps parts of a bulletin that stand outside of the events using them. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_FLAT_PARTS_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_FLAT_PARTS_H

#include <string_view>
#include <unordered_map>
#include <vector>

#include "formats/exchange/quakeml/event_parts.h"

namespace ksutil::exchange {

class FlatParts {
 public:
  /* Indexes the parts, which must stay. */
  explicit FlatParts(EventParts &all);

  /* Gives an event the parts that it refers to.  Origins with their magnitudes, mechanisms
   * and amplitudes go to the first event that does; picks may belong to several. */
  void give(EventParts &event);

  /* Counts what no event has referred to. */
  void count_rest(UnplacedCounts &left_out) const;

 private:
  /* The parts of a list by an id, and whether they are gone. */
  struct Index {
    std::unordered_multimap<std::string_view, std::size_t> by_id{};
    std::vector<bool> taken{};
  };
  template <class Part, class Ids>
  static void index(const std::vector<Part> &list, Index &index, const Ids &ids);
  template <class Part>
  static void take(std::string_view id, std::vector<Part> &from, Index &index,
                   std::vector<Part> &to);
  static std::int64_t left(const Index &index);

  EventParts &all_;
  Index origins_, magnitudes_, station_magnitudes_, mechanisms_, amplitudes_, picks_;
};

}  // namespace ksutil::exchange
#endif
