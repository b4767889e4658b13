#include "CorvaneApp/dashboard/Formatting.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace corvane {
namespace {

// "1234.5" with comma groups in the whole part: "1,234.5".
std::string grouped(const std::string& plain) {
    const auto point = plain.find('.');
    std::string whole = plain.substr(0, point);
    const std::string rest = point == std::string::npos ? "" : plain.substr(point);
    for (int at = int(whole.size()) - 3; at > 0; at -= 3) whole.insert(std::size_t(at), ",");
    return whole + rest;
}

}  // namespace

std::string fixed(double value, int decimals) {
    if (!std::isfinite(value)) return "—";
    char text[400];  // the largest double in full, with room for its decimals
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
    if (error != std::errc()) return "—";
    std::string out(text, end);
    if (out.starts_with('-') && out.find_first_not_of("-0.") == std::string::npos)
        out.erase(0, 1);  // "-0.00" rounds to no amount at all
    return out;
}

std::string formatUSD(double usd) {
    if (!std::isfinite(usd)) return "—";
    const double cents = std::round(std::fabs(usd) * 100) / 100;
    return std::string(usd < 0 && cents > 0 ? "−" : "") + "$" + grouped(fixed(cents, 2));
}

std::string formatUSD(const std::optional<double>& usd) {
    return usd ? formatUSD(*usd) : "—";
}

std::string formattedDelta(double value) {
    return std::string(value >= 0 ? "+" : "−") + "$" + fixed(std::fabs(value), 2);
}

std::string formatActiveTime(const std::optional<std::int64_t>& minutes) {
    if (!minutes) return "—";
    const std::int64_t m = std::max<std::int64_t>(*minutes, 0);
    if (m < 60) return std::to_string(m) + " min";
    if (m < 1440) {
        std::string text = std::to_string(m / 60) + " hr";
        if (m % 60 != 0) text += " " + std::to_string(m % 60) + " min";
        return text;
    }
    std::string text = std::to_string(m / 1440) + " day";
    if ((m % 1440) / 60 != 0) text += " " + std::to_string((m % 1440) / 60) + " hr";
    return text;
}

std::string formatFileBytes(std::uint64_t bytes) {
    const double value = double(bytes);
    if (value >= 1e9) return fixed(value / 1e9, 1) + " GB";
    return fixed(std::floor(value / 1e6), 0) + " MB";
}

std::string byteProgressSubtitle(std::uint64_t bytes, const std::optional<std::uint64_t>& total,
                                 const std::optional<double>& fraction) {
    if (!total || *total == 0) return formatFileBytes(bytes);
    // Truncated, as a progress figure must never run ahead; the epsilon keeps 0.41 (stored as
    // 0.40999…) from reading 40%.
    const int percent = int(std::clamp(fraction.value_or(0.0), 0.0, 1.0) * 100 + 1e-9);
    return std::to_string(percent) + "% · " + formatFileBytes(bytes) + " / " +
           formatFileBytes(*total);
}

std::string formatPercent(double percent) {
    return fixed(std::isfinite(percent) ? std::max(percent, 0.0) : 0.0, 0) + "%";
}

std::string formatGB(double gigabytes) {
    return fixed(std::isfinite(gigabytes) ? std::max(gigabytes, 0.0) : 0.0, 1) + " GB";
}

std::string formatWholeUSD(std::int64_t dollars) {
    const std::uint64_t magnitude =
        dollars < 0 ? std::uint64_t(-(dollars + 1)) + 1 : std::uint64_t(dollars);
    return std::string(dollars < 0 ? "−" : "") + "$" + grouped(std::to_string(magnitude));
}

}  // namespace corvane
