#include "CorvaneApp/demo/DemoRegistrationClient.h"

#include "CorvaneApp/platform/Text.h"

namespace corvane {

WorkerRegistrationResponse DemoRegistrationClient::registerWorker(
    std::string_view coordinatorURL, const std::optional<std::string>& enrollmentToken,
    const WorkerRegistrationRequest& request) {
    if (!CoordinatorRegistrationClient::registrationURL(trimWhitespaceAndNewlines(coordinatorURL)))
        throw CoordinatorRegistrationError::invalidCoordinatorURL();
    const std::string code =
        enrollmentToken ? trimWhitespaceAndNewlines(*enrollmentToken) : std::string();
    if (!code.empty() && code != acceptedInvitationCode)
        throw CoordinatorRegistrationError::invalidInvitation();
    ++registrations_;
    return WorkerRegistrationResponse{request.workerID, std::string(workerToken),
                                      "Registered with the sample coordinator"};
}

}  // namespace corvane
