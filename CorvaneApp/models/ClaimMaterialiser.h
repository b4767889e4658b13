#pragma once
// Brings a claim's audio from its URL to a local file and turns the claim into a ClaimedJob. It
// decodes nothing: an undecodable file fails later, in the handler's decode stage.

#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

#include "CorvaneApp/coordinator/JobRecords.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/models/ClaimMaterialiserError.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

class ClaimMaterialiser {
  public:
    // `session` should allow long transfers: audio of any size streams through it to disk.
    ClaimMaterialiser(std::shared_ptr<const http::Session> session,
                      std::filesystem::path tempDirectory, NowFunction now = systemNow);

    // Downloads to "varnix-shard-<jobID>-<shardID or whole>.<extension>" in the temp directory,
    // replacing a file of that name. Throws ClaimMaterialiserError; `stop` cancels the transfer,
    // which then fails as a network error. Keeps no state, so claims may run concurrently.
    ClaimedJob materialise(const ShardClaim& claim, std::stop_token stop) const;
    ClaimedJob operator()(const ShardClaim& claim, std::stop_token stop) const {
        return materialise(claim, stop);
    }

  private:
    std::shared_ptr<const http::Session> session_;
    std::filesystem::path tempDirectory_;
    NowFunction now_;
};

// Every file the materialiser makes in its folder starts with this: "<prefix><jobID>-<shard>.<ext>"
// for a shard's audio, "<prefix>XXXXXX.download" for a transfer in progress.
inline constexpr std::string_view shardAudioPrefix = "varnix-shard-";
// The name of a claim's audio file before its extension: "varnix-shard-<jobID>-<shardID or
// whole>", one path component.
std::string shardAudioStem(const ShardClaim& claim);

// The extension (without the dot) for a downloaded file: the one of the name the server suggests
// in "Content-Disposition", else one known for its audio MIME type, else the URL path's, else
// "audio".
std::string preferredExtension(const http::Headers& responseHeaders, std::string_view sourceURL);

}  // namespace corvane
