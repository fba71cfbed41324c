#include "tools/kshistory/entries.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "platform/trace/filetbl.h"
#include "tools/common/cells.h"

namespace ksutil::tools {

bool read_entries(const std::string &file, std::vector<KSHistoryEntry> &entries) {
  const std::unique_ptr<Tbl, void (*)(Tbl *)> list(
      filetbl_read(file.c_str(), KSHISTORY_TABLE_TAG, sizeof(KSHistoryEntry)),
      [](Tbl *table) { freetbl(table, nullptr); });
  if (list == nullptr) return false;
  entries.resize(static_cast<std::size_t>(counttbl(list.get())));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    std::memcpy(&entries[i], gettbl(list.get(), static_cast<long>(i)),
                sizeof entries[i]);
  }
  return true;
}

bool parse_time(const std::string &text, double &time) {
  if (text == "now") {
    time = std_now();
    return true;
  }
  return (parse_real(text, time) && std::isfinite(time)) || parse_date_text(text, time);
}

std::string time_fault(const std::string &text) {
  double time = 0.0;
  return parse_time(text, time) ? "" : "'" + text + "' is not a time";
}

std::string entry_time_cell(double time, bool raw) {
  constexpr double kCalendarYears = 9000.0, kYear = 365.2425 * 86400.0;
  const bool dated = std::abs(time) < (kCalendarYears - 1970.0) * kYear;
  return dated && !raw ? time_cell(time) : shortest_cell(time);
}

}  // namespace ksutil::tools
