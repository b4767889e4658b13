#include "CorvaneApp/app/WorkerStatus.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

struct StatusRow {
    WorkerStatus status;
    std::string_view raw;
    CorvaneColor color;
    std::string_view label;
    std::string_view sub;
};

constexpr std::array kStatusRows{
    StatusRow{WorkerStatus::notEnrolled, "notEnrolled", CorvaneColor::bone400, "Not enrolled",
              "Sign in to start earning"},
    StatusRow{WorkerStatus::earning, "earning", CorvaneColor::phosphor500, "Earning",
              "Processing work"},
    StatusRow{WorkerStatus::idle, "idle", CorvaneColor::signalInfo, "Idle",
              "Online · waiting for work"},
    StatusRow{WorkerStatus::paused, "paused", CorvaneColor::bone400, "Paused", "Paused by you"},
    StatusRow{WorkerStatus::scheduled, "scheduled", CorvaneColor::signalWarn, "Off-hours",
              "Outside schedule window"},
    StatusRow{WorkerStatus::throttled, "throttled", CorvaneColor::signalWarn, "Throttled",
              "CPU cap reached"},
    StatusRow{WorkerStatus::offline, "offline", CorvaneColor::signalError, "Offline",
              "No internet connection"},
    StatusRow{WorkerStatus::updating, "updating", CorvaneColor::plum500, "Updating",
              "Installing update"},
};

const StatusRow& rowFor(WorkerStatus status) {
    return kStatusRows[static_cast<std::size_t>(status)];
}

constexpr std::string_view kTooltipPrefix = "Corvane · ";
constexpr std::string_view kPausedPrefix = "Paused — ";

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::optional<std::string> normalised(const std::optional<std::string>& text) {
    auto trimmed = corvaneTrimmed(text);
    return trimmed ? std::optional(asciiLowercased(*trimmed)) : std::nullopt;
}

bool oneOf(std::string_view value, std::initializer_list<std::string_view> options) {
    return std::find(options.begin(), options.end(), value) != options.end();
}

std::string capitalisedWords(std::string text) {
    bool startOfWord = true;
    for (char& c : text) {
        if (isBlank(c)) {
            startOfWord = true;
        } else if (startOfWord) {
            c = char(std::toupper(static_cast<unsigned char>(c)));
            startOfWord = false;
        }
    }
    return text;
}

WorkerStatusPresentation withTooltip(WorkerStatus status, std::string label, std::string sub) {
    std::string tooltip = std::string(kTooltipPrefix) + label;
    return {status, std::move(label), std::move(sub), std::move(tooltip)};
}

// The status a runtime-state reason stands for; nothing for a reason this version doesn't know.
std::optional<WorkerStatus> statusForStateReason(const std::optional<std::string>& reason) {
    if (!reason) return WorkerStatus::idle;
    const std::string& r = *reason;
    if (oneOf(r, {"eligible", "working", "polling"})) return WorkerStatus::earning;
    if (r == "paused") return WorkerStatus::paused;
    if (oneOf(r, {"waiting_for_schedule", "off_hours", "schedule"})) return WorkerStatus::scheduled;
    if (oneOf(r, {"waiting_for_ac", "waiting_for_idle", "thermal_throttled", "throttled", "thermal",
                  "ram_gated", "memory_gated"})) {
        return WorkerStatus::throttled;
    }
    if (oneOf(r, {"offline", "no_network", "no_token", "auth_issue"})) return WorkerStatus::offline;
    if (oneOf(r, {"starting", "updating", "model_loading", "missing_model"}))
        return WorkerStatus::updating;
    if (oneOf(r, {"idle", "unknown"})) return WorkerStatus::idle;
    return std::nullopt;
}

std::string defaultLabel(WorkerStatus status, const std::optional<std::string>& reason) {
    struct ReasonLabel {
        std::initializer_list<std::string_view> reasons;
        std::string_view label;
    };
    static const std::array<ReasonLabel, 11> kLabels{{
        {{"eligible", "polling"}, "Polling for work"},
        {{"working"}, "Working"},
        {{"waiting_for_ac"}, "Waiting for AC power"},
        {{"waiting_for_idle"}, "Waiting for idle"},
        {{"ram_gated", "memory_gated"}, "RAM budget exhausted"},
        {{"waiting_for_schedule"}, "Outside schedule window"},
        {{"auth_issue"}, "Authentication problem"},
        {{"starting"}, "Starting up"},
        {{"thermal_throttled"}, "Thermal throttle active"},
        {{"missing_model"}, "Model not available"},
        {{"unknown"}, "Unknown"},
    }};
    if (reason) {
        for (const auto& row : kLabels) {
            if (oneOf(*reason, row.reasons)) return std::string(row.label);
        }
    }
    return std::string(rowFor(status).label);
}

std::optional<std::string> afterPausedPrefix(std::string_view trimmedSub) {
    if (!trimmedSub.starts_with(kPausedPrefix)) return std::nullopt;
    return corvaneTrimmed(trimmedSub.substr(kPausedPrefix.size()));
}

std::optional<std::string> cleanedInlineExplanation(std::string_view label,
                                                    const std::optional<std::string>& sub) {
    auto trimmedSub = corvaneTrimmed(sub);
    if (!trimmedSub) return std::nullopt;
    auto normalisedSub = asciiLowercased(*trimmedSub);
    if (normalisedSub == normalised(std::string(label)).value_or("")) return std::nullopt;
    if (normalisedSub == "online · waiting for work") return "Waiting for work";
    if (auto rest = afterPausedPrefix(*trimmedSub)) return rest;
    return trimmedSub;
}

}  // namespace

