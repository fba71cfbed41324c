#include "platform/db/store/internal/layout_fit.h"

#include <algorithm>
#include <optional>
#include <variant>
#include <vector>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kFitRecords = 100;
constexpr int kMaxStretch = 64;
/* The least shares of separators and numbers that must be in place.  The real files
 * that deviate most have nine tenths; a layout of another table has about half. */
constexpr double kGoodShare = 0.75, kExactShare = 0.5;
/* Added to the share of a layout whose length is exactly that of the records. */
constexpr double kExactBonus = 0.05;

/* The layout with its last field as wide as a record of `width` characters requires;
 * nothing when such a record cannot have this layout. */
std::optional<Relation> stretched(const Relation &relation, std::size_t width) {
  const Field &last = relation.fields.back();
  const int room = static_cast<int>(width) - last.offset;
  const bool stretchable =
      last.type == FieldType::kDate || last.type == FieldType::kText;
  if (room < 1 || room > last.width + kMaxStretch) return std::nullopt;
  if (room != last.width && !stretchable) return std::nullopt;
  Relation layout = relation;
  Field &field = layout.fields.back();
  field.width = room;
  layout.width = static_cast<int>(width);
  if (field.null_text.size() > static_cast<std::size_t>(room)) field.null_text = "-";
  return layout;
}

/* Counts, field by field, in how many records its separator and its number are in place. */
class Judge {
 public:
  explicit Judge(const Relation &layout) : layout_(layout) {
    for (const Field &field : layout.fields) {
      Counted counted;
      switch (field.type) {
        case FieldType::kReal:
        case FieldType::kTime:
          counted.number = RealColumn(layout, field.name);
          break;
        case FieldType::kInteger:
        case FieldType::kYearday:
          counted.number = IntegerColumn(layout, field.name);
          break;
        default:
          break;
      }
      fields_.push_back(std::move(counted));
    }
  }

  void look(std::string_view record) {
    ++records_;
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const auto offset = static_cast<std::size_t>(layout_.fields[i].offset);
      const bool good = offset == 0 || count(record[offset - 1] == ' ');
      bool readable = true;
      if (const auto *real = std::get_if<RealColumn>(&fields_[i].number)) {
        double value;
        readable = count(real->read(record, value));
      } else if (const auto *integer = std::get_if<IntegerColumn>(&fields_[i].number)) {
        std::int64_t value;
        readable = count(integer->read(record, value));
      }
      if (!readable) ++fields_[i].unreadable;
      if (!good || !readable) ++fields_[i].bad;
    }
  }

  double share() const { return looked_ == 0 ? 0.0 : double(good_) / double(looked_); }

  /* Whether fields are shifted: in most records a number cannot be read, or two fields
   * are out of place.  One field without its separator whose number can be read is a
   * neighbour that was printed too wide, as some producers do. */
  bool has_shifted_field() const {
    const auto in_most = [this](long count) { return 2 * count > records_; };
    return std::any_of(
               fields_.begin(), fields_.end(),
               [&](const Counted &field) { return in_most(field.unreadable); }) ||
           std::count_if(fields_.begin(), fields_.end(),
                         [&](const Counted &field) { return in_most(field.bad); }) > 1;
  }

 private:
  struct Counted {
    std::variant<std::monostate, RealColumn, IntegerColumn> number;
    long bad = 0;  // records in which its separator or its number is out of place
    long unreadable = 0;  // records in which its number cannot be read
  };

  bool count(bool good) {
    ++looked_;
    if (good) ++good_;
    return good;
  }

  const Relation &layout_;
  std::vector<Counted> fields_;
  long records_ = 0, looked_ = 0, good_ = 0;
};

Judge judged(const Relation &layout, std::string_view head, std::size_t length) {
  Judge judge(layout);
  for (std::size_t i = 0; i < kFitRecords && (i + 1) * length <= head.size() + 1; ++i) {
    judge.look(head.substr(i * length, length));
  }
  return judge;
}

struct Candidate {
  const Relation *relation;
  std::string schema;
};

std::vector<Candidate> candidates(const Schema &schema, std::string_view table) {
  std::vector<Candidate> found;
  if (const Relation *own = schema.find(table)) found.push_back({own, schema.name()});
  const ElogScope quiet;  // leaves out a broken file that replaces a built-in schema
  for (const std::string &name : builtin_schemas()) {
    if (name == schema.name()) continue;
    const auto other = Schema::load(name);
    const Relation *relation = other == nullptr ? nullptr : other->find(table);
    if (relation != nullptr) found.push_back({relation, name});
  }
  return found;
}

/* Whether the text is one record of the layout that lacks its newline. */
bool is_single_record(const Relation &layout, std::string_view text) {
  const auto width = static_cast<std::size_t>(layout.width);
  return text.size() == width || (text.size() == width + 1 && text.back() == '\r');
}

}  // namespace

bool is_blank(std::string_view text) {
  return text.find_first_not_of(std::string_view(" \t\r\n\0", 5)) == text.npos;
}

bool fit_layout(const Schema &schema, std::string_view table, std::string_view head,
                bool whole, Fit &fit) {
  const std::vector<Candidate> known = candidates(schema, table);
  if (known.empty()) return false;

  std::size_t end = head.find('\n');
  if (end == head.npos) {
    const bool single = std::any_of(
        known.begin(), known.end(),
        [&](const Candidate &c) { return is_single_record(*c.relation, head); });
    if (!whole) return false;
    if (!single || is_blank(head)) {
      fit = {*known.front().relation, known.front().schema, false};
      return head.size() <= static_cast<std::size_t>(fit.layout.width) ||
             is_blank(head);
    }
    end = head.size();
  }
  const bool carriage_return = end > 0 && head[end - 1] == '\r';
  const std::size_t width = end - (carriage_return ? 1 : 0);

  double best = 0.0;
  for (const Candidate &candidate : known) {
    std::optional<Relation> layout = stretched(*candidate.relation, width);
    if (!layout) continue;
    const bool exact = layout->width == candidate.relation->width;
    const Judge judge = judged(*layout, head, end + 1);
    const double share = judge.share();
    if (share < (exact ? kExactShare : kGoodShare)) continue;
    if (!exact && judge.has_shifted_field()) continue;
    const double worth = share + (exact ? kExactBonus : 0.0);
    if (worth <= best) continue;
    best = worth;
    layout->width = static_cast<int>(end);
    fit = {std::move(*layout), candidate.schema, carriage_return};
  }
  return best > 0.0;
}

}  // namespace ksutil::db
