// The runtime-state record, its timestamps, the polling reader, and the percent read afresh.

#include <gtest/gtest.h>

#include <chrono>

#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"
#include "CorvaneApp/eligibility/RuntimeStateReader.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/WhisperFixtures.h"

namespace corvane::testing {
namespace {

const Date kNov16 = dateFromUnixSeconds(1'794'862'853);  // 2026-11-16T21:00:53Z

TEST(RuntimeStateRecord, DecodesNestedRecordsIgnoresUnknownKeysRoundTripsAndRefusesAnyWrongType) {
    const auto state = RuntimeState::parse(R"({
        "worker_id": "w-1", "unknown_key": [1, 2],
        "thermal": {"thermal_level": "nominal", "effective_resource_percent": 62.5},
        "resource_policy": {"preset": "balanced", "max_concurrent_jobs": 2.0},
        "eligibility": {"reason": "idle", "is_claimable": true, "claimed_at": "t"},
        "current_shard_expected_seconds": 12.5, "updated_at": null})");
    EXPECT_EQ(state.thermal->effectiveResourcePercent, 62.5);
    EXPECT_EQ(state.resourcePolicy->maxConcurrentJobs, 2);  // a whole double is an integer
    EXPECT_EQ(state.eligibility->claimedAt, "t");
    EXPECT_EQ(RuntimeState::decode(state.encode()), state);
    EXPECT_EQ(RuntimeState::parse(R"({"thermal": null})").thermal, std::nullopt);
    for (const char* text : {R"({"eligibility": {"is_claimable": "yes"}})",
                             R"({"thermal": {"effective_resource_percent": "62"}})",
                             R"({"resource_policy": {"max_concurrent_jobs": 1.5}})", R"([])",
                             R"({"worker_id": "w")"}) {
        EXPECT_THROW(RuntimeState::parse(text), DecodingError) << text;
    }
}

TEST(RuntimeStateDates, InternetDateTimesWithAndWithoutFractions) {
    EXPECT_EQ(RuntimeStateDateParser::parse("2026-11-16T21:00:53Z"), kNov16);
    EXPECT_EQ(RuntimeStateDateParser::parse("2026-11-16T21:00:53.123Z"), addSeconds(kNov16, 0.123));
    EXPECT_EQ(RuntimeStateDateParser::parse("2026-11-16T22:30:53+01:30"), kNov16);
    EXPECT_EQ(RuntimeStateDateParser::parse("2028-02-29T00:00:00Z"),
              dateFromUnixSeconds(1'835'395'200));
    EXPECT_EQ(RuntimeStateDateParser::parse("1970-01-01T00:00:00Z"), Date{});
    EXPECT_EQ(RuntimeStateDateParser::parse("1900-01-01T00:00:00Z"),
              dateFromUnixSeconds(-2'208'988'800))
        << "old but within reach";
    const char* refused[] = {
        "2026-11-16T21:00:53", "2026-02-30T00:00:00Z", "2026-11-16T24:00:00Z",
        "2026-11-16T21:00:53.Z", "2026-11-16T21:00:53Zjunk", "2026-11-16T21:00:53+0100",
        // beyond what a Date holds: no overflow into a wrong moment
        "1013-11-16T21:00:53Z", "9999-12-31T23:59:59.999Z", "0000-01-01T00:00:00+23:59"};
    for (const char* text : refused)
        EXPECT_EQ(RuntimeStateDateParser::parse(text), std::nullopt) << text;
}

class RuntimeStateReaderTest : public ::testing::Test {
  protected:
    void write(const std::string& text, Date modified) {
        folder.write(".varnix-compute/worker-runtime-state.json", text);
        std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(modified));
    }

    ScratchFolder folder;
    std::filesystem::path path = runtimeStatePath(folder.path());
    FakeClock clock;
    ManualExecutor executor{&clock};
    RuntimeStateReader reader{executor, path, clock.function()};
    int changes = 0;
    Subscription subscription = reader.observe([this] { ++changes; });
};

TEST_F(RuntimeStateReaderTest, FreshnessDamagedFilesKeepingTheLastGoodRecordAndDeletion) {
    reader.startPolling(2.0);  // no file yet: the empty record, no date
    EXPECT_EQ(reader.lastReadAt(), std::nullopt);
    // The writer's clock counts, even in the past; else the modification time.
    const Date modified = dateFromUnixSeconds(1'790'000'000);
    write(R"({"updated_at": "yesterday"})", modified);
    executor.advance(2.0);
    EXPECT_EQ(reader.state().updatedAt, "yesterday");
    EXPECT_EQ(reader.lastReadAt(), modified);
    write(R"({"worker_id": "w-1", "updated_at": "2026-11-16T21:00:53Z"})", modified);
    executor.advance(2.0);
    const RuntimeState good = reader.state();
    ASSERT_EQ(good.workerID, "w-1");
    EXPECT_EQ(reader.lastReadAt(), kNov16);

    for (const char* text : {R"({"eligibility": {"is_claimable": "yes"}, "worker_id": "w-2"})",
                             R"({"worker_id": "w-2", "upd)", ""}) {
        write(text, clock.now());
        executor.advance(2.0);
        EXPECT_EQ(reader.state(), good) << text;
        EXPECT_EQ(reader.lastReadAt(), kNov16) << text;
    }
    EXPECT_EQ(changes, 2);

    std::filesystem::remove(path);  // gone: the empty record at the next poll
    executor.advance(2.0);
    EXPECT_EQ(reader.state(), RuntimeState{});
    EXPECT_EQ(reader.lastReadAt(), std::nullopt);
    EXPECT_EQ(changes, 3);
}

TEST_F(RuntimeStateReaderTest, RestartingReplacesTheTimerAndDestructionStopsIt) {
    {
        RuntimeStateReader other(executor, path, clock.function());
        other.startPolling(2.0);
        other.startPolling(5.0);
        EXPECT_EQ(executor.timerCount(), 1u);
    }
    executor.advance(10);  // neither of its timers may fire
    EXPECT_EQ(executor.timerCount(), 0u);
}

TEST_F(RuntimeStateReaderTest, EffectivePercentIsReadAfreshAndRounded) {
    EXPECT_EQ(runtimeEffectivePercent(path), std::nullopt);
    const std::pair<const char*, std::optional<std::int64_t>> rows[] = {
        {R"({"thermal": {"effective_resource_percent": -2.5}})", -3},
        {R"({"thermal": {"effective_resource_percent": 1e300}})", std::nullopt},
        {R"({"thermal": {"effective_resource_percent": 40}, "worker_id": 1})", std::nullopt},
    };
    for (const auto& [text, percent] : rows) {
        write(text, clock.now());
        EXPECT_EQ(runtimeEffectivePercent(path), percent) << text;
    }
}

}  // namespace
}  // namespace corvane::testing
