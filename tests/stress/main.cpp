#include <gtest/gtest.h>

#include <cstring>

#include "tests/stress/writer.h"

int main(int argc, char **argv) {
  if (argc == 8 && std::strcmp(argv[1], "--writer") == 0) {
    return stress::writer_main(argv);
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
