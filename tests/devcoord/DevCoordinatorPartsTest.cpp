// The pure parts of the local coordinator: Range resolution and the jobs file.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tools/dev-coordinator/ByteRange.h"
#include "tools/dev-coordinator/ShardSpecList.h"

namespace corvane::dev {
namespace {

TEST(ByteRangeTest, ResolvesHeadersAgainstTheBodySize) {
    using K = RangeRequest::Kind;
    struct Row {
        std::optional<std::string> header;
        std::uint64_t size;
        RangeRequest expected;
    };
    const std::vector<Row> rows = {
        {{}, 10, {}},
        {"bytes=0-0", 10, {K::part, {0, 0}}},
        {"BYTES= 3-5 ", 10, {K::part, {3, 5}}},
        {"bytes=8-", 10, {K::part, {8, 9}}},
        {"bytes=-4", 10, {K::part, {6, 9}}},
        {"bytes=-40", 10, {K::part, {0, 9}}},
        {"bytes=5-99999999999999999999", 10, {}},  // past 64 bits: malformed, ignored
        {"bytes=10-", 10, {K::unsatisfiable, {}}},
        {"bytes=-0", 10, {K::unsatisfiable, {}}},
        {"bytes=0-", 0, {K::unsatisfiable, {}}},
        {"bytes=5-3", 10, {}},
        {"bytes=a-3", 10, {}},
        {"bytes=+1-3", 10, {}},
        {"items=0-3", 10, {}},
        {"bytes=0-1,4-5", 10, {}},
        {"bytes=", 10, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(resolveRange(row.header, row.size), row.expected) << row.header.value_or("none");
    }
    EXPECT_EQ(contentRangeValue({2, 4}, 10), "bytes 2-4/10");
    EXPECT_EQ(unsatisfiedRangeValue(10), "bytes */10");
}

TEST(ShardSpecListTest, DecodesShardsAndNamesTheFaultyEntry) {
    auto specs = decodeShardSpecs(parseJson(R"([
        {"job_id": "j1", "shard_id": "s1", "audio_file": "a.wav", "start_seconds": 1, "end_seconds": 2.5,
         "model_identifier": {"backend": "b", "model": "m", "version": "1"}, "job_type": "other"},
        {"job_id": "j2", "audio_file": "b.wav"}])"));
    ASSERT_EQ(specs.size(), 2u);
    EXPECT_EQ(specs[0],
              (ShardSpec{"j1", "s1", "a.wav", 1.0, 2.5, ModelIdentifier{"b", "m", "1"}, "other"}));
    EXPECT_EQ(specs[1], (ShardSpec{"j2", {}, "b.wav"}));

    struct Row {
        std::string text, fragment;
    };
    const std::vector<Row> rows = {
        {R"({"job_id": "j"})", "list"},
        {R"([{"job_id": "j"}])", "shard 0: The data couldn't be read: key \"audio_file\""},
        {R"([{"job_id": "j", "audio_file": "a"}, {"job_id": 3, "audio_file": "a"}])", "shard 1:"},
        {R"([{"job_id": "j", "audio_file": "a", "start_seconds": "1"}])", "start_seconds"},
        {R"([{"job_id": "j", "audio_file": "a", "model_identifier": {"backend": "b"}}])",
         "model_identifier"},
        {R"([{"job_id": "j", "audio_file": "a", "shard_id": null}, 7])",
         "shard 1: The data couldn't be read: expected"},
    };
    for (const Row& row : rows) {
        try {
            decodeShardSpecs(parseJson(row.text));
            ADD_FAILURE() << "accepted " << row.text;
        } catch (const DecodingError& error) {
            EXPECT_NE(std::string(error.what()).find(row.fragment), std::string::npos)
                << error.what();
        }
    }
}

TEST(ShardSpecListTest, LoadRefusesMissingAndTruncatedFiles) {
    const auto file = std::filesystem::temp_directory_path() /
                      ("devcoord-jobs-" + std::to_string(::getpid()) + ".json");
    EXPECT_THROW(loadShardSpecs(file), DecodingError);
    std::ofstream(file) << R"([{"job_id": "j", "audio_f)";
    try {
        loadShardSpecs(file);
        ADD_FAILURE() << "a truncated file was accepted";
    } catch (const DecodingError& error) {
        EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos) << error.what();
    }
    std::ofstream(file) << R"([{"job_id": "j", "audio_file": "a.wav"}])";
    EXPECT_EQ(loadShardSpecs(file).size(), 1u);
    std::filesystem::remove(file);
}

}  // namespace
}  // namespace corvane::dev
