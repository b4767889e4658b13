#include "CorvaneApp/coordinator/ShardClaim.h"

namespace corvane {

std::optional<ModelIdentifier> ModelIdentifier::decodeLeniently(const Json& json) {
    if (!json.is_object()) return std::nullopt;
    auto field = [&](const char* key) -> std::optional<std::string> {
        auto it = json.find(key);
        if (it == json.end() || !it->is_string()) return std::nullopt;
        return it->get<std::string>();
    };
    auto backend = field("backend");
    auto model = field("model");
    auto version = field("version");
    if (!backend || !model || !version) return std::nullopt;
    return ModelIdentifier{*backend, *model, *version};
}

ShardClaim ShardClaim::decode(const Json& json) {
    ShardClaim claim;
    claim.jobID = json::requireString(json, "job_id");
    claim.jobType = json::requireString(json, "job_type");
    claim.audioURL = json::requireString(json, "audio_url");
    if (const Json* config = json::member(json, "input_config"); config && config->is_object()) {
        for (const auto& [key, value] : config->items())
            claim.inputConfig.emplace(key, AnyJSONValue::decode(value));
    }
    if (const Json* timeout = json::member(json, "timeout_seconds")) {
        if (auto value = json::asInteger(*timeout)) claim.timeoutSeconds = *value;
    }
    claim.shardID = json::optionalString(json, "shard_id");
    claim.startSeconds = json::optionalDouble(json, "start_seconds");
    claim.endSeconds = json::optionalDouble(json, "end_seconds");
    claim.apiVersion = json::optionalString(json, "api_version");
    if (const Json* model = json::member(json, "model_identifier")) {
        claim.modelIdentifier = ModelIdentifier::decodeLeniently(*model);
    }
    return claim;
}

Json ShardClaim::encode() const {
    Json out{{"job_id", jobID},
             {"job_type", jobType},
             {"audio_url", audioURL},
             {"timeout_seconds", timeoutSeconds}};
    Json config = Json::object();
    for (const auto& [key, value] : inputConfig) config[key] = value.encode();
    out["input_config"] = std::move(config);
    json::putIfPresent(out, "shard_id", shardID);
    json::putIfPresent(out, "start_seconds", startSeconds);
    json::putIfPresent(out, "end_seconds", endSeconds);
    json::putIfPresent(out, "api_version", apiVersion);
    if (modelIdentifier) out["model_identifier"] = modelIdentifier->encode();
    return out;
}

}  // namespace corvane
