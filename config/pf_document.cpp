#include "config/internal/pf_document.h"

#include <algorithm>
#include <utility>

#include "platform/pf/shared/pf_write.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* Builds the document from the lines that the parser understands. */
class DocumentBuilder : public PfLineTaker {
 public:
  explicit DocumentBuilder(PfDocument &document) : document_(document) {
    open_.push_back(&document.root);
  }

  void take(PfLine &line) override {
    switch (line.kind) {
      case PfLine::Kind::kRemark:
        take_remark(line);
        break;
      case PfLine::Kind::kText:
        take_value(line, PFSTRING);
        break;
      case PfLine::Kind::kOpen: {
        PfNode &node = take_value(line, line.block);
        if (!line.closed) open_.push_back(&node);
        break;
      }
      case PfLine::Kind::kClose:
        open_.back()->block->closing = line.raw;
        open_.pop_back();
        break;
    }
  }

 private:
  PfNode &block() { return *open_.back(); }

  void take_remark(const PfLine &line) {
    auto &lines = block().block->lines;
    if (lines.empty() || lines.back()->kind != PfNode::kRemark) {
      lines.push_back(std::make_unique<PfNode>());
    }
    lines.back()->raw += line.raw;
  }

  PfNode &take_value(PfLine &line, int kind) {
    auto made = std::make_unique<PfNode>();
    PfNode &node = *made;
    node.kind = kind;
    node.raw = line.raw;
    node.place = {static_cast<std::uint32_t>(document_.files.size() - 1),
                  static_cast<std::uint32_t>(line.number)};
    if (block().kind == PFARR) node.name = std::move(line.name);
    node.begin = static_cast<std::uint32_t>(line.written.data() - line.raw.data());
    node.end = node.begin + static_cast<std::uint32_t>(line.written.size());
    if (kind != PFSTRING) node.block = std::make_unique<PfBlock>();
    block().block->append(block().kind, std::move(made));
    return node;
  }

  PfDocument &document_;
  std::vector<PfNode *> open_;  // the blocks around the present line
};

/* A line that lacks its break, as the last of a file may, gets one before the next. */
void put_line(std::string &out, std::string_view line, const std::string &eol) {
  if (!out.empty() && out.back() != '\n' && !line.empty()) out += eol;
  out += line;
}

void put_node(std::string &out, const PfNode &node, const std::string &eol) {
  put_line(out, node.raw, eol);
  if (node.block == nullptr) return;
  for (const auto &line : node.block->lines) put_node(out, *line, eol);
  put_line(out, node.block->closing, eol);
}

}  // namespace

std::string_view PfNode::indent() const {
  const std::size_t first = raw.find_first_not_of(" \t");
  return std::string_view(raw).substr(0, std::min(first, raw.size()));
}

std::size_t PfBlock::position(const PfNode *node) const {
  const auto found = std::find_if(lines.begin(), lines.end(),
                                  [&](const auto &line) { return line.get() == node; });
  return static_cast<std::size_t>(found - lines.begin());
}

void PfBlock::insert(int kind, std::size_t at, std::size_t item,
                     std::unique_ptr<PfNode> node) {
  /* Room first: a line must not be left out of the index. */
  if (lines.size() == lines.capacity()) lines.reserve(2 * lines.size() + 4);
  if (node->is_value() && kind == PFTBL) {
    items.insert(items.begin() + static_cast<std::ptrdiff_t>(item), node.get());
  } else if (node->is_value()) {
    const auto [entry, first] = by_name.emplace(node->name, node.get());
    if (!first) {
      entry->second->shadowed = true;
      shadowing = true;
      entry->second = node.get();
    }
  }
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), std::move(node));
}

PfNode copy_node(const PfNode &node, std::uint32_t first_file) {
  PfNode copy;
  copy.kind = node.kind;
  copy.begin = node.begin;
  copy.end = node.end;
  copy.place = {node.place.file + first_file, node.place.line};
  copy.raw = node.raw;
  copy.name = node.name;
  if (node.block == nullptr) return copy;
  copy.block = std::make_unique<PfBlock>();
  copy.block->closing = node.block->closing;
  copy.block->lines.reserve(node.block->lines.size());
  for (const auto &line : node.block->lines) {
    copy.block->append(node.kind,
                       std::make_unique<PfNode>(copy_node(*line, first_file)));
  }
  return copy;
}

PfNode *child_of(const PfNode &node, const PfStep &step) {
  if (node.block == nullptr || (node.kind == PFTBL) != step.is_item()) return nullptr;
  if (step.is_item()) {
    const auto index = static_cast<std::size_t>(step.index);
    return index < node.block->items.size() ? node.block->items[index] : nullptr;
  }
  const auto found = node.block->by_name.find(step.name);
  return found == node.block->by_name.end() ? nullptr : found->second;
}

int block_height(const PfNode &node) {
  if (node.block == nullptr) return 0;
  int height = 0;
  for (const auto &line : node.block->lines) {
    height = std::max(height, block_height(*line));
  }
  return height + 1;
}

PfNode text_node(std::string_view text) {
  PfNode node;
  node.kind = PFSTRING;
  node.raw = written_quoted(text);
  node.end = static_cast<std::uint32_t>(node.raw.size());
  return node;
}

bool parse_value(std::string_view written, PfNode &value, PfError &error) {
  PfDocument document;
  if (!document.parse("x " + std::string(written) + "\n", "", error)) return false;
  auto &lines = document.root.block->lines;
  std::erase_if(lines, [](const auto &line) { return line->kind == PfNode::kRemark; });
  if (lines.size() != 1) {
    error = {static_cast<long>(lines.at(1)->place.line),
             "There is more than one value"};
    return false;
  }
  value = std::move(*lines.front());
  return true;
}

PfDocument::PfDocument() {
  root.kind = PFARR;
  root.block = std::make_unique<PfBlock>();
}

PfDocument::PfDocument(const PfDocument &other)
    : root(copy_node(other.root)),
      files(other.files),
      mark(other.mark),
      eol(other.eol) {}

bool PfDocument::parse(std::string_view text, const std::string &file, PfError &error) {
  files.push_back(file);
  mark = byte_order_mark(text);
  const std::string_view first = text.substr(0, text.find('\n'));
  if (first.size() < text.size() && first.ends_with('\r')) eol = "\r\n";
  DocumentBuilder builder(*this);
  return parse_pf_lines(text, builder, error);
}

const PfNode *PfDocument::find(const PfPath &path) const {
  const PfNode *node = &root;
  for (std::size_t i = 0; i < path.size() && node != nullptr; ++i) {
    node = child_of(*node, path[i]);
  }
  return node;
}

std::string PfDocument::text() const {
  std::string out;
  put_node(out, root, eol);
  return mark + out;
}

PfPtr PfDocument::tree(const PfNode &node, int depth) {
  if (node.block == nullptr) return std::make_unique<Pf>(node.text(), depth);
  PfPtr made = std::make_unique<Pf>(node.kind, depth);
  for (const auto &line : node.block->lines) {
    if (!line->is_value()) continue;
    PfPtr value = tree(*line, depth + 1);
    if (PfTable *table = made->table()) {
      table->push(std::move(value));
    } else {
      made->array()->put(line->name, std::move(value));
    }
  }
  return made;
}

std::string PfDocument::place_text(PfPlace place) const {
  const std::string file = place.file < files.size() ? files[place.file] : "";
  if (place.line == 0) return file;
  const std::string line = std::to_string(place.line);
  return file.empty() ? "line " + line : file + ":" + line;
}

}  // namespace ksutil
