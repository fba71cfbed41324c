#include "formats/exchange/stations/response_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "formats/exchange/import/gathering.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"

namespace ksutil::exchange {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr std::size_t kHashDigits = 12;
constexpr int kMostNumber = 1000;
constexpr char kStagedFile[] = "/response";

/* The description in the characters that a name may have. */
std::string slug_of(const std::string &description, std::size_t most) {
  std::string slug;
  for (const char c : description) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      slug += c;
    } else if (!slug.empty() && slug.back() != '-') {
      slug += '-';
    }
    if (slug.size() == most) break;
  }
  while (!slug.empty() && slug.back() == '-') slug.pop_back();
  return slug.empty() ? "response" : slug;
}

std::string hash_text(std::string_view content) {
  std::uint64_t hash = hash_of(content);
  std::string text;
  for (std::size_t i = 0; i < kHashDigits; i++, hash /= 36) {
    text += "0123456789abcdefghijklmnopqrstuvwxyz"[hash % 36];
  }
  return text;
}

bool is_there(const std::string &path) {
  struct stat facts {};
  return lstat(path.c_str(), &facts) == 0;
}

bool same_content(const std::string &a, const std::string &b) {
  std::string first, second;
  return read_file(a, kMostBytes, first) && read_file(b, kMostBytes, second) &&
         first == second;
}

}  // namespace

std::string response_kind(const Response &response) {
  bool poles = false, digital = false, table = false;
  for (const ResponseStage &stage : response.stages) {
    const auto *filter = std::get_if<PoleZeroFilter>(&stage.filter);
    const bool z =
        filter != nullptr && filter->domain == PoleZeroFilter::Domain::kDigital;
    poles |= filter != nullptr && !z;
    digital |= z || std::holds_alternative<CoefficientFilter>(stage.filter);
    table |= std::holds_alternative<TableFilter>(stage.filter);
  }
  if (table) return "fap";
  if (poles && digital) return "pazfir";
  return digital ? "fir" : "paz";
}

ResponseFiles::~ResponseFiles() {
  for (const auto &[name, path] : by_name_) unlink(path.c_str());
  if (staging_.empty()) return;
  unlink((staging_ + kStagedFile).c_str());
  rmdir(staging_.c_str());
}

bool ResponseFiles::make_directory(std::string &problem) {
  if (!staging_.empty()) return true;
  const char *folder = std::getenv("TMPDIR");
  std::string path =
      std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") +
      "/responses-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    problem = "cannot make a directory " + path + ": " + std::strerror(errno);
    return false;
  }
  staging_ = path;
  return true;
}

bool ResponseFiles::stage(const Response &response, const std::string &description,
                          std::string &name, std::string &problem) {
  if (!make_directory(problem)) return false;
  const std::string path = staging_ + kStagedFile;
  std::string content;
  if (!write_response_file(path, response, problem)) return false;
  if (!read_file(path, kMostBytes, content)) {
    problem = path + ": " + std::strerror(errno);
    return false;
  }
  /* Room for a number behind the name. */
  name = slug_of(description, kMostName - kHashDigits - 5) + "-" + hash_text(content);
  if (by_name_.contains(name)) return true;
  const std::string staged = staging_ + "/" + name;
  if (rename(path.c_str(), staged.c_str()) != 0) {
    problem = staged + ": " + std::strerror(errno);
    return false;
  }
  by_name_.emplace(name, staged);
  return true;
}

std::string ResponseFiles::free_name(const std::string &name,
                                     const std::string &directory) const {
  const auto staged = by_name_.find(name);
  if (staged == by_name_.end() || directory.empty()) return name;
  std::string free = name;
  for (int number = 2; number < kMostNumber; number++) {
    const std::string path = directory + "/" + free;
    if (!is_there(path) || same_content(path, staged->second)) break;
    free = name + "-" + std::to_string(number);
  }
  return free;
}

bool ResponseFiles::publish_one(const std::string &name, const std::string &directory) {
  const std::string &staged = by_name_.at(name);
  const std::string path = directory + "/" + free_name(name, directory);
  if (is_there(path)) return true;
  std::string content;
  if (!read_file(staged, kMostBytes, content)) {
    elog_log(1, "import: cannot read %s.\n", staged.c_str());
    return false;
  }
  const std::string draft = path + ".new-" + std::to_string(getpid());
  const FileHandle file = open_file(draft, O_WRONLY | O_CREAT | O_EXCL);
  bool good = static_cast<bool>(file);
  if (good) {
    good = write_all(file.get(), content.data(), content.size()) ==
               static_cast<ssize_t>(content.size()) &&
           sync_file(file.get()) == 0;
    /* A link, unlike a renaming, never replaces a file. */
    if (good) good = link(draft.c_str(), path.c_str()) == 0;
    const int cause = errno;
    unlink(draft.c_str());
    errno = cause;
  }
  if (good) {
    made_.push_back(path);
    return true;
  }
  elog_log(1, "import: cannot write %s.\n", path.c_str());
  return false;
}

bool ResponseFiles::publish(const std::vector<std::string> &names,
                            const std::string &directory) {
  if (names.empty()) return true;
  if (mkdir(directory.c_str(), 0777) == 0) {
    made_directory_ = directory;
  } else if (errno != EEXIST) {
    elog_log(1, "import: cannot make the directory %s.\n", directory.c_str());
    return false;
  }
  const bool good = std::all_of(
      names.begin(), names.end(),
      [&](const std::string &name) { return publish_one(name, directory); });
  if (!good) take_back();
  return good;
}

void ResponseFiles::take_back() {
  for (const std::string &path : made_) unlink(path.c_str());
  made_.clear();
  if (!made_directory_.empty()) rmdir(made_directory_.c_str());
  made_directory_.clear();
}

}  // namespace ksutil::exchange
