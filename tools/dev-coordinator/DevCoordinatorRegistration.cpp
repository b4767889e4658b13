// The registration endpoint of the local coordinator: enrols a machine and hands it the token
// that the worker endpoints accept.

#include <httplib.h>

#include "CorvaneApp/platform/Log.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::dev {
namespace {

void refuse(httplib::Response& response, int status, const std::string& error) {
    response.status = status;
    response.set_content(nlohmann::json{{"error", error}}.dump(), "application/json");
}

}  // namespace

std::vector<RegistrationRecord> DevCoordinator::registrations() const {
    std::lock_guard lock(mutex_);
    return registrations_;
}

void DevCoordinator::handleRegister(const httplib::Request& request, httplib::Response& response,
                                    const std::string&) {
    const nlohmann::json body =
        nlohmann::json::parse(request.body, nullptr, /*allow_exceptions=*/false);
    if (!body.is_object() || !body.contains("worker_id") || !body["worker_id"].is_string() ||
        body["worker_id"].get<std::string>().empty()) {
        refuse(response, 422, "The registration needs a JSON object with a \"worker_id\" string");
        return;
    }
    const std::string workerID = body["worker_id"].get<std::string>();
    const bool sentToken = request.has_header("X-Enrollment-Token");
    if (enrollmentToken_ &&
        (!sentToken || request.get_header_value("X-Enrollment-Token") != *enrollmentToken_)) {
        refuse(response, 401,
               sentToken ? "Invalid invitation code" : "An invitation code is required");
        return;
    }
    {
        std::lock_guard lock(mutex_);
        for (const RegistrationRecord& known : registrations_) {
            if (known.workerID == workerID) {
                refuse(response, 403,
                       "Worker already registered; rotate the existing token instead");
                return;
            }
        }
        registrations_.push_back({workerID, sentToken, body});
        noteChange();
    }
    log::get("DevCoordinator")->info("registered worker {}", workerID);
    response.status = 200;
    response.set_content(nlohmann::json{{"worker_id", workerID},
                                        {"worker_token", token_},
                                        {"message", "Registered with the local coordinator"}}
                             .dump(),
                         "application/json");
}

}  // namespace corvane::dev
