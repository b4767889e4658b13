#pragma once
// What the worker tells the rest of the application: one stream of events and a snapshot.

#include <optional>
#include <string>
#include <variant>

#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/eligibility/MemoryGate.h"
#include "CorvaneApp/eligibility/ResourceAggregate.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct WorkerControllerEvent {
    enum class Stage { download, decode, inference, submit, modelSwap };

    struct Paused {
        std::string reason;
        bool operator==(const Paused&) const = default;
    };
    struct Claimed {
        std::string jobID;
        std::optional<std::string> shardID;
        bool operator==(const Claimed&) const = default;
    };
    struct Heartbeat {
        std::string jobID;
        Date at;
        bool operator==(const Heartbeat&) const = default;
    };
    struct ResultSubmitted {
        std::string jobID;
        bool operator==(const ResultSubmitted&) const = default;
    };
    struct FailSubmitted {
        std::string jobID;
        std::string code;
        bool operator==(const FailSubmitted&) const = default;
    };
    struct ResultDiscarded {
        std::string jobID;
        std::string reason;
        bool operator==(const ResultDiscarded&) const = default;
    };
    struct ErrorOccurred {
        std::string description;
        bool operator==(const ErrorOccurred&) const = default;
    };
    struct RamGated {
        MemoryGatedReason reason;
        bool operator==(const RamGated&) const = default;
    };
    struct StageTiming {
        std::string shardID;
        Stage stage;
        double durationSeconds;
        bool operator==(const StageTiming&) const = default;
    };
    struct ResourceStats {
        std::string shardID;
        ResourceAggregate stats;
        bool operator==(const ResourceStats&) const = default;
    };
    struct CacheLoaded {
        std::string shardID;
        bool hit;
        double durationSeconds;
        bool operator==(const CacheLoaded&) const = default;
    };
    struct ModelSwap {
        std::string shardID;
        std::optional<ModelIdentifier> from;
        ModelIdentifier to;
        double durationSeconds;
        bool operator==(const ModelSwap&) const = default;
    };
    struct Started {
        bool operator==(const Started&) const = default;
    };
    struct Stopped {
        bool operator==(const Stopped&) const = default;
    };
    struct Resumed {
        bool operator==(const Resumed&) const = default;
    };
    struct Idle {
        bool operator==(const Idle&) const = default;
    };

    using Value = std::variant<Paused, Claimed, Heartbeat, ResultSubmitted, FailSubmitted,
                               ResultDiscarded, ErrorOccurred, RamGated, StageTiming, ResourceStats,
                               CacheLoaded, ModelSwap, Started, Stopped, Resumed, Idle>;
    Value value;

    template <typename T>
    WorkerControllerEvent(T event)
        : value(std::move(event)) {}  // NOLINT: events read best as plain values
    bool operator==(const WorkerControllerEvent&) const = default;

    template <typename T>
    const T* as() const {
        return std::get_if<T>(&value);
    }
};

const char* rawValue(WorkerControllerEvent::Stage stage);

struct WorkerControllerSnapshot {
    bool isRunning = false;
    std::optional<std::string> currentJobID;
    std::optional<std::string> currentShardID;
    std::optional<Date> currentShardStartedAt;
    std::optional<double> currentShardExpectedSeconds;
    std::optional<Date> lastHeartbeatAt;
    std::optional<std::string> lastError;

    bool operator==(const WorkerControllerSnapshot&) const = default;
    static const WorkerControllerSnapshot empty;
};

}  // namespace corvane
