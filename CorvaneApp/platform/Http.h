#pragma once
// HTTP over libcurl: one Session per client, reused connections, cooperative cancellation.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::http {

// Header fields in order; lookups ignore case as HTTP requires.
class Headers {
  public:
    void add(std::string name, std::string value) {
        fields_.emplace_back(std::move(name), std::move(value));
    }
    void set(std::string name, std::string value);
    std::optional<std::string> find(std::string_view name) const;
    const std::vector<std::pair<std::string, std::string>>& fields() const { return fields_; }
    void clear() { fields_.clear(); }

  private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

struct Request {
    std::string method = "GET";
    std::string url;
    Headers headers;
    std::string body;
    double timeoutSeconds = 60;  // longest silence allowed while waiting for data
};

struct Response {
    long status = 0;
    Headers headers;
    std::string body;
};

struct SessionConfig {
    double requestTimeoutSeconds = 30;    // longest silence, whatever the request asks
    double resourceTimeoutSeconds = 120;  // whole transfer; 0 means no limit
    double connectTimeoutSeconds = 30;
};

// A transfer that produced no HTTP response, or whose body could not be taken in whole.
class TransportError : public std::runtime_error {
  public:
    enum class Kind {
        invalidURL,
        cannotConnect,
        timedOut,
        connectionLost,
        cancelled,
        writeFailed,
        other
    };
    TransportError(Kind kind, std::string description, int curlCode = 0)
        : std::runtime_error(std::move(description)), kind_(kind), curlCode_(curlCode) {}
    Kind kind() const { return kind_; }
    int curlCode() const { return curlCode_; }

  private:
    Kind kind_;
    int curlCode_;
};

struct StreamCallbacks {
    // Called once per response with the final status and headers, before any data.
    std::function<void(long status, const Headers& headers)> onHeaders;
    // Each chunk of the body; returning false aborts the transfer with Kind::writeFailed.
    std::function<bool(std::string_view chunk)> onData;
    // Bytes received so far and the expected total when the server said it.
    std::function<void(std::uint64_t received, std::optional<std::uint64_t> total)> onProgress;
};

class Session {
  public:
    explicit Session(SessionConfig config = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const SessionConfig& config() const { return config_; }

    // Sends the request and collects the whole body. Throws TransportError.
    Response send(const Request& request, std::stop_token stop = {}) const;
    // Sends the request and hands the body over in chunks; the returned body is empty.
    Response stream(const Request& request, const StreamCallbacks& callbacks,
                    std::stop_token stop = {}) const;

  private:
    struct Handle;
    std::unique_ptr<Handle> acquire() const;
    void release(std::unique_ptr<Handle> handle) const;

    SessionConfig config_;
    mutable std::mutex mutex_;
    mutable std::vector<std::unique_ptr<Handle>>
        idle_;  // guarded by mutex_; keeps connections warm
};

// Percent-encodes everything outside the characters a URL path may carry ("/" stays).
// Percent-encodes every byte outside the ASCII letters, digits and `keep`.
std::string percentEncode(std::string_view text, std::string_view keep);
std::string percentEncodePath(std::string_view text);
// Percent-encodes for a query value.
std::string percentEncodeQuery(std::string_view text);

// Resolves `path` (starting with "/") against `base`, replacing any path `base` has. Absent when
// `base` has no scheme and host.
std::optional<std::string> resolveAbsolutePath(std::string_view base, std::string_view path);

}  // namespace corvane::http
