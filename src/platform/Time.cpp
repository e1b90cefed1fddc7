// ISO 8601 internet date-times, UTC, whole seconds.
#include "platform/Time.h"

#include <cstdio>

namespace vorlo {
namespace {

using namespace std::chrono;

bool readDigits(std::string_view text, std::size_t at, std::size_t count, int& value) {
    if (at + count > text.size()) return false;
    value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

} // namespace

Timestamp currentTime() { return time_point_cast<microseconds>(system_clock::now()); }

std::string formatIso8601(Timestamp time) {
    const auto seconds = floor<std::chrono::seconds>(time);
    const auto days = floor<std::chrono::days>(seconds);
    const year_month_day date{days};
    const hh_mm_ss clock{seconds - days};
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return buffer;
}

std::optional<Timestamp> parseIso8601(std::string_view text) {
    int y, mo, d, h, mi, s;
    if (text.size() < 20) return std::nullopt;
    if (!readDigits(text, 0, 4, y) || text[4] != '-' || !readDigits(text, 5, 2, mo) || text[7] != '-' ||
        !readDigits(text, 8, 2, d) || text[10] != 'T' || !readDigits(text, 11, 2, h) || text[13] != ':' ||
        !readDigits(text, 14, 2, mi) || text[16] != ':' || !readDigits(text, 17, 2, s))
        return std::nullopt;
    if (h > 23 || mi > 59 || s > 59) return std::nullopt;
    const year_month_day date{year{y}, month{static_cast<unsigned>(mo)}, day{static_cast<unsigned>(d)}};
    if (!date.ok()) return std::nullopt;

    int offsetMinutes = 0;
    const std::string_view zone = text.substr(19);
    if (zone == "Z") {
        offsetMinutes = 0;
    } else if ((zone[0] == '+' || zone[0] == '-') && (zone.size() == 6 || zone.size() == 5)) {
        int oh, om;
        const bool colon = zone.size() == 6;
        if (!readDigits(zone, 1, 2, oh) || (colon && zone[3] != ':') || !readDigits(zone, colon ? 4 : 3, 2, om) ||
            oh > 23 || om > 59)
            return std::nullopt;
        offsetMinutes = (oh * 60 + om) * (zone[0] == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    const auto local = sys_days{date} + hours{h} + minutes{mi} + seconds{s};
    return Timestamp{local - minutes{offsetMinutes}};
}

} // namespace vorlo
