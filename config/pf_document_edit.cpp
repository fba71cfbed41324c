/* pf_document_edit: the edits of a document, which leave all other lines as they
 * are. */
#include <algorithm>
#include <utility>

#include "config/internal/pf_document.h"
#include "platform/pf/shared/pf_write.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

bool is_root(const PfNode &node) { return node.raw.empty(); }

bool same_value(const PfNode &a, const PfNode &b) {
  if (a.kind != b.kind) return false;
  if (a.kind == PFSTRING) return a.text() == b.text();
  const PfPtr first = PfDocument::tree(a, 0), second = PfDocument::tree(b, 0);
  return pfequal(first.get(), second.get()) == 1;
}

/* Replaces the value in a line; puts a blank before it when the name stood alone. */
void put_written(PfNode &node, std::string_view written) {
  std::size_t begin = node.begin;
  std::string value(written);
  if (node.begin == node.end) {
    const std::string_view head =
        right_trimmed(std::string_view(node.raw).substr(0, node.begin));
    if (!head.empty()) {
      begin = head.size();
      value.insert(value.begin(), ' ');
    }
  }
  node.raw.replace(begin, node.end - std::max<std::size_t>(begin, node.begin), value);
  node.end = static_cast<std::uint32_t>(begin + value.size());
  node.begin = node.end - static_cast<std::uint32_t>(written.size());
}

/* The written form of a text that replaces the value of a line: quoted if the old value
 * was, and if a comment follows without a blank. */
std::string written_for(const PfNode &node, const std::string &text) {
  const bool was_quoted =
      node.kind == PFSTRING && node.begin < node.end && node.raw[node.begin] == '"';
  const bool blank_follows =
      node.begin == node.end || node.end >= node.raw.size() ||
      std::string_view(" \t\r\n").find(node.raw[node.end]) != std::string_view::npos;
  return was_quoted || !blank_follows ? written_quoted(text) : written_value(text);
}

/* The indentation of the lines in a block. */
std::string child_indent(const PfNode &owner) {
  const auto &lines = owner.block->lines;
  const auto last = std::find_if(lines.rbegin(), lines.rend(), [](const auto &line) {
    return line->kind != PfNode::kRemark;
  });
  if (last != lines.rend()) return std::string((*last)->indent());
  return is_root(owner) ? std::string() : std::string(owner.indent()) + "  ";
}

/* Gives an empty block written as "{}" a closing line of its own. */
void open_block(PfNode &node, const std::string &eol) {
  if (is_root(node) || !node.block->closing.empty()) return;
  std::string closing = std::string(node.indent()) + '}' + eol;
  put_written(node, node.kind == PFTBL ? "&Tbl{" : "&Arr{");
  node.block->closing = std::move(closing);
}

/* The comment lines that stand directly above lines[at]. */
std::string_view comments_above(const PfBlock &block, std::size_t at) {
  if (at == 0 || block.lines[at - 1]->kind != PfNode::kRemark) return {};
  const std::string_view raw = block.lines[at - 1]->raw;
  std::size_t begin = raw.size();
  while (begin > 0) {
    const std::size_t before = begin < 2 ? raw.npos : raw.rfind('\n', begin - 2);
    const std::size_t line = before == raw.npos ? 0 : before + 1;
    if (trimmed(raw.substr(line, begin - line)).empty()) break;
    begin = line;
  }
  return raw.substr(begin);
}

/* Comment lines, moved to an indentation. */
std::string laid_out_comments(std::string_view lines, const std::string &indent,
                              const std::string &eol) {
  std::string out;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size() - 1) + 1;
    out.append(indent).append(trimmed(lines.substr(0, end))).append(eol);
    lines.remove_prefix(end);
  }
  return out;
}

/* The reason why the first `steps` steps of a path lead to no value; the last of them
 * starts at the node `from`. */
