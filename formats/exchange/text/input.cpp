#include "formats/exchange/text/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ksutil::exchange {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 18;

void put_utf8(std::uint32_t code, std::string &text) {
  const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xc0 | code >> 6);
  } else if (code < 0x10000) {
    put(0xe0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3f));
  } else {
    put(0xf0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3f));
    put(0x80 | (code >> 6 & 0x3f));
  }
  put(0x80 | (code & 0x3f));
}

constexpr std::uint32_t kReplacement = 0xfffd;

}  // namespace

std::unique_ptr<Input> Input::open(const std::string &path, std::string &problem) {
  std::unique_ptr<Input> input;
  if (path == "-") {
    input.reset(new Input("standard input", FileHandle(), STDIN_FILENO));
  } else {
    FileHandle file = open_file(path, O_RDONLY);
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0) {
      problem = "cannot open " + path + ": " + std::strerror(errno);
      return nullptr;
    }
    if (S_ISDIR(status.st_mode)) {
      problem = path + " is a directory";
      return nullptr;
    }
    const int fd = file.get();
    input.reset(new Input(path, std::move(file), fd));
    if (S_ISREG(status.st_mode)) input->size_ = status.st_size;
  }
  input->begin();
  problem = input->problem_;
  return problem.empty() ? std::move(input) : nullptr;
}

std::unique_ptr<Input> Input::of_text(const std::string &name, std::string text) {
  std::unique_ptr<Input> input(new Input(name, FileHandle(), kMemory));
  input->memory_ = std::move(text);
  input->size_ = static_cast<std::int64_t>(input->memory_.size());
  input->begin();
  return input;
}

ssize_t Input::take_from_memory(char *to, std::size_t most) {
  const auto from = static_cast<std::size_t>(consumed_);
  const std::size_t bytes = std::min(most, memory_.size() - from);
  std::copy_n(memory_.data() + from, bytes, to);
  errno = 0;
  return static_cast<ssize_t>(bytes);
}

Input::Input(std::string name, FileHandle file, int fd)
    : name_(std::move(name)), file_(std::move(file)), fd_(fd) {}

/* Reads the head and settles the encoding. */
void Input::begin() {
  std::string bytes(kHead, '\0');
  const ssize_t got = fd_ == kMemory ? take_from_memory(bytes.data(), bytes.size())
                                     : read_all(fd_, bytes.data(), bytes.size());
  if (got < 0 || (static_cast<std::size_t>(got) < kHead && errno != 0)) {
    problem_ = "cannot read " + name_ + ": " + std::strerror(errno);
    return;
  }
  bytes.resize(static_cast<std::size_t>(got));
  consumed_ = got;
  at_end_ = bytes.size() < kHead;
  std::string_view rest = bytes;
  if (rest.starts_with("\xef\xbb\xbf")) {
    rest.remove_prefix(3);
  } else if (rest.starts_with("\xff\xfe")) {
    encoding_ = Encoding::kUtf16Little;
    rest.remove_prefix(2);
  } else if (rest.starts_with("\xfe\xff")) {
    encoding_ = Encoding::kUtf16Big;
    rest.remove_prefix(2);
  } else if (rest.starts_with(std::string_view("<\0", 2))) {
    encoding_ = Encoding::kUtf16Little;
  } else if (rest.starts_with(std::string_view("\0<", 2))) {
    encoding_ = Encoding::kUtf16Big;
  }
  decode(rest, at_end_, head_);
}

bool Input::read_bytes(std::string &bytes) {
  if (at_end_) return false;
  bytes.resize(kPiece);
  /* One read: a pipe is shown as it comes. */
  ssize_t got;
  do {
    got = fd_ == kMemory ? take_from_memory(bytes.data(), bytes.size())
                         : system_file_calls().read(fd_, bytes.data(), bytes.size());
  } while (got < 0 && errno == EINTR);
  if (got < 0) problem_ = "cannot read " + name_ + ": " + std::strerror(errno);
  at_end_ = got <= 0;
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  consumed_ += static_cast<std::int64_t>(bytes.size());
  return got > 0;
}

bool Input::read(std::string &text) {
  if (!head_given_) {
    head_given_ = true;
    text += head_;
    if (!head_.empty()) return true;
  }
  const std::size_t before = text.size();
  while (read_bytes(buffer_)) {
    decode(buffer_, false, text);
    if (text.size() > before) return true;
  }
  if (problem_.empty()) decode({}, true, text);
  return text.size() > before;
}

void Input::decode(std::string_view bytes, bool last, std::string &text) {
  if (encoding_ == Encoding::kBytes) {
    text += bytes;
    return;
  }
  const auto unit = [this, &text](unsigned char first, unsigned char second) {
    const std::uint32_t code = encoding_ == Encoding::kUtf16Little
                                   ? first | std::uint32_t{second} << 8
                                   : second | std::uint32_t{first} << 8;
    const bool high = code >= 0xd800 && code < 0xdc00;
    const bool low = code >= 0xdc00 && code < 0xe000;
    if (surrogate_ != 0 && low) {
      put_utf8(0x10000 + ((surrogate_ - 0xd800) << 10) + (code - 0xdc00), text);
      surrogate_ = 0;
      return;
    }
    if (surrogate_ != 0) put_utf8(kReplacement, text);
    surrogate_ = high ? code : 0;
    if (!high) put_utf8(low ? kReplacement : code, text);
  };
  std::size_t at = 0;
  if (!half_.empty() && !bytes.empty()) {
    unit(static_cast<unsigned char>(half_[0]), static_cast<unsigned char>(bytes[0]));
    half_.clear();
    at = 1;
  }
  for (; at + 1 < bytes.size(); at += 2) {
    unit(static_cast<unsigned char>(bytes[at]),
         static_cast<unsigned char>(bytes[at + 1]));
  }
  if (at < bytes.size()) half_ = bytes.substr(at);
  if (last && (surrogate_ != 0 || !half_.empty())) {
    put_utf8(kReplacement, text);
    surrogate_ = 0;
    half_.clear();
  }
}

}  // namespace ksutil::exchange
