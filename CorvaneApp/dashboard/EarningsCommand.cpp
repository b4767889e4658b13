#include "CorvaneApp/dashboard/EarningsCommand.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/app/EarningsState.h"
#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/dashboard/EarningsTexts.h"
#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

constexpr const char* kUsage =
    "usage: corvane earnings [--range today|7d|30d|90d|all] [--csv FILE]\n"
    "Shows the balances, today's earnings and pace, the totals of a range (30d unless given)\n"
    "and this week's best jobs, as the coordinator reports them for this computer.\n"
    "  --range RANGE  the days to total: today, 7d, 30d, 90d or all\n"
    "  --csv FILE     also write the range's daily earnings to FILE (Date,Amount USD), as the\n"
    "                 dashboard's export does\n"
    "Exit status: 0 shown, 1 the coordinator could not be read or FILE not written,\n"
    "2 bad arguments, 3 this computer is not enrolled.\n";

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    EarningsRange range = EarningsRange::month;
    std::optional<std::filesystem::path> csv;
    bool help = false;
};

std::optional<EarningsRange> rangeNamed(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    for (auto range : allEarningsRanges) {
        std::string label(segmentLabel(range));
        std::transform(label.begin(), label.end(), label.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        if (label == text) return range;
    }
    return std::nullopt;
}

Options parse(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&](std::string_view name) -> std::string {
            const std::string prefix = std::string(name) + "=";
            if (argument.starts_with(prefix)) return argument.substr(prefix.size());
            if (i + 1 >= arguments.size()) throw UsageError(std::string(name) + " needs a value");
            return arguments[++i];
        };
        if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else if (argument == "--range" || argument.starts_with("--range=")) {
            const std::string text = value("--range");
            auto range = rangeNamed(text);
            if (!range) throw UsageError("unknown range \"" + text + "\"");
            options.range = *range;
        } else if (argument == "--csv" || argument.starts_with("--csv=")) {
            const std::string path = value("--csv");
            if (path.empty()) throw UsageError("--csv needs a file name");
            options.csv = path;
        } else {
            throw UsageError("unknown argument " + argument);
        }
    }
    return options;
}

// "2026-06-18 14:05" in the computer's zone, or the text as it stands when it doesn't parse.
std::string localTimestamp(const std::optional<std::string>& text) {
    if (!text || text->empty()) return "—";
    const auto date = AppModelDateParser::parseCoordinatorTimestamp(*text);
    if (!date) return *text;
    const std::tm parts = localParts(*date);
    char out[32];
    std::strftime(out, sizeof out, "%Y-%m-%d %H:%M", &parts);
    return out;
}

std::string padded(std::string text, std::size_t width) {
    // Columns count characters, not bytes: "—" and "−" are one each.
    std::size_t shown = 0;
    for (unsigned char c : text) shown += (c & 0xC0) != 0x80;
    if (shown < width) text.append(width - shown, ' ');
    return text;
}

std::string line(std::string_view title, const std::string& value) {
    return "  " + padded(std::string(title), 18) + value + "\n";
}

struct Report {
    WorkerDashboard dashboard;
    EarningsSummary summary;
    std::vector<DailyEarning> rows;
    std::vector<JobRecord> jobs;
};

Report fetch(const CoordinatorAPIProtocol& api, EarningsRange range) {
    Report report;
    report.dashboard = api.dashboard();
    report.summary = api.earningsSummary();
    report.rows = api.dailyEarnings(earningsRangeDays(range), range == EarningsRange::all);
    report.jobs = api.topJobs();
    return report;
}

