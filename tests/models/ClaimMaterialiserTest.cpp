#include "CorvaneApp/models/ClaimMaterialiser.h"

#include <gtest/gtest.h>

#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/models/TestFolder.h"
#include "tests/support/FakeClock.h"

namespace corvane {
namespace {

using testing::readFile;
using testing::writeFile;
using E = ClaimMaterialiserError;

class ClaimMaterialiserTest : public ::testing::Test {
  protected:
    ShardClaim claim(const std::string& path, std::optional<std::string> shardID = "s-3") {
        ShardClaim c;
        c.jobID = "job-1";
        c.shardID = std::move(shardID);
        c.audioURL = path.starts_with("/") ? folder_.url(path) : path;
        c.timeoutSeconds = 600;
        return c;
    }
    ClaimedJob materialise(const ShardClaim& claim, const std::filesystem::path& tempDir = {},
                           std::stop_token stop = {}) {
        return ClaimMaterialiser(session_, tempDir.empty() ? tempDir_ : tempDir, clock_.function())
            .materialise(claim, stop);
    }
    E failure(const ShardClaim& claim, const std::filesystem::path& tempDir = {},
              std::stop_token stop = {}) {
        try {
            ADD_FAILURE() << claim.audioURL << " materialised to "
                          << materialise(claim, tempDir, stop).inputPath;
        } catch (const E& error) {
            return error;
        }
        return E(E::NetworkError{"no error"});
    }
    std::vector<std::string> tempFiles() const {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(tempDir_, ignored))
            names.push_back(entry.path().filename());
        return names;
    }

    testing::TestFolder folder_{"models-claims"};
    std::filesystem::path tempDir_ = folder_.root / "temp";
    std::shared_ptr<const http::Session> session_ = std::make_shared<http::Session>();
    testing::FakeClock clock_;
};

TEST_F(ClaimMaterialiserTest, DownloadsTheAudioUnderANameOfTheClaimInTheTempFolder) {
    std::string audio(200000, '\0');
    for (size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<char>(i * 7);
    writeFile(folder_.served / "clip.flac", audio);
    ShardClaim c = claim("/audio/clip.flac");
    c.modelIdentifier = parakeetModelIdentifier();  // not the materialiser's business
    ClaimedJob job = materialise(c);
    EXPECT_EQ(job.inputPath, (tempDir_ / "varnix-shard-job-1-s-3.flac").string());
    EXPECT_EQ(readFile(job.inputPath), audio);
    EXPECT_EQ(tempFiles(),
              std::vector<std::string>{"varnix-shard-job-1-s-3.flac"});  // no leftovers
    EXPECT_EQ(job.modelID, whisperModelIdentifier());
    EXPECT_EQ(job.deadline, addSeconds(clock_.now(), 600));

    // A whole job, claimed again: one name, the new content.
    writeFile(folder_.served / "a.wav", "first, longer");
    materialise(claim("/audio/a.wav", std::nullopt));
    writeFile(folder_.served / "a.wav", "second");
    job = materialise(claim("/audio/a.wav", std::nullopt));
    EXPECT_EQ(job.inputPath, (tempDir_ / "varnix-shard-job-1-whole.wav").string());
    EXPECT_EQ(readFile(job.inputPath), "second");

    ShardClaim sneaky = claim("/audio/a.wav", "../../etc/x");
    sneaky.jobID = "../j";
    EXPECT_EQ(materialise(sneaky).inputPath,
              (tempDir_ / "varnix-shard-.._j-.._.._etc_x.wav").string());

    folder_.server().enqueueReply(
        "/audio/shard",
        dev::ScriptedReply{.status = 200, .body = "bytes", .contentType = "AUDIO/MPEG"});
    EXPECT_EQ(materialise(claim("/audio/shard")).inputPath,
              (tempDir_ / "varnix-shard-job-1-s-3.mp3").string());
}

TEST(PreferredExtension, DispositionThenTypeThenURL) {
    struct Row {
        std::vector<std::pair<std::string, std::string>> headers;
        std::string url;
        std::string expected;
    };
    const Row rows[] = {
        {{{"Content-Type", "audio/x-wav; charset=binary"}}, "https://h/a.mp3", "wav"},
        {{{"Content-Type", "audio/ogg"}}, "https://h/x/y.opus?sig=abc.def", "opus"},
        {{{"Content-Disposition", "attachment; filename*=UTF-8''r%C3%A9sum%C3%A9.Opus"}},
         "https://h/a.mp3",
         "Opus"},
        {{{"Content-Disposition", "inline; filename=plain.flac"}, {"Content-Type", "audio/mpeg"}},
         "https://h/a",
         "flac"},
        // A suggested name whose extension could name a path is passed over.
        {{{"Content-Disposition", "attachment; filename=\"x.a/../../b\""},
          {"Content-Type", "audio/mp4"}},
         "https://h/a",
         "m4a"},
        {{}, "https://h/dir.wav/", "audio"},
    };
    for (const auto& row : rows) {
        http::Headers headers;
        for (const auto& [name, value] : row.headers) headers.add(name, value);
        EXPECT_EQ(preferredExtension(headers, row.url), row.expected) << row.url;
    }
}

TEST_F(ClaimMaterialiserTest, FailuresOfEachStageLeaveNoFile) {
    folder_.server().enqueueReply("/audio/broken.wav",
                                  dev::ScriptedReply{.status = 500, .body = "{}"});
    for (auto [path, status] :
         {std::pair{"/audio/missing.wav", 404}, std::pair{"/audio/broken.wav", 500}}) {
        auto error = failure(claim(path));
        EXPECT_TRUE(std::holds_alternative<E::DownloadFailed>(error.value())) << error.what();
        EXPECT_EQ(error.description(),
                  "shard audio download returned HTTP " + std::to_string(status));
    }

    writeFile(folder_.served / "long.wav", std::string(300000, 'x'));
    folder_.server().setAudioFaults(dev::AudioFaults{.dropAfterBytes = 100000});
    auto dropped = failure(claim("/audio/long.wav"));
    EXPECT_TRUE(std::holds_alternative<E::NetworkError>(dropped.value()));
    EXPECT_TRUE(dropped.description().starts_with(
        "shard audio network error: The network connection was lost."))
        << dropped.description();
    folder_.server().setAudioFaults({});
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(failure(claim("/audio/long.wav"), {}, stop.get_token()).description(),
              "shard audio network error: cancelled");
    EXPECT_EQ(tempFiles(), std::vector<std::string>{});

    writeFile(folder_.served / "a.wav", "audio");
    writeFile(folder_.root / "blocker", "");  // a file where the temp folder should be
    auto blocked = failure(claim("/audio/a.wav"), folder_.root / "blocker");
    EXPECT_TRUE(std::holds_alternative<E::FileWriteFailed>(blocked.value()));
    EXPECT_TRUE(blocked.description().starts_with(
        "shard audio write failed at " + (folder_.root / "blocker").string() + "/varnix-shard-"))
        << blocked.description();

    auto untouched = folder_.root / "never-made";
    for (std::string url : {"", "not a url", "http://exa mple.com/a.wav", "http://"}) {
        auto error = failure(claim(url), untouched);
        EXPECT_TRUE(std::holds_alternative<E::InvalidAudioURL>(error.value())) << url;
        EXPECT_EQ(error.description(), "invalid audio_url: " + url);
    }
    EXPECT_FALSE(std::filesystem::exists(untouched));
}

}  // namespace
}  // namespace corvane