std::string why_missing(const PfNode &from, const PfPath &path, std::size_t steps) {
  const std::string before = path_text(path, steps - 1);
  const PfStep &step = path[steps - 1];
  const std::string owner = before.empty() ? "The file" : before;
  if (step.is_item() && from.kind != PFTBL) return owner + " is not a table";
  if (!step.is_item() && from.kind != PFARR) return owner + " is not an array";
  if (!step.is_item()) return path_text(path, steps) + " is not there";
  return owner + " has no item [" + std::to_string(step.index) + "]";
}

}  // namespace

/* Makes the new line and block first and then exchanges them for the old ones, so that
 * a line and its node agree even when memory is short. */
void PfDocument::give_value(PfNode &node, const PfNode &value) {
  if (same_value(node, value)) return;
  PfNode next;
  next.kind = node.kind;
  next.raw = node.raw;
  next.begin = node.begin;
  next.end = node.end;
  if (value.kind == PFSTRING) {
    put_written(next, written_for(node, value.text()));
  } else {
    const std::string indent(node.indent());
    next.block = std::move(copy_node(value).block);
    next.kind = value.kind;
    lay_out_block(next, indent + "  ", eol, false);
    const bool empty = next.block->lines.empty();
    put_written(next, std::string(value.kind == PFTBL ? "&Tbl{" : "&Arr{") +
                          (empty ? "}" : ""));
    next.block->closing = empty ? std::string() : indent + '}' + eol;
  }
  node.kind = value.kind;
  node.raw.swap(next.raw);
  node.begin = next.begin;
  node.end = next.end;
  node.block = std::move(next.block);
}

PfNode &PfDocument::add(PfNode &owner, std::size_t item, std::string_view name,
                        const PfNode &value) {
  auto made = std::make_unique<PfNode>();
  PfNode &node = *made;
  node.name = name;
  node.raw = child_indent(owner);
  if (owner.kind == PFARR) node.raw += written_name(name);
  node.begin = node.end = static_cast<std::uint32_t>(node.raw.size());
  node.raw += eol;
  give_value(node, value);
  open_block(owner, eol);
  const auto &items = owner.block->items;
  std::size_t at = owner.block->lines.size();
  if (item < items.size()) {
    at = item == 0 ? 0 : owner.block->position(items[item - 1]) + 1;
  }
  owner.block->insert(owner.kind, at, item, std::move(made));
  return node;
}

/* The block that holds, or will hold, the last step of a path.  Missing arrays on the
 * way are made after all checks have passed. */
PfNode *PfDocument::make_parent(const PfPath &path, const PfNode &value,
                                std::string &cause) {
  if (path.empty()) {
    cause = "The path is empty";
    return nullptr;
  }
  if (static_cast<int>(path.size()) + block_height(value) - 1 > kPfMaxDepth) {
    cause = "Blocks would be nested deeper than " + std::to_string(kPfMaxDepth);
    return nullptr;
  }
  PfNode *node = &root;
  std::size_t at = 0;
  for (; at + 1 < path.size(); ++at) {
    PfNode *const next = child_of(*node, path[at]);
    if (next == nullptr) break;
    node = next;
  }
  if (node->kind != (path[at].is_item() ? PFTBL : PFARR) ||
      (at + 1 < path.size() && path[at].is_item())) {
    cause = why_missing(*node, path, at + 1);
    return nullptr;
  }
  for (std::size_t i = at + 1; i < path.size(); ++i) {
    if (!path[i].is_item()) continue;
    cause = path_text(path, i) + " is not there";
    return nullptr;
  }
  PfNode array;
  array.kind = PFARR;
  array.block = std::make_unique<PfBlock>();
  for (; at + 1 < path.size(); ++at) node = &add(*node, 0, path[at].name, array);
  return node;
}

bool PfDocument::set(const PfPath &path, const PfNode &value, std::string &cause) {
  PfNode *const parent = make_parent(path, value, cause);
  if (parent == nullptr) return false;
  PfNode *const node = child_of(*parent, path.back());
  if (node != nullptr) {
    give_value(*node, value);
  } else if (path.back().is_item()) {
    cause = why_missing(*parent, path, path.size());
    return false;
  } else {
    add(*parent, 0, path.back().name, value);
  }
  return true;
}

