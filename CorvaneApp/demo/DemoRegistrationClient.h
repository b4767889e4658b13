#pragma once
// The sample session's coordinator for onboarding: it answers registration in memory, the way
// the real one answers, so that the window can be walked (and pictured) with no network.

#include <atomic>
#include <string_view>

#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"

namespace corvane {

class DemoRegistrationClient final : public CoordinatorRegistering {
  public:
    // The one invitation code the sample coordinator accepts; registering without a code works
    // too. Any other code is refused as a real coordinator refuses a stale one.
    static constexpr std::string_view acceptedInvitationCode = "CORVANE-DEMO";
    static constexpr std::string_view workerToken = "demo-worker-token";

    // Throws CoordinatorRegistrationError: invalidCoordinatorURL for a text that is not an
    // http(s) URL with a host, invalidInvitation for a code other than the accepted one.
    WorkerRegistrationResponse registerWorker(std::string_view coordinatorURL,
                                              const std::optional<std::string>& enrollmentToken,
                                              const WorkerRegistrationRequest& request) override;

    // Registrations answered with a worker token.
    int registrations() const { return registrations_.load(); }

  private:
    std::atomic<int> registrations_{0};
};

}  // namespace corvane
