// The repository downloader against a real HTTP hub on 127.0.0.1: listing walk, file choice,
// tokens, registry overrides, rate limits, broken listings and transfers, and retries.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CorvaneApp/platform/Http.h"
#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/HuggingFaceDownloadError.h"
#include "tests/speech/HubServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSleeper.h"

namespace speech {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Property;
using ::testing::StrEq;
using ::testing::Throws;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;

const Repo v2(Repo::Id::parakeetV2);

class DownloadUtilsTest : public testing::HubTest {
  protected:
    DownloadUtilsTest() {
        ScriptedRuntime::installModelSet(remote, AsrModelVersion::v2, {}, 1024, {{1, "a"}});
        testing::writeText(remote / "Encoder.mlmodelc" / "weights" / "weight.bin",
                           std::string(5000, 'w'));
        testing::writeText(remote / "Encoder.mlmodelc" / "empty.txt", "");
        testing::writeText(remote / "config.json", "{}");
        testing::writeText(remote / "README.md", "not needed");
        testing::writeText(remote / "Other.mlmodelc" / "coremldata.bin", "not needed");
    }

    std::vector<std::string> localFiles() {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(local, ec)) {
            if (entry.is_regular_file())
                files.push_back(fs::relative(entry.path(), local).generic_string());
        }
        return files;
    }

    fs::path remote = dir.path() / "hub" / "parakeet-models" / "parakeet-tdt-0.6b-v2-coreml";
    fs::path models = dir.path() / "models", local = models / "parakeet-tdt-0.6b-v2";
    std::error_code ec;  // a missing folder lists as empty
};

TEST_F(DownloadUtilsTest, FetchesWhatTheModelSetNeedsAndNothingElse) {
    corvane::testing::LogCapture logs;
    testing::writeText(local / "Encoder.mlmodelc", "stale file where a folder must be");
    std::vector<DownloadProgress> progress;
    downloads.downloadRepo(v2, models, [&](const DownloadProgress& p) { progress.push_back(p); });

    EXPECT_THAT(localFiles(),
                UnorderedElementsAre(
                    "Preprocessor.mlmodelc/coremldata.bin", "Encoder.mlmodelc/coremldata.bin",
                    "Encoder.mlmodelc/weights/weight.bin", "Encoder.mlmodelc/empty.txt",
                    "Decoder.mlmodelc/coremldata.bin", "JointDecision.mlmodelc/coremldata.bin",
                    "parakeet_vocab.json", "config.json"));
    EXPECT_EQ(fs::file_size(local / "Encoder.mlmodelc" / "weights" / "weight.bin"), 5000u);
    EXPECT_TRUE(logs.contains("Removing file blocking directory creation: " +
                              (local / "Encoder.mlmodelc").string()));
    // The walk enters required model folders only; the empty file needs no request.
    std::vector<std::string> paths;
    for (const auto& r : hub.requests()) paths.push_back(r.path);
    EXPECT_THAT(paths, Not(Contains(HasSubstr("Other.mlmodelc"))));
    EXPECT_THAT(paths, Contains("/api/models/parakeet-models/parakeet-tdt-0.6b-v2-coreml/tree/"
                                "main/Encoder.mlmodelc/weights"));
    EXPECT_EQ(hub.fileRequests(), 7u);
    ASSERT_FALSE(progress.empty());
    EXPECT_DOUBLE_EQ(progress.back().fractionCompleted, 0.5);
    for (std::size_t i = 1; i < progress.size(); ++i)
        EXPECT_GE(progress[i].fractionCompleted, progress[i - 1].fractionCompleted);

    // Again: present files are kept; a zero-length local file counts as missing.
    testing::writeText(local / "Decoder.mlmodelc" / "coremldata.bin", "");
    hub.clearRequests();
    downloads.downloadRepo(v2, models);
    EXPECT_EQ(hub.fileRequests(), 1u);
    EXPECT_GT(fs::file_size(local / "Decoder.mlmodelc" / "coremldata.bin"), 0u);
}

