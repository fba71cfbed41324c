/* History files: refused and untouched, or a list that takes another entry. */
#include <cstring>

#include "platform/stock/files.h"
#include "platform/trace/filetbl.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  const char *const path = file_of(input);
  Tbl *const list = filetbl(path, "KSHistory", 100, 16);
  if (list == nullptr) {
    std::string after;
    require(read_file(path, input.size() + 1, after) && after == input,
            "a file that is refused stays as it was");
    return;
  }
  for (long i = 0; i < counttbl(list); i++) gettbl(list, i);
  double entry[2] = {1.0, 2.0};
  if (counttbl(list) >= 100) shifttbl(list);
  require(pushtbl(list, entry) >= 0, "a list that was opened takes an entry");
  const void *const last = gettbl(list, counttbl(list) - 1);
  require(last != nullptr && std::memcmp(last, entry, sizeof entry) == 0,
          "and gives it back");
  freetbl(list, nullptr);
}
