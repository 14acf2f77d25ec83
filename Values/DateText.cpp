// Dates as property lists spell them.
#include "DateText.h"

#include <cmath>
#include <cstdio>

namespace moxel::detail {

namespace {

constexpr int64_t secondsPerDay = 86400;

/// Days since 1 January 2001 of a day of the Gregorian calendar. Counts in eras of 400 years that begin on
/// 1 March, so that leap days come last.
constexpr int64_t dayFromCalendar(int64_t year, int64_t month, int64_t day) noexcept {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 730791;
}
static_assert(dayFromCalendar(2001, 1, 1) == 0);
static_assert(dayFromCalendar(1970, 1, 1) == -11323);

struct CalendarDay {
    int64_t year;
    int month;
    int day;
};

constexpr CalendarDay calendarFromDay(int64_t day) noexcept {
    day += 730791;
    const int64_t era = (day >= 0 ? day : day - 146096) / 146097;
    const int64_t dayOfEra = day - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month,
            static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1)};
}

constexpr int64_t daysInMonth(int64_t year, int64_t month) noexcept {
    const int64_t next = month == 12 ? dayFromCalendar(year + 1, 1, 1) : dayFromCalendar(year, month + 1, 1);
    return next - dayFromCalendar(year, month, 1);
}

/// Reads fixed fields one after another; any mismatch sticks.
class FieldReader {
  public:
    explicit FieldReader(std::string_view text) noexcept : text_(text) {}

    void literal(char expected) noexcept {
        isOK_ = isOK_ && text_.starts_with(expected);
        text_.remove_prefix(isOK_ ? 1 : 0);
    }
    bool sign() noexcept {
        const bool isNegative = text_.starts_with('-');
        if (isNegative || text_.starts_with('+'))
            text_.remove_prefix(1);
        return isNegative;
    }
    /// A number of so many digits.
    int64_t number(size_t least, size_t most) noexcept {
        int64_t number = 0;
        size_t digits = 0;
        while (digits < most && digits < text_.size() && text_[digits] >= '0' && text_[digits] <= '9')
            number = number * 10 + (text_[digits++] - '0');
        isOK_ = isOK_ && digits >= least;
        text_.remove_prefix(digits);
        return number;
    }
    int64_t number(size_t digits, int64_t smallest, int64_t largest) noexcept {
        const int64_t value = number(digits, digits);
        isOK_ = isOK_ && value >= smallest && value <= largest;
        return value;
    }
    /// Whether every field was there and nothing else is.
    [[nodiscard]] bool finished() const noexcept { return isOK_ && text_.empty(); }
    [[nodiscard]] bool isOK() const noexcept { return isOK_; }

  private:
    std::string_view text_;
    bool isOK_ = true;
};

/// Seconds since 2001 of "Y-M-D?h:m:s", the separator between day and time given.
int64_t readDayAndTime(FieldReader &fields, char separator) noexcept {
    const bool isNegative = fields.sign();
    const int64_t year = fields.number(4, 8) * (isNegative ? -1 : 1);
    fields.literal('-');
    const int64_t month = fields.number(2, 1, 12);
    fields.literal('-');
    const int64_t day = fields.number(2, 1, fields.isOK() ? daysInMonth(year, month) : 31);
    fields.literal(separator);
    const int64_t hour = fields.number(2, 0, 23);
    fields.literal(':');
    const int64_t minute = fields.number(2, 0, 59);
    fields.literal(':');
    const int64_t second = fields.number(2, 0, 60); // 60: a leap second
    if (!fields.isOK())
        return 0;
    return dayFromCalendar(year, month, day) * secondsPerDay + hour * 3600 + minute * 60 + second;
}

} // namespace

std::optional<Date> dateFromXMLText(std::string_view text) {
    FieldReader fields(text);
    const int64_t seconds = readDayAndTime(fields, 'T');
    fields.literal('Z');
    return fields.finished() ? std::optional(Date{static_cast<double>(seconds)}) : std::nullopt;
}

std::optional<Date> dateFromOpenStepText(std::string_view text) {
    FieldReader fields(text);
    const int64_t seconds = readDayAndTime(fields, ' ');
    fields.literal(' ');
    const int64_t sign = fields.sign() ? -1 : 1;
    const int64_t hours = fields.number(2, 0, 23);
    const int64_t minutes = fields.number(2, 0, 59);
    const int64_t offset = sign * (hours * 3600 + minutes * 60);
    return fields.finished() ? std::optional(Date{static_cast<double>(seconds - offset)}) : std::nullopt;
}

std::optional<std::string> xmlTextFromDate(Date date) {
    const double wholeSeconds = std::floor(date.secondsSince2001);
    if (!(std::fabs(wholeSeconds) < 3e15)) // less than 10^8 years; false for not-a-number
        return std::nullopt;
    const auto seconds = static_cast<int64_t>(wholeSeconds);
    const int64_t day = (seconds >= 0 ? seconds : seconds - (secondsPerDay - 1)) / secondsPerDay;
    const auto time = static_cast<int>(seconds - day * secondsPerDay);
    const CalendarDay calendar = calendarFromDay(day);
    char text[48];
    std::snprintf(text, sizeof text, "%s%04lld-%02d-%02dT%02d:%02d:%02dZ", calendar.year < 0 ? "-" : "",
                  static_cast<long long>(calendar.year < 0 ? -calendar.year : calendar.year), calendar.month,
                  calendar.day, time / 3600, time / 60 % 60, time % 60);
    return text;
}

} // namespace moxel::detail
