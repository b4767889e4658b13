#include "CorvaneApp/models/ModelCache.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "CorvaneApp/models/FileDigest.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "tests/models/TestFolder.h"
#include "tests/support/FakeClock.h"

namespace corvane {
namespace {

using State = ModelCache::State;
using testing::readFile;
using testing::writeFile;

// The local coordinator serves 300 000 random bytes as the weights. Transfers run at once on the
// calling thread, or wait until the test runs them.
class ModelCacheTest : public ::testing::Test {
  protected:
    ModelCacheTest() {
        std::mt19937 random(11);
        for (char& c : weights_) c = static_cast<char>(random());
        writeFile(folder_.served / "weights.bin", weights_);
    }

    ModelCache& cache(bool immediate = true, std::string hubURL = {}) {
        cache_ = std::make_unique<ModelCache>(ModelCache::Dependencies{
            .rootDirectory = folder_.root / "models",
            .session = std::make_shared<http::Session>(),
            .registry = ModelCacheRegistry(
                HubSettings{hubURL.empty() ? folder_.server().baseURL() : hubURL, "hf_secret"},
                {spec_}),
            .now = clock_.function(),
            .startTask = [this, immediate](Task::Body body) -> TaskHandle {
                ++started_;
                immediate ? body(std::stop_token{}) : held_.push_back(std::move(body));
                return nullptr;
            },
        });
        return *cache_;
    }
    void runHeld() {
        for (auto& body : std::exchange(held_, {})) body(std::stop_token{});
    }
    std::vector<State> drainStates() {
        std::vector<State> states;
        for (auto& change : cache_->stateStream().drain())
            states.push_back(std::move(change.state));
        return states;
    }
    std::vector<dev::RecordedRequest> downloads() { return folder_.server().requests(); }
    template <typename Error>
    Error failure() {
        try {
            ADD_FAILURE() << "cached at " << cache_->ensureCached(spec_);
        } catch (const Error& error) {
            return error;
        }
        throw std::logic_error("no error");
    }

