/* Builds miniSEED records byte by byte, without the library that reads them. */
#ifndef KSUTIL_TESTS_SUPPORT_MINISEED_H
#define KSUTIL_TESTS_SUPPORT_MINISEED_H

#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace ksutil::test {

struct RecordPlan {
  std::string net = "XX", sta = "ABC", loc = "", chan = "BHZ";
  double time = 1000000000.0;  // to 0.1 ms
  int factor = 20, multiplier = 1;
  std::vector<std::int32_t> samples;
  bool big = true;          // both the header and the samples
  bool with_length = true;  // blockette 1000
  int exponent = 9;         // of the length
  std::string quality = "D";
};

/* A record of 32-bit integers. */
inline std::string record_bytes(const RecordPlan &plan) {
  const auto number = [&](std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) {
      text += static_cast<char>(value >> 8 * (plan.big ? bytes - 1 - i : i));
    }
    return text;
  };
  const auto padded = [](std::string code, std::size_t width) {
    code.resize(width, ' ');
    return code;
  };
  const auto ticks = std::llround(plan.time * 10000.0);
  const auto second = std::chrono::sys_seconds(std::chrono::seconds(ticks / 10000));
  const auto day = std::chrono::floor<std::chrono::days>(second);
  const std::chrono::year_month_day date(day);
  const auto of_day = (second - day).count();
  std::string bytes =
      "000001" + plan.quality + " " + padded(plan.sta, 5) + padded(plan.loc, 2) +
      padded(plan.chan, 3) + padded(plan.net, 2) +
      number(static_cast<std::uint64_t>(static_cast<int>(date.year())), 2) +
      number(static_cast<std::uint64_t>(
                 (day - std::chrono::sys_days(date.year() / 1 / 1)).count() + 1),
             2);
  bytes += static_cast<char>(of_day / 3600);
  bytes += static_cast<char>(of_day / 60 % 60);
  bytes += static_cast<char>(of_day % 60);
  bytes += '\0';
  bytes += number(static_cast<std::uint64_t>(ticks % 10000), 2) +
           number(plan.samples.size(), 2) +
           number(static_cast<std::uint16_t>(plan.factor), 2) +
           number(static_cast<std::uint16_t>(plan.multiplier), 2) +
           std::string(3, '\0') + (plan.with_length ? '\1' : '\0') + number(0, 4) +
           number(64, 2) + number(plan.with_length ? 48 : 0, 2);
  if (plan.with_length) {
    bytes += number(1000, 2) + number(0, 2) + '\3' + (plan.big ? '\1' : '\0') +
             static_cast<char>(plan.exponent) + '\0';
  }
  bytes.resize(64, '\0');
  for (const std::int32_t sample : plan.samples) {
    bytes += number(static_cast<std::uint32_t>(sample), 4);
  }
  bytes.resize(std::size_t{1} << plan.exponent, '\0');
  return bytes;
}

/* 100 samples first, first + 1, ... of 20 Hz that begin with number `index` after the
 * plan's time, as one record of 512 bytes. */
inline std::string counting_record(RecordPlan plan, int index) {
  plan.time += index / 20.0;
  for (int i = 0; i < 100; ++i) plan.samples.push_back(index + i);
  return record_bytes(plan);
}

}  // namespace ksutil::test
#endif