TEST_F(DownloadUtilsTest, TokensComeFromTheFirstSetVariableAndAreSentAsBearer) {
    struct Row {
        std::map<std::string, std::string> variables;
        std::optional<std::string> expected;
    };
    for (const auto& row :
         {Row{{}, std::nullopt},
          Row{{{"HF_TOKEN", ""}, {"HUGGINGFACEHUB_API_TOKEN", "c"}}, "Bearer c"},
          Row{{{"HUGGINGFACEHUB_API_TOKEN", "c"}, {"HUGGING_FACE_HUB_TOKEN", "b"}}, "Bearer b"},
          Row{{{"HUGGINGFACEHUB_API_TOKEN", "c"},
               {"HUGGING_FACE_HUB_TOKEN", "b"},
               {"HF_TOKEN", "a"}},
              "Bearer a"}}) {
        environment = row.variables;
        hub.clearRequests();
        fs::remove_all(local);
        downloads.downloadRepo(v2, models);
        auto requests = hub.requests();
        ASSERT_FALSE(requests.empty());
        for (const auto& request : requests)
            EXPECT_EQ(request.authorization, row.expected) << request.path;
    }
}

TEST_F(DownloadUtilsTest, BadListingsFailClearlyAndFetchNoFile) {
    const std::string invalid = "Received an invalid response from Hugging Face.";
    std::string page = "  <!DOCTYPE html><html><body>Too many requests</body></html>";
    struct Row {
        int status;
        std::string body;
        std::string expected;
    };
    for (const auto& row :
         {Row{429, "", "Hugging Face rate limit encountered: Rate limited while listing files"},
          Row{500, "", invalid},
          Row{200, page,
              "HuggingFace returned HTML instead of JSON for "
              "parakeet-models/parakeet-tdt-0.6b-v2-coreml (rate limit or server issue): " +
                  page},
          Row{200, R"([{"path": "a.json")", invalid}, Row{200, R"({"path": "a.json"})", invalid},
          Row{200, R"([{"path": 4, "type": "file"}])", invalid},
          Row{200, R"([{"path": "a.json", "type": "file", "size": -3}])", invalid},
          // A path that climbs out of the repository, listed after one the set needs.
          Row{200,
              R"([{"type": "file", "path": "config.json", "size": 2},
                  {"type": "file", "path": "../../escape.json", "size": 3}])",
              invalid}}) {
        hub.answerListings(row.status, row.body);
        EXPECT_THAT([&] { downloads.downloadRepo(v2, models); },
                    ThrowsMessage<HuggingFaceDownloadError>(StrEq(row.expected)));
        EXPECT_EQ(hub.fileRequests(), 0u) << row.body;
    }
}

TEST_F(DownloadUtilsTest, BrokenTransfersLeaveNoPartFileAndTheNextRunFetchesOnlyWhatIsMissing) {
    // Files are fetched in listing order: Decoder, Encoder/..., JointDecision, Preprocessor, ...
    const std::string encoder = "Encoder.mlmodelc/coremldata.bin";
    const std::string weights = "Encoder.mlmodelc/weights/weight.bin";
    using corvane::http::TransportError;
    struct Fault {
        std::function<void()> arm;
        ::testing::Matcher<std::function<void()>> fails;
    };
    for (const auto& fault : std::vector<Fault>{
             {[&] { hub.failFile(encoder, 429); },
              ThrowsMessage<HuggingFaceDownloadError>(
                  StrEq("Hugging Face rate limit encountered: Rate limited while downloading " +
                        encoder))},
             {[&] { hub.failFile(encoder, 404); },
              Throws<HTTPStatusError>(Property(&HTTPStatusError::statusCode, 404))},
             {[&] { hub.cutFile(weights, 1000, true); },
              Throws<TransportError>(
                  Property(&TransportError::kind, TransportError::Kind::connectionLost))},
             {[&] { hub.cutFile(weights, 1000, false); },
              ThrowsMessage<std::exception>(StrEq("Failed to download " + weights))}}) {
        fs::remove_all(local);
        hub.clearFaults();
        fault.arm();
        EXPECT_THAT(std::function<void()>([&] { downloads.downloadRepo(v2, models); }),
                    fault.fails);
        // What arrived before the failure stays; the failed file and any part file do not.
        auto files = localFiles();
        EXPECT_THAT(files, Contains("Decoder.mlmodelc/coremldata.bin"));
        EXPECT_THAT(files, Not(Contains(HasSubstr("partial"))));
        EXPECT_THAT(files, Not(Contains(weights)));

        hub.clearFaults();
        hub.clearRequests();
        downloads.downloadRepo(v2, models);
        EXPECT_LT(hub.fileRequests(), 7u);
        EXPECT_EQ(localFiles().size(), 8u);
    }
}

