/* Text tables of points; the first byte chooses the columns. */
#include "tests/fuzz/vector_subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  if (input.empty()) return;
  const int choice = static_cast<unsigned char>(input.front());
  const int columns[] = {1, choice % 5};
  char tag[KS_TAG_SIZE] = "";
  ksvector_read(file_of(input.substr(1)), nullptr, choice % 3, choice % 2, choice % 3,
                columns, choice % 7 - 1, tag);
  use_vector(tag);
}
