#include "platform/stock/nearest_name.h"

#include <algorithm>
#include <utility>

namespace ksutil {
namespace {

/* The number of insertions, deletions and replacements between two short texts. */
std::size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearest_name(std::string_view name,
                         const std::vector<std::string_view> &known) {
  constexpr std::size_t kCompared = 200, kLongest = 64;
  std::size_t best = std::min<std::size_t>(name.size() / 3, 3) + 1;
  std::string nearest;
  if (name.size() > kLongest) return nearest;
  for (std::size_t i = 0; i < std::min(known.size(), kCompared); ++i) {
    if (known[i].size() > kLongest) continue;
    const std::size_t distance = edit_distance(name, known[i]);
    if (distance >= best) continue;
    best = distance;
    nearest = known[i];
  }
  return nearest;
}

std::string nearest_hint(std::string_view name,
                         const std::vector<std::string_view> &known) {
  const std::string nearest = nearest_name(name, known);
  return nearest.empty() ? nearest : " (is it " + nearest + "?)";
}

}  // namespace ksutil
