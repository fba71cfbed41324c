#include "tools/common/unreadable.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

std::string counted(long count, const std::string &things) {
  return std::to_string(count) + " " +
         (count == 1 && things.ends_with("s") ? things.substr(0, things.size() - 1)
                                              : things);
}

}  // namespace

long take_left_out() {
  const MallocPtr<char> messages(elog_string(0));
  if (messages == nullptr) return 0;
  long count = 0;
  std::string others;
  for (std::string_view rest = messages.get(); !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end);
    const std::size_t number = line.find(": ");
    if (number != std::string_view::npos &&
        line.find("cannot be read and are left out") != std::string_view::npos) {
      count += std::strtol(line.data() + number + 2, nullptr, 10);
    } else {
      others += line;
    }
  }
  if (count > 0) {
    elog_clear_register(0);
    if (!others.empty()) elog_log(0, "%s", others.c_str());
  }
  return count;
}

int report_unreadable(const Unreadable &unreadable, const std::string &things,
                      const std::string &database) {
  if (!unreadable.any()) return kOk;
  std::string text;
  if (unreadable.rows > 0) text = counted(unreadable.rows, things);
  if (unreadable.rows > 0 && unreadable.values > 0) text += " and ";
  if (unreadable.values > 0) text += counted(unreadable.values, "values");
  complain(text + " of " + database + " cannot be read; see 'ksdb verify " + database +
           "'");
  return kFailure;
}

}  // namespace ksutil::tools
