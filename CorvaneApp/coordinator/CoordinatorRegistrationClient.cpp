#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

using Error = CoordinatorRegistrationError;

bool isHTTPScheme(std::string_view scheme) {
    const std::string lower = asciiLowercased(scheme);
    return lower == "http" || lower == "https";
}

// A message that tells a machine it is registered already and must rotate its token instead.
bool asksForExistingToken(const std::string& message) {
    const std::string lower = asciiLowercased(message);
    return lower.find("existing token") != std::string::npos ||
           lower.find("already registered") != std::string::npos ||
           lower.find("rotate") != std::string::npos;
}

std::optional<std::string> decodeErrorMessage(const std::string& body) {
    try {
        return WorkerRegistrationErrorResponse::decode(parseJson(body)).error;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

CoordinatorRegistrationClient::CoordinatorRegistrationClient(
    std::optional<std::string> buildIdentity, std::shared_ptr<const http::Session> session)
    : buildIdentity_(std::move(buildIdentity)),
      session_(session ? std::move(session)
                       : std::make_shared<const http::Session>(
                             http::SessionConfig{timeoutSeconds, 30, timeoutSeconds})) {}

std::optional<std::string> CoordinatorRegistrationClient::registrationURL(
    std::string_view coordinatorURL) {
    const std::string_view text = trimAsciiWhitespace(coordinatorURL);
    const auto schemeEnd = text.find("://");
    if (schemeEnd == std::string_view::npos || schemeEnd == 0 ||
        !isHTTPScheme(text.substr(0, schemeEnd))) {
        return std::nullopt;
    }
    const std::string_view scheme = text.substr(0, schemeEnd);
    std::string_view rest = text.substr(schemeEnd + 3);
    std::string_view fragmentless = rest.substr(0, rest.find('#'));
    const auto authorityEnd = fragmentless.find_first_of("/?");
    const std::string_view authority = fragmentless.substr(0, authorityEnd);
    // The host is what stands after any user info and before any port.
    std::string_view host = authority.substr(
        authority.rfind('@') == std::string_view::npos ? 0 : authority.rfind('@') + 1);
    if (!host.starts_with('[')) host = host.substr(0, host.find(':'));
    if (host.empty()) return std::nullopt;
    for (char c : authority) {
        if (std::isspace(static_cast<unsigned char>(c)) ||
            std::iscntrl(static_cast<unsigned char>(c)))
            return std::nullopt;
    }
    std::string_view afterAuthority = authorityEnd == std::string_view::npos
                                          ? std::string_view{}
                                          : fragmentless.substr(authorityEnd);
    const auto queryStart = afterAuthority.find('?');
    const std::string_view path = afterAuthority.substr(0, queryStart);
    const std::string_view query = queryStart == std::string_view::npos
                                       ? std::string_view{}
                                       : afterAuthority.substr(queryStart);
    for (char c : afterAuthority) {
        if (std::isspace(static_cast<unsigned char>(c)) ||
            std::iscntrl(static_cast<unsigned char>(c)))
            return std::nullopt;
    }

    std::vector<std::string_view> pieces;
    std::string_view remaining = path;
    while (!remaining.empty()) {
        const auto slash = remaining.find('/');
        const std::string_view piece = remaining.substr(0, slash);
        if (!piece.empty()) pieces.push_back(piece);
        if (slash == std::string_view::npos) break;
        remaining.remove_prefix(slash + 1);
    }
    std::string url = std::string(scheme) + "://" + std::string(authority);
    for (std::string_view piece : pieces) url += "/" + std::string(piece);
    url += "/api/v1/workers/register";
    url += query;
    return url;
}

http::Request CoordinatorRegistrationClient::makeRequest(
    std::string_view coordinatorURL, const std::optional<std::string>& enrollmentToken,
    const WorkerRegistrationRequest& request) const {
    auto url = registrationURL(coordinatorURL);
    if (!url) throw Error::invalidCoordinatorURL();
    http::Request out;
    out.method = "POST";
    out.url = std::move(*url);
    out.timeoutSeconds = timeoutSeconds;
    out.headers.add("Content-Type", "application/json");
    out.headers.add("Accept", "application/json");
    if (buildIdentity_) out.headers.add("X-Worker-Version", *buildIdentity_);
    if (enrollmentToken) {
        const std::string_view token = trimAsciiWhitespace(*enrollmentToken);
        if (!token.empty()) out.headers.add("X-Enrollment-Token", std::string(token));
    }
    try {
        out.body = request.encode().dump();
    } catch (const std::exception&) {
        throw Error::httpError("Corvane could not encode the registration payload.");
    }
    return out;
}

WorkerRegistrationResponse CoordinatorRegistrationClient::registerWorker(
    std::string_view coordinatorURL, const std::optional<std::string>& enrollmentToken,
    const WorkerRegistrationRequest& request) {
    const http::Request wire = makeRequest(coordinatorURL, enrollmentToken, request);
    const bool sentToken = wire.headers.find("X-Enrollment-Token").has_value();
    const std::string networkText =
        "Corvane could not reach the service. Check your internet connection and try again.";

    http::Response response;
    try {
        response = session_->send(wire);
    } catch (const std::exception& error) {
        log::get("CoordinatorRegistrationClient")
            ->error("registration request failed: {}", error.what());
        throw Error::networkFailure(networkText);
    }
    const long status = response.status;
    if (status < 100 || status > 599)
        throw Error::networkFailure("Corvane received an invalid response from the service.");
    if (status >= 200 && status <= 299) {
        try {
            return WorkerRegistrationResponse::decode(parseJson(response.body));
        } catch (const std::exception& error) {
            log::get("CoordinatorRegistrationClient")
                ->error("registration answer unreadable: {}", error.what());
            throw Error::networkFailure(networkText);
        }
    }
    log::get("CoordinatorRegistrationClient")->error("registration refused with HTTP {}", status);
    if (status == 401 || status == 403) {
        if (auto message = decodeErrorMessage(response.body);
            message && asksForExistingToken(*message)) {
            throw Error::existingWorkerTokenRequired();
        }
        throw sentToken ? Error::invalidInvitation() : Error::invitationRequired();
    }
    if (status == 429) throw Error::rateLimited(response.headers.find("Retry-After"));
    if (status >= 500) throw Error::coordinatorUnavailable();
    if (auto message = decodeErrorMessage(response.body)) throw Error::httpError(*message);
    throw Error::httpError("Corvane setup failed with HTTP " + std::to_string(status) +
                           ". Try again in a moment.");
}

}  // namespace corvane