bool PfDocument::insert(const PfPath &path, const PfNode &value, std::string &cause) {
  PfNode *const parent = make_parent(path, value, cause);
  if (parent == nullptr) return false;
  const PfStep &last = path.back();
  const auto item = static_cast<std::size_t>(std::max(last.index, 0L));
  if (!last.is_item() && child_of(*parent, last) != nullptr) {
    cause = path_text(path) + " is there already";
    return false;
  }
  if (last.is_item() && item > parent->block->items.size()) {
    cause = why_missing(*parent, path, path.size());
    return false;
  }
  add(*parent, item, last.name, value);
  return true;
}

bool PfDocument::remove(const PfPath &path, std::string &cause) {
  if (path.empty()) {
    cause = "The path is empty";
    return false;
  }
  PfNode *parent = &root;
  for (std::size_t i = 0; i < path.size(); ++i) {
    PfNode *const next = child_of(*parent, path[i]);
    if (next == nullptr) {
      cause = why_missing(*parent, path, i + 1);
      return false;
    }
    if (i + 1 < path.size()) parent = next;
  }
  PfBlock &block = *parent->block;
  const PfNode *const node = child_of(*parent, path.back());
  if (path.back().is_item()) {
    block.items.erase(block.items.begin() + path.back().index);
  } else {
    block.by_name.erase(path.back().name);
  }
  if (!block.shadowing) {
    const auto at = static_cast<std::ptrdiff_t>(block.position(node));
    block.lines.erase(block.lines.begin() + at);
    return true;
  }
  /* Also removes earlier entries of this name: otherwise they would take effect
   * again. */
  std::erase_if(block.lines, [&](const auto &line) {
    return line->kind != PfNode::kRemark && line->name == path.back().name;
  });
  return true;
}

/* Appends a copy of a line of another block, with the comments directly above it. */
void PfDocument::append_copy(PfNode &owner, const PfBlock &from, std::size_t at,
                             std::uint32_t first_file) {
  const PfNode &value = *from.lines[at];
  const std::string indent = child_indent(owner);
  auto copy = std::make_unique<PfNode>(copy_node(value, first_file));
  if (value.indent() != indent || copy->raw.ends_with("\r\n") != (eol == "\r\n")) {
    lay_out_value(*copy, indent, eol, false, 0);
  }
  open_block(owner, eol);
  if (const std::string_view comments = comments_above(from, at); !comments.empty()) {
    auto remark = std::make_unique<PfNode>();
    remark->raw = laid_out_comments(comments, indent, eol);
    owner.block->append(owner.kind, std::move(remark));
  }
  owner.block->append(owner.kind, std::move(copy));
}

void PfDocument::merge_node(PfNode &into, const PfNode &from, MergeOptions options,
                            std::uint32_t first_file) {
  const auto &lines = from.block->lines;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const PfNode &value = *lines[i];
    if (!value.is_value()) continue;
    PfNode *const present = child_of(into, {value.name, -1});
    if (present == nullptr) {
      append_copy(into, *from.block, i, first_file);
    } else if (present->kind == PFARR && value.kind == PFARR) {
      merge_node(*present, value, options, first_file);
    } else if (options.keep_present) {
      continue;
    } else if (present->kind == PFTBL && value.kind == PFTBL && options.append_tables) {
      for (std::size_t item = 0; item < value.block->lines.size(); ++item) {
        if (!value.block->lines[item]->is_value()) continue;
        append_copy(*present, *value.block, item, first_file);
      }
    } else {
      give_value(*present, value);
      present->place = {value.place.file + first_file, value.place.line};
    }
  }
}

void PfDocument::merge(const PfDocument &later, MergeOptions options) {
  const auto first_file = static_cast<std::uint32_t>(files.size());
  files.insert(files.end(), later.files.begin(), later.files.end());
  merge_node(root, later.root, options, first_file);
}

}  // namespace ksutil
