#include "CorvaneApp/platform/Http.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <curl/curl.h>

#include "CorvaneApp/platform/Text.h"

namespace corvane::http {
namespace {

void initCurlOnce() {
    static const bool initialised = [] {
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    (void)initialised;
}

struct Transfer {
    const StreamCallbacks* callbacks = nullptr;
    std::stop_token stop;
    Response response;
    bool headersDelivered = false;
    bool sinkRefused = false;
    bool collectBody = true;

    void deliverHeaders(CURL* curl) {
        if (headersDelivered) return;
        headersDelivered = true;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
        if (callbacks && callbacks->onHeaders)
            callbacks->onHeaders(response.status, response.headers);
    }
    CURL* curl = nullptr;
};

size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
        // A new response (after a redirect or a 100 Continue): only the last one's fields count.
        transfer->response.headers.clear();
        return size * count;
    }
    auto colon = line.find(':');
    if (colon != std::string_view::npos) {
        transfer->response.headers.add(std::string(trimAsciiWhitespace(line.substr(0, colon))),
                                       std::string(trimAsciiWhitespace(line.substr(colon + 1))));
    }
    return size * count;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    transfer->deliverHeaders(transfer->curl);
    std::string_view chunk(data, size * count);
    if (transfer->collectBody) {
        transfer->response.body.append(chunk);
    } else if (transfer->callbacks && transfer->callbacks->onData &&
               !transfer->callbacks->onData(chunk)) {
        transfer->sinkRefused = true;
        return 0;  // makes curl stop with CURLE_WRITE_ERROR
    }
    return size * count;
}

int onProgress(void* user, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t) {
    auto* transfer = static_cast<Transfer*>(user);
    if (transfer->stop.stop_requested()) return 1;
    if (transfer->callbacks && transfer->callbacks->onProgress && received > 0) {
        std::optional<std::uint64_t> expected;
        if (total > 0) expected = static_cast<std::uint64_t>(total);
        transfer->callbacks->onProgress(static_cast<std::uint64_t>(received), expected);
    }
    return 0;
}

TransportError translate(CURLcode code, const char* detail) {
    using Kind = TransportError::Kind;
    std::string suffix = (detail && *detail) ? std::string(" (") + detail + ")" : "";
    switch (code) {
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
            return {Kind::invalidURL, "unsupported URL" + suffix, code};
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return {Kind::cannotConnect,
                    "A server with the specified hostname could not be found." + suffix, code};
        case CURLE_COULDNT_CONNECT:
            return {Kind::cannotConnect, "Could not connect to the server." + suffix, code};
        case CURLE_OPERATION_TIMEDOUT:
            return {Kind::timedOut, "The request timed out." + suffix, code};
        case CURLE_ABORTED_BY_CALLBACK:
            return {Kind::cancelled, "cancelled", code};
        case CURLE_WRITE_ERROR:
            return {Kind::writeFailed, "The response could not be stored." + suffix, code};
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_PARTIAL_FILE:
            return {Kind::connectionLost, "The network connection was lost." + suffix, code};
        default:
            return {Kind::other, std::string(curl_easy_strerror(code)) + suffix, code};
    }
}

}  // namespace

