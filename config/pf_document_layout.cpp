/* pf_document_layout: lays out the lines of a document. */
#include <algorithm>
#include <utility>

#include "config/internal/pf_document.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* The widest column to which names are padded: one long name must not push all values
 * to the right. */
constexpr std::size_t kMaxAligned = 32;

/* The text before the value of a line: the name as written; empty for an item. */
std::string_view head_of(const PfNode &node) {
  return trimmed(std::string_view(node.raw).substr(0, node.begin));
}

/* The number of characters, not counting the continuation bytes of UTF-8. */
std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

/* "}" or the end of a value, with the comment after it. */
void append_comment(std::string &line, std::string_view comment) {
  if (!comment.empty()) line.append("  ").append(comment);
}

std::string_view comment_after_brace(std::string_view closing) {
  const std::size_t brace = closing.find('}');
  return brace == closing.npos ? std::string_view()
                               : trimmed(closing.substr(brace + 1));
}

/* Collects blank lines and comments.  Adjacent blank lines become one, and those at the
 * ends of a block are left out. */
class Remarks {
 public:
  Remarks(const std::string &indent, const std::string &eol)
      : indent_(indent), eol_(eol) {}

  void take(std::string_view lines, bool first_in_block) {
    while (!lines.empty()) {
      const std::size_t end = std::min(lines.find('\n'), lines.size() - 1) + 1;
      const std::string_view line = trimmed(lines.substr(0, end));
      lines.remove_prefix(end);
      if (line.empty()) {
        blank_ = !(first_in_block && text_.empty());
        continue;
      }
      put_blank();
      text_.append(indent_).append(line).append(eol_);
    }
  }

  /* The collected lines as a node; null when there are none. */
  std::unique_ptr<PfNode> give(bool last_in_block) {
    if (!last_in_block) put_blank();
    blank_ = false;
    if (text_.empty()) return nullptr;
    auto node = std::make_unique<PfNode>();
    node->raw = std::exchange(text_, {});
    return node;
  }

 private:
  void put_blank() {
    if (blank_) text_ += eol_;
    blank_ = false;
  }

  const std::string &indent_, &eol_;
  std::string text_;
  bool blank_ = false;
};

/* The widths to which names are padded, one for each line: equal for neighbouring
 * entries with texts. */
std::vector<std::size_t> aligned_widths(const PfBlock &block) {
  const auto &lines = block.lines;
  std::vector<std::size_t> widths(lines.size(), 0);
  for (std::size_t i = 0; i < lines.size();) {
    std::size_t end = i, width = 0;
    for (; end < lines.size() && lines[end]->kind == PFSTRING; ++end) {
      const std::size_t own = width_of(head_of(*lines[end]));
      if (own <= kMaxAligned) width = std::max(width, own);
    }
    for (; i < end; ++i) widths[i] = width;
    ++i;
  }
  return widths;
}

}  // namespace

void lay_out_value(PfNode &node, const std::string &indent, const std::string &eol,
                   bool align, std::size_t width) {
  std::string written(node.written()), comments, closing;
  append_comment(comments, trimmed(std::string_view(node.raw).substr(node.end)));
  if (node.block != nullptr) {
    lay_out_block(node, indent + "  ", eol, align);
    written = node.kind == PFTBL ? "&Tbl{" : "&Arr{";
    const bool empty = node.block->lines.empty();
    if (empty) written += '}';
    if (!empty) closing = indent + '}';
    append_comment(empty ? comments : closing,
                   comment_after_brace(node.block->closing));
    if (!empty) closing += eol;
    node.block->closing = std::move(closing);
  }
  const std::string_view head = head_of(node);
  std::string line = indent;
  line += head;
  if (!head.empty() && !written.empty()) {
    line.append(std::max(width, width_of(head)) - width_of(head) + 1, ' ');
  }
  const std::size_t begin = line.size();
  line += written;
  const std::size_t end = line.size();
  line += comments;
  line += eol;
  node.raw = std::move(line);
  node.begin = static_cast<std::uint32_t>(begin);
  node.end = static_cast<std::uint32_t>(end);
}

void lay_out_block(PfNode &node, const std::string &indent, const std::string &eol,
                   bool align) {
  PfBlock &block = *node.block;
  const std::vector<std::size_t> widths =
      align && node.kind == PFARR ? aligned_widths(block)
                                  : std::vector<std::size_t>(block.lines.size(), 0);
  Remarks remarks(indent, eol);
  std::vector<std::unique_ptr<PfNode>> lines;
  const auto flush = [&](bool last) {
    if (auto remark = remarks.give(last)) lines.push_back(std::move(remark));
  };
  for (std::size_t i = 0; i < block.lines.size(); ++i) {
    std::unique_ptr<PfNode> &line = block.lines[i];
    if (line->kind == PfNode::kRemark) {
      remarks.take(line->raw, lines.empty());
      continue;
    }
    flush(false);
    lay_out_value(*line, indent, eol, align, widths[i]);
    lines.push_back(std::move(line));
  }
  flush(true);
  block.lines = std::move(lines);
}

void PfDocument::format() {
  eol = "\n";
  lay_out_block(root, "", eol, true);
}

}  // namespace ksutil
