#include "tools/ksevents/refresh_news.h"

#include <utility>

#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/unreadable.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {

void RefreshNews::take(int result) {
  std::vector<std::string> causes = registered_causes();
  elog_clear_register(0);
  if (result < 0) {
    tell_failure(std::move(causes));
    return;
  }
  if (failing()) complain(database_ + " can be read again");
  causes_.clear();
  if (!causes.empty()) tell_left_out(causes);
}

void RefreshNews::tell_failure(std::vector<std::string> causes) {
  if (causes.empty()) causes.push_back(database_ + " cannot be read");
  if (causes == causes_) return;
  for (const std::string &cause : causes) complain(cause);
  causes_ = std::move(causes);
}

/* Each row that was left out has its message: their number says more. */
void RefreshNews::tell_left_out(const std::vector<std::string> &causes) {
  const long count = unreadable_records(database_);
  elog_clear_register(0);
  if (count == 0) {
    for (const std::string &cause : causes) complain(cause);
  } else if (count != unreadable_) {
    report_unreadable({count, 0}, "records", database_);
  }
  unreadable_ = count;
}

}  // namespace ksutil::tools
