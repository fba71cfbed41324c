#include <algorithm>

#include "formats/exchange/import/import_plan.h"
#include "platform/db/columns.h"

namespace ksutil::exchange {

std::uint64_t ImportPlan::id_key(const char *key, const std::string &id) const {
  const std::uint64_t value = hash_of(id) * 31 + hash_of(key);
  return value == 0 ? 1 : value;
}

/* One text id may stand in an input more than once. */
ImportPlan::Known ImportPlan::known_id(const char *key, const std::string &id) const {
  const std::uint64_t value = id_key(key, id);
  const auto own = met_.find(value);
  if (own != met_.end()) return {own->second, true};
  const std::int64_t earlier = ids_.get(value);
  if (earlier >= 0) return {earlier, true};
  return {tables_.public_id(key, id), false};
}

ImportPlan::Known ImportPlan::own_id(const char *key, const std::string &id) const {
  if (id.empty()) return {};
  Known known = known_id(key, id);
  if (known.now) known.id = -1;
  return known;
}

void ImportPlan::meet(const char *key, const std::string &id, std::int64_t value) {
  met_.emplace(id_key(key, id), value);
}

bool ImportPlan::plan_public_id(const char *key, const std::string &id,
                                std::int64_t value) {
  if (id.empty()) return true;
  if (std::string_view(key) != "evid") meet(key, id, value);
  if (!tables_.has(kPublicid) || tables_.public_id(key, id) == value) return true;
  const std::string text = public_text(id, tables_.width(kPublicid, "textid"));
  std::string row = tables_.null_row(kPublicid);
  RowPut(tables_.layout(kPublicid), row, report_)
      .put("textid", std::string_view(text))
      .put("tagname", std::string_view(key))
      .put("tagid", value)
      .put("lddate", updated_ != 0.0 ? updated_ : now_);
  pending_.push_back({kPublicid, -1, std::move(row)});
  return true;
}

/* Two events of one input that share a further id both keep their own: the id is the first
 * one's. */
bool ImportPlan::plan_aliases(const Event &event, std::int64_t evid) {
  for (const std::string &alias : event.aliases) {
    if (known_id("evid", alias).id >= 0) continue;
    meet("evid", alias, evid);
    if (!plan_public_id("evid", alias, evid)) return false;
  }
  return true;
}

bool ImportPlan::plan_remarks(const std::vector<RemarkLine> &lines,
                              std::int64_t &commid) {
  if (lines.empty()) return true;
  if (!tables_.has(kRemark)) {
    report_.left_out.add("comments: the schema has no table remark",
                         static_cast<std::int64_t>(lines.size()));
    return true;
  }
  /* The lines that are there, with their records. */
  const db::TextColumn remark(tables_.layout(kRemark), "remark");
  std::vector<std::pair<std::string, std::int64_t>> stored;
  std::int64_t last = 0;
  if (commid >= 0) {
    for (const RowIndex::Item item : tables_.remarks_of(commid)) {
      const std::string_view row = tables_.rows(kRemark).row(item.row);
      std::string_view text;
      if (remark.read(row, text)) stored.emplace_back(text, item.row);
      last = std::max(last, integer(kRemark, "lineno", row));
    }
  } else if (!take(kCommid, commid)) {
    return false;
  }
  for (const RemarkLine &line : lines) {
    const auto found =
        std::find_if(stored.begin(), stored.end(), [&](const auto &entry) {
          return line.is_comment() ? entry.first == line.text
                                   : is_of_kind(line, entry.first);
        });
    const std::int64_t record = found == stored.end() ? -1 : found->second;
    if (found != stored.end()) {
      if (line.is_comment()) continue;
      stored.erase(found);
    }
    std::string row = row_of(kRemark, record);
    RowPut put(tables_.layout(kRemark), row, report_);
    if (record < 0) put.put("commid", commid).put("lineno", ++last);
    put.put("remark", std::string_view(line.text));
    set(kRemark, record, std::move(row));
    if (line.is_comment()) stored.emplace_back(line.text, -1);
  }
  return true;
}

}  // namespace ksutil::exchange
