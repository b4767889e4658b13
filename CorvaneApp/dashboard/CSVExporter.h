#pragma once
// The earnings and payout exports: UTF-8, lines ending in CR LF, amounts as "%.4f" with a point
// whatever the owner's locale, fields quoted only when they must be. Files are replaced whole.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct CSVExporter {
    // A field holding a comma, a double quote, a line feed or a carriage return, in double
    // quotes with each double quote doubled; any other as it stands.
    static std::string csvField(std::string_view field);
    // "Date,Amount USD", then one row per amount; the last amount is `today`, the one before the
    // day before, and so on (local calendar days).
    static std::string earningsCSV(const std::vector<double>& amounts, Date today);
    // "Date,Settled,Method,Reference,Amount USD,Status", one row per payout; absent fields empty.
    static std::string payoutsCSV(const std::vector<WorkerDashboard::PayoutDisbursement>& payouts);
    // Writes atomically; throws std::system_error and leaves an existing file untouched.
    static void writeEarningsDoubles(const std::vector<double>& amounts, Date today,
                                     const std::filesystem::path& path);
    static void writePayouts(const std::vector<WorkerDashboard::PayoutDisbursement>& payouts,
                             const std::filesystem::path& path);
    // "corvane-earnings-20260618.csv", "corvane-payouts-20260618.csv"
    static std::string suggestedFileName(std::string_view kind, Date today);
};

}  // namespace corvane
