/* Trace blobs. */
#include "objects/ksvector.h"
#include "platform/trace/trace.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  Dbptr traces = trnew();
  char tag[KS_TAG_SIZE] = "";
  ksvector_read_from_trblob(file_of(input), &traces, tag);
  trdestroy(&traces);
  int count = 0;
  long bytes = 0;
  ksvector_get_heap_size(nullptr, nullptr, &count, &bytes);
  require(bytes < (1L << 20) + 64L * static_cast<long>(input.size()),
          "vectors are not larger than what they were read from accounts for");
  static long number = 0;  // of the next tag
  for (; count > 0; number++) {
    ksvector_free(("vect" + std::to_string(number)).c_str());
    ksvector_get_heap_size(nullptr, nullptr, &count, &bytes);
  }
}
