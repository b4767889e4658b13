#include "CorvaneApp/coordinator/CoordinatorRegistrationRecords.h"

namespace corvane {

Json WorkerRegistrationRequest::encode() const {
    Json out{{"worker_id", workerID}};
    json::putIfPresent(out, "display_name", displayName);
    json::putIfPresent(out, "chip", chip);
    json::putIfPresent(out, "memory_gb", memoryGB);
    out["available_handlers"] = availableHandlers;
    out["available_models"] = availableModels;
    json::putIfPresent(out, "build_identity", buildIdentity);
    return out;
}

WorkerRegistrationResponse WorkerRegistrationResponse::decode(const Json& json) {
    return {json::requireString(json, "worker_id"), json::requireString(json, "worker_token"),
            json::requireString(json, "message")};
}

WorkerRegistrationErrorResponse WorkerRegistrationErrorResponse::decode(const Json& json) {
    return {json::requireString(json, "error")};
}

}  // namespace corvane
