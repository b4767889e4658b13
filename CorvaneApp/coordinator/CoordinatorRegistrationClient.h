#pragma once
// The one call a machine makes before it has a worker token: it posts the machine's identity to
// the coordinator and gets back its worker id and token. Keeps no state; retries nothing.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/coordinator/CoordinatorRegistrationError.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationRecords.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

// The abstract form, so that onboarding can be driven without a network.
class CoordinatorRegistering {
  public:
    virtual ~CoordinatorRegistering() = default;
    // Throws CoordinatorRegistrationError only.
    virtual WorkerRegistrationResponse registerWorker(
        std::string_view coordinatorURL, const std::optional<std::string>& enrollmentToken,
        const WorkerRegistrationRequest& request) = 0;
};

class CoordinatorRegistrationClient final : public CoordinatorRegistering {
  public:
    static constexpr double timeoutSeconds = 15.0;

    // `buildIdentity` goes out as X-Worker-Version. Without a session, one with the
    // registration's time-outs is made.
    explicit CoordinatorRegistrationClient(std::optional<std::string> buildIdentity,
                                           std::shared_ptr<const http::Session> session = nullptr);

    WorkerRegistrationResponse registerWorker(std::string_view coordinatorURL,
                                              const std::optional<std::string>& enrollmentToken,
                                              const WorkerRegistrationRequest& request) override;

    // The request as it goes on the wire; throws CoordinatorRegistrationError for a bad URL.
    http::Request makeRequest(std::string_view coordinatorURL,
                              const std::optional<std::string>& enrollmentToken,
                              const WorkerRegistrationRequest& request) const;
    // "<scheme>://<authority>/<prefix>/api/v1/workers/register[?query]", keeping a path prefix of
    // the base URL; absent when the text is not an http(s) URL with a host.
    static std::optional<std::string> registrationURL(std::string_view coordinatorURL);

  private:
    std::optional<std::string> buildIdentity_;
    std::shared_ptr<const http::Session> session_;
};

}  // namespace corvane
