/* ResponseFiles: the response files of an import, which wait in a directory of their own
 * until the import is made.
 *
 * The name of a file is made of a description and of a number computed from its content, of
 * letters, digits and "-" alone: equal responses of equal instruments share one file, and no
 * text of an input can lead to another directory. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_RESPONSE_FILES_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_RESPONSE_FILES_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "waveforms/response.h"

namespace ksutil::exchange {

class ResponseFiles {
 public:
  ResponseFiles() = default;
  ~ResponseFiles();
  ResponseFiles(const ResponseFiles &) = delete;
  ResponseFiles &operator=(const ResponseFiles &) = delete;

  /* Makes a file, if there is none with this content; `name` receives its name, at most
   * kMostName characters.  False with `problem`. */
  static constexpr std::size_t kMostName = 32;
  bool stage(const Response &response, const std::string &description,
             std::string &name, std::string &problem);

  /* The name under which a staged file can be in a directory: the same, or one with a
   * number behind it while the name is taken by another content. */
  std::string free_name(const std::string &name, const std::string &directory) const;

  /* Puts staged files into a directory, which is made if need be, under their free names;
   * those that are there already stay.  False, with a message and nothing left behind. */
  bool publish(const std::vector<std::string> &names, const std::string &directory);
  /* Removes what publish() has made. */
  void take_back();

 private:
  bool make_directory(std::string &problem);
  bool publish_one(const std::string &name, const std::string &directory);

  std::string staging_;                         // the directory; "" until there is one
  std::map<std::string, std::string> by_name_;  // staged path of each name
  /* Names by two hashes of a response and its description, so that one that is repeated is
   * not written again. */
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::string> by_bytes_;
  std::vector<std::string> made_;  // paths
  std::string made_directory_;
};

/* The name of a response in instrument.rsptype: "paz", "fir", "fap" or "pazfir". */
std::string response_kind(const Response &response);

}  // namespace ksutil::exchange
#endif
