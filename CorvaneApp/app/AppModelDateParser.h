#pragma once
// The coordinator's timestamps as the account records carry them.

#include <optional>
#include <string_view>

#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct AppModelDateParser {
    // Internet date-times (with or without fractional seconds), then "yyyy-MM-dd HH:mm:ss" in
    // GMT with an optional "+hhmm"/"-hhmm" offset. Absent for anything else.
    static std::optional<Date> parseCoordinatorTimestamp(std::string_view text);
};

}  // namespace corvane
