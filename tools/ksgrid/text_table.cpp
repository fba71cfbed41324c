#include "tools/ksgrid/text_table.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/stock/files.h"
#include "platform/stock/nearest_float.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 32;
constexpr std::string_view kSeparators = " \t\r,;";

/* Appends the numbers of a line; false when one of its words is not a number. */
bool append_numbers(std::string_view line, std::vector<float> &numbers) {
  std::size_t end = 0;
  for (;;) {
    const std::size_t begin = line.find_first_not_of(kSeparators, end);
    if (begin == std::string_view::npos) return true;
    end = std::min(line.find_first_of(kSeparators, begin), line.size());
    double value = 0.0;
    if (!parse_real(line.substr(begin, end - begin), value) || !fits_float(value)) {
      return false;
    }
    numbers.push_back(static_cast<float>(value));
  }
}

std::string counted(std::size_t fewest, std::size_t most) {
  const std::string few = std::to_string(fewest);
  return fewest == most ? few : "at least " + few;
}

}  // namespace

bool fits_float(double value) {
  return !std::isfinite(value) || std::isfinite(nearest_float(value));
}

bool read_table(const std::string &path, std::size_t fewest, std::size_t most,
                TextTable &table) {
  std::string text;
  if (!read_file(path == "-" ? "/dev/stdin" : path, kMaxBytes, text)) {
    complain(path + ": " + std::strerror(errno));
    return false;
  }
  const auto refuse = [&](long line, const std::string &why) {
    complain(path + ":" + std::to_string(line) + ": " + why);
    return false;
  };
  std::string_view rest = text;
  for (long line = 1; !rest.empty(); line++) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view content = trimmed(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (content.empty() || content.front() == '#') continue;
    const std::size_t before = table.values.size();
    if (!append_numbers(content, table.values)) return refuse(line, "not a number");
    const std::size_t columns = table.values.size() - before;
    if (columns < fewest || columns > most) {
      return refuse(line, counted(fewest, most) + " numbers are needed, not " +
                              std::to_string(columns));
    }
    if (table.rows() > 0 && columns != table.columns) {
      return refuse(line, std::to_string(columns) +
                              " numbers, where lines above have " +
                              std::to_string(table.columns));
    }
    table.columns = columns;
    table.lines.push_back(line);
  }
  if (table.rows() > 0) return true;
  complain(path + ": no numbers");
  return false;
}

}  // namespace ksutil::tools
