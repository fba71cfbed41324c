/* Schema files.
 * Words: platform/db/schema_reader.cpp schemas */
#include "platform/db/internal/schema_reader.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  db::SchemaReader("fuzz").read(text_of(input));
}
