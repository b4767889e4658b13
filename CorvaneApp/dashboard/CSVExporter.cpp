#include "CorvaneApp/dashboard/CSVExporter.h"

#include <charconv>
#include <ctime>

#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

// "%.4f" without the process's locale: printf follows LC_NUMERIC, which may use a comma.
std::string amount(double value) {
    char text[64];
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 4);
    return error == std::errc() ? std::string(text, end) : std::string();
}

}  // namespace

std::string CSVExporter::csvField(std::string_view field) {
    if (field.find_first_of(",\"\n\r") == std::string_view::npos) return std::string(field);
    std::string quoted = "\"";
    for (char c : field) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

std::string CSVExporter::earningsCSV(const std::vector<double>& amounts, Date today) {
    std::string out = "Date,Amount USD";
    out += kLineEnd;
    const std::tm todayParts = localParts(today);
    for (std::size_t i = 0; i < amounts.size(); ++i) {
        std::tm day = todayParts;
        day.tm_mday -= int(amounts.size() - 1 - i);
        day.tm_hour = 12;  // far from a daylight-saving jump
        out += localDayKey(fromLocalParts(day)) + "," + amount(amounts[i]);
        out += kLineEnd;
    }
    return out;
}

std::string CSVExporter::payoutsCSV(
    const std::vector<WorkerDashboard::PayoutDisbursement>& payouts) {
    std::string out = "Date,Settled,Method,Reference,Amount USD,Status";
    out += kLineEnd;
    auto field = [](const std::optional<std::string>& value) {
        return value ? csvField(*value) : std::string();
    };
    for (const auto& payout : payouts) {
        std::string usd;
        if (payout.amountUSD) {
            usd = amount(*payout.amountUSD);
        } else if (payout.amountCents) {
            usd = amount(double(*payout.amountCents) / 100);
        }
        out += field(payout.createdAt) + "," + field(payout.settledAt) + "," +
               field(payout.method) + "," + field(payout.payoutEventId) + "," + usd + "," +
               field(payout.status);
        out += kLineEnd;
    }
    return out;
}

void CSVExporter::writeEarningsDoubles(const std::vector<double>& amounts, Date today,
                                       const std::filesystem::path& path) {
    writeFileAtomically(path, earningsCSV(amounts, today));
}

void CSVExporter::writePayouts(const std::vector<WorkerDashboard::PayoutDisbursement>& payouts,
                               const std::filesystem::path& path) {
    writeFileAtomically(path, payoutsCSV(payouts));
}

std::string CSVExporter::suggestedFileName(std::string_view kind, Date today) {
    const std::tm parts = localParts(today);
    char day[16];
    std::strftime(day, sizeof day, "%Y%m%d", &parts);
    return "corvane-" + std::string(kind) + "-" + day + ".csv";
}

}  // namespace corvane
