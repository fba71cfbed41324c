/* Programs handle the magnitude types of records as they handle std::string.  A length
 * that is taken for an address, or a text that two records own, is a crash far from the
 * record that caused it. */
#include "core/ShortText.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

/* Texts on both sides of the room inside, with every kind of character. */
std::string some_text(std::mt19937 &random) {
  std::string text(random() % 12, '\0');
  for (char &c : text)
    c = static_cast<char>(random() % 4 == 0 ? random() : 'a' + random() % 3);
  return text;
}

void expect_equal(const ShortText &text, const std::string &model) {
  ASSERT_EQ(text.str(), model);
  ASSERT_EQ(text.size(), model.size());
  ASSERT_EQ(text.empty(), model.empty());
  ASSERT_EQ(text.c_str()[model.size()], '\0');
  ASSERT_TRUE(text == model && model == text && text == ShortText(model));
  ASSERT_EQ(std::hash<ShortText>()(text), std::hash<std::string>()(model));
}

}  // namespace

TEST(ShortText, IsTheTextThatWasAssigned) {
  std::mt19937 random(1);
  std::vector<ShortText> texts(8);
  std::vector<std::string> models(8);
  for (int step = 0; step < 20000; ++step) {
    const std::size_t i = random() % 8, k = random() % 8;
    switch (random() % 7) {
      case 0:
        texts[i] = models[i] = some_text(random);
        break;
      case 1:
        texts[i] = texts[k];
        models[i] = models[k];
        break;
      case 2:
        texts[i] = ShortText(std::move(texts[k]));
        models[i] = std::exchange(models[k], i == k ? models[k] : "");
        break;
      case 3:
        texts[i].assign(std::string_view(models[k]).substr(models[k].size() / 2));
        models[i] = models[k].substr(models[k].size() / 2);
        break;
      case 4:
        texts[i].clear();
        models[i].clear();
        break;
      case 5:
        std::swap(texts[i], texts[k]);
        std::swap(models[i], models[k]);
        break;
      default:
        if (models[i].size() > 30) break;
        texts[i] += texts[k];
        models[i] += std::string(models[k]);
    }
    expect_equal(texts[i], models[i]);
    expect_equal(texts[k], models[k]);
    ASSERT_EQ(texts[i] <=> texts[k], models[i] <=> models[k]);
  }
}

TEST(ShortText, IsUsedAsAString) {
  ShortText type = "mb";
  EXPECT_EQ(sizeof type, sizeof(void *));
  EXPECT_TRUE(type == "mb" && "mb" == type && type != "mbx" && type < "mc");
  const std::string copy = type, direct(type);
  const std::string &reference = type;
  const std::string_view view = type;
  EXPECT_TRUE(copy == direct && reference == view);
  EXPECT_EQ(type + "_" + type, "mb_mb");
  EXPECT_EQ("<" + type + '>', "<mb>");
  ShortText longer = "mb_lg_mb";
  EXPECT_EQ(longer.rfind("mb"), 6U);
  EXPECT_EQ(longer.rfind('l'), 3U);
  EXPECT_EQ(longer.find_first_of("lg_"), 2U);
  EXPECT_EQ(longer.find_last_of("lg_"), 5U);
  EXPECT_EQ(longer.find_first_not_of("mb"), 2U);
  EXPECT_EQ(longer.find_last_not_of("mb"), 5U);
  longer.resize(2);
  longer.push_back('n');
  EXPECT_EQ(longer, "mbn");
  std::string assigned;
  assigned = type;
  assigned += type;
  EXPECT_EQ(assigned, "mbmb");
  std::ostringstream out;
  out << type;
  EXPECT_EQ(out.str(), "mb");
  EXPECT_EQ(type[1], 'b');
  EXPECT_EQ(type[2], '\0');
  EXPECT_THROW(static_cast<void>(type.at(2)), std::out_of_range);
  EXPECT_EQ(type.find('b'), 1U);
  EXPECT_EQ(type.substr(1), "b");
  EXPECT_EQ((std::unordered_set<ShortText>{"mb", "ms", "mb"}.size()), 2U);
  type = static_cast<const char *>(nullptr);
  EXPECT_EQ(type, "");
  type = std::string("mww(regional)");
  EXPECT_STREQ(type.c_str(), "mww(regional)");
  for (const char c : type) EXPECT_NE(c, '\0');
}
