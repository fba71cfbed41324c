/* Files with settings are edited by programs and read by people: an edit that changes
 * anything but its value, or drops a comment, destroys what somebody had written down. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/kspf.h"
#include "tests/config/kspf_support.h"
#include "tests/config/random_pf.h"
#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::pf_of;
using ksutil::test::taken_messages;
using ksutil::test::text_of;
using testing::HasSubstr;

KSPf my_pf_of(const std::string &text) { return pf_of(text, "my.pf"); }

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    lines.push_back(text.substr(at, end - at));
    at = end;
  }
  return lines;
}

/* A path of the test's own writing, everything quoted. */
std::string step_to(const Meant &block, std::size_t index) {
  if (block.kind == Meant::kTable) return "[" + std::to_string(index) + "]";
  return "." + RandomPf::quoted(block.inside[index].name);
}
std::string whole(const std::string &path) {
  return path.starts_with('.') ? path.substr(1) : path;
}

/* One random edit of a random file, and the lines that it may have changed. */
struct Edit {
  explicit Edit(RandomPf &source) : random(source), block(&source.root) {
    /* To a random block, of which some value, or a new one, is the target. */
    for (;;) {
      std::vector<std::size_t> blocks;
      for (std::size_t i = 0; i < block->inside.size(); ++i) {
        if (block->inside[i].kind != Meant::kText) blocks.push_back(i);
      }
      if (blocks.empty() || random.pick(3) == 0) break;
      const std::size_t next = blocks[static_cast<std::size_t>(
          random.pick(static_cast<int>(blocks.size())))];
      path += step_to(*block, next);
      block = &block->inside[next];
    }
  }

  std::size_t some_index() {
    return static_cast<std::size_t>(
        random.pick(static_cast<int>(block->inside.size())));
  }

  Meant new_value() {
    Meant value;
    if (random.pick(2) == 0) {
      value.text = random.any_text();
    } else {
      value = RandomPf(static_cast<unsigned>(random.pick(1000))).root;
      value.kind = Meant::kArray;
    }
    return value;
  }

  void set(KSPf &pf) {
    const std::size_t i = some_index();
    Meant &target = block->inside[i];
    first = target.first;
    count = target.last - target.first + 1;
    Meant value = new_value();
    const std::string at = whole(path + step_to(*block, i));
    EXPECT_EQ(value.kind == Meant::kText ? pf.set(at, value.text)
                                         : pf.setWritten(at, RandomPf::written(value)),
              0)
        << taken_messages();
    value.name = target.name;
    target = value;
  }

  void insert(KSPf &pf) {
    count = block->closed ? 1 : 0;
    first = block->closed ? block->first : 0;
    anywhere = !block->closed;
    Meant value = new_value();
    value.name = "new.name";
    std::size_t i = block->inside.size();
    if (block->kind == Meant::kTable && i > 0) i = some_index();
    block->inside.insert(block->inside.begin() + static_cast<std::ptrdiff_t>(i), value);
    const std::string at = whole(path + step_to(*block, i));
    EXPECT_EQ(value.kind == Meant::kText
                  ? pf.insert(at, value.text)
                  : pf.insertWritten(at, RandomPf::written(value)),
              0)
        << taken_messages();
  }

  void remove(KSPf &pf) {
    const std::size_t i = some_index();
    first = block->inside[i].first;
    count = block->inside[i].last - first + 1;
    EXPECT_EQ(pf.remove(whole(path + step_to(*block, i))), 0) << taken_messages();
    block->inside.erase(block->inside.begin() + static_cast<std::ptrdiff_t>(i));
  }

  RandomPf &random;
  Meant *block;
  std::string path;
  std::size_t first = 0, count = 0;  // the old lines that may differ or be gone
  bool anywhere = false;             // no old line may
};

void expect_untouched(const std::vector<std::string> &before,
                      const std::vector<std::string> &after, const Edit &edit) {
  const auto same = [](const std::string &a, const std::string &b) {
    /* The break that a last line lacked. */
    return a == b || a + "\n" == b || a + "\r\n" == b;
  };
  std::size_t head = 0, tail = 0;
  const std::size_t shorter = std::min(before.size(), after.size());
  while (head < shorter && same(before[head], after[head])) ++head;
  while (tail < shorter - head &&
         same(before[before.size() - 1 - tail], after[after.size() - 1 - tail])) {
    ++tail;
  }
  const std::size_t changed = before.size() - head - tail;
  EXPECT_LE(changed, edit.count);
  if (changed > 0 && !edit.anywhere) {
    EXPECT_GE(head, edit.first);
    EXPECT_LE(before.size() - tail, edit.first + edit.count);
  }
}

void expect_means(const std::string &text, const Meant &root) {
  const PfHandle is = compiled(text), meant = compiled(RandomPf::entries(root));
  ASSERT_NE(is, nullptr) << taken_messages() << text;
  ASSERT_NE(meant, nullptr) << taken_messages();
  EXPECT_EQ(pfequal(is.get(), meant.get()), 1) << text << "is not\n"
                                               << RandomPf::entries(root);
}

