/* What programs write must be whole or not there: half of a picture, a parameter file or a
 * response in the place of the old one is a loss that shows later. */
#include "platform/stock/draft_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/folder.h"

namespace {

namespace fs = std::filesystem;
using ksutil::DraftFile;

class DraftFiles : public testing::Test {
 protected:
  std::string path(const std::string &name) const { return folder_ / name; }
  std::string text(const std::string &name) const {
    std::string bytes;
    EXPECT_TRUE(ksutil::read_file(path(name), 1000, bytes)) << name;
    return bytes;
  }
  static unsigned mode(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
  long entries() const {
    return std::distance(fs::directory_iterator(folder_.path()),
                         fs::directory_iterator());
  }

  const ksutil::test::TempFolder folder_;
};

bool replace(const std::string &path, const std::string &text) {
  DraftFile file;
  return file.open(path) && file.write(text) && file.put_in_place();
}

TEST_F(DraftFiles, TakeThePlaceAndModeOfTheFileBehindLinks) {
  folder_.write("file", "old");
  ASSERT_EQ(::chmod(path("file").c_str(), 0640), 0);
  fs::create_symlink("file", path("link"));
  fs::create_symlink("made", path("nowhere"));
  {
    DraftFile file;
    ASSERT_TRUE(file.open(path("link")));
    ASSERT_TRUE(file.write("new"));
    EXPECT_EQ(mode(file.path()), 0640U);
    EXPECT_EQ(text("file"), "old");
    ASSERT_TRUE(file.put_in_place());
  }
  EXPECT_EQ(text("file"), "new");
  EXPECT_EQ(mode(path("file")), 0640U);
  EXPECT_TRUE(fs::is_symlink(path("link")));

  const mode_t mask = ::umask(0027);
  EXPECT_TRUE(replace(path("nowhere"), "first"));
  ::umask(mask);
  EXPECT_EQ(text("made"), "first");
  EXPECT_EQ(mode(path("made")), 0640U);
  EXPECT_TRUE(fs::is_symlink(path("nowhere")));

  /* The name of the draft has its limit, too. */
  const std::string longest(255, 'n');
  EXPECT_TRUE(replace(path(longest), "long"));
  EXPECT_EQ(text(longest), "long");
  EXPECT_EQ(entries(), 5);
}

TEST_F(DraftFiles, AFailureAtAnyStepLeavesWhatWasThere) {
  const auto fails = [&](const ksutil::FileCalls &calls, int error) {
    folder_.write("file", "old");
    {
      const ksutil::ScopedFileCalls failing(calls);
      errno = 0;
      EXPECT_FALSE(replace(path("file"), "new text"));
      EXPECT_EQ(errno, error);
      EXPECT_FALSE(replace(path("another"), "new text"));
    }
    EXPECT_EQ(text("file"), "old");
    EXPECT_EQ(entries(), 1);
  };
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.write = [](int fd, const void *from, std::size_t bytes) -> ssize_t {
    if (bytes > 2) return ksutil::system_file_calls().write(fd, from, 2);
    errno = ENOSPC;
    return -1;
  };
  fails(calls, ENOSPC);
  calls = ksutil::system_file_calls();
  calls.fsync = [](int) {
    errno = EIO;
    return -1;
  };
  fails(calls, EIO);

  /* A folder that has come to the place of the target cannot be replaced. */
  DraftFile file;
  ASSERT_TRUE(file.open(path("place")) && file.write("text"));
  fs::create_directory(path("place"));
  EXPECT_FALSE(file.put_in_place());
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(DraftFiles, AreRemovedWithTheirOwner) {
  folder_.write("file", "old");
  try {
    DraftFile file;
    ASSERT_TRUE(file.open(path("file")) && file.write("new"));
    EXPECT_EQ(entries(), 2);
    throw 1;
  } catch (int) {
  }
  EXPECT_EQ(text("file"), "old");
  EXPECT_EQ(entries(), 1);
}

TEST_F(DraftFiles, KeepAFileThatCameMeanwhile) {
  folder_.write("there", "old");
  DraftFile refused(DraftFile::Existing::kKeep);
  EXPECT_FALSE(refused.open(path("there")));
  EXPECT_EQ(errno, EEXIST);

  DraftFile late(DraftFile::Existing::kKeep), first(DraftFile::Existing::kKeep);
  ASSERT_TRUE(late.open(path("new")) && late.write("late"));
  ASSERT_TRUE(first.open(path("new")) && first.write("first"));
  EXPECT_TRUE(first.put_in_place());
  EXPECT_FALSE(late.put_in_place());
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(text("new"), "first");
}

TEST_F(DraftFiles, AreNotMadeForWhatIsNotAFile) {
  fs::create_directory(path("folder"));
  fs::create_symlink("circle", path("circle"));
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  DraftFile file;
  EXPECT_FALSE(file.open(path("folder")));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(file.open_or_device(path("folder")));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(file.open(path("circle")));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(file.open(path("pipe")));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(file.open(path("none/file")));
  EXPECT_EQ(errno, ENOENT);

  const ksutil::FileHandle reader =
      ksutil::open_file(path("pipe"), O_RDONLY | O_NONBLOCK);
  EXPECT_TRUE(file.open_or_device(path("pipe")));
  EXPECT_TRUE(file.write("text") && file.put_in_place());
  char got[5] = {};
  EXPECT_EQ(::read(reader.get(), got, 4), 4);
  EXPECT_STREQ(got, "text");
  EXPECT_TRUE(fs::is_fifo(path("pipe")));
  EXPECT_EQ(entries(), 3);
}

}  // namespace
