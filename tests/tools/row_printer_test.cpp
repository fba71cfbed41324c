/* Rows on their way to the output: cells that are kept in a file until a table can be
 * printed come back as they were, and the forms show nulls, quotes and control characters
 * so that other programs and terminals can take them. */
#include "tools/common/row_printer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/stock/files.h"
#include "tools/common/cell_store.h"

namespace ksutil::tools {
namespace {

using Cells = std::vector<std::string>;

std::vector<Cells> all(const CellStore &store) {
  std::vector<Cells> rows;
  store.each([&](const Cells &cells) { rows.push_back(cells); });
  return rows;
}

std::vector<Cells> filled(CellStore &store) {
  std::vector<Cells> expected;
  for (std::size_t i = 0; i < 500; i++) {
    expected.push_back({std::to_string(i), std::string(i % 70, 'x'), ""});
    store.add(expected.back());
  }
  return expected;
}

TEST(CellStore, GivesRowsBackFromItsFileAndFromMemory) {
  CellStore store(3, 1000);
  const std::vector<Cells> expected = filled(store);
  EXPECT_EQ(all(store), expected);
  EXPECT_EQ(all(store), expected);  // again
}

TEST(CellStore, KeepsRowsInMemoryWhereNoFileCanBe) {
  ASSERT_EQ(setenv("TMPDIR", "/nowhere", 1), 0);
  CellStore store(3, 1000);
  const std::vector<Cells> expected = filled(store);
  unsetenv("TMPDIR");
  EXPECT_EQ(all(store), expected);
}

/* A table that lacks rows must not look like a whole one. */
TEST(CellStore, FailsWhereItsFileCannotBeRead) {
  CellStore store(3, 1000);
  const std::vector<Cells> expected = filled(store);
  FileCalls calls = system_file_calls();
  calls.pread = [](int, void *, std::size_t, off_t) -> ssize_t {
    errno = EIO;
    return -1;
  };
  {
    const ScopedFileCalls failing(calls);
    EXPECT_THROW(all(store), std::runtime_error);
  }
  EXPECT_EQ(all(store), expected);
}

std::string printed(const std::vector<Column> &columns, Form form,
                    const std::vector<Cells> &rows) {
  testing::internal::CaptureStdout();
  RowPrinter printer(columns, form);
  for (const Cells &cells : rows) printer.add(cells);
  printer.finish();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

const std::vector<Column> kColumns = {{"id", true, true}, {"name"}, {"name", true}};

TEST(RowPrinter, ShowsControlCharactersAsQuestionMarks) {
  const std::vector<Cells> rows = {{"7", "a\x1b[2J", "x"}, {"", "a\nb,\"c\"\x07", ""}};
  EXPECT_EQ(printed(kColumns, Form::kCsv, rows),
            "id,name,name\n7,a?[2J,x\n,\"a\nb,\"\"c\"\"?\",\n");
  EXPECT_EQ(printed(kColumns, Form::kText, rows),
            "id  name      name\n 7  a?[2J        x\n    a?b,\"c\"?\n");
}

/* Of two columns with one name an object shows the later. */
TEST(RowPrinter, PrintsTheJsonOfAWholeList) {
  const std::vector<Cells> rows = {{"7.50", "a", "x\x1b\xff"}, {"", "b", ""}};
  const std::string text = printed(kColumns, Form::kJson, rows);
  const auto expected = nlohmann::ordered_json::parse(
      R"([{"id": 7.5, "name": "x\u001b\ufffd"}, {"id": null, "name": null}])");
  EXPECT_EQ(text, expected.dump(1) + "\n");
  EXPECT_EQ(printed(kColumns, Form::kJson, {}), "[]\n");
}

}  // namespace
}  // namespace ksutil::tools