TEST_F(DownloadUtilsTest, LoadingChecksEachModelFolderBeforeTheRuntimeSeesIt) {
    downloads.downloadRepo(v2, models);
    struct Row {
        std::function<void()> damage;
        std::string name;
        std::string expected;
    };
    // The repository's own files stay complete, so no download hides what loading makes of it.
    for (const auto& row :
         {Row{[] {}, "Extra.mlmodelc",
              "Model file not found: " + (local / "Extra.mlmodelc").string()},
          Row{[&] { testing::writeText(local / "Extra.mlmodelc", "flat"); }, "Extra.mlmodelc",
              "Model path is not a directory: " + (local / "Extra.mlmodelc").string()},
          Row{[&] {
                  fs::remove(local / "Decoder.mlmodelc" / "coremldata.bin");
                  fs::create_directory(local / "Decoder.mlmodelc");
              },
              "Decoder.mlmodelc",
              "Missing coremldata.bin in " + (local / "Decoder.mlmodelc").string()}}) {
        row.damage();
        EXPECT_THAT(
            [&] {
                downloads.loadModelsOnce(v2, {"Encoder.mlmodelc", row.name}, models,
                                         ComputeUnits::cpuOnly);
            },
            ThrowsMessage<std::exception>(StrEq(row.expected)));
        fs::remove_all(local / "Extra.mlmodelc");
    }
    EXPECT_EQ(hub.fileRequests(), 7u) << "nothing was fetched again";
}

TEST_F(DownloadUtilsTest, SmallFilesAreRetriedWithGrowingWaits) {
    std::string url =
        hub.baseURL() + "/parakeet-models/parakeet-tdt-0.6b-v2-coreml/resolve/main/config.json";
    hub.failFile("config.json", 503);
    sleeper.open();
    EXPECT_THROW(downloads.fetchHuggingFaceFile(url, "config", 3, 1.0), HuggingFaceDownloadError);
    EXPECT_THAT(sleeper.requests(), ElementsAre(1.0, 2.0));
    EXPECT_EQ(hub.fileRequests(), 3u);

    // A cancelled wait ends the retries.
    hub.failFile("config.json", 500);
    std::stop_source stop;
    stop.request_stop();
    corvane::testing::ManualSleeper closed;
    DownloadUtils cancelled(session, runtime, {}, closed);
    EXPECT_THROW(cancelled.fetchHuggingFaceFile(url, "config", 3, 1.0, stop.get_token()),
                 CancellationError);
}

TEST(ModelRegistryTest, BaseComesFromTheEnvironmentAndBadBasesAreRefused) {
    auto registry = [](std::map<std::string, std::string> values) {
        return ModelRegistry([values](const std::string& name) -> std::optional<std::string> {
            auto it = values.find(name);
            return it == values.end() ? std::nullopt : std::optional(it->second);
        });
    };
    EXPECT_EQ(registry({}).baseURL(), "https://huggingface.co");
    EXPECT_EQ(
        registry({{"MODEL_REGISTRY_URL", "http://b"}, {"REGISTRY_URL", "http://a"}}).baseURL(),
        "http://a");
    EXPECT_EQ(registry({{"MODEL_REGISTRY_URL", "http://b"}, {"REGISTRY_URL", ""}}).baseURL(),
              "http://b");

    auto local = registry({{"REGISTRY_URL", "http://127.0.0.1:8000/hub/"}});
    EXPECT_EQ(local.apiModels("owner/repo", "tree/main/Encoder.mlmodelc"),
              "http://127.0.0.1:8000/hub/api/models/owner/repo/tree/main/Encoder.mlmodelc");
    EXPECT_EQ(local.resolveModel("owner/repo", "a b.json"),
              "http://127.0.0.1:8000/hub/owner/repo/resolve/main/a%20b.json");
    for (const char* bad : {"ftp://host", "localhost:8000", "http://"}) {
        local.setBaseURL(bad);
        EXPECT_THROW(local.resolveModel("o/r", "f"), ModelRegistryError) << bad;
    }
}

}  // namespace
}  // namespace speech
