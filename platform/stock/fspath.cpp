#include "platform/stock/fspath.h"

#include <mntent.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/memory.h"

namespace {

using ksutil::MallocPtr;

/* File systems that live on another host.  9p and virtiofs are not among them: they serve
 * a virtual machine from the disk of the machine that runs it. */
constexpr std::array<std::string_view, 14> kNetworkTypes = {
    "nfs", "nfs4", "cifs",      "smb3",           "smbfs",     "sshfs", "fuse.sshfs",
    "afs", "ceph", "fuse.ceph", "fuse.glusterfs", "glusterfs", "ncpfs", "coda"};

/* A line of the mount table: an overlay names all its layers in one. */
constexpr std::size_t kLongestLine = 65536;

std::mutex table_mutex;  // guards table_path
std::string &table_path() {
  static auto *path = new std::string("/proc/self/mounts");  // outlives static objects
  return *path;
}

struct Mount {
  std::string device, point, type;
};

struct CloseTable {
  void operator()(std::FILE *table) const { endmntent(table); }
};

bool lies_under(std::string_view path, std::string_view point) {
  if (point == "/") return true;
  return path.starts_with(point) &&
         (path.size() == point.size() || path[point.size()] == '/');
}

/* The mount that holds the resolved path: the longest mount point above it, and of
 * several mounts at one point the last, which hides the others. */
Mount mount_of(std::string_view path) {
  std::unique_ptr<std::FILE, CloseTable> table;
  {
    const std::lock_guard lock(table_mutex);
    table.reset(setmntent(table_path().c_str(), "re"));
  }
  Mount best;
  std::vector<char> room(kLongestLine);
  mntent entry{};
  while (table != nullptr && getmntent_r(table.get(), &entry, room.data(),
                                         static_cast<int>(room.size())) != nullptr) {
    const std::string_view point = entry.mnt_dir;
    if (*entry.mnt_type == '\0' || !lies_under(path, point)) continue;
    if (point.size() < best.point.size()) continue;
    best = Mount{entry.mnt_fsname, std::string(point), entry.mnt_type};
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

std::string ksutil::absolute_path(const std::string &path) {
  std::error_code error;
  const std::filesystem::path full = std::filesystem::absolute(path, error);
  return error ? path : full.string();
}