struct Session::Handle {
    CURL* curl;
    Handle() : curl(curl_easy_init()) {}
    ~Handle() {
        if (curl) curl_easy_cleanup(curl);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
};

void Headers::set(std::string name, std::string value) {
    std::erase_if(fields_,
                  [&](const auto& field) { return equalsIgnoringAsciiCase(field.first, name); });
    add(std::move(name), std::move(value));
}

std::optional<std::string> Headers::find(std::string_view name) const {
    for (const auto& [key, value] : fields_) {
        if (equalsIgnoringAsciiCase(key, name)) return value;
    }
    return std::nullopt;
}

Session::Session(SessionConfig config) : config_(config) {
    initCurlOnce();
}
Session::~Session() = default;

std::unique_ptr<Session::Handle> Session::acquire() const {
    {
        std::lock_guard lock(mutex_);
        if (!idle_.empty()) {
            auto handle = std::move(idle_.back());
            idle_.pop_back();
            curl_easy_reset(handle->curl);
            return handle;
        }
    }
    auto handle = std::make_unique<Handle>();
    if (!handle->curl)
        throw TransportError(TransportError::Kind::other, "cannot create an HTTP handle");
    return handle;
}

void Session::release(std::unique_ptr<Handle> handle) const {
    std::lock_guard lock(mutex_);
    if (idle_.size() < 8) idle_.push_back(std::move(handle));
}

Response Session::send(const Request& request, std::stop_token stop) const {
    return stream(request, StreamCallbacks{}, stop);
}

Response Session::stream(const Request& request, const StreamCallbacks& callbacks,
                         std::stop_token stop) const {
    auto handle = acquire();
    CURL* curl = handle->curl;
    Transfer transfer;
    transfer.curl = curl;
    transfer.callbacks = &callbacks;
    transfer.stop = stop;
    transfer.collectBody = !callbacks.onData;

    char errorBuffer[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    if (request.method == "GET") {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "HEAD") {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    } else {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    }
    // Silence limit: the stricter of the request's and the session's.
    double idle = std::min(
        request.timeoutSeconds > 0 ? request.timeoutSeconds : config_.requestTimeoutSeconds,
        config_.requestTimeoutSeconds > 0 ? config_.requestTimeoutSeconds : request.timeoutSeconds);
    if (idle > 0) {
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(std::ceil(idle)));
    }
    if (config_.resourceTimeoutSeconds > 0) {
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS,
                         static_cast<long>(config_.resourceTimeoutSeconds * 1000));
    }
    if (config_.connectTimeoutSeconds > 0) {
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS,
                         static_cast<long>(config_.connectTimeoutSeconds * 1000));
    }

    struct curl_slist* headerList = nullptr;
    bool hasContentType = false;
    for (const auto& [name, value] : request.headers.fields()) {
        std::string line = name + ": " + value;
        headerList = curl_slist_append(headerList, line.c_str());
        hasContentType = hasContentType || equalsIgnoringAsciiCase(name, "Content-Type");
    }
    if (request.method != "GET" && request.method != "HEAD" && !hasContentType) {
        headerList = curl_slist_append(headerList, "Content-Type:");  // curl would add a form type
    }
    headerList = curl_slist_append(headerList, "Expect:");  // no 100-continue round trip
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headerGuard(headerList,
                                                                            &curl_slist_free_all);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headerList);

    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &onProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);

    CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) transfer.deliverHeaders(curl);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
    // A failed transfer's handle is dropped with its connection rather than pooled.
    if (code != CURLE_OK) throw translate(code, errorBuffer);
    release(std::move(handle));
    return std::move(transfer.response);
}

// Percent-encodes every byte outside the letters, digits and `keep`.
std::string percentEncode(std::string_view text, std::string_view keep) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || keep.find(static_cast<char>(c)) != std::string_view::npos) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 15]);
        }
    }
    return out;
}

// RFC 3986 pchar plus "/": unreserved, sub-delims, ":" and "@".
std::string percentEncodePath(std::string_view text) {
    return percentEncode(text, "-._~!$&'()*+,;=:@/");
}

std::string percentEncodeQuery(std::string_view text) {
    return percentEncode(text, "-._~");
}

std::optional<std::string> resolveAbsolutePath(std::string_view base, std::string_view path) {
    auto scheme = base.find("://");
    if (scheme == std::string_view::npos || scheme == 0) return std::nullopt;
    auto hostStart = scheme + 3;
    auto hostEnd = base.find_first_of("/?#", hostStart);
    std::string_view authority =
        base.substr(hostStart, hostEnd == std::string_view::npos ? std::string_view::npos
                                                                 : hostEnd - hostStart);
    if (authority.empty()) return std::nullopt;
    for (char c : base.substr(0, scheme)) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
            return std::nullopt;
    }
    for (char c : path) {
        if (std::isspace(static_cast<unsigned char>(c))) return std::nullopt;
    }
    return std::string(base.substr(0, hostStart)) + std::string(authority) + std::string(path);
}

}  // namespace corvane::http
