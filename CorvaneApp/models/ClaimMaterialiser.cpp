#include "CorvaneApp/models/ClaimMaterialiser.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include <curl/curl.h>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/TemporaryFile.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// The path of an absolute URL, or absent when the text is not one that our HTTP stack can parse.
std::optional<std::string> parsedURLPath(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
    if (!url) return std::nullopt;
    std::string copy(text);
    if (curl_url_set(url.get(), CURLUPART_URL, copy.c_str(), 0) != CURLUE_OK) return std::nullopt;
    char* path = nullptr;
    if (curl_url_get(url.get(), CURLUPART_PATH, &path, 0) != CURLUE_OK || !path)
        return std::string();
    std::string result(path);
    curl_free(path);
    return result;
}

// The extension of the last component of `name`. An extension becomes part of a file name of
// ours, so only plain letters and digits are taken.
std::optional<std::string> extensionOf(std::string_view name) {
    auto slash = name.find_last_of("/\\");
    if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
    auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return std::nullopt;
    std::string_view extension = name.substr(dot + 1);
    bool plain =
        extension.size() <= 16 && std::all_of(extension.begin(), extension.end(),
                                              [](unsigned char c) { return std::isalnum(c) != 0; });
    if (!plain) return std::nullopt;
    return std::string(extension);
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out.push_back(
                static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

// The file name a "Content-Disposition" value suggests; the extended form ("filename*") wins.
std::optional<std::string> suggestedFilename(std::string_view disposition) {
    std::optional<std::string> plain;
    while (!disposition.empty()) {
        auto semicolon = disposition.find(';');
        std::string_view part = trimAsciiWhitespace(disposition.substr(0, semicolon));
        disposition = semicolon == std::string_view::npos ? std::string_view()
                                                          : disposition.substr(semicolon + 1);
        auto equals = part.find('=');
        if (equals == std::string_view::npos) continue;
        std::string key = asciiLowercased(trimAsciiWhitespace(part.substr(0, equals)));
        std::string_view value = trimAsciiWhitespace(part.substr(equals + 1));
        if (key == "filename*") {
            auto quotes = value.find("''");
            if (quotes != std::string_view::npos) return percentDecoded(value.substr(quotes + 2));
        } else if (key == "filename") {
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
                value = value.substr(1, value.size() - 2);
            plain = std::string(value);
        }
    }
    return plain;
}

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

}  // namespace

ClaimMaterialiser::ClaimMaterialiser(std::shared_ptr<const http::Session> session,
                                     std::filesystem::path tempDirectory, NowFunction now)
    : session_(std::move(session)),
      tempDirectory_(std::move(tempDirectory)),
      now_(std::move(now)) {}

ClaimedJob ClaimMaterialiser::materialise(const ShardClaim& claim, std::stop_token stop) const {
    if (!parsedURLPath(claim.audioURL))
        throw ClaimMaterialiserError(ClaimMaterialiserError::InvalidAudioURL{claim.audioURL});
    std::string stem = shardAudioStem(claim);

    std::filesystem::path finalPath;
    try {
        std::error_code ignored;
        std::filesystem::create_directories(tempDirectory_, ignored);  // the file names the failure
        // The transfer's own file next to the destination; removed unless it was moved into place.
        std::optional<TemporaryFile> created;
        try {
            created.emplace(tempDirectory_, shardAudioPrefix, ".download");
        } catch (const std::system_error& error) {
            throw ClaimMaterialiserError(ClaimMaterialiserError::FileWriteFailed{
                (tempDirectory_ / (std::string(shardAudioPrefix) + "XXXXXX.download")).string(),
                errnoText(error.code().value())});
        }
        TemporaryFile& download = *created;

        long status = 0;
        http::Headers headers;
        int writeError = 0;
        http::StreamCallbacks callbacks;
        callbacks.onHeaders = [&](long code, const http::Headers& fields) {
            status = code;
            headers = fields;
        };
        callbacks.onData = [&](std::string_view chunk) {
            if (status < 200 || status > 299) return false;  // an error page is not the audio
            if (download.write(chunk)) return true;
            writeError = errno;
            return false;
        };
        http::Request request;
        request.url = claim.audioURL;
        try {
            session_->stream(request, callbacks, stop);
        } catch (const http::TransportError& error) {
            if (writeError != 0) {
                throw ClaimMaterialiserError(ClaimMaterialiserError::FileWriteFailed{
                    download.path().string(), errnoText(writeError)});
            }
            if (status != 0 && (status < 200 || status > 299))
                throw ClaimMaterialiserError(ClaimMaterialiserError::DownloadFailed{status});
            throw;
        }
        if (status < 200 || status > 299)
            throw ClaimMaterialiserError(ClaimMaterialiserError::DownloadFailed{status});
        try {
            download.finish(false);
        } catch (const std::system_error& error) {
            throw ClaimMaterialiserError(ClaimMaterialiserError::FileWriteFailed{
                download.path().string(), errnoText(error.code().value())});
        }

        finalPath = tempDirectory_ / (stem + "." + preferredExtension(headers, claim.audioURL));
        log::get("ClaimMaterialiser")
            ->info("Downloading shard audio {} -> {}", claim.jobID, finalPath.string());
        std::filesystem::remove(finalPath, ignored);  // a failure here shows in the move
        try {
            download.moveTo(finalPath, false);
        } catch (const std::system_error& error) {
            throw ClaimMaterialiserError(ClaimMaterialiserError::FileWriteFailed{
                finalPath.string(), errnoText(error.code().value())});
        }
    } catch (const ClaimMaterialiserError&) {
        throw;
    } catch (const std::exception& error) {
        throw ClaimMaterialiserError(ClaimMaterialiserError::NetworkError{error.what()});
    }

    ClaimedJob job;
    job.id = claim.jobID;
    job.shardID = claim.shardID;
    job.category = ModelCategory::transcription;
    job.modelID = defaultModelIdentifier();  // which handler really runs is the worker's choice
    job.inputPath = finalPath.string();
    job.claimedAt = now_();
    job.deadline = addSeconds(job.claimedAt, static_cast<double>(claim.timeoutSeconds));
    return job;
}

// One path component: a '/' in an id must not lead elsewhere.
std::string shardAudioStem(const ShardClaim& claim) {
    std::string stem =
        std::string(shardAudioPrefix) + claim.jobID + "-" + claim.shardID.value_or("whole");
    std::replace(stem.begin(), stem.end(), '/', '_');
    std::replace(stem.begin(), stem.end(), '\0', '_');
    return stem;
}

std::string preferredExtension(const http::Headers& responseHeaders, std::string_view sourceURL) {
    if (auto disposition = responseHeaders.find("Content-Disposition")) {
        if (auto name = suggestedFilename(*disposition)) {
            if (auto extension = extensionOf(*name)) return *extension;
        }
    }
    if (auto contentType = responseHeaders.find("Content-Type")) {
        std::string mime = asciiLowercased(
            trimAsciiWhitespace(std::string_view(*contentType).substr(0, contentType->find(';'))));
        static constexpr std::array<std::pair<std::string_view, std::string_view>, 6> known{{
            {"audio/wav", "wav"},
            {"audio/x-wav", "wav"},
            {"audio/mpeg", "mp3"},
            {"audio/mp4", "m4a"},
            {"audio/x-m4a", "m4a"},
            {"audio/aac", "m4a"},
        }};
        for (const auto& [type, extension] : known) {
            if (mime == type) return std::string(extension);
        }
    }
    if (auto path = parsedURLPath(sourceURL)) {
        if (auto extension = extensionOf(*path)) return *extension;
    }
    return "audio";
}

}  // namespace corvane