void print(const Report& report, EarningsRange range, Date now, std::ostream& out) {
    // The figures go through the model's own rules, so they read as on the dashboard.
    ModelChanges changes;
    EarningsState earnings(changes);
    earnings.applyEarningsSummary(report.summary);
    const auto snapshot = EarningsRangeSnapshot::fromRows(report.rows, {});
    const auto days = earningsExportSeries(range, snapshot);
    double total = 0;
    for (double amount : days) total += amount;

    out << "Corvane earnings, " << localDayKey(now) << "\n";
    out << "Balances\n";
    out << line("Available", formatUSD(report.dashboard.earningsUSD.available));
    out << line("Held", formatUSD(report.dashboard.earningsUSD.held));
    out << line("Lifetime", formatUSD(report.dashboard.payoutSummary.totalEarnedUSD));
    out << "Today\n";
    std::string today = formatUSD(earnings.todayEarnings());
    if (auto delta = earnings.deltaVsYesterday())
        today += " (" + formattedDelta(*delta) + " vs yesterday)";
    out << line("Earned", today);
    out << line("Pace", recentPaceLabel(earnings));
    out << line("Jobs", std::to_string(earnings.jobsCompletedToday()) + " · " +
                            formatActiveTime(earnings.activeMinutesToday()) + " active");
    if (auto month = earnings.monthEarnings()) {
        std::string text = formatUSD(*month) + " so far";
        if (auto projection = earnings.monthProjection())
            text += ", " + monthProjectionLine(*projection);
        out << line("This month", text);
    }
    out << longName(range) << "\n";
    out << line("Total", formatUSD(total));
    if (range != EarningsRange::day && !days.empty()) {
        out << line("Days", std::to_string(days.size()));
        out << line("Average", formatUSD(total / double(days.size())) + " a day");
        const auto best = std::max_element(
            report.rows.begin(), report.rows.end(),
            [](const auto& a, const auto& b) { return a.amountUSD < b.amountUSD; });
        if (best != report.rows.end())
            out << line("Best day", best->date + " " + formatUSD(best->amountUSD));
    }
    out << "Recent jobs (model · audio size · earnings)\n";
    if (report.jobs.empty()) out << "  No jobs in the selected window.\n";
    for (const auto& job : report.jobs) {
        const std::string name = job.clientDisplayName && !job.clientDisplayName->empty()
                                     ? *job.clientDisplayName
                                     : job.jobId;
        out << "  " << padded(localTimestamp(job.completedAt), 18) << padded(name, 22)
            << padded(audioSizeLabel(job.durationSeconds), 13) << formatUSD(job.amountUSD) << "\n";
    }
}

}  // namespace

int runEarningsCommand(const std::vector<std::string>& arguments, std::ostream& output,
                       std::ostream& errors, const EarningsCommandDependencies& dependencies) {
    Options options;
    try {
        options = parse(arguments);
    } catch (const UsageError& error) {
        errors << "corvane earnings: " << error.what() << "\n" << kUsage;
        return 2;
    }
    if (options.help) {
        output << kUsage;
        return 0;
    }
    std::shared_ptr<const CoordinatorAPIProtocol> api;
    try {
        api = dependencies.coordinatorAPI ? dependencies.coordinatorAPI() : nullptr;
    } catch (const std::exception& error) {
        errors << "corvane earnings: cannot read this computer's enrolment: " << error.what()
               << "\n";
        return 1;
    }
    if (!api) {
        errors << "corvane earnings: this computer is not enrolled with a coordinator.\n"
                  "Enrol it once with: corvane enroll --coordinator <URL> --token-stdin\n";
        return 3;
    }
    Report report;
    try {
        report = fetch(*api, options.range);
    } catch (const CoordinatorAPIError& error) {
        using Kind = CoordinatorAPIError::Kind;
        if (error.kind() == Kind::unauthorized) {
            errors << "corvane earnings: the coordinator refused this computer's credential.\n"
                      "Enrol it again with: corvane enroll --coordinator <URL> --token-stdin\n";
        } else if (error.kind() == Kind::networkError) {
            errors << "corvane earnings: cannot reach the coordinator (offline?): "
                   << error.errorDescription() << "\n";
        } else {
            errors << "corvane earnings: the coordinator's answer could not be used: "
                   << error.errorDescription() << "\n";
        }
        return 1;
    } catch (const std::exception& error) {
        errors << "corvane earnings: " << error.what() << "\n";
        return 1;
    }
    const Date now = dependencies.now();
    print(report, options.range, now, output);
    if (options.csv) {
        const auto snapshot = EarningsRangeSnapshot::fromRows(report.rows, {});
        try {
            CSVExporter::writeEarningsDoubles(earningsExportSeries(options.range, snapshot), now,
                                              *options.csv);
        } catch (const std::exception& error) {
            errors << "corvane earnings: cannot write " << options.csv->string() << ": "
                   << error.what() << "\n";
            return 1;
        }
        output << "Wrote " << options.csv->string() << "\n";
    }
    return 0;
}

}  // namespace corvane
