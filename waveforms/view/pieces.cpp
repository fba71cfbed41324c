#include "waveforms/view/internal/pieces.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace ksutil::scv {
namespace {

/* The row that is shown from the key of the map to `end`. */
struct Cover {
  double end;
  std::size_t row;
};
using Covers = std::map<double, Cover>;

/* Gives the time from begin to end to a row. */
void overwrite(Covers &covers, double begin, double end, std::size_t row) {
  auto next = covers.lower_bound(begin);
  if (next != covers.begin()) {
    const auto before = std::prev(next);
    const Cover old = before->second;
    if (old.end > begin) {
      before->second.end = begin;
      if (old.end > end) next = covers.emplace_hint(next, end, old);
    }
  }
  while (next != covers.end() && next->first < end) {
    const Cover old = next->second;
    next = covers.erase(next);
    if (old.end > end) next = covers.emplace_hint(next, end, old);
  }
  covers.emplace_hint(next, begin, Cover{end, row});
}

/* The first sample at or after a time, 0 to count. */
std::int64_t sample_from(const RowSpan &row, double time) {
  const double sample = std::ceil((time - row.time) * row.samprate);
  if (!(sample > 0)) return 0;
  if (sample >= static_cast<double>(row.count)) return row.count;
  return static_cast<std::int64_t>(sample);
}

}  // namespace

std::vector<RowPart> shown_parts(const std::vector<RowSpan> &rows) {
  std::vector<std::size_t> order(rows.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    if (rows[a].lddate != rows[b].lddate) return rows[a].lddate < rows[b].lddate;
    return rows[a].record < rows[b].record;
  });
  Covers covers;
  for (const std::size_t i : order) {
    const RowSpan &row = rows[i];
    if (row.count <= 0) continue;
    const double half = 0.5 / row.samprate;
    const double length = static_cast<double>(row.count - 1) / row.samprate;
    overwrite(covers, row.time - half, row.time + length + half, i);
  }
  std::vector<RowPart> parts;
  parts.reserve(covers.size());
  for (const auto &[begin, cover] : covers) {
    const RowSpan &row = rows[cover.row];
    const std::int64_t first = sample_from(row, begin);
    const std::int64_t end = sample_from(row, cover.end);
    if (first < end) parts.push_back({cover.row, first, end});
  }
  return parts;
}

}  // namespace ksutil::scv
