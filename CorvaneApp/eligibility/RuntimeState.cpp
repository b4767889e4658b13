#include "CorvaneApp/eligibility/RuntimeState.h"

#include <cmath>

#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane {
namespace {

std::optional<bool> optionalBool(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_boolean()) json::wrongType(key, "a Boolean");
    return value->get<bool>();
}

// A nested record: absent when missing or null, an object otherwise.
const Json* nested(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (value && !value->is_object()) json::wrongType(key, "an object");
    return value;
}

ThermalState decodeThermal(const Json& j) {
    return {json::optionalString(j, "thermal_level"),
            json::optionalDouble(j, "user_resource_percent"),
            json::optionalDouble(j, "effective_resource_percent"),
            json::optionalString(j, "adjustment_reason")};
}

ResourcePolicy decodePolicy(const Json& j) {
    return {json::optionalString(j, "preset"), json::optionalInteger(j, "max_concurrent_jobs")};
}

EligibilityState decodeEligibility(const Json& j) {
    return {json::optionalString(j, "reason"),
            json::optionalString(j, "headline"),
            json::optionalString(j, "detail"),
            optionalBool(j, "is_claimable"),
            optionalBool(j, "is_blocked"),
            json::optionalString(j, "last_claimable_at"),
            json::optionalString(j, "last_blocked_at"),
            json::optionalString(j, "last_blocked_reason"),
            json::optionalString(j, "job_id"),
            json::optionalString(j, "shard_id"),
            json::optionalString(j, "claimed_at")};
}

}  // namespace

RuntimeState RuntimeState::decode(const Json& j) {
    if (!j.is_object()) throw DecodingError("The data couldn't be read: expected a JSON object");
    RuntimeState state;
    state.workerID = json::optionalString(j, "worker_id");
    if (const Json* t = nested(j, "thermal")) state.thermal = decodeThermal(*t);
    if (const Json* p = nested(j, "resource_policy")) state.resourcePolicy = decodePolicy(*p);
    if (const Json* e = nested(j, "eligibility")) state.eligibility = decodeEligibility(*e);
    state.currentJobID = json::optionalString(j, "current_job_id");
    state.currentShardID = json::optionalString(j, "current_shard_id");
    state.currentShardStartedAt = json::optionalString(j, "current_shard_started_at");
    state.currentShardExpectedSeconds = json::optionalDouble(j, "current_shard_expected_seconds");
    state.claimedAt = json::optionalString(j, "claimed_at");
    state.updatedAt = json::optionalString(j, "updated_at");
    return state;
}

RuntimeState RuntimeState::parse(std::string_view text) {
    Json parsed = Json::parse(text, nullptr, false);
    if (parsed.is_discarded())
        throw DecodingError("The data couldn't be read because it isn't in the correct format.");
    return decode(parsed);
}

Json RuntimeState::encode() const {
    using json::putIfPresent;
    Json j = Json::object();
    putIfPresent(j, "worker_id", workerID);
    if (thermal) {
        Json t = Json::object();
        putIfPresent(t, "thermal_level", thermal->thermalLevel);
        putIfPresent(t, "user_resource_percent", thermal->userResourcePercent);
        putIfPresent(t, "effective_resource_percent", thermal->effectiveResourcePercent);
        putIfPresent(t, "adjustment_reason", thermal->adjustmentReason);
        j["thermal"] = t;
    }
    if (resourcePolicy) {
        Json p = Json::object();
        putIfPresent(p, "preset", resourcePolicy->preset);
        putIfPresent(p, "max_concurrent_jobs", resourcePolicy->maxConcurrentJobs);
        j["resource_policy"] = p;
    }
    if (eligibility) {
        const EligibilityState& s = *eligibility;
        Json e = Json::object();
        putIfPresent(e, "reason", s.reason);
        putIfPresent(e, "headline", s.headline);
        putIfPresent(e, "detail", s.detail);
        putIfPresent(e, "is_claimable", s.isClaimable);
        putIfPresent(e, "is_blocked", s.isBlocked);
        putIfPresent(e, "last_claimable_at", s.lastClaimableAt);
        putIfPresent(e, "last_blocked_at", s.lastBlockedAt);
        putIfPresent(e, "last_blocked_reason", s.lastBlockedReason);
        putIfPresent(e, "job_id", s.jobID);
        putIfPresent(e, "shard_id", s.shardID);
        putIfPresent(e, "claimed_at", s.claimedAt);
        j["eligibility"] = e;
    }
    putIfPresent(j, "current_job_id", currentJobID);
    putIfPresent(j, "current_shard_id", currentShardID);
    putIfPresent(j, "current_shard_started_at", currentShardStartedAt);
    putIfPresent(j, "current_shard_expected_seconds", currentShardExpectedSeconds);
    putIfPresent(j, "claimed_at", claimedAt);
    putIfPresent(j, "updated_at", updatedAt);
    return j;
}

std::filesystem::path runtimeStatePath(const std::filesystem::path& home) {
    return home / ".varnix-compute" / "worker-runtime-state.json";
}

std::optional<RuntimeState> loadRuntimeState(const std::filesystem::path& path) {
    auto text = readFile(path);
    if (!text) return std::nullopt;
    try {
        return RuntimeState::parse(*text);
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

std::optional<std::int64_t> runtimeEffectivePercent(const std::filesystem::path& path) {
    auto state = loadRuntimeState(path);
    return state ? runtimeEffectivePercent(*state) : std::nullopt;
}

std::optional<std::int64_t> runtimeEffectivePercent(const RuntimeState& state) {
    if (!state.thermal || !state.thermal->effectiveResourcePercent) return std::nullopt;
    const double value = *state.thermal->effectiveResourcePercent;
    // Beyond this no percentage means anything, and the conversion below must stay in range.
    if (!std::isfinite(value) || std::abs(value) > 1e15) return std::nullopt;
    return static_cast<std::int64_t>(std::round(value));
}

}  // namespace corvane
