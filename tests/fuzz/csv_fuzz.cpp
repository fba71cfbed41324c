/* Catalogues to import. */
#include <vector>

#include "tests/fuzz/subject.h"
#include "tools/ksdb/import/catalogue_csv.h"

void ksutil::fuzz::read_input(std::string_view input) {
  std::vector<tools::CatalogueEvent> events;
  std::vector<tools::RefusedLine> refused;
  std::string problem;
  const bool read = tools::read_catalogue_csv(file_of(input), events, refused, problem);
  require(read || !problem.empty(), "what cannot be read is told");
}
