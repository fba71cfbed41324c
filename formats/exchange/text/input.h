/* Input: the text of a file, of standard input or of memory, piece by piece.
 *
 * A byte-order mark is skipped; text in UTF-16 that begins with one, or with the "<" of
 * XML, is given as UTF-8, a broken surrogate as U+FFFD.  All other bytes are given as they are. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_INPUT_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_INPUT_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/stock/files.h"

namespace ksutil::exchange {

class Input {
 public:
  /* Opens a file, or standard input for "-"; null, with `problem` set, on failure. */
  static std::unique_ptr<Input> open(const std::string &path, std::string &problem);

  /* A text in memory; `name` stands in messages. */
  static std::unique_ptr<Input> of_text(const std::string &name, std::string text);

  /* The path, "standard input", or the name that was given. */
  const std::string &name() const { return name_; }

  /* The beginning of the text, up to kHead bytes, for a look before it is read. */
  static constexpr std::size_t kHead = 65536;
  std::string_view head() const { return head_; }

  /* Appends the next piece of the text, at most about 256 KiB; false at the end and after
   * a failure (see problem()). */
  bool read(std::string &text);
  const std::string &problem() const { return problem_; }

  /* Whether the bytes were in another encoding, and the text is UTF-8 for certain. */
  bool is_converted() const { return encoding_ != Encoding::kBytes; }

  /* Bytes of the text that have been read, and of all of it; 0: not known. */
  std::int64_t consumed() const { return consumed_; }
  std::int64_t size() const { return size_; }

 private:
  enum class Encoding { kBytes, kUtf16Little, kUtf16Big };
  Input(std::string name, FileHandle file, int fd);
  void begin();
  bool read_bytes(std::string &bytes);
  ssize_t take_from_memory(char *to, std::size_t most);
  void decode(std::string_view bytes, bool last, std::string &text);

  const std::string name_;
  FileHandle file_;  // empty for standard input
  const int fd_;     // kMemory: the text is memory_
  static constexpr int kMemory = -1;
  std::string memory_;
  std::string head_, problem_, buffer_;
  bool head_given_ = false, at_end_ = false;
  Encoding encoding_ = Encoding::kBytes;
  std::string half_;             // of a UTF-16 unit
  std::uint32_t surrogate_ = 0;  // the first of a pair that is not complete
  std::int64_t consumed_ = 0, size_ = 0;
};

}  // namespace ksutil::exchange
#endif
