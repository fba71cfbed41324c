#include "platform/db/match/internal/match_plan.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

using expr::Type;
using expr::Value;

bool is_integer(Type type) { return type == Type::kInteger || type == Type::kBoolean; }

double number(const Value &value) {
  return is_integer(value.type) ? static_cast<double>(value.integer) : value.real;
}

std::unique_ptr<const expr::Program> compile_term(const char *who,
                                                  const RecordSource &source,
                                                  const std::string &text) {
  expr::Error error;
  std::unique_ptr<const expr::Program> program =
      expr::Program::compile(text, SourceFields(&source), error);
  if (program == nullptr) {
    fail(who, "Can't compile pattern '%s' over %s: %s at position %zu", text.c_str(),
         source.name().c_str(), error.message.c_str(), error.position);
  }
  return program;
}

/* Evaluates one pattern.  Most patterns are bare fields, which are read directly,
 * without a program. */
bool evaluate(const expr::Program &program, const expr::Record &record, Value &value) {
  if (program.only_slot() >= 0) return record.value(program.only_slot(), value);
  thread_local expr::Workspace workspace;
  return program.evaluate(record, workspace, value);
}

void compose_bytes(const void *bytes, std::size_t size, std::string &key) {
  key.append(static_cast<const char *>(bytes), size);
}

}  // namespace

MatchPattern split_pattern(std::string_view text) {
  char quote = '\0';
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (quote != '\0') {
      if (text[i] == '\\') {
        ++i;
      } else if (text[i] == quote) {
        quote = '\0';
      }
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == ':' && text[i + 1] == ':') {
      return {std::string(trimmed(text.substr(0, i))),
              std::string(trimmed(text.substr(i + 2))), true};
    }
  }
  const std::string point(trimmed(text));
  return {point, point, false};
}

bool pattern_texts(const char *who, Tbl *list, std::vector<std::string> &texts) {
  texts.clear();
  for (long i = 0; i < counttbl(list); ++i) {
    const auto *const text = static_cast<const char *>(gettbl(list, i));
    if (text == nullptr || trimmed(text).empty()) break;
    texts.emplace_back(text);
  }
  if (!texts.empty() && static_cast<long>(texts.size()) == counttbl(list)) return true;
  return fail(who, "the pattern is empty or has an empty item");
}

bool same_texts(Tbl *list, const std::vector<std::string> &texts) {
  if (counttbl(list) != static_cast<long>(texts.size())) return false;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const auto *const text =
        static_cast<const char *>(gettbl(list, static_cast<long>(i)));
    if (text == nullptr || texts[i] != text) return false;
  }
  return true;
}

std::unique_ptr<const MatchPlan> MatchPlan::compile(const char *who,
                                                    const RecordSource &key,
                                                    const RecordSource &table,
                                                    std::vector<std::string> kpattern,
                                                    std::vector<std::string> tpattern) {
  if (kpattern.size() != tpattern.size()) {
    return fail(who, "the patterns have %zu and %zu items", kpattern.size(),
                tpattern.size());
  }
  auto plan = std::make_unique<MatchPlan>();
  for (std::size_t i = 0; i < kpattern.size(); ++i) {
    if (!plan->add(who, key, table, kpattern[i], tpattern[i])) return nullptr;
  }
  const Item &only = plan->items_.front();
  if (plan->items_.size() == 1 && !only.ranged() && only.kind == Kind::kInteger &&
      only.table.low->only_slot() >= 0) {
    plan->id_field_ = table.field(only.table.low->only_slot()).name;
  }
  plan->kpattern_ = std::move(kpattern);
  plan->tpattern_ = std::move(tpattern);
  plan->key_signature_ = key.signature();
  plan->table_signature_ = table.signature();
  return plan;
}

bool MatchPlan::add(const char *who, const RecordSource &key, const RecordSource &table,
                    const std::string &kpattern, const std::string &tpattern) {
  const MatchPattern of_key = split_pattern(kpattern);
  const MatchPattern of_table = split_pattern(tpattern);
  Item item{};
  item.key.low = compile_term(who, key, of_key.low);
  item.table.low = compile_term(who, table, of_table.low);
  if (of_key.range) item.key.high = compile_term(who, key, of_key.high);
  if (of_table.range) item.table.high = compile_term(who, table, of_table.high);

  int texts = 0, integers = 0, terms = 0;
  for (const auto *program :
       {&item.key.low, &item.table.low, of_key.range ? &item.key.high : nullptr,
        of_table.range ? &item.table.high : nullptr}) {
    if (program == nullptr) continue;
    if (*program == nullptr) return false;
    ++terms;
    texts += (*program)->type() == Type::kText ? 1 : 0;
    integers += is_integer((*program)->type()) ? 1 : 0;
  }
  if (texts != 0 && (texts != terms || item.ranged())) {
    return fail(who, "cannot compare '%s' with '%s': %s", kpattern.c_str(),
                tpattern.c_str(),
                texts != terms ? "text with number" : "ranges are of numbers");
  }
  item.kind = texts != 0          ? Kind::kText
              : integers == terms ? Kind::kInteger
                                  : Kind::kReal;
  if (item.ranged()) ++ranges_;
  items_.push_back(std::move(item));
  return true;
}

bool MatchPlan::is_for(const RecordSource &key, const RecordSource &table,
                       Tbl *kpattern, Tbl *tpattern) const {
  return key.signature() == key_signature_ && table.signature() == table_signature_ &&
         same_texts(kpattern, kpattern_) && same_texts(tpattern, tpattern_);
}

bool MatchPlan::read_key(const expr::Record &record, MatchKey &key) const {
  return read(record, &Item::key, key);
}

bool MatchPlan::read_table(const expr::Record &record, MatchKey &key) const {
  return read(record, &Item::table, key);
}

bool MatchPlan::read(const expr::Record &record, Side Item::*side,
                     MatchKey &key) const {
  constexpr double kOpen = std::numeric_limits<double>::infinity();
  key.null = false;
  key.equal.clear();
  key.ranges.clear();
  Value low, high;
  for (const Item &item : items_) {
    const Side &terms = item.*side;
    if (!evaluate(*terms.low, record, low)) return false;
    if (terms.high != nullptr) {
      if (!evaluate(*terms.high, record, high)) return false;
      key.ranges.push_back(
          {low.null ? -kOpen : number(low), high.null ? kOpen : number(high)});
      /* A range that ends before it begins overlaps nothing. */
      if (key.ranges.back().low > key.ranges.back().high) key.null = true;
      continue;
    }
    if (low.null) {
      key.null = true;
      return true;
    }
    if (item.ranged()) {
      key.ranges.push_back({number(low), number(low)});
    } else if (item.kind == Kind::kText) {
      const std::string_view text = right_trimmed(low.text);
      const auto size = static_cast<std::uint32_t>(text.size());
      compose_bytes(&size, sizeof size, key.equal);
      key.equal.append(text);
    } else if (item.kind == Kind::kInteger) {
      key.integer = low.integer;
      if (id_field_.empty()) compose_bytes(&low.integer, sizeof low.integer, key.equal);
    } else {
      const double value = number(low) + 0.0;  // -0.0 equals 0.0
      compose_bytes(&value, sizeof value, key.equal);
    }
  }
  return true;
}

}  // namespace ksutil::db
