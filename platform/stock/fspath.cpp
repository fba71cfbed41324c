#include "platform/stock/fspath.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "platform/stock/files.h"
#include "platform/stock/memory.h"

namespace {

using ksutil::MallocPtr;

constexpr std::size_t kMaxMountTable = 16 << 20;

/* File systems that live on another host.  9p and virtiofs are not among them: they serve
 * a virtual machine from the disk of the machine that runs it. */
constexpr std::array<std::string_view, 14> kNetworkTypes = {
    "nfs", "nfs4", "cifs",      "smb3",           "smbfs",     "sshfs", "fuse.sshfs",
    "afs", "ceph", "fuse.ceph", "fuse.glusterfs", "glusterfs", "ncpfs", "coda"};

std::mutex table_mutex;
std::string &table_path() {
  static auto *path = new std::string("/proc/self/mounts");  // outlives static objects
  return *path;
}

struct Mount {
  std::string device, point, type;
};

/* A field of the mount table, where blanks are written as octal escapes (\040). */
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const auto octal = [&](std::size_t k) {
      return i + k < field.size() && field[i + k] >= '0' && field[i + k] <= '7';
    };
    if (field[i] == '\\' && octal(1) && octal(2) && octal(3)) {
      const int code =
          (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
      text += static_cast<char>(code);
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

/* Takes the next blank-separated word off a line. */
std::string_view next_word(std::string_view &line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(" \t"));
  line.remove_prefix(word.size());
  return word;
}

bool lies_under(std::string_view path, std::string_view point) {
  if (point == "/") return true;
  return path.starts_with(point) &&
         (path.size() == point.size() || path[point.size()] == '/');
}

/* The mount that holds the resolved path: the longest mount point above it, and of
 * several mounts at one point the last, which hides the others. */
Mount mount_of(std::string_view path) {
  std::string table;
  {
    const std::lock_guard lock(table_mutex);
    ksutil::read_file(table_path(), kMaxMountTable, table);
  }
  Mount best;
  std::string_view rest = table;
  while (!rest.empty()) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::string_view device = next_word(line);
    std::string point = unescaped(next_word(line));
    const std::string_view type = next_word(line);
    if (type.empty() || !lies_under(path, point)) continue;
    if (point.size() < best.point.size()) continue;
    best = Mount{unescaped(device), std::move(point), std::string(type)};
  }
  return best;
}

/* The host in "host:/path", "user@host:path", "[address]:/path", "host:port,host:/path"
 * or "//host/share"; empty when the device names none. */
std::string host_in(std::string_view device) {
  if (device.starts_with("//")) {
    device.remove_prefix(2);
    return std::string(device.substr(0, device.find('/')));
  }
  const std::size_t at = device.find('@');
  if (at != device.npos && at < device.find_first_of(":/"))
    device.remove_prefix(at + 1);
  if (device.starts_with('[')) {
    const std::size_t close = device.find(']');
    return close == device.npos ? "" : std::string(device.substr(1, close - 1));
  }
  const std::size_t stop = device.find_first_of(":,/");
  if (stop == device.npos || device[stop] == '/') return "";
  return std::string(device.substr(0, stop));
}

MallocPtr<char> resolved(const char *path) {
  return MallocPtr<char>(::realpath(path, nullptr));
}

/* The resolved path, empty when neither the file nor its directory exists. */
std::string full_path(const std::string &path) {
  if (const auto whole = resolved(path.c_str())) return whole.get();
  const std::size_t slash = path.rfind('/');
  const std::string name = slash == path.npos ? path : path.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return "";
  const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
  const auto above = resolved(folder.c_str());
  if (!above) return "";
  const std::string_view base = above.get();
  return std::string(base) + (base == "/" ? "" : "/") + name;
}

}  // namespace

int fspath(const char *path, char **local, char **host) try {
  *local = *host = nullptr;
  if (path == nullptr || *path == '\0') return -1;
  const std::string full = full_path(path);
  if (full.empty()) return -1;
  const Mount mount = mount_of(full);
  std::string server;
  if (std::find(kNetworkTypes.begin(), kNetworkTypes.end(), mount.type) !=
      kNetworkTypes.end()) {
    server = host_in(mount.device);
    if (server.empty()) server = mount.type;
  }
  MallocPtr<char> local_text(ks_strdup(full.c_str()));
  MallocPtr<char> host_text(ks_strdup(server.c_str()));
  if (!local_text || !host_text) return -1;
  *local = local_text.release();
  *host = host_text.release();
  return 0;
} catch (const std::bad_alloc &) {
  return -1;
}

void ksutil::set_mount_table(const char *path) {
  const std::lock_guard lock(table_mutex);
  table_path() = path != nullptr ? path : "/proc/self/mounts";
}
