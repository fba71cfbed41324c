#include "tools/ksvector/check_source.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* Reads the lines of a text file as the library does, and complains about lines that
 * the library would cut. */
class Lines {
 public:
  explicit Lines(const std::string &file)
      : file_(file), stream_(std::fopen(file.c_str(), "re"), std::fclose) {}

  /* Goes to the next line and splits it into its words.  False at the end, also of a
   * file that cannot be read: the reader reports that. */
  bool next(const char *separators) {
    if (stream_ == nullptr || failed_) return false;
    std::string line;
    int c = std::getc(stream_.get());
    if (c == EOF) return false;
    for (; c != EOF && c != '\n'; c = std::getc(stream_.get())) {
      if (line.size() == kMaxLine) return fail_here("is longer than 1023 characters");
      if (c != '\t' && c != '\r' && (c < ' ' || c == 0x7f)) {
        return fail_here("has bytes that are not text: this is a binary file");
      }
      line.push_back(static_cast<char>(c));
    }
    ++number_;
    comment_ = line.starts_with('#');
    words_.clear();
    const std::string ends = std::string(separators) + "\t\r";
    for (std::size_t at = line.find_first_not_of(ends); at != std::string::npos;) {
      const std::size_t end = std::min(line.find_first_of(ends, at), line.size());
      words_.push_back(line.substr(at, end - at));
      at = line.find_first_not_of(ends, end);
    }
    return true;
  }

  /* The next line that is neither empty nor a comment. */
  bool next_data(const char *separators) {
    while (next(separators)) {
      if (!comment_ && !words_.empty()) return true;
    }
    return false;
  }

  const std::vector<std::string> &words() const { return words_; }
  bool failed() const { return failed_; }

  /* Complains about the current line; false. */
  bool fail(const std::string &text) {
    complain(file_ + ":" + std::to_string(number_) + ": " + text);
    failed_ = true;
    return false;
  }

 private:
  static constexpr std::size_t kMaxLine = 1023;

  /* Complains about the line that is being read. */
  bool fail_here(const char *text) {
    ++number_;
    return fail(std::string("the line ") + text);
  }

  const std::string &file_;
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream_;
  std::int64_t number_ = 0;
  bool comment_ = false, failed_ = false;
  std::vector<std::string> words_;
};

bool is_number(const std::string &word) {
  double value;
  return parse_real(word, value);
}

}  // namespace

bool check_table(const std::string &file, const SourceOptions &options) {
  std::vector<int> columns = options.y.empty() ? std::vector<int>{1} : options.y;
  columns.push_back(options.x);
  std::sort(columns.begin(), columns.end());
  Lines lines(file);
  for (int skipped = 0; skipped < options.skip && lines.next(", "); ++skipped) {
  }
  while (lines.next_data(", ")) {
    std::vector<std::string> words = lines.words();
    words.erase(std::find_if(words.begin(), words.end(),
                             [](const std::string &word) { return word[0] == '#'; }),
                words.end());
    if (words.empty()) continue;
    for (const int column : columns) {
      const auto index = static_cast<std::size_t>(column);
      if (index >= words.size()) {
        return lines.fail("column " + std::to_string(column) + " is missing");
      }
      if (!is_number(words[index])) {
        return lines.fail("'" + words[index] + "' in column " + std::to_string(column) +
                          " is not a number; is this a table? (--skip passes over "
                          "headings)");
      }
    }
  }
  return !lines.failed();
}

bool check_response(const std::string &file) {
  Lines lines(file);
  if (!lines.next_data(" ")) return !lines.failed();
  const std::string form = lines.words().size() > 3 ? lines.words()[3] : "";
  const std::size_t width = form == "fap2" ? 7 : 3;
  if (!lines.next_data(" ")) return !lines.failed();
  std::int64_t count = 0;
  if (!parse_integer(lines.words()[0], count)) {
    return lines.fail("'" + lines.words()[0] + "' is not a number of rows");
  }
  for (std::int64_t row = 0; row < count; ++row) {
    if (!lines.next_data(" ")) {
      return !lines.failed() &&
             lines.fail("the file ends after " + std::to_string(row) + " of " +
                        std::to_string(count) + " rows");
    }
    const std::vector<std::string> &words = lines.words();
    const std::size_t numbers = static_cast<std::size_t>(
        std::find_if_not(words.begin(), words.end(), is_number) - words.begin());
    if (numbers < std::min(width, words.size())) {
      return lines.fail("'" + words[numbers] + "' is not a number");
    }
    if (numbers < width) {
      return lines.fail("the row has " + std::to_string(numbers) + " of " +
                        std::to_string(width) + " columns");
    }
  }
  return true;
}

}  // namespace ksutil::tools
