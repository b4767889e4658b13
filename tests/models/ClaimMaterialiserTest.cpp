#include "CorvaneApp/models/ClaimMaterialiser.h"

#include <gtest/gtest.h>

#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/models/TestFolder.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

using testing::readFile;
using testing::writeFile;

std::vector<std::string> namesIn(const std::filesystem::path& directory) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

class ClaimMaterialiserTest : public ::testing::Test {
protected:
    ClaimMaterialiserTest() : folder_("models-claims"), root_(folder_.root()), audioDir_(folder_.served()), tempDir_(root_ / "temp") {}

    ClaimMaterialiser materialiser(std::filesystem::path tempDir = {}) {
        return ClaimMaterialiser(session_, tempDir.empty() ? tempDir_ : tempDir, clock_.function());
    }
    ShardClaim claim(const std::string& path, std::optional<std::string> shardID = "s-3") const {
        ShardClaim c;
        c.jobID = "job-1";
        c.shardID = std::move(shardID);
        c.audioURL = folder_.url(path);
        c.timeoutSeconds = 600;
        return c;
    }
    ClaimMaterialiserError failure(const ShardClaim& claim, std::filesystem::path tempDir = {},
                                   std::stop_token stop = {}) {
        try {
            auto job = materialiser(tempDir).materialise(claim, stop);
            ADD_FAILURE() << claim.audioURL << " materialised to " << job.inputPath;
        } catch (const ClaimMaterialiserError& error) {
            return error;
        }
        return ClaimMaterialiserError(ClaimMaterialiserError::NetworkError{"unreached"});
    }
    size_t audioRequests() const {
        auto all = folder_.server().requests();
        return static_cast<size_t>(std::count_if(all.begin(), all.end(), [](const auto& r) { return r.path.starts_with("/audio/"); }));
    }

    testing::TestFolder folder_;
    std::filesystem::path root_, audioDir_, tempDir_;
    std::shared_ptr<const http::Session> session_ = std::make_shared<http::Session>();
    testing::FakeClock clock_;
};

