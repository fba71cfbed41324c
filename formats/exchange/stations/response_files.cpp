#include "formats/exchange/stations/response_files.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "formats/exchange/import/gathering.h"
#include "platform/elog/elog.h"
#include "platform/stock/draft_file.h"
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

/* All numbers of a response, as bytes: equal responses give equal bytes. */
class ResponseBytes {
 public:
  explicit ResponseBytes(const Response &response) {
    add(response.sensitivity);
    add(response.sensitivity_frequency);
    for (const ResponseStage &stage : response.stages) add(stage);
  }
  const std::string &bytes() const { return bytes_; }

 private:
  void add(double value) { bytes_.append(reinterpret_cast<const char *>(&value), 8); }
  void add(const std::string &text) { bytes_ += text + '\0'; }
  void add_count(std::size_t count) { add(static_cast<double>(count)); }
  void add(const std::vector<std::complex<double>> &roots) {
    add_count(roots.size());
    for (const std::complex<double> &root : roots) {
      add(root.real());
      add(root.imag());
    }
  }
  void add(const std::vector<double> &numbers) {
    add_count(numbers.size());
    for (const double number : numbers) add(number);
  }
  void add(const ResponseStage &stage) {
    add(stage.name);
    add(stage.input_unit);
    add(stage.output_unit);
    add(stage.gain);
    add(stage.gain_frequency);
    add_count(stage.filter.index());
    if (const auto *poles = std::get_if<PoleZeroFilter>(&stage.filter)) {
      add_count(static_cast<std::size_t>(poles->domain));
      add(poles->a0);
      add(poles->a0_frequency);
      add(poles->zeros);
      add(poles->poles);
    } else if (const auto *digital = std::get_if<CoefficientFilter>(&stage.filter)) {
      add(digital->numerators);
      add(digital->denominators);
    } else if (const auto *table = std::get_if<TableFilter>(&stage.filter)) {
      add_count(table->rows.size());
      for (const TableFilter::Row &row : table->rows) {
        for (const double value : {row.frequency, row.amplitude, row.phase,
                                   row.amplitude_error, row.phase_error}) {
          add(value);
        }
      }
    }
    add_count(stage.decimation ? 1 : 0);
    if (!stage.decimation) return;
    const Decimation &decimation = *stage.decimation;
    for (const double value :
         {decimation.samprate, static_cast<double>(decimation.factor),
          static_cast<double>(decimation.offset), decimation.delay,
          decimation.correction}) {
      add(value);
    }
  }

  std::string bytes_;
};

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
  char draft[PATH_MAX];  // without an allocation, which could fail here
  std::snprintf(draft, sizeof draft, "%s%s", staging_.c_str(), kStagedFile);
  unlink(draft);
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
  const std::string bytes = ResponseBytes(response).bytes() + description;
  const auto known =
      by_bytes_.try_emplace({hash_of(bytes), hash_of(bytes.substr(bytes.size() / 2))})
          .first;
  name = known->second;
  if (!name.empty()) return true;
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
  known->second = name;
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
  DraftFile file(DraftFile::Existing::kKeep);
  if (file.open(path) && file.write(content) && file.put_in_place()) {
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
