#include "formats/waveform_index/waveform_scan.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

#include "formats/kssac.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/folder.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"
#include "platform/trace/miniseed.h"

namespace ksutil::waveform_index {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHead = 640;        // bytes that tell the kind of a file
constexpr std::size_t kLongHead = 65536;  // where records follow a damaged one
constexpr int kMostDepth = 64;            // of folders

std::uint32_t word(const char *from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

struct Head {
  std::string bytes;      // the first ones of a regular file, of others none
  std::int64_t size = 0;  // of the file
  int error = 0;          // errno when it cannot be read
};

Head head_of(const std::string &path, std::size_t most = kHead) {
  Head head;
  const FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    head.error = errno;
    return head;
  }
  if (!S_ISREG(status.st_mode)) return head;
  head.size = status.st_size;
  head.bytes.resize(most);
  const ssize_t got = read_at(file.get(), head.bytes.data(), most, 0);
  if (got < 0 || (head.bytes.size() > static_cast<std::size_t>(got) && errno != 0)) {
    head.error = errno;
  }
  head.bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return head;
}

FileKind kind_of(std::string_view head) {
  constexpr std::size_t kVersionAt = 304;
  if (miniseed_recognise(head)) return FileKind::kMiniseed;
  if (head.size() < KSSAC_HEADER_SIZE) return FileKind::kOther;
  const std::uint32_t version = word(head.data() + kVersionAt);
  return version == 6 || __builtin_bswap32(version) == 6 ? FileKind::kSac
                                                         : FileKind::kOther;
}

struct FreeKssac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};

/* The header of a SAC file in either byte order. */
class SacHeader {
 public:
  explicit SacHeader(std::string_view head) : kssac_(kssac_create(nullptr, nullptr)) {
    constexpr std::size_t kVersionAt = 304, kTexts = 440;
    swapped_ = word(head.data() + kVersionAt) != 6;
    if (kssac_ == nullptr) return;
    char *const header = kssac_->image->header;
    std::copy_n(head.data(), KSSAC_HEADER_SIZE, header);
    if (!swapped_) return;
    for (std::size_t at = 0; at < kTexts; at += 4)
      std::reverse(header + at, header + at + 4);
  }
  explicit operator bool() const { return kssac_ != nullptr; }
  bool swapped() const { return swapped_; }
  KSSac *record() const { return kssac_.get(); }

  bool known(const char *name, double &value) const {
    return kssac_gethdr_kssac(kssac_.get(), name, &value, (char *)nullptr) == 0 &&
           std::isfinite(value) && value != -12345.0;
  }
  bool known(const char *name, std::int64_t &value) const {
    return kssac_gethdr_kssac(kssac_.get(), name, &value, (char *)nullptr) == 0 &&
           value != -12345;
  }
  std::string text(const char *name) const {
    char found[17] = "";
    kssac_gethdr_kssac(kssac_.get(), name, found, (char *)nullptr);
    const std::string_view value = trimmed(found);
    return value == "-12345" ? "" : std::string(value);
  }

 private:
  std::unique_ptr<KSSac, FreeKssac> kssac_;
  bool swapped_ = false;
};

/* The rate with the fewest digits whose reciprocal is DELTA in single precision. */
double samprate_of(double delta) {
  for (int digits = 1; digits < 10; ++digits) {
    double rate;
    if (parse_real(format_text("%.*g", digits, 1.0 / delta), rate) &&
        static_cast<float>(1.0 / rate) == static_cast<float>(delta)) {
      return rate;
    }
  }
  return 1.0 / delta;
}

/* The text of the messages that a scope registered, on one line. */
std::string taken(ElogScope &scope) {
  const MallocPtr<char> text(elog_string(0));
  scope.drop();
  std::string line = text == nullptr ? "" : text.get();
  while (!line.empty() && line.back() == '\n') line.pop_back();
  const std::size_t colon = line.rfind('\n');
  return colon == line.npos ? line : line.substr(colon + 1);
}

}  // namespace

FileKind kind_of_file(const std::string &path, int *error) {
  Head head = head_of(path);
  FileKind kind = kind_of(head.bytes);
  if (kind == FileKind::kOther && head.size > std::int64_t{kHead} && head.error == 0) {
    head = head_of(path, kLongHead);
    if (miniseed_recognise(head.bytes)) kind = FileKind::kMiniseed;
  }
  if (error != nullptr) *error = head.error;
  return head.error == 0 ? kind : FileKind::kUnreadable;
}

bool Scan::add(const std::string &path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  const bool is_folder = !error && fs::is_directory(real, error);
  if (error) {
    elog_log(0, "import: %s: %s.\n", path.c_str(), error.message().c_str());
    return false;
  }
  if (is_folder) {
    roots_.push_back(real.string());
    add_folder(real.string(), 0);
  } else {
    add_file(real.string());
  }
  return true;
}

