#pragma once
// Dates as the system writes and reads them: ISO 8601 internet date-times in UTC, whole seconds.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vorlo {

// Microseconds, not the clock's nanoseconds: a header may name any year from 1 to 9999, and
// nanoseconds since 1970 overflow before 1678 and after 2262.
using Timestamp = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// A date before any real one, for records that have no date at all.
inline constexpr Timestamp kDistantPast = Timestamp::min();

Timestamp currentTime();

// "YYYY-MM-DDThh:mm:ssZ" in UTC; the fraction of a second is dropped.
std::string formatIso8601(Timestamp time);

// Reads "YYYY-MM-DDThh:mm:ss" followed by "Z", "±hh:mm" or "±hhmm", and nothing else: no fraction,
// no bare date, no surrounding blanks.
std::optional<Timestamp> parseIso8601(std::string_view text);

} // namespace vorlo
