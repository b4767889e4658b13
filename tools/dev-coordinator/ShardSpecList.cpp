#include "tools/dev-coordinator/ShardSpecList.h"

#include <string>

#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane::dev {

namespace {

ShardSpec decodeShardSpec(const Json& object) {
    ShardSpec spec;
    spec.jobID = json::requireString(object, "job_id");
    spec.shardID = json::optionalString(object, "shard_id");
    spec.audioFile = json::requireString(object, "audio_file");
    spec.startSeconds = json::optionalDouble(object, "start_seconds");
    spec.endSeconds = json::optionalDouble(object, "end_seconds");
    if (const Json* model = json::member(object, "model_identifier")) {
        spec.modelIdentifier = ModelIdentifier::decodeLeniently(*model);
        if (!spec.modelIdentifier) {
            json::wrongType("model_identifier",
                            "an object with \"backend\", \"model\" and \"version\"");
        }
    }
    if (auto jobType = json::optionalString(object, "job_type")) spec.jobType = *jobType;
    return spec;
}

}  // namespace

std::vector<ShardSpec> decodeShardSpecs(const Json& list) {
    if (!list.is_array()) throw DecodingError("The jobs file must hold a JSON list of shards");
    std::vector<ShardSpec> specs;
    for (size_t index = 0; index < list.size(); ++index) {
        try {
            specs.push_back(decodeShardSpec(list[index]));
        } catch (const DecodingError& error) {
            throw DecodingError("shard " + std::to_string(index) + ": " + error.what());
        }
    }
    return specs;
}

std::vector<ShardSpec> loadShardSpecs(const std::filesystem::path& file) {
    std::optional<std::string> text = readFile(file);
    if (!text) throw DecodingError("cannot read " + file.string());
    try {
        return decodeShardSpecs(parseJson(*text));
    } catch (const DecodingError& error) {
        throw DecodingError(file.string() + ": " + error.what());
    }
}

}  // namespace corvane::dev
