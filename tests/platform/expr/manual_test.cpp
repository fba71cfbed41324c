/* Users learn the language from its manual: an example there that does not hold, or a
 * function that it does not name, sends them to wrong subsets. */
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "platform/expr/internal/functions.h"
#include "tests/platform/expr/expr_test_support.h"

namespace ksutil::expr {
namespace {

struct Example {
  std::string expression, value;
};

std::string manual_text() {
  std::ifstream file(KSUTIL_SOURCE_DIR "/docs/expressions.md");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<Example> manual_examples() {
  std::vector<Example> examples;
  std::istringstream manual(manual_text());
  bool inside = false;
  for (std::string line; std::getline(manual, line);) {
    if (line.starts_with("```")) {
      inside = line == "```expression";
    } else if (inside) {
      const std::size_t arrow = line.rfind(" -> ");
      if (arrow == std::string::npos) {
        ADD_FAILURE() << "no arrow: " << line;
        continue;
      }
      examples.push_back({line.substr(0, arrow), line.substr(arrow + 4)});
    }
  }
  return examples;
}

TEST(ExpressionManual, ExamplesHold) {
  const Row row = example_row();
  const std::vector<Example> examples = manual_examples();
  EXPECT_GT(examples.size(), 100U);
  for (const Example &example : examples) {
    EXPECT_EQ(result_of(example.expression, row), example.value) << example.expression;
  }
}

TEST(ExpressionManual, NamesAndUsesEveryFunction) {
  const std::string manual = manual_text();
  std::string uses;
  for (const Example &example : manual_examples()) uses += example.expression + "\n";
  for (const auto &functions : all_functions()) {
    for (const Function &function : functions) {
      const std::string call = std::string(function.name) + "(";
      EXPECT_NE(manual.find("`" + call), std::string::npos) << call;
      EXPECT_NE(uses.find(call), std::string::npos) << call;
    }
  }
}

}  // namespace
}  // namespace ksutil::expr