void Scan::add_folder(const std::string &path, int depth) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    listener_.refused(path, std::strerror(errno));
    return;
  }
  if (!seen_.emplace(status.st_dev, status.st_ino).second) return;
  if (depth > kMostDepth) {
    listener_.refused(path, "the folders are nested too deeply");
    return;
  }
  std::vector<std::string> names;
  FolderNames folder(path);
  while (const char *const name = folder.next()) names.emplace_back(name);
  if (folder.error() != 0) listener_.refused(path, std::strerror(folder.error()));
  std::sort(names.begin(), names.end());
  for (const std::string &name : names) {
    const std::string below = path + (path.back() == '/' ? "" : "/") + name;
    struct stat kind {};
    if (::stat(below.c_str(), &kind) != 0) {
      refuse_unless_gone(below);
    } else if (S_ISDIR(kind.st_mode)) {
      add_folder(below, depth + 1);
    } else {
      add_file(below);
    }
  }
}

/* After a look that failed: a link that leads nowhere is not a waveform file, but one that
 * the disk does not show may be. */
void Scan::refuse_unless_gone(const std::string &path) {
  if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) {
    listener_.other(path);
  } else {
    listener_.refused(path, std::strerror(errno));
  }
}

void Scan::add_file(const std::string &path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    refuse_unless_gone(path);
    return;
  }
  if (!S_ISREG(status.st_mode)) {
    listener_.other(path);
    return;
  }
  if (!seen_.emplace(status.st_dev, status.st_ino).second) return;
  listener_.reached(++looked_at_);
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
  ScannedFile file;
  file.name = path.substr(slash + 1);
  file.first = pieces_.size();
  std::string why;
  int error = 0;
  switch (kind_of_file(path, &error)) {
    case FileKind::kOther:
      listener_.other(path);
      return;
    case FileKind::kUnreadable:
      listener_.refused(path, std::strerror(error));
      return;
    case FileKind::kMiniseed:
      if (!read_miniseed(path)) return;
      break;
    case FileKind::kSac:
      if (read_sac(path, why)) break;
      listener_.refused(path, why);
      return;
  }
  file.count = pieces_.size() - file.first;
  const auto [known, fresh] =
      known_folders_.emplace(folder, static_cast<std::uint32_t>(folders_.size()));
  if (fresh) folders_.push_back(folder);
  file.folder = known->second;
  files_.push_back(std::move(file));
}

bool Scan::read_miniseed(const std::string &path) {
  ElogScope messages;
  MiniseedContents contents;
  if (!miniseed_list(path, contents)) {
    std::string why = taken(messages);
    listener_.refused(path, why.empty() ? "cannot be read" : why);
    return false;
  }
  if (contents.lost_samples > 0) {
    listener_.noted(path, "its last record is cut off; " +
                              std::to_string(contents.lost_samples) +
                              " samples are lost");
  }
  for (const MiniseedPiece &piece : contents.pieces) {
    ScannedPiece &found = pieces_.emplace_back();
    found.channel =
        channel({piece.codes.net, piece.codes.sta, piece.codes.loc, piece.codes.chan});
    found.time = piece.time;
    found.endtime = piece.endtime;
    found.samprate = piece.samprate;
    found.nsamp = piece.nsamp;
    found.foff = piece.foff;
  }
  return true;
}

bool Scan::read_sac(const std::string &path, std::string &why) {
  const Head head = head_of(path);
  if (head.bytes.size() < KSSAC_HEADER_SIZE) {
    why = head.error == 0 ? "it was changed meanwhile" : std::strerror(head.error);
    return false;
  }
  const SacHeader header(head.bytes);
  if (!header) {
    why = "memory is short";
    return false;
  }
  const ElogScope quiet;  // nulls are told below
  std::int64_t type = 0, even = 0, npts = 0, idep = 0;
  double begin, delta, reference;
  header.known("IFTYPE", type);
  header.known("LEVEN", even);
  const std::string sta = header.text("KSTNM"), chan = header.text("KCMPNM");
  if (type != 1 || even == 0 || !header.known("DELTA", delta) || !(delta > 0.0)) {
    why = "it holds no evenly spaced samples";
  } else if (sta.empty() || chan.empty()) {
    why = "it lacks KSTNM or KCMPNM";
  } else if (!header.known("NPTS", npts) || npts < 1 ||
             npts > (head.size - KSSAC_HEADER_SIZE) / 4) {
    why = "it lacks samples that NPTS promises";
  } else if (!header.known("B", begin) ||
             kssac_getreftime_kssac(header.record(), &reference) != 0) {
    why = "it lacks B or the reference time";
  }
  if (!why.empty()) return false;
  ScannedPiece &found = pieces_.emplace_back();
  found.channel = channel({header.text("KNETWK"), sta,
                           std::string(location_code(header.text("KHOLE"))), chan});
  found.samprate = samprate_of(delta);
  found.time = reference + begin;
  found.endtime = found.time + static_cast<double>(npts - 1) / found.samprate;
  found.nsamp = npts;
  found.foff = KSSAC_HEADER_SIZE;
  const bool little = (std::endian::native == std::endian::little) != header.swapped();
  found.datatype = little ? "f4" : "t4";
  /* Displacement, velocity and acceleration are in nm, nm/s and nm/s^2. */
  header.known("IDEP", idep);
  found.calib = idep >= 6 && idep <= 8 ? 1.0 : 0.0;
  return true;
}

std::uint32_t Scan::channel(const ChannelCodes &codes) {
  const auto [known, fresh] =
      known_channels_.emplace(codes, static_cast<std::uint32_t>(channels_.size()));
  if (fresh) channels_.push_back(codes);
  return known->second;
}

}  // namespace ksutil::waveform_index
