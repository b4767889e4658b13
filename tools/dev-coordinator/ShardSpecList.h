#pragma once
// The jobs file of the command-line coordinator: a JSON list of shards, keys as on the wire
// ("job_id", "shard_id", "audio_file", "start_seconds", "end_seconds", "model_identifier",
// "job_type").

#include <filesystem>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"
#include "tools/dev-coordinator/DevCoordinatorRecords.h"

namespace corvane::dev {

// Throws DecodingError naming the entry and key at fault; a model block that is present must be
// complete, since a typo there would silently run the default model.
std::vector<ShardSpec> decodeShardSpecs(const Json& list);
// Reads and decodes the file; throws DecodingError (also for a missing or unreadable file).
std::vector<ShardSpec> loadShardSpecs(const std::filesystem::path& file);

}  // namespace corvane::dev
