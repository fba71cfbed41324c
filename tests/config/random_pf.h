/* Random parameter files as people write them, beside what they mean and which lines each
 * value takes: the judge of edits, which knows nothing of the library. */
#ifndef KSUTIL_TESTS_CONFIG_RANDOM_PF_H
#define KSUTIL_TESTS_CONFIG_RANDOM_PF_H

#include <algorithm>
#include <random>
#include <string>
#include <vector>

struct Meant {
  enum Kind { kText, kTable, kArray };
  Kind kind = kText;
  std::string name, text;
  std::vector<Meant> inside;
  std::size_t first = 0, last = 0;  // its lines, from 0
  bool closed = false;              // "{}"
};

class RandomPf {
 public:
  explicit RandomPf(unsigned seed) : random_(seed), eol_(pick(4) == 0 ? "\r\n" : "\n") {
    root.kind = Meant::kArray;
    fill(root, 0);
    if (!lines.empty() && pick(5) == 0) {
      lines.back().erase(lines.back().find_last_not_of("\r\n") + 1);
    }
  }

  Meant root;
  std::vector<std::string> lines;  // with their breaks

  std::string text() const {
    std::string all;
    for (const std::string &line : lines) all += line;
    return all;
  }

  int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

  /* A text that an edit may store. */
  std::string any_text() {
    static const std::vector<std::string> kTexts = {
        "",  "plain", "two words", " outer ", "a # b",   "a#b", "&Tbl{",  "}",
        "#", "x\ny",  "\"q\"",     "C:\\new", "\t tab ", "{",   "\"open", "\r"};
    return kTexts[static_cast<std::size_t>(pick(static_cast<int>(kTexts.size())))];
  }

  static std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
      if (c == '\n') {
        out += "\\n";
      } else if (c == '\r') {
        out += "\\r";
      } else {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
      }
    }
    return out + "\"";
  }

  /* A value in a plain form of its own. */
  static std::string written(const Meant &value) {
    if (value.kind == Meant::kText) return quoted(value.text);
    std::string out = value.kind == Meant::kTable ? "&Tbl{\n" : "&Arr{\n";
    return out + entries(value) + "}";
  }
  static std::string entries(const Meant &block) {
    std::string out;
    for (const Meant &value : block.inside) {
      if (block.kind == Meant::kArray) out += quoted(value.name) + " ";
      out += written(value) + "\n";
    }
    return out;
  }

 private:
  std::string blanks() {
    static const char *const kBlanks[] = {"", " ", "  ", "\t", "    "};
    return kBlanks[pick(5)];
  }
  std::string comment() { return "# remark " + std::to_string(remarks_++) + " {}\""; }
  std::string line_end() {
    return (pick(3) == 0 ? " " + blanks() + comment() : blanks()) + eol_;
  }

  void remarks() {
    while (pick(3) == 0) {
      lines.push_back(blanks() + (pick(3) == 0 ? "" : comment()) + eol_);
    }
  }

  void fill(Meant &block, int depth) {
    remarks();
    for (int n = pick(depth == 0 ? 7 : 4); n > 0; --n) {
      Meant value;
      std::string head = blanks();
      if (block.kind == Meant::kArray) {
        static const char *const kNames[] = {"a", "b.c", "d e", "", "f\"g", "h[0]"};
        value.name = kNames[pick(6)] + std::to_string(n);
        const bool plain = value.name.find_first_of(" \"") == std::string::npos;
        head += plain && pick(3) > 0 ? value.name : quoted(value.name);
        head += " " + blanks();
      }
      add(value, head, depth);
      block.inside.push_back(value);
      remarks();
    }
  }

  void add(Meant &value, const std::string &head, int depth) {
    value.first = lines.size();
    const int kind = depth > 3 ? 0 : pick(4);
    if (kind < 2) {
      lines.push_back(head + text_of(value, !trimmed(head).empty()) + line_end());
    } else {
      value.kind = kind == 2 ? Meant::kTable : Meant::kArray;
      value.closed = pick(4) == 0;
      const std::string opening = kind == 2 ? "&Tbl{" : "&Arr {";
      lines.push_back(head + opening + (value.closed ? "}" : "") + line_end());
      if (!value.closed) {
        fill(value, depth + 1);
        lines.push_back(blanks() + "}" + line_end());
      }
    }
    value.last = lines.size() - 1;
  }

  static std::string trimmed(const std::string &text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first);
  }

  std::string text_of(Meant &value, bool named) {
    static const char *const kPlain[] = {"1.5", "some words", "a#b", "x{y}", "7"};
    if (named && pick(6) == 0) return "";
    if (pick(2) == 0) return value.text = kPlain[pick(5)];
    return quoted(value.text = any_text());
  }

  std::mt19937 random_;
  std::string eol_;
  int remarks_ = 0;
};

#endif
