#include "simulator/machine/utc_time.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ratio>

namespace varnel::simulator {
namespace {

using Ticks = std::chrono::duration<LONGLONG, std::ratio<1, 10'000'000>>;
constexpr std::chrono::sys_days kFirstDay = std::chrono::year(1601) / 1 / 1;
constexpr std::size_t kFractionDigits = 7;

// Takes a text from its front.
class Digits {
 public:
  explicit Digits(std::string_view text) : rest_(text) {}

  bool Take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  // A number of so many digits that is not above `largest`.
  bool Take(std::size_t digits, unsigned largest, unsigned& number) {
    if (Count() < digits) return false;
    number = 0;
    for (const char digit : rest_.substr(0, digits)) number = number * 10 + static_cast<unsigned>(digit - '0');
    rest_.remove_prefix(digits);
    return number <= largest;
  }
  // The digits that come next.
  std::size_t Count() const {
    const std::size_t end = rest_.find_first_not_of("0123456789");
    return end == rest_.npos ? rest_.size() : end;
  }
  bool AtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

bool TakeFraction(Digits& text, unsigned& ticks) {
  if (!text.Take(".")) return true;
  const std::size_t digits = text.Count();
  const std::size_t counted = std::min(digits, kFractionDigits);
  if (digits == 0 || !text.Take(counted, 9'999'999, ticks)) return false;
  for (std::size_t i = counted; i < kFractionDigits; ++i) ticks *= 10;
  for (unsigned uncounted = 0; text.Count() != 0;) text.Take(1, 9, uncounted);
  return true;
}

}  // namespace

std::optional<LONGLONG> ParseUtc(std::string_view text) {
  Digits digits(text);
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned ticks = 0;
  const bool isTime = digits.Take(4, 9999, year) && digits.Take("-") && digits.Take(2, 12, month) && digits.Take("-") &&
                      digits.Take(2, 31, day) && digits.Take("T") && digits.Take(2, 23, hour) && digits.Take(":") &&
                      digits.Take(2, 59, minute) && digits.Take(":") && digits.Take(2, 59, second) &&
                      TakeFraction(digits, ticks) && digits.Take("Z") && digits.AtEnd();
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                         std::chrono::day(day));
  if (!isTime || !date.ok() || std::chrono::sys_days(date) < kFirstDay) return std::nullopt;
  const auto time = std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second);
  return (std::chrono::sys_days(date) - kFirstDay + Ticks(time)).count() + ticks;
}

std::string FormatUtc(LONGLONG fileTime) {
  const auto day = std::chrono::floor<std::chrono::days>(Ticks(fileTime));
  const std::chrono::year_month_day date(kFirstDay + day);
  const std::chrono::hh_mm_ss clock(Ticks(fileTime) - day);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%07dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

}  // namespace varnel::simulator
