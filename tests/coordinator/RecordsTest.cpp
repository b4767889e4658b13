#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/coordinator/SubmitRecords.h"

namespace corvane {
namespace {

ShardClaim decode(const std::string& text) {
    return ShardClaim::decode(parseJson(text));
}

TEST(ShardClaimDecoding, LenientFieldsFallBackAndStrictFieldsFail) {
    auto minimal = decode(R"({"job_id":"j","job_type":"t","audio_url":"http://a/b.wav"})");
    EXPECT_TRUE(minimal.inputConfig.empty());
    EXPECT_EQ(minimal.timeoutSeconds, 3600);
    EXPECT_EQ(minimal.key(), "j");
    EXPECT_EQ(minimal.modelOrDefault(), defaultModelIdentifier());

    auto lenient = decode(R"({"job_id":"j","job_type":"t","audio_url":"u","timeout_seconds":"soon",
        "input_config":[1,2],"model_identifier":5,"shard_id":"s","start_seconds":1,"end_seconds":2.5})");
    EXPECT_EQ(lenient.timeoutSeconds, 3600) << "a malformed time-out is no failure";
    EXPECT_TRUE(lenient.inputConfig.empty());
    EXPECT_EQ(lenient.modelIdentifier, std::nullopt)
        << "a malformed model block runs on the default";
    EXPECT_EQ(lenient.key(), "s");
    EXPECT_EQ(lenient.endSeconds, 2.5);

    auto nulls = decode(
        R"({"job_id":"j","job_type":"t","audio_url":"u","shard_id":null,"start_seconds":null,"timeout_seconds":120.0})");
    EXPECT_EQ(nulls.shardID, std::nullopt) << "null where an optional is expected counts as absent";
    EXPECT_EQ(nulls.timeoutSeconds, 120);

    for (const char* bad :
         {R"({"job_type":"t","audio_url":"u"})", R"({"job_id":7,"job_type":"t","audio_url":"u"})",
          R"({"job_id":"j","job_type":"t","audio_url":"u","start_seconds":"1"})",
          R"({"job_id":"j","job_type":"t","audio_url":"u","shard_id":3})", R"([])", R"("claim")"}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(decode(bad), DecodingError);
    }
    for (const char* broken :
         {"", "{", R"({"job_id":"j",)", "<html>busy</html>", "1e400", R"({"n":[-2e308]})"}) {
        EXPECT_THROW(parseJson(broken), DecodingError) << broken;
    }
}

TEST(ShardClaimDecoding, InputConfigKeepsEveryJSONValueAndRoundTrips) {
    auto claim = decode(R"({"job_id":"j","job_type":"t","audio_url":"u",
        "input_config":{"n":1,"b":true,"s":"x","l":[1,"a",null],"o":{"k":2.5},"z":null},
        "model_identifier":{"backend":"b","model":"m","version":"v"}})");
    const auto& config = claim.inputConfig;
    EXPECT_EQ(config.at("n").value, (AnyJSONValue{1.0}).value) << "every number is a double";
    EXPECT_EQ(config.at("b").value, (AnyJSONValue{true}).value) << "true is a bool, not a number";
    EXPECT_EQ(config.at("n").encode().dump(), "1.0");
    EXPECT_EQ(config.at("l").encode().dump(), R"([1.0,"a",null])");
    EXPECT_EQ(claim.modelIdentifier, (ModelIdentifier{"b", "m", "v"}));
    EXPECT_EQ(ShardClaim::decode(claim.encode()), claim);
}

TEST(SubmitRecords, AbsentOptionalsAreLeftOutAndTheFailReasonIsOneString) {
    EXPECT_EQ(SubmitPerformanceBody{}.encode().dump(), R"({"sample_count":0})");
    SubmitResultBody body{"hi there", "en", "m", "b", std::nullopt, 2, std::nullopt};
    EXPECT_EQ(
        body.encode().dump(),
        R"({"backend":"b","language":"en","model":"m","transcript":"hi there","word_count":2})");
    SubmitPerformanceBody perf;
    perf.cacheHit = false;
    perf.pollRttMs = 12.5;
    EXPECT_EQ(perf.encode().dump(), R"({"cache_hit":false,"poll_rtt_ms":12.5,"sample_count":0})");
    EXPECT_EQ((FailReason{"ingestion_error", "M; x=y", true}).wireString(),
              "code=ingestion_error; retryable=true; message=M; x=y");
}

TEST(StrategySuggestion, ParsesOnlyWellFormedHeadersAndIsAbsentWithoutAny) {
    auto parse = [](std::vector<std::pair<std::string, std::string>> fields) {
        http::Headers headers;
        for (auto& [k, v] : fields) headers.add(k, v);
        return CoordinatorStrategySuggestion::parse(headers);
    };
    EXPECT_EQ(parse({{"x-strategy-version", "7"}}),
              (CoordinatorStrategySuggestion{std::nullopt, std::nullopt, std::nullopt, 7}));
    EXPECT_EQ(parse({{"X-Suggested-Footprint-GB", "lots"}}), std::nullopt);
    EXPECT_EQ(parse({}), std::nullopt);
    auto full = parse({{"X-Suggested-Thread-Limit", "+4"},
                       {"X-Suggested-Footprint-GB", "3.5"},
                       {"X-Suggested-Per-Shard-WS-GB", "1e0"},
                       {"X-Strategy-Version", "2 "}});
    ASSERT_TRUE(full.has_value());
    EXPECT_EQ(full->threadLimit, 4);
    EXPECT_EQ(full->modelFootprintGB, 3.5);
    EXPECT_EQ(full->perShardWorkingSetGB, 1.0);
    EXPECT_EQ(full->strategyVersion, std::nullopt) << "trailing space is malformed";

    EXPECT_EQ(parseDecimalInteger("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(parseDecimalInteger("9223372036854775808"), std::nullopt);
    for (const char* bad : {"", "+", "1.0", "0x10", " 1", "Wed, 21 Oct 2015 07:28:00 GMT"}) {
        EXPECT_EQ(parseDecimalInteger(bad), std::nullopt) << bad;
    }
}

TEST(WorkerCapabilities, EncodesItsKeyTableAndOmitsAbsentFields) {
    WorkerCapabilities caps;
    caps.capabilities = {{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", true, std::nullopt}};
    caps.chipTier = "t2";
    caps.ramGB = 16;
    caps.computeThreadLimit = 4;
    caps.activeModel = ModelIdentifier{"b", "m", "1"};
    EXPECT_EQ(
        caps.encode().dump(),
        R"({"active_model":{"backend":"b","model":"m","version":"1"},"capabilities":[{"backend":"whisper-cpp-swift","cached":true,"model":"whisper-large-v3-turbo-q4"}],"chip_tier":"t2","compute_thread_limit":4,"ram_gb":16})");
}

}  // namespace
}  // namespace corvane
