/* write_catalogue: writes a made-up catalogue for the comparison of programs.
 *
 * Usage: write_catalogue DATABASE EVENTS */
#include <cstdio>
#include <exception>

#include "bench/synthetic_catalogue.h"
#include "platform/stock/text.h"

int main(int argc, char **argv) {
  std::int64_t events = 0;
  if (argc != 3 || !ksutil::parse_integer(argv[2], events) || events < 1) {
    std::fputs("usage: write_catalogue DATABASE EVENTS\n", stderr);
    return 2;
  }
  try {
    ksutil::bench::CatalogueSize size;
    size.events = static_cast<long>(events);
    ksutil::bench::write_catalogue(argv[1], size);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "write_catalogue: %s\n", error.what());
    return 1;
  }
  return 0;
}
