#include "CorvaneApp/app/WorkerStatusTracker.h"

#include <cctype>
#include <stdexcept>

#include "CorvaneApp/coordinator/JsonCoding.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Paths.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

bool WorkerStatusTracker::withinGrace(Date now) const {
    return lastObservedBusyAt_ && secondsBetween(*lastObservedBusyAt_, now) <= graceSeconds;
}

WorkerStatusPresentation WorkerStatusTracker::ownerResumed(const WorkerStatusInputs& inputs) {
    awaitingResume_ = inputs.workerRunning;
    const auto status = inputs.paused          ? WorkerStatus::paused
                        : inputs.workerRunning ? WorkerStatus::idle
                                               : WorkerStatus::offline;
    return WorkerStatusPresentation::defaultFor(status);
}

WorkerStatusPresentation WorkerStatusTracker::presentation(const WorkerStatusInputs& inputs,
                                                           Date now) {
    using P = WorkerStatusPresentation;
    const auto earning = P::defaultFor(WorkerStatus::earning);
    if (!inputs.enrolled) {
        reset();
        return P::defaultFor(WorkerStatus::notEnrolled);
    }
    if (inputs.paused) {
        lastObservedBusyAt_.reset();
        return P::defaultFor(WorkerStatus::paused);
    }
    if (inputs.modelDownloading) {
        reset();
        return {WorkerStatus::updating, "Downloading model",
                "Fetching weights — worker starts after download", "Corvane · Downloading model"};
    }
    if (!inputs.workerRunning) {
        reset();
        return P::defaultFor(WorkerStatus::offline);
    }
    if (inputs.busy) {
        awaitingResume_ = false;
        lastObservedBusyAt_ = now;
        return earning;
    }
    if (!inputs.gateEligible) {
        if (auto gate = presentationForGateReason(inputs.gateReason)) {
            if (withinGrace(now) && gate->status != WorkerStatus::paused) return earning;
            reset();
            return *gate;
        }
    }
    if (inputs.eligibility) {
        auto fromState = presentationFor(*inputs.eligibility, *reporter_);
        if (withinGrace(now) && fromState.status == WorkerStatus::idle) return earning;
        if (awaitingResume_) {
            const std::string word =
                asciiLowercased(corvaneTrimmed(inputs.eligibility->reason).value_or(""));
            if (word == "paused") return P::defaultFor(WorkerStatus::idle);
        }
        awaitingResume_ = false;
        return fromState;
    }
    if (withinGrace(now)) return earning;
    return P::defaultFor(WorkerStatus::idle);
}

std::filesystem::path workerStatusFilePath() {
    return paths::stateHome() / "Corvane" / "status.json";
}

void writeWorkerStatusFile(const std::filesystem::path& path, const WorkerStatusRecord& record) {
    const auto& p = record.presentation;
    Json json{{"status", rawValue(p.status)},
              {"label", p.label},
              {"sub", p.sub},
              {"tooltip", p.tooltip},
              {"updated_at", record.updatedAt},
              {"pid", record.pid}};
    auto optional = [&json](const char* key, const std::optional<std::string>& value) {
        json[key] = value ? Json(*value) : Json(nullptr);
    };
    optional("job_id", record.jobID);
    optional("shard_id", record.shardID);
    optional("last_error", record.lastError);
    std::filesystem::create_directories(path.parent_path());
    writeFileAtomically(path, json.dump(2) + "\n", 0600);
}

std::optional<WorkerStatusRecord> readWorkerStatusFile(const std::filesystem::path& path) {
    auto text = readFile(path);
    if (!text) {
        std::error_code ignored;
        if (!std::filesystem::exists(path, ignored)) return std::nullopt;
        throw std::runtime_error("cannot read the status file " + path.string());
    }
    try {
        Json json = parseJson(*text);
        auto status = workerStatusFromRaw(json::requireString(json, "status"));
        if (!status)
            throw std::runtime_error("unknown status " + json::requireString(json, "status"));
        WorkerStatusRecord record;
        record.presentation = {*status, json::requireString(json, "label"),
                               json::requireString(json, "sub"),
                               json::requireString(json, "tooltip")};
        record.jobID = json::optionalString(json, "job_id");
        record.shardID = json::optionalString(json, "shard_id");
        record.lastError = json::optionalString(json, "last_error");
        record.updatedAt = json::optionalString(json, "updated_at").value_or("");
        if (const Json* pid = json::member(json, "pid"))
            record.pid = long(json::asInteger(*pid).value_or(0));
        return record;
    } catch (const std::exception& error) {
        throw std::runtime_error("the status file " + path.string() +
                                 " is damaged: " + error.what());
    }
}

std::string describe(const WorkerStatusRecord& record) {
    const auto& p = record.presentation;
    std::string text = p.label + " — " + p.sub + "\n";
    if (record.jobID)
        text +=
            "job: " + *record.jobID + (record.shardID ? " / shard " + *record.shardID : "") + "\n";
    text += "last error: " + record.lastError.value_or("none") + "\n";
    text += "updated: " + record.updatedAt + " (pid " + std::to_string(record.pid) + ")\n";
    return text;
}

}  // namespace corvane
