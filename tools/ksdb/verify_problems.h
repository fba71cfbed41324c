/* verify_problems: collects the problems that ksdb verify finds, and prints them. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_PROBLEMS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_PROBLEMS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ksutil::tools {

/* Receives each problem of a table: the kind that it counts under, the record (-1: the whole
 * table) and a sentence. */
using Report =
    std::function<void(const std::string &kind, long record, const std::string &text)>;

class Problems {
 public:
  /* At most `limit` problems of each kind and table are kept for printing; all are
   * counted. */
  explicit Problems(long limit) : limit_(limit) {}

  struct Problem {
    long record;  // -1: the whole table
    std::string text;
  };

  Report report_for(const std::string &table);
  bool any() const { return !kinds_.empty(); }
  void clear() { kinds_.clear(); }

  /* Calls visit(table, kind, count, kept) for each kind of problem of each table. */
  template <class Visit>
  void each(const Visit &visit) const {
    for (const auto &[table, kinds] : kinds_) {
      for (const auto &[name, kind] : kinds) visit(table, name, kind.count, kind.kept);
    }
  }

  /* A line for each problem that was kept, then a line with the count of each kind. */
  void print_text() const;

  /* An object with the name of the database, what was mended, and for each table and kind
   * of problem the count and the problems that were kept. */
  void print_object(const std::string &database,
                    const std::vector<std::string> &mended) const;

 private:
  struct Kind {
    long count = 0;
    std::vector<Problem> kept;
  };

  long limit_;
  std::map<std::string, std::map<std::string, Kind>> kinds_;  // by table
};

}  // namespace ksutil::tools
#endif
