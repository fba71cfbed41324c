/* ShortText: a text in the space of a pointer, for words of up to 6 characters; longer
 * ones are kept elsewhere.
 *
 * It does for its users what a std::string does that is assigned as a whole: it
 * compares, prints, concatenates, is searched and converts to and from texts.
 * Threads: as of std::string.
 * Errors: std::bad_alloc for texts of more than 6 characters, and what the members of
 * std::string of the same name throw. */
#ifndef KSUTIL_CORE_SHORTTEXT_H
#define KSUTIL_CORE_SHORTTEXT_H

#include <bit>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

class ShortText {
 public:
  using value_type = char;
  using size_type = std::size_t;
  using const_iterator = const char *;
  using iterator = const_iterator;
  static constexpr std::size_t npos = std::string_view::npos;

  ShortText() noexcept { set_inside({}); }
  /* Copy the text; null is an empty text. */
  ShortText(std::string_view text) {
    if (text.size() <= kInside) {
      set_inside(text);
    } else {
      set_outside(text);
    }
  }
  ShortText(const std::string &text) : ShortText(std::string_view(text)) {}
  ShortText(const char *text)
      : ShortText(text == nullptr ? std::string_view() : std::string_view(text)) {}
  ShortText(const ShortText &other) : word_(other.word_) {
    if (!inside()) set_outside(other.view());
  }
  /* A ShortText that was moved from is empty. */
  ShortText(ShortText &&other) noexcept : word_(other.word_) { other.set_inside({}); }
  ShortText &operator=(ShortText other) noexcept {
    std::swap(word_, other.word_);
    return *this;
  }
  ~ShortText() {
    if (!inside()) ::operator delete(outside());
  }

  /* All of these are valid until the text is changed or destroyed. */
  std::string_view view() const {
    return inside() ? std::string_view(characters(), tag() >> 1)
                    : std::string_view(outside()->characters(), outside()->length);
  }
  operator std::string_view() const { return view(); }
  operator std::string() const { return str(); }
  std::string str() const { return std::string(view()); }
  const char *c_str() const { return view().data(); }
  const char *data() const { return view().data(); }
  const_iterator begin() const { return view().data(); }
  const_iterator end() const { return begin() + size(); }

  bool empty() const { return size() == 0; }
  std::size_t size() const { return view().size(); }
  std::size_t length() const { return size(); }
  /* i <= size(); at size() there is a NUL. */
  char operator[](std::size_t i) const { return c_str()[i]; }
  char at(std::size_t i) const { return view().at(i); }
  char front() const { return view().front(); }
  char back() const { return view().back(); }

  void clear() { *this = ShortText(); }
  ShortText &assign(std::string_view text) { return *this = ShortText(text); }
  ShortText &assign(const char *text, std::size_t length) {
    return assign(std::string_view(text, length));
  }
  ShortText &operator+=(std::string_view text) { return *this = str().append(text); }
  ShortText &operator+=(char c) { return *this += std::string_view(&c, 1); }
  void push_back(char c) { *this += c; }
  void resize(size_type size, char fill = '\0') {
    std::string text = str();
    text.resize(size, fill);
    assign(text);
  }

  std::string substr(std::size_t from = 0, std::size_t count = npos) const {
    return std::string(view().substr(from, count));
  }
  int compare(std::string_view other) const { return view().compare(other); }
  std::size_t find(std::string_view text, std::size_t from = 0) const {
    return view().find(text, from);
  }
  std::size_t find(char c, std::size_t from = 0) const { return view().find(c, from); }
  std::size_t rfind(std::string_view text, std::size_t from = npos) const {
    return view().rfind(text, from);
  }
  std::size_t rfind(char c, std::size_t from = npos) const {
    return view().rfind(c, from);
  }
  std::size_t find_first_of(std::string_view set, std::size_t from = 0) const {
    return view().find_first_of(set, from);
  }
  std::size_t find_last_of(std::string_view set, std::size_t from = npos) const {
    return view().find_last_of(set, from);
  }
  std::size_t find_first_not_of(std::string_view set, std::size_t from = 0) const {
    return view().find_first_not_of(set, from);
  }
  std::size_t find_last_not_of(std::string_view set, std::size_t from = npos) const {
    return view().find_last_not_of(set, from);
  }
  bool starts_with(std::string_view text) const { return view().starts_with(text); }
  bool ends_with(std::string_view text) const { return view().ends_with(text); }

  friend bool operator==(const ShortText &a, const ShortText &b) {
    return a.word_ == b.word_ || a.view() == b.view();
  }
  friend std::strong_ordering operator<=>(const ShortText &a, const ShortText &b) {
    return a.view() <=> b.view();
  }
  template <class Text>
  requires std::convertible_to<const Text &, std::string_view>
  friend bool operator==(const ShortText &a, const Text &b) {
    return a.view() == std::string_view(b);
  }
  template <class Text>
  requires std::convertible_to<const Text &, std::string_view>
  friend std::strong_ordering operator<=>(const ShortText &a, const Text &b) {
    return a.view() <=> std::string_view(b);
  }
  friend std::string operator+(const ShortText &a, const ShortText &b) {
    return a.str().append(b.view());
  }
  template <class Text>
  requires std::convertible_to<const Text &, std::string_view>
  friend std::string operator+(const ShortText &a, const Text &b) {
    return a.str().append(std::string_view(b));
  }
  template <class Text>
  requires std::convertible_to<const Text &, std::string_view>
  friend std::string operator+(const Text &a, const ShortText &b) {
    return std::string(std::string_view(a)).append(b.view());
  }
  friend std::string operator+(const ShortText &a, char b) { return a.str() + b; }
  friend std::string operator+(char a, const ShortText &b) { return a + b.str(); }
  friend std::ostream &operator<<(std::ostream &out, const ShortText &text) {
    return out << text.view();
  }

 private:
  /* A text that has no room inside; its characters and a NUL follow. */
  struct Outside {
    std::size_t length;
    const char *characters() const { return reinterpret_cast<const char *>(this + 1); }
  };
  static constexpr std::size_t kInside = sizeof(std::uint64_t) - 2;
  /* The lowest byte of the word is the tag: odd, and twice the length, for a text
   * inside; even, as part of the address, for one outside. */
  static constexpr bool kTagFirst = std::endian::native == std::endian::little;

  char *bytes() { return reinterpret_cast<char *>(&word_); }
  const char *characters() const {
    return reinterpret_cast<const char *>(&word_) + (kTagFirst ? 1 : 0);
  }
  unsigned tag() const { return static_cast<unsigned>(word_ & 0xff); }
  bool inside() const { return (word_ & 1) != 0; }
  Outside *outside() const {
    return reinterpret_cast<Outside *>(static_cast<std::uintptr_t>(word_));
  }
  void set_inside(std::string_view text) noexcept {
    word_ = 2 * text.size() + 1;
    if (!text.empty())
      std::memcpy(bytes() + (kTagFirst ? 1 : 0), text.data(), text.size());
  }
  void set_outside(std::string_view text) {
    void *const memory = ::operator new(sizeof(Outside) + text.size() + 1);
    auto *const made = ::new (memory) Outside{text.size()};
    char *const to = reinterpret_cast<char *>(made + 1);
    std::memcpy(to, text.data(), text.size());
    to[text.size()] = '\0';
    word_ = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(made));
  }

  std::uint64_t word_;
};

/* The hash of an equal std::string. */
template <>
struct std::hash<ShortText> {
  std::size_t operator()(const ShortText &text) const noexcept {
    return std::hash<std::string_view>()(text.view());
  }
};

#endif