    testing::TestFolder folder_{"models-cache"};
    const std::filesystem::path modelDir_ =
        folder_.root / "models" / "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
    const std::filesystem::path final_ = modelDir_ / "ggml-test.bin",
                                partial_ = modelDir_ / "ggml-test.bin.partial";
    std::string weights_ = std::string(300000, '\0');
    ModelSpec spec_{whisperModelIdentifier(), folder_.url("/audio/weights.bin"), "ggml-test.bin",
                    999, std::nullopt};
    testing::FakeClock clock_;
    int started_ = 0;
    std::vector<Task::Body> held_;
    std::unique_ptr<ModelCache> cache_;
};

TEST_F(ModelCacheTest, DownloadsThroughThePartialFileWithProgressAndShowsTheTokenToTheHubOnly) {
    EXPECT_EQ(cache().ensureCached(spec_), final_);
    EXPECT_EQ(readFile(final_), weights_);
    EXPECT_FALSE(std::filesystem::exists(partial_));
    // The first report knows only the ModelSpec's size; then one per 64 KiB or more written.
    auto states = drainStates();
    ASSERT_GE(states.size(), 3u);
    EXPECT_EQ(states.front(), (State{State::Downloading{0, 999}}));
    EXPECT_EQ(states.back(), State{State::Ready{final_}});
    std::uint64_t previous = 0;
    for (size_t i = 1; i + 1 < states.size(); ++i) {
        auto progress = std::get<State::Downloading>(states[i].value);
        EXPECT_EQ(progress.totalBytes, 300000u);
        EXPECT_GE(progress.bytesDownloaded, previous + 65536);
        previous = progress.bytesDownloaded;
    }
    EXPECT_EQ(downloads().at(0).headers["authorization"], "Bearer hf_secret");

    cache(true, "https://hub.invalid").remove(spec_.identifier);
    cache_->ensureCached(spec_);
    ASSERT_EQ(downloads().size(), 2u);
    EXPECT_EQ(downloads()[1].headers.count("authorization"), 0u);
}

TEST_F(ModelCacheTest, AFileAtTheFinalPathIsTheWholeProof) {
    writeFile(final_, "not even weights");
    auto [path, timing] = cache().ensureCachedWithTiming(spec_);
    EXPECT_EQ(path, final_);
    EXPECT_TRUE(timing.hit);
    EXPECT_EQ(started_, 0);
    EXPECT_EQ(drainStates(), std::vector<State>{State{State::Ready{final_}}});
}

TEST_F(ModelCacheTest, ADroppedTransferResumesFromThePartialFileUnlessTheServerIgnoresTheRange) {
    folder_.server().setAudioFaults(dev::AudioFaults{.dropAfterBytes = 150000});
    cache();
    auto dropped = failure<http::TransportError>();
    EXPECT_EQ(dropped.kind(), http::TransportError::Kind::connectionLost);
    EXPECT_FALSE(std::filesystem::exists(final_));
    auto kept = std::filesystem::file_size(partial_);
    ASSERT_GT(kept, 0u);

    folder_.server().setAudioFaults({});
    EXPECT_EQ(readFile(cache_->ensureCached(spec_)), weights_);
    ASSERT_EQ(downloads().size(), 2u);
    EXPECT_EQ(downloads()[1].headers["range"], "bytes=" + std::to_string(kept) + "-");

    // A server that ignores the range answers 200 with the whole file: it starts over.
    cache_->remove(spec_.identifier);
    writeFile(partial_, std::string(100, '#'));
    folder_.server().setAudioFaults(dev::AudioFaults{.ignoreRange = true});
    EXPECT_EQ(readFile(cache_->ensureCached(spec_)), weights_);
    EXPECT_EQ(downloads().at(2).headers["range"], "bytes=100-");
}

TEST_F(ModelCacheTest, HttpErrorsKeepThePartialFile) {
    writeFile(partial_, weights_);  // complete, so the server finds nothing left to send
    cache();
    EXPECT_EQ(failure<CacheError>().description(), "HTTP 416 from model download");
    EXPECT_EQ(readFile(partial_), weights_);
    std::filesystem::remove(partial_);

    folder_.server().enqueueReply("/audio/weights.bin",
                                  dev::ScriptedReply{.status = 500, .body = "{}"});
    EXPECT_EQ(failure<CacheError>().description(), "HTTP 500 from model download");
    spec_.downloadURL = folder_.url("/audio/absent.bin");
    EXPECT_EQ(failure<CacheError>().description(), "HTTP 404 from model download");
    EXPECT_EQ(cache_->state(spec_.identifier),
              (State{State::Failed{{}, "HTTP 404 from model download"}}));
    EXPECT_FALSE(std::filesystem::exists(final_));
}

TEST_F(ModelCacheTest, TheDigestDecidesWhetherAFileIsKept) {
    std::string digest = sha256HexOfFile(folder_.served / "weights.bin");
    for (char& c : digest) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    spec_.sha256 = digest;  // compared without regard to case
    EXPECT_EQ(readFile(cache().ensureCached(spec_)), weights_);
    cache_->remove(spec_.identifier);

    std::string wrong = weights_;  // same length, wrong bytes
    wrong[1234] ^= 1;
    folder_.server().setAudioFaults(dev::AudioFaults{.replaceBody = wrong});
    auto mismatch = failure<CacheError>();
    EXPECT_EQ(mismatch.kind(), CacheError::Kind::sha256Mismatch);
    EXPECT_TRUE(
        mismatch.description().starts_with("SHA-256 mismatch (expected " + digest + ", got "))
        << mismatch.description();
    EXPECT_FALSE(std::filesystem::exists(final_));
    EXPECT_FALSE(std::filesystem::exists(partial_));  // the next attempt starts from zero
}

TEST_F(ModelCacheTest, AFullDiskOrAnUnwritableFolderIsAnIOErrorWithNothingAtTheFinalPath) {
    std::filesystem::create_directories(modelDir_);
    std::filesystem::create_symlink("/dev/full",
                                    partial_);  // every write: "No space left on device"
    cache();
    EXPECT_EQ(failure<CacheError>().description(), "I/O error at " + partial_.string());
    EXPECT_FALSE(std::filesystem::exists(final_));
    std::filesystem::remove(partial_);

    if (::geteuid() != 0) {  // mode bits don't bind root
        std::filesystem::permissions(
            modelDir_, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        EXPECT_EQ(failure<CacheError>().description(), "I/O error at " + partial_.string());
        std::filesystem::permissions(modelDir_, std::filesystem::perms::owner_all);
    }
    std::filesystem::remove_all(folder_.root / "models");
    writeFile(folder_.root / "models", "a file where the folder should be");
    EXPECT_EQ(failure<CacheError>().description(), "I/O error at " + modelDir_.string());
}

TEST_F(ModelCacheTest, CallersOfOneModelShareOneTransferAndItsError) {
    auto first = cache(false).startCaching(spec_), second = cache_->startCaching(spec_);
    EXPECT_EQ(started_, 1);
    runHeld();
    EXPECT_EQ(first.wait(), final_);
    EXPECT_EQ(second.wait(), final_);
    EXPECT_EQ(downloads().size(), 1u);

    // A failure reaches every waiter, and the next call starts afresh.
    cache_->remove(spec_.identifier);
    spec_.downloadURL = folder_.url("/audio/absent.bin");
    auto third = cache_->startCaching(spec_), fourth = cache_->startCaching(spec_);
    runHeld();
    for (const auto* pending : {&third, &fourth}) EXPECT_THROW(pending->wait(), CacheError);
    cache_->startCaching(spec_);
    EXPECT_EQ(started_, 3);
}

TEST_F(ModelCacheTest, RemoveAndRemoveAllReportTheBytesFreed) {
    cache();
    writeFile(final_, std::string(12345, 'w'));
    writeFile(partial_, std::string(999, 'p'));
    EXPECT_EQ(cache_->remove(spec_.identifier), 12345u);
    EXPECT_FALSE(std::filesystem::exists(partial_));
    EXPECT_EQ(cache_->state(spec_.identifier), State{State::NotDownloaded{}});
    writeFile(final_, std::string(777, 'w'));
    EXPECT_EQ(cache_->removeAll(), 777u);
}

TEST_F(ModelCacheTest, DestroyingTheCacheCancelsItsTransfer) {
    // The server holds its answer; only the cancellation can end the transfer soon.
    folder_.server().enqueueReply(
        "/audio/weights.bin",
        dev::ScriptedReply{.status = 200, .body = weights_, .delaySeconds = 60});
    auto owned = std::make_unique<ModelCache>(ModelCache::Dependencies{
        .rootDirectory = folder_.root / "models",
        .session = std::make_shared<http::Session>(),
        .registry = ModelCacheRegistry(HubSettings{}, {spec_}),
    });
    auto pending = owned->startCaching(spec_);
    ASSERT_TRUE(folder_.server().waitUntil(
        [](const dev::DevCoordinator& s) { return !s.requests().empty(); },
        std::chrono::seconds(20)));
    owned.reset();
    EXPECT_THROW(pending.wait(), CacheError);
    EXPECT_TRUE(std::filesystem::exists(partial_));
    EXPECT_FALSE(std::filesystem::exists(final_));
}

TEST(HubSettings, FromTheEnvironmentAndInTheRegistry) {
    struct Row {
        std::map<std::string, std::string> environment;
        std::string baseURL;
        std::optional<std::string> token;
    };
    const Row rows[] = {
        {{{"HUGGINGFACEHUB_API_TOKEN", "c"}}, "https://huggingface.co", "c"},
        {{{"REGISTRY_URL", "http://mirror.local/"},
          {"MODEL_REGISTRY_URL", "http://other"},
          {"HF_TOKEN", "a"},
          {"HUGGING_FACE_HUB_TOKEN", "b"}},
         "http://mirror.local",
         "a"},
        {{{"REGISTRY_URL", ""},
          {"MODEL_REGISTRY_URL", "http://other"},
          {"HF_TOKEN", ""},
          {"HUGGING_FACE_HUB_TOKEN", "b"},
          {"HUGGINGFACEHUB_API_TOKEN", "c"}},
         "http://other",
         "b"},
    };
    for (const auto& row : rows) {
        auto settings =
            HubSettings::fromEnvironment([&](const char* name) -> std::optional<std::string> {
                auto found = row.environment.find(name);
                return found == row.environment.end() ? std::nullopt : std::optional(found->second);
            });
        EXPECT_EQ(settings.baseURL, row.baseURL);
        EXPECT_EQ(settings.token, row.token);
    }
    HubSettings hub{"https://huggingface.co", "t"};
    EXPECT_FALSE(hub.isHubURL("https://huggingface.co.evil.com/x"));
    EXPECT_FALSE(hub.isHubURL("http://huggingface.co/x"));

    ModelCacheRegistry registry(HubSettings{"https://hub.example", std::nullopt});
    EXPECT_EQ(
        registry.spec(whisperModelIdentifier())->downloadURL,
        "https://hub.example/ggerganov/whisper.cpp/resolve/main/ggml-large-v3-turbo-q5_0.bin");
    EXPECT_EQ(ModelCache::defaultRootDirectory().parent_path().filename(), "VarnixCompute");
    ::setenv("CORVANE_MODEL_DIR", "/srv/weights", 1);
    EXPECT_EQ(ModelCache::defaultRootDirectory(), "/srv/weights");
    EXPECT_EQ(ParakeetCache::defaultDirectory(), "/srv/weights/parakeet-tdt-0.6b-v2");
    ::unsetenv("CORVANE_MODEL_DIR");
}

}  // namespace
}  // namespace corvane
