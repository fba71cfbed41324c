/* Conditions: holds expressions that must all be true for a record of a view. */
#ifndef KSUTIL_TOOLS_KSDB_CONDITIONS_H
#define KSUTIL_TOOLS_KSDB_CONDITIONS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/view_rows.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

class Conditions {
 public:
  /* An empty text is not a condition.  An exit code, other than kOk with a message registered:
   * kUsage for a text that is not an expression over the fields, kFailure when a table cannot
   * be read or memory is short. */
  int compile(Dbptr view, const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
      if (text.empty()) continue;
      bool wrong = false;
      conditions_.push_back(db::ViewCondition::compile(view, text, &wrong));
      if (conditions_.back() == nullptr) return wrong ? kUsage : kFailure;
    }
    return kOk;
  }
  bool empty() const { return conditions_.empty(); }

  /* For the rows of a record: 1 when all are true; 0 when one is false or null; -1, with a
   * message, when one that is reached has no value. */
  int accepts(const std::string_view *rows) const {
    for (const auto &condition : conditions_) {
      if (const int accepted = condition->accepts(rows); accepted != 1) return accepted;
    }
    return 1;
  }

 private:
  std::vector<std::unique_ptr<db::ViewCondition>> conditions_;
};

}  // namespace ksutil::tools
#endif
