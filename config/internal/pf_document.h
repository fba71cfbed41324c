/* pf_document: keeps a parameter file as its author wrote it, every line with its
 * layout and comments, in a tree that can be edited.
 *
 * Lines that an edit does not touch are written back byte for byte.  Functions throw
 * only std::bad_alloc. */
#ifndef KSUTIL_CONFIG_INTERNAL_PF_DOCUMENT_H
#define KSUTIL_CONFIG_INTERNAL_PF_DOCUMENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "config/internal/pf_path.h"
#include "platform/pf/shared/pf_parse.h"

namespace ksutil {

struct PfBlock;

/* The place in which a value was read: a file of the document and a line from 1; line 0
 * for a value that an edit has made. */
struct PfPlace {
  std::uint32_t file = 0;
  std::uint32_t line = 0;
};

/* An entry or item with its line, or the blank lines and comments between two of
 * them. */
struct PfNode {
  enum { kRemark = 0 };  // a further kind, besides PFSTRING, PFTBL and PFARR

  int kind = kRemark;
  bool shadowed = false;             // a later entry of the same name is in force
  std::uint32_t begin = 0, end = 0;  // the value within raw; of a block up to its brace
  PfPlace place;
  std::string raw;  // the line with its line break; of a remark all its lines
  std::string name;
  std::unique_ptr<PfBlock> block;  // of a table or array

  bool is_value() const { return kind != kRemark && !shadowed; }
  std::string_view written() const {
    return std::string_view(raw).substr(begin, end - begin);
  }
  std::string text() const { return text_of_written(written()); }
  /* The blanks before the line's first character. */
  std::string_view indent() const;
};

struct PfBlock {
  std::vector<std::unique_ptr<PfNode>> lines;
  std::vector<PfNode *> items;                             // of a table
  std::unordered_map<std::string_view, PfNode *> by_name;  // of an array: in force
  bool shadowing = false;  // of an array: later entries replaced earlier ones
  std::string closing;     // the line of the closing brace; empty for "{}" and the root

  /* Puts a node before lines[at] and into the index; an item of a table gets the index
   * `item`. */
  void insert(int kind, std::size_t at, std::size_t item, std::unique_ptr<PfNode> node);
  void append(int kind, std::unique_ptr<PfNode> node) {
    insert(kind, lines.size(), items.size(), std::move(node));
  }
  std::size_t position(const PfNode *node) const;
};

/* A copy of a node and all below it, whose places refer to files from `first_file`
 * on. */
PfNode copy_node(const PfNode &node, std::uint32_t first_file = 0);

/* The child of a node at a step of a path; null when there is none. */
PfNode *child_of(const PfNode &node, const PfStep &step);

/* The depth to which blocks are nested in a node. */
int block_height(const PfNode &node);

class PfDocument {
 public:
  PfDocument();
  PfDocument(const PfDocument &other);
  PfDocument(PfDocument &&other) noexcept = default;

  PfNode root;
  std::vector<std::string> files;  // names for messages; empty: a text
  std::string mark;                // the byte-order mark before the first line
  std::string eol = "\n";          // of the lines that edits add

  /* Fills an empty document; false with `error` filled. */
  bool parse(std::string_view text, const std::string &file, PfError &error);

  /* The value at a path; null when there is none. */
  const PfNode *find(const PfPath &path) const;

  std::string text() const;
  /* The tree of a node and all below it, the node at the given depth. */
  static PfPtr tree(const PfNode &node, int depth);

  /* "server.pf:12", "line 12", "server.pf", "". */
  std::string place_text(PfPlace place) const;

  /* --- edits, each true, or false with the cause and the document unchanged --- */

  /* Makes the value at the path a copy of `value`: a text keeps the layout of its line,
   * a block is laid out anew.  Missing arrays on the way are made. */
  bool set(const PfPath &path, const PfNode &value, std::string &cause);

  /* Adds a key at the end of its array, or an item before the one of that index (after
   * the last one when the index is the number of items). */
  bool insert(const PfPath &path, const PfNode &value, std::string &cause);

  /* Removes the lines of a value; comments around it stay. */
  bool remove(const PfPath &path, std::string &cause);

  struct MergeOptions {
    bool append_tables = false;
    bool keep_present = false;
  };
  void merge(const PfDocument &later, MergeOptions options);

  /* Lays the document out anew. */
  void format();

 private:
  PfNode *make_parent(const PfPath &path, const PfNode &value, std::string &cause);
  void give_value(PfNode &node, const PfNode &value);
  PfNode &add(PfNode &owner, std::size_t item, std::string_view name,
              const PfNode &value);
  void merge_node(PfNode &into, const PfNode &from, MergeOptions options,
                  std::uint32_t first_file);
  void append_copy(PfNode &owner, const PfBlock &from, std::size_t at,
                   std::uint32_t first_file);
};

/* A node without a place in any document, for the edits above. */
PfNode text_node(std::string_view text);

/* Reads the written form of a value, a text or a block; false with `error`. */
bool parse_value(std::string_view written, PfNode &value, PfError &error);

/* Lays the lines within a block out anew at an indentation; with `align` the values of
 * neighbouring entries stand in a column. */
void lay_out_block(PfNode &node, const std::string &indent, const std::string &eol,
                   bool align);
/* The same for the line of a value and all below it; its name is padded to `width`. */
void lay_out_value(PfNode &node, const std::string &indent, const std::string &eol,
                   bool align, std::size_t width);

}  // namespace ksutil
#endif
