#include "zorva/platform/DateFormatter.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace zorva::platform {

namespace {

constexpr std::array<const char*, 12> kMonths = {"January",   "February", "March",    "April",
                                                 "May",       "June",     "July",     "August",
                                                 "September", "October",  "November", "December"};
constexpr std::array<const char*, 7> kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};

std::string padded(long long value, std::size_t width) {
  std::string digits = std::to_string(value < 0 ? -value : value);
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  return value < 0 ? "-" + digits : digits;
}

std::string offsetText(int seconds, bool colon) {
  const int magnitude = std::abs(seconds);
  return std::string(seconds < 0 ? "-" : "+") + padded(magnitude / 3600, 2) + (colon ? ":" : "") +
         padded(magnitude / 60 % 60, 2);
}

}  // namespace

std::shared_ptr<DateFormatter> DateFormatter::create() {
  return std::shared_ptr<DateFormatter>(new DateFormatter());
}

DateFormatter::DateFormatter() : timeZone_(TimeZone::systemTimeZone()) {}

std::string DateFormatter::dateFormat() const {
  std::lock_guard lock(mutex_);
  return format_;
}

void DateFormatter::setDateFormat(std::string format) {
  std::lock_guard lock(mutex_);
  format_ = std::move(format);
}

TimeZone DateFormatter::timeZone() const {
  std::lock_guard lock(mutex_);
  return timeZone_;
}

void DateFormatter::setTimeZone(const TimeZone& zone) {
  std::lock_guard lock(mutex_);
  timeZone_ = zone;
}

std::string DateFormatter::stringFromDate(Date date) const {
  using namespace std::chrono;
  std::lock_guard lock(mutex_);
  const int offset = timeZone_.secondsFromGMTForDate(date);
  const auto local = date + seconds(offset);
  const auto day = floor<days>(local);
  const year_month_day ymd{day};
  const hh_mm_ss time{floor<milliseconds>(local - day)};
  const weekday wd{day};

  std::string out;
  const std::string& f = format_;
  for (std::size_t i = 0; i < f.size();) {
    const char c = f[i];
    if (c == '\'') {
      std::size_t end = i + 1;
      if (end < f.size() && f[end] == '\'') {
        out += '\'';
        i += 2;
        continue;
      }
      while (end < f.size()) {
        if (f[end] == '\'' && end + 1 < f.size() && f[end + 1] == '\'') {
          out += '\'';
          end += 2;
        } else if (f[end] == '\'') {
          break;
        } else {
          out += f[end++];
        }
      }
      i = end + 1;
      continue;
    }
    std::size_t n = 1;
    while (i + n < f.size() && f[i + n] == c) ++n;
    const auto hour = time.hours().count();
    switch (c) {
      case 'y': {
        const int y = static_cast<int>(ymd.year());
        out += n == 2 ? padded(y % 100, 2) : padded(y, n);
        break;
      }
      case 'M': {
        const unsigned m = static_cast<unsigned>(ymd.month());
        if (n >= 4) {
          out += kMonths[m - 1];
        } else if (n == 3) {
          out += std::string(kMonths[m - 1], 3);
        } else {
          out += padded(m, n);
        }
        break;
      }
      case 'd':
        out += padded(static_cast<unsigned>(ymd.day()), n);
        break;
      case 'H':
        out += padded(hour, n);
        break;
      case 'h':
        out += padded(hour % 12 == 0 ? 12 : hour % 12, n);
        break;
      case 'a':
        out += hour < 12 ? "AM" : "PM";
        break;
      case 'm':
        out += padded(time.minutes().count(), n);
        break;
      case 's':
        out += padded(time.seconds().count(), n);
        break;
      case 'S':
        out += padded(time.subseconds().count(), 3).substr(0, n);
        if (n > 3) out.append(n - 3, '0');
        break;
      case 'E': {
        const char* name = kWeekdays[wd.c_encoding()];
        out += n >= 4 ? std::string(name) : std::string(name, 3);
        break;
      }
      case 'Z':
        if (n == 5) {
          out += offset == 0 ? "Z" : offsetText(offset, true);
        } else if (n == 4) {
          out += "GMT" + (offset == 0 ? std::string() : offsetText(offset, true));
        } else {
          out += offsetText(offset, false);
        }
        break;
      default:
        out.append(n, c);
        break;
    }
    i += n;
  }
  return out;
}

}  // namespace zorva::platform
