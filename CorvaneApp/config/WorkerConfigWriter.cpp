#include "CorvaneApp/config/WorkerConfigWriter.h"

#include <ctime>

#include "CorvaneApp/config/ConfigFile.h"
#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

namespace cl = configlines;

namespace {

std::string formatTime(Date date, const char* format, bool utc) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    if (utc) {
        ::gmtime_r(&seconds, &parts);
    } else {
        ::localtime_r(&seconds, &parts);
    }
    char buffer[32];
    size_t n = std::strftime(buffer, sizeof buffer, format, &parts);
    return std::string(buffer, n);
}

const char* boolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

std::string internetDateTime(Date date) {
    return formatTime(date, "%Y-%m-%dT%H:%M:%SZ", true);
}

std::string localHourMinute(Date date) {
    return formatTime(date, "%H:%M", false);
}

void WorkerConfigWriter::validate() const {
    cl::requireSingleLine("The coordinator URL", coordinatorURL);
    cl::requireSingleLine("The worker ID", workerID);
    cl::requireSingleLine("The credential service", workerTokenRef.service);
    cl::requireSingleLine("The credential account", workerTokenRef.account);
}

std::filesystem::path WorkerConfigWriter::write() const {
    return write(configfile::defaultPath());
}

std::filesystem::path WorkerConfigWriter::write(const std::filesystem::path& destination) const {
    validate();
    // Only a missing file is a blank base: an unreadable one must not be replaced by the template.
    std::string base = configfile::readOrEmptyIfMissing(destination);
    configfile::writeAtomic(buildYAML(base), destination);
    return destination;
}

std::string WorkerConfigWriter::renderYAML() const {
    validate();
    auto q = [](std::string_view value) { return cl::singleQuoted(value); };
    const auto& schedule = configuration.schedule;
    std::vector<std::string> lines{
        "coordinator_url: " + q(coordinatorURL),
        "worker_id: " + q(workerID),
        "onboarding_completed_at: " + q(internetDateTime(now())),
        "worker_token_keychain:",
        "  service: " + q(workerTokenRef.service),
        "  account: " + q(workerTokenRef.account),
        "handlers:",
        "  transcribe:",
        "    backend: 'mlx-whisper'",
        "    model: 'large-v3'",
        "    quantization: '4bit'",
        "    language: 'en'",
        "    prewarm_model_on_startup: true",
        "    supported_models:",
        "      - 'turbo'",
        "      - 'large-v3-4bit'",
        "      - 'large-v3'",
        "idle_detection:",
        "  min_idle_minutes: " + std::to_string(configuration.minIdleMinutes),
        std::string("  require_ac_power: ") + boolText(configuration.requireACPower),
        "polling:",
        "  interval_seconds: 30",
        "  busy_interval_seconds: 5",
        "  idle_interval_seconds: 60",
        "resource_policy:",
        "  level_percent: 75",
        "run_schedule:",
        std::string("  enabled: ") + boolText(schedule.enabled),
        "  start_time: " + q(localHourMinute(schedule.startTime)),
        "  end_time: " + q(localHourMinute(schedule.endTime)),
    };
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

std::string WorkerConfigWriter::buildYAML(std::string_view base) const {
    validate();
    if (trimAsciiWhitespace(base).empty()) return renderYAML();
    auto [hasBom, body] = cl::splitBom(base);
    auto lines = cl::split(body);
    setOrInsertTopLevelScalar("coordinator_url", cl::singleQuoted(coordinatorURL), lines);
    setOrInsertTopLevelScalar("worker_id", cl::singleQuoted(workerID), lines);
    setOrInsertTopLevelScalar("onboarding_completed_at", cl::singleQuoted(internetDateTime(now())),
                              lines);
    replaceWorkerTokenKeychainBlock(lines);
    return cl::withBom(hasBom, cl::join(lines));
}

void WorkerConfigWriter::setOrInsertTopLevelScalar(std::string_view key, std::string_view value,
                                                   std::vector<std::string>& lines) {
    std::string bare = std::string(key) + ":";
    std::string line = bare + " " + std::string(value);
    for (auto& existing : lines) {
        if (cl::isIndented(existing)) continue;
        auto text = cl::content(existing);
        if (text == bare || cl::startsWith(text, bare + " ")) {
            existing = cl::keepLineEnd(existing, line);
            return;
        }
    }
    lines.insert(lines.begin(), cl::usesCrlf(lines) ? line + "\r" : line);
}

void WorkerConfigWriter::replaceWorkerTokenKeychainBlock(std::vector<std::string>& lines) const {
    bool crlf = cl::usesCrlf(lines);
    std::vector<std::string> block{
        "worker_token_keychain:",
        "  service: " + cl::singleQuoted(workerTokenRef.service),
        "  account: " + cl::singleQuoted(workerTokenRef.account),
    };
    if (lines.empty()) {
        lines = block;
        return;
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        auto text = cl::content(lines[i]);
        if (text != "worker_token_keychain:" && !cl::startsWith(text, "worker_token_keychain: "))
            continue;
        size_t end = i + 1;
        while (end < lines.size() && !cl::isEmpty(lines[end]) && cl::isIndented(lines[end])) ++end;
        // The new block goes in before the old one is erased: were the old block the end of the
        // file, inserting after erasing would append past the end and give the line above it a
        // CR its line break (a bare LF in a file of mixed line ends) never had.
        const auto count = static_cast<std::ptrdiff_t>(block.size());
        cl::insertLines(lines, i, std::move(block), crlf);
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i) + count,
                    lines.begin() + static_cast<std::ptrdiff_t>(end) + count);
        return;
    }
    cl::insertLines(lines, cl::isEmpty(lines.back()) ? lines.size() - 1 : lines.size(),
                    std::move(block), crlf);
}

}  // namespace corvane
