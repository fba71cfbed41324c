/* source: reads vectors from files for the subcommands, and prints them. */
#ifndef KSUTIL_TOOLS_KSVECTOR_SOURCE_H
#define KSUTIL_TOOLS_KSVECTOR_SOURCE_H

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "objects/ksvector.h"
#include "tools/common/cli.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

enum class FileKind { kAny, kFap, kTable };

/* How to read a file: columns of a text table count from 0. */
struct SourceOptions {
  FileKind kind = FileKind::kAny;
  int skip = 0, x = 0, label = -1;
  std::vector<int> y;  // none: column 1
};

/* Adds --kind, --skip, --x, --y and --label. */
void add_source_options(CLI::App &command, SourceOptions &options);

/* A vector that is freed at the end of its scope. */
class Vector {
 public:
  Vector() = default;
  ~Vector() { ksvector_free(tag_); }
  Vector(const Vector &) = delete;
  Vector &operator=(const Vector &) = delete;

  /* Reads a file, which of any kind is a response if its first lines say so, else a text
   * table.  False, with messages in the register, on failure. */
  bool read(const std::string &file, const SourceOptions &options);

  explicit operator bool() const { return *tag_ != '\0'; }
  char *tag() { return tag_; }
  const KSVector *operator->() const { return ksvector_get_vector(tag_); }
  bool is_response() const { return response_; }

 private:
  bool read_response(const std::string &file);
  bool read_table(const std::string &file, const SourceOptions &options);

  char tag_[KS_TAG_SIZE] = "";
  bool response_ = false;
};

/* The columns x, y (or y0, y1, ...) and, on demand, label. */
std::vector<Column> point_columns(int ny, bool with_labels);

/* Prints the points of a vector, at most `limit` of them. */
void print_points(const KSVector &vector, Form form, long limit = LONG_MAX);

}  // namespace ksutil::tools
#endif
