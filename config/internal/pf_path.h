/* pf_path: reads and writes paths to the values of a parameter file. */
#ifndef KSUTIL_CONFIG_INTERNAL_PF_PATH_H
#define KSUTIL_CONFIG_INTERNAL_PF_PATH_H

#include <string>
#include <string_view>
#include <vector>

namespace ksutil {

/* A key of an array, or an item of a table. */
struct PfStep {
  std::string name;
  long index = -1;  // from 0; negative: a key
  bool is_item() const { return index >= 0; }
};
using PfPath = std::vector<PfStep>;

/* Reads "a.b[2].\"c.d\""; false with the cause.  An empty text is the path of the
 * root. */
bool parse_path(std::string_view text, PfPath &path, std::string &cause);

/* Writes the first `steps` steps of a path, in the form that parse_path reads. */
std::string path_text(const PfPath &path, std::size_t steps);
inline std::string path_text(const PfPath &path) {
  return path_text(path, path.size());
}

}  // namespace ksutil
#endif
