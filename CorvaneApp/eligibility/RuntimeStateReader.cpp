#include "CorvaneApp/eligibility/RuntimeStateReader.h"

#include <chrono>
#include <system_error>

#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"
#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane {

RuntimeStateReader::RuntimeStateReader(Executor& executor, std::filesystem::path statePath,
                                       NowFunction now)
    : executor_(executor), statePath_(std::move(statePath)), now_(std::move(now)) {}

void RuntimeStateReader::startPolling(double interval) {
    timer_.cancel();
    readState();
    // The timer is owned here and cancelled on destruction, so its work never outlives the reader.
    timer_ = executor_.scheduleRepeating(interval, [this] { readState(); });
}

void RuntimeStateReader::readState() {
    std::error_code error;
    const bool exists = std::filesystem::exists(statePath_, error);
    if (error) return;  // cannot tell: keep what we have
    if (!exists) {
        update(std::nullopt, std::nullopt);
        return;
    }
    auto text = readFile(statePath_);
    if (!text) return;
    RuntimeState decoded;
    try {
        decoded = RuntimeState::parse(*text);
    } catch (const DecodingError&) {
        return;  // a partial write or a foreign file: the last good record stays
    }
    const Date freshness = resolvedLastReadAt(decoded);
    update(std::move(decoded), freshness);
}

Date RuntimeStateReader::resolvedLastReadAt(const RuntimeState& state) const {
    if (state.updatedAt) {
        if (auto date = RuntimeStateDateParser::parse(*state.updatedAt)) return *date;
    }
    std::error_code error;
    const auto modified = std::filesystem::last_write_time(statePath_, error);
    if (!error) {
        return std::chrono::time_point_cast<Date::duration>(
            std::chrono::file_clock::to_sys(modified));
    }
    return now_();
}

void RuntimeStateReader::update(std::optional<RuntimeState> state, std::optional<Date> lastReadAt) {
    if (state == state_ && lastReadAt == lastReadAt_) return;
    state_ = std::move(state);
    lastReadAt_ = lastReadAt;
    observers_.notify();
}

}  // namespace corvane
