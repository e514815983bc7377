#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "zorva/platform/TimeZone.h"

namespace zorva::platform {

/// Formats dates with a Unicode date pattern in a time zone (Gregorian calendar, English names).
/// Pattern letters: y (yy: two digits), M (MMM "Jan", MMMM "January"), d, H, h, a, m, s, S
/// (fraction digits), E (EEEE: the full weekday), Z ("+0530"), ZZZZ ("GMT+05:30"), ZZZZZ
/// ("+05:30", "Z" at zero offset); text between single quotes is literal, '' is a quote; other
/// characters are copied. Thread-safe.
class DateFormatter {
 public:
  /// A formatter with an empty pattern in the system time zone of the moment.
  static std::shared_ptr<DateFormatter> create();

  std::string dateFormat() const;
  void setDateFormat(std::string format);
  TimeZone timeZone() const;
  void setTimeZone(const TimeZone& zone);

  std::string stringFromDate(Date date) const;

 private:
  DateFormatter();
  mutable std::mutex mutex_;
  std::string format_;
  TimeZone timeZone_;
};

}  // namespace zorva::platform
