// Feeds one JSON text, as the coordinator answers an account call, to the decoder of every
// account record (and of registration's answer), and to the two readers of an error body.
//
// Holds: a record either decodes or fails with DecodingError, nothing else; a record with a wire
// encoder survives it; an error body never throws.

#include <cstdint>
#include <string>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationRecords.h"
#include "fuzz/FuzzCheck.h"

namespace corvane {
namespace {

template <typename Record>
std::optional<Record> decoded(const Json& json, std::string_view name) {
    return fuzz::attempt<DecodingError>(std::string(name) + " throws only DecodingError",
                                        [&] { return Record::decode(json); });
}

// Records the coordinator sends and that we also write in the same form (local coordinator,
// caches): what we write must read back as the same record.
template <typename Record>
void requireRoundTrip(const Json& json, std::string_view name) {
    auto record = decoded<Record>(json, name);
    if (!record) return;
    auto wire = record->encode();
    auto again = decoded<Record>(wire, name);
    fuzz::require(again && *again == *record, std::string(name) + " survives its wire form",
                  wire.dump());
}

template <typename Record>
void decodeList(const Json& json, std::string_view name) {
    if (!json.is_array()) return;
    for (const auto& item : json) (void)decoded<Record>(item, name);
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const auto text = fuzz::textOf(data, size);
    auto payload = fuzz::attempt<DecodingError>(
        "an error body never throws", [&] { return CoordinatorAPIErrorPayload::decode(text); });
    fuzz::require(payload.has_value(), "an error body never throws");
    auto refusal = fuzz::attempt<DecodingError>(
        "an error body never throws", [&] { return CoordinatorAPIErrorBody::decode(text); });
    fuzz::require(refusal.has_value(), "an error body never throws");

    auto json = fuzz::attempt<DecodingError>("parseJson throws only DecodingError",
                                             [&] { return parseJson(text); });
    if (!json) return 0;

    requireRoundTrip<WorkerDashboard>(*json, "WorkerDashboard");
    requireRoundTrip<EarningsSummary>(*json, "EarningsSummary");
    requireRoundTrip<WorkerDashboard::ActivityItem>(*json, "ActivityItem");
    requireRoundTrip<WorkerDashboard::PayoutDisbursement>(*json, "PayoutDisbursement");
    (void)decoded<EarningsByHour>(*json, "EarningsByHour");
    decodeList<DailyEarning>(*json, "DailyEarning");
    decodeList<JobRecord>(*json, "JobRecord");
    (void)decoded<PayoutPreferences>(*json, "PayoutPreferences");
    (void)decoded<ActivityHistogramResponse>(*json, "ActivityHistogramResponse");
    (void)decoded<AppVersion>(*json, "AppVersion");
    (void)decoded<WorkerRegistrationResponse>(*json, "WorkerRegistrationResponse");
    (void)decoded<WorkerRegistrationErrorResponse>(*json, "WorkerRegistrationErrorResponse");
    (void)decoded<WorkerPayoutMethodsResponse>(*json, "WorkerPayoutMethodsResponse");
    (void)decoded<WorkerPayoutMethod>(*json, "WorkerPayoutMethod");
    return 0;
}
