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
#include <fcntl.h>
#include <unistd.h>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

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
        std::string_view part = trim(disposition.substr(0, semicolon));
        disposition = semicolon == std::string_view::npos ? std::string_view()
                                                          : disposition.substr(semicolon + 1);
        auto equals = part.find('=');
        if (equals == std::string_view::npos) continue;
        std::string key = lowercase(trim(part.substr(0, equals)));
        std::string_view value = trim(part.substr(equals + 1));
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

// The one path component of the first destination; a '/' in an id must not lead elsewhere.
std::string destinationStem(const ShardClaim& claim) {
    std::string stem = "varnix-shard-" + claim.jobID + "-" + claim.shardID.value_or("whole");
    std::replace(stem.begin(), stem.end(), '/', '_');
    std::replace(stem.begin(), stem.end(), '\0', '_');
    return stem;
}

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

// The transfer's own file next to the destination; removed unless it was moved into place.
class DownloadFile {
  public:
    explicit DownloadFile(const std::filesystem::path& directory) {
        std::string pattern = (directory / "varnix-shard-XXXXXX.download").string();
        fd_ = ::mkstemps(pattern.data(), static_cast<int>(std::strlen(".download")));
        if (fd_ < 0)
            throw ClaimMaterialiserError(
                ClaimMaterialiserError::FileWriteFailed{pattern, errnoText(errno)});
        path_ = pattern;
    }
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;
    ~DownloadFile() {
        closeFile();
        if (!kept_) ::unlink(path_.c_str());
    }

    const std::filesystem::path& path() const { return path_; }

    // Returns 0, or the errno of the failed write.
    int append(std::string_view data) {
        while (!data.empty()) {
            ssize_t written = ::write(fd_, data.data(), data.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return written < 0 ? errno : EIO;
            data.remove_prefix(static_cast<size_t>(written));
        }
        return 0;
    }
    int closeFile() {
        if (fd_ < 0) return 0;
        int result = ::close(std::exchange(fd_, -1)) == 0 ? 0 : errno;
        return result;
    }
    void keep() { kept_ = true; }

  private:
    std::filesystem::path path_;
    int fd_ = -1;
    bool kept_ = false;
};

}  // namespace

ClaimMaterialiser::ClaimMaterialiser(std::shared_ptr<const http::Session> session,
                                     std::filesystem::path tempDirectory, NowFunction now)
    : session_(std::move(session)),
      tempDirectory_(std::move(tempDirectory)),
      now_(std::move(now)) {}

ClaimedJob ClaimMaterialiser::materialise(const ShardClaim& claim, std::stop_token stop) const {
    if (!parsedURLPath(claim.audioURL))
        throw ClaimMaterialiserError(ClaimMaterialiserError::InvalidAudioURL{claim.audioURL});
    std::string stem = destinationStem(claim);

    std::filesystem::path finalPath;
    try {
        std::error_code ignored;
        std::filesystem::create_directories(tempDirectory_, ignored);  // mkstemps names the failure
        DownloadFile download(tempDirectory_);

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
            writeError = download.append(chunk);
            return writeError == 0;
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
        if (int error = download.closeFile(); error != 0) {
            throw ClaimMaterialiserError(ClaimMaterialiserError::FileWriteFailed{
                download.path().string(), errnoText(error)});
        }

        finalPath = tempDirectory_ / (stem + "." + preferredExtension(headers, claim.audioURL));
        log::get("ClaimMaterialiser")
            ->info("Downloading shard audio {} -> {}", claim.jobID, finalPath.string());
        std::filesystem::remove(finalPath, ignored);  // a failure here shows in the rename
        if (::rename(download.path().c_str(), finalPath.c_str()) != 0) {
            throw ClaimMaterialiserError(
                ClaimMaterialiserError::FileWriteFailed{finalPath.string(), errnoText(errno)});
        }
        download.keep();
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

std::string preferredExtension(const http::Headers& responseHeaders, std::string_view sourceURL) {
    if (auto disposition = responseHeaders.find("Content-Disposition")) {
        if (auto name = suggestedFilename(*disposition)) {
            if (auto extension = extensionOf(*name)) return *extension;
        }
    }
    if (auto contentType = responseHeaders.find("Content-Type")) {
        std::string mime =
            lowercase(trim(std::string_view(*contentType).substr(0, contentType->find(';'))));
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