std::string_view rawValue(WorkerStatus status) {
    return rowFor(status).raw;
}

std::optional<WorkerStatus> workerStatusFromRaw(std::string_view raw) {
    for (const auto& row : kStatusRows) {
        if (row.raw == raw) return row.status;
    }
    return std::nullopt;
}

CorvaneColor glyphColor(WorkerStatus status) {
    return rowFor(status).color;
}

std::optional<std::string> corvaneTrimmed(std::string_view text) {
    auto first = std::find_if_not(text.begin(), text.end(), isBlank);
    auto last = std::find_if_not(text.rbegin(), text.rend(), isBlank).base();
    if (first >= last) return std::nullopt;
    return std::string(first, last);
}

std::optional<std::string> corvaneTrimmed(const std::optional<std::string>& text) {
    return text ? corvaneTrimmed(std::string_view(*text)) : std::nullopt;
}

WorkerStatusPresentation WorkerStatusPresentation::defaultFor(WorkerStatus status) {
    const auto& row = rowFor(status);
    return withTooltip(status, std::string(row.label), std::string(row.sub));
}

UnknownEligibilityReasonReporter::UnknownEligibilityReasonReporter(Warn warn)
    : warn_(std::move(warn)) {
    if (!warn_) warn_ = [](const std::string& line) { log::get("WorkerStatus")->warn("{}", line); };
}

void UnknownEligibilityReasonReporter::reportIfNeeded(const std::string& reason) {
    {
        std::lock_guard lock(mutex_);
        if (!reportedReasons_.insert(reason).second) return;
    }
    warn_("Unknown eligibility reason from daemon: " + reason);
}

std::optional<WorkerStatusPresentation> presentationForGateReason(
    const std::optional<std::string>& reason) {
    auto r = normalised(reason);
    if (!r) return std::nullopt;
    if (*r == "schedule off") {
        return withTooltip(WorkerStatus::scheduled, "Outside schedule window",
                           "Outside schedule window");
    }
    if (*r == "on battery")
        return withTooltip(WorkerStatus::throttled, "Waiting for AC power",
                           "Plug in to start working");
    if (*r == "waiting for idle") {
        return withTooltip(WorkerStatus::throttled, "Waiting for idle",
                           "Leave this computer idle to start working");
    }
    if (*r == "ram budget exhausted" || *r == "ram_gated") {
        return withTooltip(WorkerStatus::throttled, "RAM budget exhausted",
                           "Paused — not enough free memory");
    }
    return withTooltip(WorkerStatus::idle, capitalisedWords(*r),
                       std::string(rowFor(WorkerStatus::idle).sub));
}

WorkerStatusPresentation presentationFor(const EligibilityState& state,
                                         UnknownEligibilityReasonReporter& reporter) {
    const auto reason = normalised(state.reason);
    const auto headline = corvaneTrimmed(state.headline);
    const auto detail = corvaneTrimmed(state.detail);
    if (state.isClaimable.value_or(false)) {
        return withTooltip(WorkerStatus::earning,
                           headline.value_or(defaultLabel(WorkerStatus::earning, reason)),
                           detail.value_or("Processing work"));
    }
    auto status = statusForStateReason(reason);
    if (!status) {
        reporter.reportIfNeeded(*reason);
        return {WorkerStatus::idle, headline.value_or("Idle"),
                detail.value_or("Online · waiting for work"), "Corvane · Status: unknown"};
    }
    return withTooltip(*status, headline.value_or(defaultLabel(*status, reason)),
                       detail.value_or(std::string(rowFor(*status).sub)));
}

std::optional<std::string> inlineExplanation(WorkerStatus status, std::string_view label,
                                             const std::optional<std::string>& sub) {
    const std::string l = normalised(std::string(label)).value_or("");
    const auto cleaned = cleanedInlineExplanation(label, sub);
    auto cleanedUnless = [&](std::string_view fallback) -> std::optional<std::string> {
        if (cleaned && *cleaned != fallback) return cleaned;
        return std::string(fallback);
    };
    switch (status) {
        case WorkerStatus::notEnrolled:
            return "Sign in to start earning";
        case WorkerStatus::earning:
            if (cleaned && *cleaned != "Processing work") return cleaned;
            return l == "polling for work" ? "Waiting for the next shard" : "Processing work";
        case WorkerStatus::idle:
            return l == "idle" ? std::optional<std::string>("Waiting for work") : cleaned;
        case WorkerStatus::paused: {
            if (normalised(sub) == "paused by you") return "Resume when you're ready";
            auto trimmedSub = corvaneTrimmed(sub);
            if (trimmedSub && trimmedSub->starts_with(kPausedPrefix)) {
                if (auto rest = afterPausedPrefix(*trimmedSub)) return rest;
            }
            return cleaned;
        }
        case WorkerStatus::scheduled:
            if (l == "off-hours") return "Outside schedule window";
            return cleanedUnless("Outside schedule window");
        case WorkerStatus::throttled:
            if (l == "waiting for ac power") return "Plug in to start";
            if (l == "waiting for idle") return "Leave this computer untouched to start";
            if (l == "thermal throttle active") return "Cooling down before resuming";
            return cleaned;
        case WorkerStatus::offline:
            if (cleaned && *cleaned != "No internet connection") return cleaned;
            if (l == "authentication problem") return "Sign in again to start";
            return "No internet connection";
        case WorkerStatus::updating:
            if (cleaned && *cleaned != "Installing update") return cleaned;
            if (l == "starting up") return "Getting Corvane ready";
            if (l == "model not available") return "Download required before work can start";
            return "Installing update";
    }
    return cleaned;
}

}  // namespace corvane
