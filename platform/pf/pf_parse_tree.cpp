/* pf_parse_tree: builds the tree of a parameter file from its lines. */
#include <utility>

#include "platform/pf/shared/pf_parse.h"

namespace ksutil {
namespace {

class TreeBuilder : public PfLineTaker {
 public:
  TreeBuilder() : root_(std::make_unique<Pf>(PFARR, 0)) {
    open_.push_back(root_.get());
  }

  void take(PfLine &line) override {
    switch (line.kind) {
      case PfLine::Kind::kRemark:
        break;
      case PfLine::Kind::kText:
        store(line.name, std::make_unique<Pf>(std::move(line.text), depth()));
        break;
      case PfLine::Kind::kOpen: {
        PfPtr made = std::make_unique<Pf>(line.block, depth());
        Pf *const node = made.get();
        store(line.name, std::move(made));
        if (!line.closed) open_.push_back(node);
        break;
      }
      case PfLine::Kind::kClose:
        open_.pop_back();
        break;
    }
  }

  PfPtr finish() { return std::move(root_); }

 private:
  int depth() const { return static_cast<int>(open_.size()); }

  void store(std::string_view name, PfPtr value) {
    if (PfTable *table = open_.back()->table()) {
      table->push(std::move(value));
    } else {
      open_.back()->array()->put(name, std::move(value));
    }
  }

  PfPtr root_;
  std::vector<Pf *> open_;  // the blocks around the present line, the root first
};

}  // namespace

PfPtr parse_pf(std::string_view text, PfError &error) {
  TreeBuilder builder;
  return parse_pf_lines(text, builder, error) ? builder.finish() : nullptr;
}

}  // namespace ksutil
