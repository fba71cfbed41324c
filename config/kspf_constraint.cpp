/* kspf_constraint: reads constraints from parameter files. */
#include <cstdint>
#include <string>
#include <utility>

#include "config/internal/kspf_contents.h"
#include "config/internal/kspf_rule.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::PfNode;

namespace {

class ConstraintReader {
 public:
  explicit ConstraintReader(const ksutil::PfDocument &document) : document_(document) {}

  /* Reads a constraint from the array or type word at `node`, the path of which is
   * path_; registers every fault. */
  void read(const PfNode &node, KSPf_Constraint &constraint) {
    const bool as_file = path_.empty();
    if (node.kind == PFTBL) {
      fault(node, "a constraint is a type or an array");
      return;
    }
    if (node.kind == PFSTRING) {
      constraint.type = node.text();
    } else {
      for (const auto &line : node.block->lines) {
        if (line->is_value()) within(*line, [&] { read_member(*line, constraint); });
      }
    }
    ksutil::PfRule rule;
    std::string cause;
    if (!ksutil::make_rule(constraint, rule, cause)) fault(node, cause);
    if (as_file && rule.type != ksutil::PfRuleType::kArray && cause.empty()) {
      fault(node, "a file is an array");
    }
  }

  bool faulty() const { return faulty_; }

 private:
  /* Runs body() with the path one step longer. */
  template <class Body>
  void within(const PfNode &node, const Body &body) {
    path_.push_back({node.name, -1});
    body();
    path_.pop_back();
  }

  void fault(const PfNode &node, const std::string &cause) {
    faulty_ = true;
    std::string place = document_.place_text(node.place);
    if (!place.empty()) place += ": ";
    const std::string path = ksutil::path_text(path_);
    fail("KSPf::readConstraint", "%s%s%s%s", place.c_str(), path.c_str(),
         path.empty() ? "" : ": ", cause.c_str());
  }

  void read_member(const PfNode &node, KSPf_Constraint &constraint) {
    const std::string &word = node.name;
    if (word == "type") {
      read_text(node, constraint.type);
    } else if (word == "required") {
      read_flag(node, constraint.required);
    } else if (word == "empty") {
      read_flag(node, constraint.empty_ok);
    } else if (word == "min") {
      read_text(node, constraint.min);
    } else if (word == "max") {
      read_text(node, constraint.max);
    } else if (word == "min_count") {
      read_count(node, constraint.min_count);
    } else if (word == "max_count") {
      read_count(node, constraint.max_count);
    } else if (word == "pattern") {
      read_text(node, constraint.pattern);
    } else if (word == "values") {
      read_values(node, constraint.values);
    } else if (word == "words") {
      read_words(node, constraint.words);
    } else if (word == "items") {
      read_inner(node, constraint.items);
    } else if (word == "others") {
      read_inner(node, constraint.others);
    } else if (word == "keys") {
      read_keys(node, constraint.keys);
    } else {
      fault(node, "a constraint knows no such word");
    }
  }

  void read_text(const PfNode &node, std::string &text) {
    if (node.kind == PFSTRING) {
      text = node.text();
    } else {
      fault(node, "it must be a text");
    }
  }

  void read_flag(const PfNode &node, bool &flag) {
    if (node.kind != PFSTRING || !ksutil::parse_boolean(node.text(), flag)) {
      fault(node, "it must be yes or no");
    }
  }

  void read_count(const PfNode &node, long &count) {
    std::int64_t number = -1;
    if (node.kind == PFSTRING && ksutil::parse_integer(node.text(), number) &&
        number >= 0) {
      count = static_cast<long>(number);
    } else {
      fault(node, "it must be a number of values");
    }
  }

  void read_values(const PfNode &node, Table<std::string> &values) {
    if (node.kind != PFTBL) return fault(node, "it must be a table");
    for (const PfNode *item : node.block->items) {
      if (item->kind != PFSTRING) return fault(*item, "it must be a text");
      values.push(item->text());
    }
  }

  void read_inner(const PfNode &node, Table<KSPf_Constraint> &inner) {
    KSPf_Constraint made;
    read(node, made);
    inner.push(std::move(made));
  }

  void read_words(const PfNode &node, Table<KSPf_Constraint> &words) {
    if (node.kind != PFTBL) return fault(node, "it must be a table");
    for (const PfNode *item : node.block->items) {
      KSPf_Constraint word;
      read(*item, word);
      words.push(std::move(word));
    }
  }

  void read_keys(const PfNode &node, Table<KSPf_Constraint> &keys) {
    if (node.kind != PFARR) return fault(node, "it must be an array");
    for (const auto &line : node.block->lines) {
      if (!line->is_value()) continue;
      KSPf_Constraint key;
      key.name = line->name;
      within(*line, [&] { read(*line, key); });
      keys.push(std::move(key));
    }
  }

  const ksutil::PfDocument &document_;
  ksutil::PfPath path_;
  bool faulty_ = false;
};

}  // namespace

int KSPf::readConstraint(KSPf_Constraint &constraint) const {
  return at_boundary("KSPf::readConstraint", [&]() -> int {
    ConstraintReader reader(contents().document);
    KSPf_Constraint made;
    made.type = "array";
    reader.read(contents().document.root, made);
    if (reader.faulty()) return -1;
    /* make_rules finds the faults between constraints, for example between the words of
     * a text. */
    ksutil::PfRule rule;
    std::string place, cause;
    if (!ksutil::make_rules(made, rule, place, cause)) {
      const std::string file = contents().document.place_text({0, 0});
      return fail("KSPf::readConstraint", "%s%s%s: %s", file.c_str(),
                  file.empty() ? "" : ": ", place.c_str(), cause.c_str());
    }
    constraint = std::move(made);
    return 0;
  });
}
