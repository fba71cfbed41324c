#include "platform/db/internal/packed_rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

namespace ksutil::db {
namespace {

/* Rows of a chunk: enough that its common characters cost little, few enough that the
 * leading digits of ids and times are common, and that it stays in the cache. */
constexpr std::size_t kChunkRows = 128;
/* Bits of a row are counted in 16 bits. */
constexpr std::size_t kLongestRow = 8191;
/* Bytes behind the last packed row that are read with it. */
constexpr std::size_t kMargin = 2;

/* The characters of numbers; the place of each is its code in four bits. */
constexpr char kNumberCharacters[] = "0123456789 -.+eE";
constexpr std::uint8_t kNoCode = 16;

constexpr std::array<std::uint8_t, 256> number_codes() {
  std::array<std::uint8_t, 256> codes{};
  codes.fill(kNoCode);
  for (std::uint8_t code = 0; code < 16; ++code) {
    codes[static_cast<std::uint8_t>(kNumberCharacters[code])] = code;
  }
  return codes;
}
constexpr std::array<std::uint8_t, 256> kNumberCodes = number_codes();

/* The two characters of each byte of codes, the first in the low four bits. */
struct Pair {
  char characters[2];
};
constexpr std::array<Pair, 256> number_pairs() {
  std::array<Pair, 256> pairs{};
  for (std::size_t code = 0; code < 256; ++code) {
    pairs[code] = {{kNumberCharacters[code & 15], kNumberCharacters[code >> 4]}};
  }
  return pairs;
}
constexpr std::array<Pair, 256> kNumberPairs = number_pairs();

/* A chunk begins with this head.  Then follow the characters of its first row, the
 * positions of the pairs (16 bits each), the columns, the alphabets and the rows. */
struct ChunkHead {
  std::uint16_t pairs;      // pairs of number columns; each is one byte of a row
  std::uint16_t columns;    // the other columns that differ
  std::uint16_t row_bytes;  // of a packed row
  std::uint16_t alphabets;  // bytes of alphabets
};
struct PackedColumn {
  std::uint16_t position;  // in the row
  std::uint16_t bit;       // where its code begins in the packed row
  std::uint16_t mask;      // of its code
  std::uint16_t alphabet;  // its characters by code: where they begin in the alphabets
};

template <class T>
T load(const void *from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

/* The characters of a column. */
struct CharacterSet {
  std::uint64_t words[4] = {};

  bool contains_only_number_characters() const;
  int size() const {
    return std::popcount(words[0]) + std::popcount(words[1]) + std::popcount(words[2]) +
           std::popcount(words[3]);
  }
  bool operator==(const CharacterSet &) const = default;
};

constexpr CharacterSet number_character_set() {
  CharacterSet set;
  for (std::size_t i = 0; i < 16; ++i) {
    const auto c = static_cast<std::uint8_t>(kNumberCharacters[i]);
    set.words[c >> 6] |= std::uint64_t{1} << (c & 63);
  }
  return set;
}
constexpr CharacterSet kNumberSet = number_character_set();

bool CharacterSet::contains_only_number_characters() const {
  return (words[0] & ~kNumberSet.words[0]) == 0 &&
         (words[1] & ~kNumberSet.words[1]) == 0 && words[2] == 0 && words[3] == 0;
}

CharacterSet characters_of(const char *column, std::size_t rows, std::size_t length) {
  std::uint64_t low = 0, high = 0;
  std::uint8_t all = 0;
  for (std::size_t row = 0; row < rows; ++row, column += length) {
    const auto c = static_cast<std::uint8_t>(*column);
    const std::uint64_t bit = std::uint64_t{1} << (c & 63);
    const std::uint64_t upper = -static_cast<std::uint64_t>((c >> 6) & 1);
    low |= bit & ~upper;
    high |= bit & upper;
    all |= c;
  }
  CharacterSet set{{low, high, 0, 0}};
  if (all < 128) return set;
  set = {};
  column -= rows * length;
  for (std::size_t row = 0; row < rows; ++row, column += length) {
    const auto c = static_cast<std::uint8_t>(*column);
    set.words[c >> 6] |= std::uint64_t{1} << (c & 63);
  }
  return set;
}

/* ChunkPacker: packs chunk after chunk into one buffer. */
class ChunkPacker {
 public:
  explicit ChunkPacker(std::size_t length) : length_(length), differs_(length) {}

  void pack(const char *rows, std::size_t count);
  std::vector<std::uint8_t> &data() { return data_; }

 private:
  struct Alphabet {
    CharacterSet set;
    std::uint16_t place;
    std::array<std::uint8_t, 256> codes;
  };

  /* How the code of a column is written. */
  struct Writer {
    std::size_t position;
    std::size_t alphabet;  // index in alphabets_
    unsigned bits;
  };

  void find_columns(const char *rows, std::size_t count);
  void add_column(std::size_t position, const CharacterSet &set);
  std::size_t alphabet_of(const CharacterSet &set);
  void write_rows(const char *rows, std::size_t count);
  template <class T>
  void append(const T *items, std::size_t count) {
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(items);
    data_.insert(data_.end(), bytes, bytes + count * sizeof(T));
  }

  const std::size_t length_;
  std::vector<std::uint8_t> data_;

  /* Of the chunk. */
  std::vector<char> differs_;  // by position: not 0 where rows differ
  std::vector<std::uint16_t> pairs_;
  std::vector<PackedColumn> columns_;
  std::vector<Writer> writers_;  // by column
  std::vector<Alphabet> alphabets_;
  std::vector<char> characters_;  // of all alphabets
  std::size_t bits_ = 0;          // of the columns
};

/* The alphabet of a set, which columns with the same set share.  Its unused codes are
 * filled up, so that every code has a character. */
std::size_t ChunkPacker::alphabet_of(const CharacterSet &set) {
  for (std::size_t i = 0; i < alphabets_.size(); ++i) {
    if (alphabets_[i].set == set) return i;
  }
  Alphabet &made = alphabets_.emplace_back();
  made.set = set;
  made.place = static_cast<std::uint16_t>(characters_.size());
  for (std::size_t c = 0; c < 256; ++c) {
    if ((set.words[c >> 6] >> (c & 63) & 1) == 0) continue;
    made.codes[c] = static_cast<std::uint8_t>(characters_.size() - made.place);
    characters_.push_back(static_cast<char>(c));
  }
  const std::size_t count = characters_.size() - made.place;
  characters_.resize(made.place + std::bit_ceil(count), ' ');
  return alphabets_.size() - 1;
}

void ChunkPacker::add_column(std::size_t position, const CharacterSet &set) {
  const std::size_t alphabet = alphabet_of(set);
  const unsigned count = std::bit_ceil(static_cast<unsigned>(set.size()));
  const auto bits = static_cast<unsigned>(std::countr_zero(count));
  columns_.push_back(
      {static_cast<std::uint16_t>(position), static_cast<std::uint16_t>(bits_),
       static_cast<std::uint16_t>(count - 1), alphabets_[alphabet].place});
  writers_.push_back({position, alphabet, bits});
  bits_ += bits;
}

void ChunkPacker::find_columns(const char *rows, std::size_t count) {
  std::fill(differs_.begin(), differs_.end(), '\0');
  for (std::size_t row = 1; row < count; ++row) {
    const char *const other = rows + row * length_;
    std::size_t i = 0;
    for (; i + sizeof(std::uint64_t) <= length_; i += sizeof(std::uint64_t)) {
      const auto differs =
          load<std::uint64_t>(&differs_[i]) |
          (load<std::uint64_t>(&rows[i]) ^ load<std::uint64_t>(&other[i]));
      std::memcpy(&differs_[i], &differs, sizeof differs);
    }
    for (; i < length_; ++i) {
      differs_[i] = static_cast<char>(differs_[i] | (rows[i] ^ other[i]));
    }
  }
  pairs_.clear();
  columns_.clear();
  writers_.clear();
  alphabets_.clear();
  characters_.clear();
  bits_ = 0;
  CharacterSet waiting;  // the set of the column before, which may begin a pair
  bool waits = false;
  for (std::size_t i = 0; i < length_; ++i) {
    const bool differs = differs_[i] != 0;
    const CharacterSet set =
        differs ? characters_of(rows + i, count, length_) : CharacterSet();
    const bool number =
        differs && set.size() > 4 && set.contains_only_number_characters();
    if (waits && number) {
      pairs_.push_back(static_cast<std::uint16_t>(i - 1));
      waits = false;
      continue;
    }
    if (waits) add_column(i - 1, waiting);
    waits = number;
    waiting = set;
    if (differs && !number) add_column(i, set);
  }
  if (waits) add_column(length_ - 1, waiting);
}

void ChunkPacker::write_rows(const char *rows, std::size_t count) {
  const std::size_t pairs = pairs_.size();
  const std::size_t row_bytes = pairs + (bits_ + 7) / 8;
  const std::size_t start = data_.size();
  data_.resize(start + count * row_bytes);
  std::uint8_t *to = data_.data() + start;
  const Alphabet *const codes = alphabets_.data();
  for (std::size_t row = 0; row < count; ++row, rows += length_) {
    for (std::size_t i = 0; i < pairs; ++i) {
      const char *const at = rows + pairs_[i];
      to[i] = static_cast<std::uint8_t>(kNumberCodes[static_cast<std::uint8_t>(at[0])] |
                                        kNumberCodes[static_cast<std::uint8_t>(at[1])]
                                            << 4);
    }
    to += pairs;
    std::uint64_t waiting = 0;
    unsigned filled = 0;
    for (const Writer &column : writers_) {
      const auto c = static_cast<std::uint8_t>(rows[column.position]);
      waiting |= std::uint64_t{codes[column.alphabet].codes[c]} << filled;
      filled += column.bits;
      if (filled < 32) continue;
      std::memcpy(to, &waiting, 4);
      to += 4;
      waiting >>= 32;
      filled -= 32;
    }
    for (; filled > 8; filled -= 8, waiting >>= 8) {
      *to++ = static_cast<std::uint8_t>(waiting);
    }
    if (filled > 0) *to++ = static_cast<std::uint8_t>(waiting);
  }
}

void ChunkPacker::pack(const char *rows, std::size_t count) {
  find_columns(rows, count);
  /* The codes of the columns follow those of the pairs. */
  for (PackedColumn &column : columns_) {
    column.bit = static_cast<std::uint16_t>(column.bit + 8 * pairs_.size());
  }
  const ChunkHead head{static_cast<std::uint16_t>(pairs_.size()),
                       static_cast<std::uint16_t>(columns_.size()),
                       static_cast<std::uint16_t>(pairs_.size() + (bits_ + 7) / 8),
                       static_cast<std::uint16_t>(characters_.size())};
  append(&head, 1);
  append(rows, length_);
  append(pairs_.data(), pairs_.size());
  append(columns_.data(), columns_.size());
  append(characters_.data(), characters_.size());
  write_rows(rows, count);
}

}  // namespace

std::unique_ptr<const PackedRows> PackedRows::pack(std::string_view rows) {
  const std::size_t newline = rows.substr(0, kLongestRow).find('\n');
  if (newline == rows.npos || rows.size() > std::numeric_limits<std::uint32_t>::max()) {
    return nullptr;
  }
  const std::size_t length = newline + 1;
  const std::size_t count = rows.size() / length;
  std::unique_ptr<PackedRows> packed(new PackedRows(rows.size(), length));
  ChunkPacker packer(length);
  for (std::size_t first = 0; first < count; first += kChunkRows) {
    const std::size_t most = rows.size() - rows.size() / 4;
    if (packer.data().size() > most) return nullptr;
    packed->chunks_.push_back(static_cast<std::uint32_t>(packer.data().size()));
    packer.pack(rows.data() + first * length, std::min(kChunkRows, count - first));
  }
  std::vector<std::uint8_t> &data = packer.data();
  const std::string_view rest = rows.substr(count * length);
  if (data.size() + rest.size() + kMargin > rows.size() - rows.size() / 4) {
    return nullptr;
  }
  packed->data_size_ = data.size() + rest.size() + kMargin;
  packed->data_ = std::make_unique_for_overwrite<std::uint8_t[]>(packed->data_size_);
  std::memcpy(packed->data_.get(), data.data(), data.size());
  std::memcpy(packed->data_.get() + data.size(), rest.data(), rest.size());
  std::memset(packed->data_.get() + data.size() + rest.size(), 0, kMargin);
  packed->chunks_.push_back(static_cast<std::uint32_t>(data.size()));
  packed->chunks_.shrink_to_fit();
  return packed;
}

void PackedRows::unpack_row(std::size_t row, char *to) const {
  const std::uint8_t *at = data_.get() + chunks_[row / kChunkRows];
  const auto head = load<ChunkHead>(at);
  at += sizeof head;
  std::memcpy(to, at, length_);
  const std::uint8_t *const pairs = at + length_;
  const std::uint8_t *const columns = pairs + head.pairs * sizeof(std::uint16_t);
  const std::uint8_t *const alphabets = columns + head.columns * sizeof(PackedColumn);
  const std::uint8_t *const packed =
      alphabets + head.alphabets + row % kChunkRows * head.row_bytes;
  for (std::size_t i = 0; i < head.pairs; ++i) {
    const auto position = load<std::uint16_t>(pairs + i * sizeof(std::uint16_t));
    std::memcpy(to + position, kNumberPairs[packed[i]].characters, 2);
  }
  for (std::size_t i = 0; i < head.columns; ++i) {
    const auto column = load<PackedColumn>(columns + i * sizeof(PackedColumn));
    const unsigned code =
        unsigned{load<std::uint16_t>(packed + column.bit / 8)} >> column.bit % 8;
    to[column.position] =
        static_cast<char>(alphabets[column.alphabet + (code & column.mask)]);
  }
}

void PackedRows::unpack(std::size_t offset, std::size_t count, char *to) const {
  if (offset > size_ || count > size_ - offset) return;
  const std::size_t whole = size_ / length_ * length_;
  while (count > 0) {
    if (offset >= whole) {
      std::memcpy(to, data_.get() + chunks_.back() + (offset - whole), count);
      return;
    }
    const std::size_t row = offset / length_, from = offset % length_;
    const std::size_t bytes = std::min(count, length_ - from);
    if (bytes == length_) {
      unpack_row(row, to);
    } else {
      std::vector<char> whole_row(length_);
      unpack_row(row, whole_row.data());
      std::memcpy(to, whole_row.data() + from, bytes);
    }
    to += bytes;
    offset += bytes;
    count -= bytes;
  }
}

}  // namespace ksutil::db