TEST(KspfEdit, ChangesItsValueAndNoOtherByte) {
  for (unsigned seed = 0; seed < 1500 && !testing::Test::HasFailure(); ++seed) {
    RandomPf random(seed);
    const std::string before = random.text();
    KSPf pf = my_pf_of(before);
    ASSERT_EQ(text_of(pf), before);
    const KSPf copy = pf;
    Edit edit(random);
    const int kind = edit.block->inside.empty() ? 1 : random.pick(3);
    if (kind == 0) edit.set(pf);
    if (kind == 1) edit.insert(pf);
    if (kind == 2) edit.remove(pf);
    const std::string after = text_of(pf);
    expect_means(after, random.root);
    expect_untouched(lines_of(before), lines_of(after), edit);
    ASSERT_EQ(text_of(copy), before) << "a copy saw the edit";
    if (testing::Test::HasFailure()) {
      ADD_FAILURE() << "seed " << seed << " kind " << kind << "\n"
                    << before << "---\n"
                    << after;
    }
  }
}

/* Many edits of one object, whose look-ups must follow each of them. */
TEST(KspfEdit, ManyInARowMeanWhatTheyShould) {
  for (unsigned seed = 0; seed < 100 && !testing::Test::HasFailure(); ++seed) {
    RandomPf random(seed);
    KSPf pf = my_pf_of(random.text());
    for (int n = 0; n < 20; ++n) {
      Edit edit(random);
      const int kind = edit.block->inside.empty() ? 1 : random.pick(3);
      const bool known =
          std::any_of(edit.block->inside.begin(), edit.block->inside.end(),
                      [](const Meant &value) { return value.name == "new.name"; });
      if (kind == 0) edit.set(pf);
      if (kind == 1 && (!known || edit.block->kind == Meant::kTable)) edit.insert(pf);
      if (kind == 2) edit.remove(pf);
    }
    expect_means(text_of(pf), random.root);
    Pf *tree = nullptr;
    ASSERT_EQ(pf.getPf("", &tree), 0);
    EXPECT_EQ(pfequal(PfHandle(tree).get(), compiled(text_of(pf)).get()), 1);
  }
}

TEST(KspfEdit, FormatKeepsValuesAndCommentsAndSettles) {
  for (unsigned seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
    const RandomPf random(seed);
    KSPf pf = my_pf_of(random.text());
    ASSERT_EQ(pf.format(), 0);
    const std::string once = text_of(pf);
    expect_means(once, random.root);
    for (int n = 0;
         random.text().find("# remark " + std::to_string(n) + " ") != std::string::npos;
         ++n) {
      EXPECT_THAT(once, HasSubstr("# remark " + std::to_string(n) + " {}\""));
    }
    ASSERT_EQ(pf.format(), 0);
    EXPECT_EQ(text_of(pf), once);
    KSPf again = my_pf_of(once);
    ASSERT_EQ(again.format(), 0);
    EXPECT_EQ(text_of(again), once);
  }
}

TEST(KspfEdit, KeepsTheLookOfALine) {
  KSPf pf = my_pf_of(
      "\n  author\t\"J. Doe\" # who\nempty   # nothing\nn \"1\"# tight\n"
      "map &Arr{ # open\n\tk v\n\t# none\n} # close\nnone &Tbl{}# c\n");
  EXPECT_EQ(pf.set("author", "me"), 0);
  EXPECT_EQ(pf.set("empty", "full"), 0);
  EXPECT_EQ(pf.set("n", "2"), 0);
  EXPECT_EQ(pf.set("map.new.deep", "x y"), 0);
  EXPECT_EQ(pf.insert("none[0]", "first"), 0);
  EXPECT_EQ(pf.set("map.k", "v"), 0);
  EXPECT_EQ(
      text_of(pf),
      "\n  author\t\"me\" # who\nempty full   # nothing\nn \"2\"# tight\n"
      "map &Arr{ # open\n\tk v\n\t# none\n\tnew &Arr{\n\t  deep x y\n\t}\n} # close\n"
      "none &Tbl{# c\n  first\n}\n");
  EXPECT_EQ(pf.set("map", "gone"), 0);
  EXPECT_EQ(pf.set("none", "a"), 0);
  EXPECT_THAT(text_of(pf), HasSubstr("\nmap gone # open\nnone \"a\"# c\n"));
}

/* Some editors begin a file with a mark that no one sees: a setting must not be lost by it,
 * and it must not wander into the middle of a file. */
TEST(KspfEdit, KeepsAByteOrderMarkBeforeTheFirstLine) {
  const std::string mark = "\xEF\xBB\xBF";
  KSPf pf = my_pf_of(mark + "a 1\nb 2\n");
  long a = 0;
  EXPECT_EQ(pf.getInt("a", a), 0);
  EXPECT_EQ(text_of(pf), mark + "a 1\nb 2\n");
  EXPECT_EQ(pf.remove("a"), 0);
  EXPECT_EQ(text_of(pf), mark + "b 2\n");
  KSPf plain = my_pf_of("c 3\n");
  EXPECT_EQ(plain.merge(pf), 0);
  EXPECT_EQ(text_of(plain), "c 3\nb 2\n");
  EXPECT_EQ(pf.merge(plain), 0);
  EXPECT_EQ(pf.format(), 0);
  EXPECT_EQ(text_of(pf), mark + "b 2\nc 3\n");
}

