#include "tools/ksdb/verify_problems.h"

#include <cstdio>

#include "tools/common/messages.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

Report Problems::report_for(const std::string &table) {
  return [this, table](const std::string &kind, long record, const std::string &text) {
    Kind &known = kinds_[table][kind];
    if (known.count++ < limit_) known.kept.push_back({record, printable_text(text)});
  };
}

void Problems::print_text() const {
  for (const auto &[table, kinds] : kinds_) {
    for (const auto &[name, kind] : kinds) {
      for (const Problem &problem : kind.kept) {
        if (problem.record < 0) {
          std::printf("%s: %s\n", table.c_str(), problem.text.c_str());
        } else {
          std::printf("%s record %ld: %s\n", table.c_str(), problem.record,
                      problem.text.c_str());
        }
      }
    }
  }
  for (const auto &[table, kinds] : kinds_) {
    for (const auto &[name, kind] : kinds) {
      std::printf("%s: %ld %s%s\n", table.c_str(), kind.count, name.c_str(),
                  kind.count > limit_ ? " (not all shown)" : "");
    }
  }
}

void Problems::print_object(const std::string &database,
                            const std::vector<std::string> &mended) const {
  using Json = nlohmann::ordered_json;
  Json problems = Json::array();
  for (const auto &[table, kinds] : kinds_) {
    for (const auto &[name, kind] : kinds) {
      Json records = Json::array();
      for (const Problem &problem : kind.kept) {
        records.push_back(
            {{"record", problem.record < 0 ? Json() : Json(problem.record)},
             {"text", problem.text}});
      }
      problems.push_back({{"table", table},
                          {"kind", name},
                          {"count", kind.count},
                          {"records", std::move(records)}});
    }
  }
  print_json({{"database", database}, {"mended", mended}, {"problems", problems}});
}

}  // namespace ksutil::tools
