#pragma once
// The small texts every screen shares: money, byte counts with progress, deltas, active time,
// percentages. Plain functions of their inputs; no locale other than the one given.

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

// "%.<decimals>f" with a point whatever the process's locale (the desktop runs under the owner's,
// where printf may write a comma); a rounded negative zero loses its sign.
std::string fixed(double value, int decimals);
// "$1,234.56": two decimals, a point and comma grouping, a leading "−" for a negative amount.
std::string formatUSD(double usd);
// "$1,234.56", or "—" when absent.
std::string formatUSD(const std::optional<double>& usd);
// "+$0.25" for 0 or more, "−$0.25" below.
std::string formattedDelta(double value);
// "—", "59 min", "1 hr 1 min", "1 day 3 hr".
std::string formatActiveTime(const std::optional<std::int64_t>& minutes);
// Decimal units as a file manager shows them, megabytes and gigabytes only: "0 MB", "805 MB",
// "1.6 GB".
std::string formatFileBytes(std::uint64_t bytes);
// "41% · 655 MB / 1.6 GB" with a known total above 0, else "655 MB".
std::string byteProgressSubtitle(std::uint64_t bytes, const std::optional<std::uint64_t>& total,
                                 const std::optional<double>& fraction);
// "42%", rounded to whole percent.
std::string formatPercent(double percent);
// "1.2 GB" of memory (binary gigabytes as the charts count them), one decimal.
std::string formatGB(double gigabytes);
// "$1,234": whole dollars, comma groups, a leading "−" below zero.
std::string formatWholeUSD(std::int64_t dollars);

}  // namespace corvane
