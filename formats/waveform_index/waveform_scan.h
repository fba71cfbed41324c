/* waveform_scan: finds the miniSEED and SAC files of folders, with the pieces that they hold.
 *
 * Only headers are read.  Memory holds some hundred bytes for each file and 64 for each
 * piece. */
#ifndef KSUTIL_FORMATS_WAVEFORM_INDEX_WAVEFORM_SCAN_H
#define KSUTIL_FORMATS_WAVEFORM_INDEX_WAVEFORM_SCAN_H

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ksutil::waveform_index {

/* A channel as files name it; "" is a code that is not known. */
struct ChannelCodes {
  std::string net, sta, loc, chan;
  auto operator<=>(const ChannelCodes &) const =
      default;  // NOLINT(modernize-use-nullptr)
};

enum class FileKind { kMiniseed, kSac, kOther, kUnreadable };

/* The kind of a file, by its first bytes; kUnreadable, with errno in `error`, when these
 * cannot be read. */
FileKind kind_of_file(const std::string &path, int *error = nullptr);

struct ScannedPiece {
  std::uint32_t channel = 0;  // in Scan::channels
  double time = 0.0, endtime = 0.0, samprate = 0.0;
  std::int64_t nsamp = 0, foff = 0;
  double calib = 0.0;           // nm, nm/s or nm/s^2 per count; 0 unknown
  const char *datatype = "sd";  // of wfdisc
};

struct ScannedFile {
  std::uint32_t folder = 0;  // in Scan::folders
  std::string name;
  std::size_t first = 0, count = 0;  // of its pieces
};

struct ScanListener {
  std::function<void(std::int64_t files)> reached = [](std::int64_t) {};
  /* A file that is a waveform file by its beginning, but cannot be used; a file or folder
   * that cannot be read. */
  std::function<void(const std::string &path, const std::string &why)> refused =
      [](const std::string &, const std::string &) {};
  /* A remark on a file that is used: lost samples, foreign bytes. */
  std::function<void(const std::string &path, const std::string &what)> noted =
      [](const std::string &, const std::string &) {};
  std::function<void(const std::string &path)> other = [](const std::string &) {};
};

class Scan {
 public:
  explicit Scan(const ScanListener &listener) : listener_(listener) {}

  /* Takes a file, or all files of a folder and of the folders below it in the order of
   * their names.  Symbolic links are followed; no file and no folder is taken twice.
   * False, with a message, when the path cannot be read at all. */
  bool add(const std::string &path);

  const std::vector<std::string> &folders() const { return folders_; }  // absolute
  const std::vector<ChannelCodes> &channels() const { return channels_; }
  const std::vector<ScannedFile> &files() const { return files_; }
  const std::vector<ScannedPiece> &pieces() const { return pieces_; }
  /* The folders that were given to add, absolute. */
  const std::vector<std::string> &roots() const { return roots_; }

 private:
  using Identity = std::pair<std::uint64_t, std::uint64_t>;  // device and inode

  void add_folder(const std::string &path, int depth);
  void add_file(const std::string &path);
  void refuse_unless_gone(const std::string &path);
  bool read_miniseed(const std::string &path);
  bool read_sac(const std::string &path, std::string &why);
  std::uint32_t channel(const ChannelCodes &codes);

  const ScanListener &listener_;
  std::vector<std::string> folders_, roots_;
  std::map<std::string, std::uint32_t> known_folders_;
  std::vector<ChannelCodes> channels_;
  std::map<ChannelCodes, std::uint32_t> known_channels_;
  std::vector<ScannedFile> files_;
  std::vector<ScannedPiece> pieces_;
  std::set<Identity> seen_;
  std::int64_t looked_at_ = 0;
};

}  // namespace ksutil::waveform_index
#endif
