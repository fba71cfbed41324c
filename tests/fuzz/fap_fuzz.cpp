/* Amplitude and phase response files. */
#include "tests/fuzz/vector_subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  char tag[KS_TAG_SIZE] = "";
  int status = 0;
  const KSVector *const vector =
      ksvector_create_response_fap(file_of(input), nullptr, tag, &status);
  require((vector != nullptr) == (status == 0), "the status tells of the vector");
  use_vector(tag);
}
