/* Whoever exports at night by a script sees the file, the exit code and the messages only. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

const std::string kExport = std::string(KSDB_PROGRAM) + " export ";
const std::string kDatabase = std::string(KSUTIL_SOURCE_DIR) + "/data/aug2015";

TEST(KsdbExport, TakesTheFormatFromTheEndingOfTheName) {
  const ScratchFolder folder;
  for (const char *name : {"a.csv", "a.kml", "a.jsonl"}) {
    const ProgramRun run = run_program(kExport + "--min-magnitude 6.5 " + kDatabase +
                                       " " + (folder / name));
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("events in "));
    EXPECT_FALSE(read_text(folder / name).empty());
  }
  const ProgramRun unknown =
      run_program(kExport + kDatabase + " " + (folder / "a.txt"));
  EXPECT_EQ(unknown.code, 2);
  EXPECT_THAT(unknown.errors, HasSubstr("--format is needed"));
}

TEST(KsdbExport, WritesToStandardOutputWithoutAWordOfItsOwn) {
  const ProgramRun run = run_program(kExport + "--format csv --evid 17 " + kDatabase);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 2);
  EXPECT_THAT(run.output, testing::StartsWith("time,latitude,"));
}

TEST(KsdbExport, TellsOfReadersThatHaveGone) {
  const ProgramRun run = run_program("( ( " + kExport + "--quiet --format jsonl " +
                                     kDatabase + "; echo code $? >&2 ) | head -c 1 )");
  EXPECT_THAT(run.errors, HasSubstr("cannot write standard output: Broken pipe"));
  EXPECT_THAT(run.errors, HasSubstr("code 1"));
}

TEST(KsdbExport, TellsOfEventsThatAreNotThere) {
  const ScratchFolder folder;
  const ProgramRun run =
      run_program(kExport + "--evid 17,424242 " + kDatabase + " " + (folder / "a.csv"));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("there is no event with evid 424242 in "));
  EXPECT_THAT(run.output, HasSubstr("1 event in "));
}

TEST(KsdbExport, WrongSelectionsDoNothing) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.csv", "old");
  for (const char *option : {"--where 'magnitude >'", "--evid x", "--after soon"}) {
    const ProgramRun run = run_program(kExport + option + " " + kDatabase + " " + file);
    EXPECT_EQ(run.code, 2) << option << run.errors;
    EXPECT_EQ(read_text(file), "old");
  }
}

/* The page is made by the program: after a change of a mapping table it must be written
 * anew. */
TEST(KsdbFormats, PageIsTheOneInTheDocuments) {
  const ProgramRun run = run_program(std::string(KSDB_PROGRAM) + " formats --markdown");
  EXPECT_EQ(run.output, read_text(std::string(KSUTIL_SOURCE_DIR) + "/docs/formats.md"))
      << "write it with: ksdb formats --markdown > docs/formats.md";
}

}  // namespace
}  // namespace ksutil::tools