TEST(KspfEdit, RemovesEveryEntryOfAName) {
  KSPf pf = my_pf_of("a 1\n# x\nb 2\na &Tbl{\nx\n}\na 3 # last\nc 4");
  EXPECT_EQ(pf.set("a", "5"), 0);
  EXPECT_EQ(text_of(pf), "a 1\n# x\nb 2\na &Tbl{\nx\n}\na 5 # last\nc 4");
  EXPECT_EQ(pf.count(""), 3);
  EXPECT_EQ(pf.remove("a"), 0);
  EXPECT_EQ(text_of(pf), "# x\nb 2\nc 4");
  EXPECT_EQ(pf.set("a", "6"), 0);
  EXPECT_EQ(text_of(pf), "# x\nb 2\nc 4\na 6\n");
}

struct RefusedCase {
  const char *name;
  int (*edit)(KSPf &pf);
  const char *message;
};
class KspfRefused : public testing::TestWithParam<RefusedCase> {};

TEST_P(KspfRefused, LeavesTheFileAndTellsWhy) {
  const std::string text = "a 1\nt &Tbl{\nx\n&Arr{\nk v\n}\n}\n";
  KSPf pf = my_pf_of(text);
  taken_messages();
  EXPECT_EQ(GetParam().edit(pf), -1);
  EXPECT_EQ(taken_messages(), GetParam().message);
  EXPECT_EQ(text_of(pf), text);
}
INSTANTIATE_TEST_SUITE_P(
    Edits, KspfRefused,
    testing::Values(
        RefusedCase{"NoItem", [](KSPf &pf) { return pf.set("t[2]", "y"); },
                    "KSPf::set: Cannot set t[2]: t has no item [2].\n"},
        RefusedCase{"NoItemOnTheWay", [](KSPf &pf) { return pf.set("t[5].k", "y"); },
                    "KSPf::set: Cannot set t[5].k: t has no item [5].\n"},
        RefusedCase{"ItemOfNothing", [](KSPf &pf) { return pf.insert("u.v[0]", "y"); },
                    "KSPf::insert: Cannot set u.v[0]: u.v is not there.\n"},
        RefusedCase{"TextIsNoArray", [](KSPf &pf) { return pf.set("a.b", "y"); },
                    "KSPf::set: Cannot set a.b: a is not an array.\n"},
        RefusedCase{"ArrayIsNoTable", [](KSPf &pf) { return pf.remove("t[1][0]"); },
                    "KSPf::remove: Cannot remove t[1][0]: t[1] is not a table.\n"},
        RefusedCase{"RootIsNoTable", [](KSPf &pf) { return pf.set("[0]", ""); },
                    "KSPf::set: Cannot set [0]: The file is not a table.\n"},
        RefusedCase{"Present", [](KSPf &pf) { return pf.insert("t[1].k", "y"); },
                    "KSPf::insert: Cannot set t[1].k: t[1].k is there already.\n"},
        RefusedCase{"BehindTheEnd", [](KSPf &pf) { return pf.insert("t[3]", "y"); },
                    "KSPf::insert: Cannot set t[3]: t has no item [3].\n"},
        RefusedCase{"Absent", [](KSPf &pf) { return pf.remove("t[1].q"); },
                    "KSPf::remove: Cannot remove t[1].q: t[1].q is not there.\n"},
        RefusedCase{"Root", [](KSPf &pf) { return pf.set("", "y"); },
                    "KSPf::set: Cannot set : The path is empty.\n"},
        RefusedCase{"Path", [](KSPf &pf) { return pf.set("t[x]", "y"); },
                    "KSPf::set: Faulty path 't[x]': An index is a number from 0 in "
                    "brackets.\n"},
        RefusedCase{"Nul", [](KSPf &pf) { return pf.set("a", std::string("x\0y", 3)); },
                    "KSPf::set: The value for a holds a NUL byte.\n"},
        RefusedCase{"TwoValues",
                    [](KSPf &pf) { return pf.setWritten("a", "1\n# c\nb 2"); },
                    "KSPf::setWritten: Faulty value for a: line 3: There is more than "
                    "one value.\n"},
        RefusedCase{"Unclosed", [](KSPf &pf) { return pf.setWritten("a", "&Tbl{\nx"); },
                    "KSPf::setWritten: Faulty value for a: line 2: The block opened in "
                    "line 1 is not closed.\n"}),
    [](const auto &test) { return test.param.name; });

TEST(KspfEdit, BoundsNesting) {
  std::string path = "a";
  for (int i = 0; i < kPfMaxDepth; ++i) path += ".a";
  KSPf pf;
  EXPECT_EQ(pf.set(path, "deep"), 0);
  EXPECT_NE(compiled(text_of(pf)), nullptr);
  EXPECT_EQ(pf.set(path + ".a", "deeper"), -1);
  EXPECT_EQ(pf.setWritten(path, "&Tbl{}"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("Blocks would be nested deeper than 64.\n"));
}

}  // namespace
