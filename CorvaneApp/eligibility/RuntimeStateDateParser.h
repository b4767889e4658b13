#pragma once
// Parses the runtime-state file's timestamps: internet date-times (RFC 3339) with or without
// fractional seconds, "2026-11-16T21:00:53Z" or "2026-11-16T21:00:53.123+01:00".

#include <optional>
#include <string_view>

#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class RuntimeStateDateParser {
  public:
    // Absent for anything else, including impossible dates such as February 30 and moments a Date
    // cannot hold (before 1678 or after 2261).
    static std::optional<Date> parse(std::string_view text);

    RuntimeStateDateParser() = delete;
};

}  // namespace corvane