TEST_F(ClaimMaterialiserTest, DownloadsTheAudioAndBuildsTheJob) {
    testing::LogCapture capture;
    std::string audio(200000, '\0');
    for (size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<char>(i * 7);
    writeFile(audioDir_ / "clip.flac", audio);
    ShardClaim c = claim("/audio/clip.flac");
    c.modelIdentifier = parakeetModelIdentifier();  // not the materialiser's business

    ClaimedJob job = materialiser().materialise(c, {});

    auto expectedPath = tempDir_ / "varnix-shard-job-1-s-3.flac";
    EXPECT_EQ(job.inputPath, expectedPath.string());
    EXPECT_EQ(readFile(expectedPath), audio);
    EXPECT_EQ(namesIn(tempDir_), std::vector<std::string>{"varnix-shard-job-1-s-3.flac"});  // no leftovers
    EXPECT_EQ(job.modelID, whisperModelIdentifier());
    EXPECT_EQ(job.claimedAt, clock_.now());
    EXPECT_EQ(job.deadline, addSeconds(clock_.now(), 600));
    EXPECT_TRUE(capture.contains("ClaimMaterialiser info: Downloading shard audio job-1 -> " + expectedPath.string()));
}

TEST_F(ClaimMaterialiserTest, WholeJobsAndReclaimsReuseOneNameAndIdsStayInTheFolder) {
    writeFile(audioDir_ / "a.wav", "first");
    auto job = materialiser().materialise(claim("/audio/a.wav", std::nullopt), {});
    EXPECT_EQ(job.inputPath, (tempDir_ / "varnix-shard-job-1-whole.wav").string());

    writeFile(audioDir_ / "a.wav", "second, longer");
    job = materialiser().materialise(claim("/audio/a.wav", std::nullopt), {});
    EXPECT_EQ(readFile(job.inputPath), "second, longer");

    ShardClaim sneaky = claim("/audio/a.wav", "../../etc/x");
    sneaky.jobID = "../j";
    job = materialiser().materialise(sneaky, {});
    EXPECT_EQ(std::filesystem::path(job.inputPath).parent_path(), tempDir_);
    EXPECT_EQ(std::filesystem::path(job.inputPath).filename(), "varnix-shard-.._j-.._.._etc_x.wav");
}

TEST_F(ClaimMaterialiserTest, TheResponseNamesTheExtension) {
    folder_.server().enqueueReply("/audio/shard", dev::ScriptedReply{.status = 200, .body = "bytes", .contentType = "AUDIO/MPEG"});
    auto job = materialiser().materialise(claim("/audio/shard"), {});
    EXPECT_EQ(job.inputPath, (tempDir_ / "varnix-shard-job-1-s-3.mp3").string());
    EXPECT_EQ(readFile(job.inputPath), "bytes");
}

TEST(PreferredExtension, OrderOfTheSources) {
    struct Row {
        std::vector<std::pair<std::string, std::string>> headers;
        std::string url;
        std::string expected;
    };
    std::vector<Row> rows{
        {{{"Content-Type", "audio/x-wav; charset=binary"}}, "https://h/a.bin", "wav"},
        {{{"Content-Type", "audio/mp4"}}, "https://h/a", "m4a"},
        {{{"Content-Type", "audio/wav"}}, "https://h/a.mp3", "wav"},
        {{{"Content-Type", "audio/ogg"}}, "https://h/x/y.opus?sig=abc.def", "opus"},
        {{{"Content-Disposition", "attachment; filename*=UTF-8''r%C3%A9sum%C3%A9.Opus"}}, "https://h/a.mp3", "Opus"},
        {{{"Content-Disposition", "inline; filename=plain.flac"}, {"Content-Type", "audio/mpeg"}}, "https://h/a", "flac"},
        // A suggested name whose extension could name a path is passed over.
        {{{"Content-Disposition", "attachment; filename=\"x.a/../../b\""}, {"Content-Type", "audio/mpeg"}}, "https://h/a", "mp3"},
        {{{"Content-Disposition", "attachment"}}, "https://h/.hidden", "audio"},
        {{}, "https://h/dir.wav/", "audio"},
        {{}, "https://h/", "audio"},
    };
    for (const auto& row : rows) {
        http::Headers headers;
        for (const auto& [name, value] : row.headers) headers.add(name, value);
        EXPECT_EQ(preferredExtension(headers, row.url), row.expected) << row.url;
    }
}

TEST_F(ClaimMaterialiserTest, HttpErrorsLeaveNoFile) {
    folder_.server().enqueueReply("/audio/broken.wav", dev::ScriptedReply{.status = 500, .body = "{\"detail\":\"boom\"}"});
    folder_.server().enqueueReply("/audio/moved.wav", dev::ScriptedReply{.status = 301, .body = ""});
    struct Row {
        std::string path;
        std::int64_t status;
    };
    for (const auto& row : std::vector<Row>{{"/audio/missing.wav", 404}, {"/audio/broken.wav", 500}, {"/audio/moved.wav", 301}}) {
        auto error = failure(claim(row.path));
        ASSERT_TRUE(std::holds_alternative<ClaimMaterialiserError::DownloadFailed>(error.value())) << error.what();
        EXPECT_EQ(error.description(), "shard audio download returned HTTP " + std::to_string(row.status));
        EXPECT_EQ(namesIn(tempDir_), std::vector<std::string>{}) << row.path;
    }
}

TEST_F(ClaimMaterialiserTest, BrokenTransfersAreNetworkErrorsAndLeaveNoFile) {
    writeFile(audioDir_ / "long.wav", std::string(300000, 'x'));
    folder_.server().setAudioFaults(dev::AudioFaults{.dropAfterBytes = 100000});
    auto dropped = failure(claim("/audio/long.wav"));
    EXPECT_TRUE(std::holds_alternative<ClaimMaterialiserError::NetworkError>(dropped.value()));
    EXPECT_TRUE(dropped.description().starts_with("shard audio network error: The network connection was lost."))
        << dropped.description();
    EXPECT_EQ(namesIn(tempDir_), std::vector<std::string>{});
    folder_.server().setAudioFaults({});

    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(failure(claim("/audio/long.wav"), {}, stop.get_token()).description(), "shard audio network error: cancelled");

    ShardClaim refused = claim("/audio/long.wav");
    refused.audioURL = "http://127.0.0.1:1/audio/long.wav";
    EXPECT_TRUE(failure(refused).description().starts_with("shard audio network error: Could not connect"));

    ShardClaim ftp = claim("/audio/long.wav");
    ftp.audioURL = "ftp://127.0.0.1/long.wav";  // parses, but is no HTTP
    EXPECT_TRUE(std::holds_alternative<ClaimMaterialiserError::NetworkError>(failure(ftp).value()));
    EXPECT_EQ(namesIn(tempDir_), std::vector<std::string>{});
}

TEST_F(ClaimMaterialiserTest, InvalidURLsTouchNeitherNetworkNorDisk) {
    auto untouched = root_ / "never-made";
    for (std::string url : {"", "not a url", "http://exa mple.com/a.wav", "::::", "/audio/relative.wav", "http://"}) {
        ShardClaim c = claim("/x");
        c.audioURL = url;
        auto error = failure(c, untouched);
        ASSERT_TRUE(std::holds_alternative<ClaimMaterialiserError::InvalidAudioURL>(error.value())) << url;
        EXPECT_EQ(error.description(), "invalid audio_url: " + url);
    }
    EXPECT_EQ(audioRequests(), 0u);
    EXPECT_FALSE(std::filesystem::exists(untouched));
}

TEST_F(ClaimMaterialiserTest, WriteFailuresNameThePath) {
    writeFile(audioDir_ / "a.wav", "audio");
    // The temp folder cannot exist: a file stands where it would be.
    writeFile(root_ / "blocker", "");
    auto blocked = failure(claim("/audio/a.wav"), root_ / "blocker");
    ASSERT_TRUE(std::holds_alternative<ClaimMaterialiserError::FileWriteFailed>(blocked.value()));
    EXPECT_TRUE(blocked.description().starts_with("shard audio write failed at " + (root_ / "blocker").string() + "/varnix-shard-"))
        << blocked.description();
    EXPECT_TRUE(blocked.description().ends_with(": Not a directory")) << blocked.description();

    // The destination is a folder with content: it can be neither removed nor replaced.
    auto destination = tempDir_ / "varnix-shard-job-1-s-3.wav";
    std::filesystem::create_directories(destination / "inside");
    auto occupied = failure(claim("/audio/a.wav"));
    ASSERT_TRUE(std::holds_alternative<ClaimMaterialiserError::FileWriteFailed>(occupied.value()));
    EXPECT_TRUE(occupied.description().starts_with("shard audio write failed at " + destination.string() + ": "))
        << occupied.description();
    EXPECT_EQ(namesIn(tempDir_), std::vector<std::string>{"varnix-shard-job-1-s-3.wav"});  // the transfer's file is gone
}

}  // namespace
}  // namespace corvane
