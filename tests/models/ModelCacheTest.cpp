#include "CorvaneApp/models/ModelCache.h"

#include <gtest/gtest.h>

#include <random>

#include <unistd.h>

#include "CorvaneApp/models/FileDigest.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"
#include "tests/models/TestFolder.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

using State = ModelCache::State;
using testing::readFile;
using testing::writeFile;

// Holds transfer bodies until the test runs them on its own thread, or runs each at once.
class ManualStarter {
public:
    explicit ManualStarter(bool immediate) : immediate_(immediate) {}
    ModelCache::TaskStarter function() {
        return [this](Task::Body body) -> TaskHandle {
            ++started_;
            if (immediate_) {
                body(std::stop_token{});
            } else {
                held_.push_back(std::move(body));
            }
            return nullptr;
        };
    }
    void runHeld(std::stop_token stop = {}) {
        auto bodies = std::exchange(held_, {});
        for (auto& body : bodies) body(stop);
    }
    int started() const { return started_; }

private:
    bool immediate_;
    int started_ = 0;
    std::vector<Task::Body> held_;
};

class ModelCacheTest : public ::testing::Test {
protected:
    ModelCacheTest() : folder_("models-cache"), root_(folder_.root()), served_(folder_.served()), cacheRoot_(root_ / "models") {
        std::mt19937 random(11);
        weights_.resize(300000);
        for (char& c : weights_) c = static_cast<char>(random());
        writeFile(served_ / "weights.bin", weights_);
        spec_ = ModelSpec{whisperModelIdentifier(), folder_.url("/audio/weights.bin"), "ggml-test.bin", 999, std::nullopt};
    }
    ~ModelCacheTest() override { cache_.reset(); }

    ModelCache& cache(bool immediate = true, HubSettings hub = {}) {
        if (hub.baseURL == HubSettings::defaultBaseURL) hub = HubSettings{folder_.server().baseURL(), "hf_secret"};
        starter_ = std::make_unique<ManualStarter>(immediate);
        cache_ = std::make_unique<ModelCache>(ModelCache::Dependencies{
            .rootDirectory = cacheRoot_,
            .session = std::make_shared<http::Session>(),
            .registry = ModelCacheRegistry(hub, {spec_}),
            .now = clock_.function(),
            .startTask = starter_->function(),
        });
        return *cache_;
    }
    std::filesystem::path modelDir() const { return cacheRoot_ / "whisper-cpp-swift--whisper-large-v3-turbo-q4--1"; }
    std::filesystem::path finalFile() const { return modelDir() / "ggml-test.bin"; }
    std::filesystem::path partialFile() const { return modelDir() / "ggml-test.bin.partial"; }

    std::vector<State> drainStates() {
        std::vector<State> states;
        for (auto& change : cache_->stateStream().drain()) {
            EXPECT_EQ(change.identifier, whisperModelIdentifier());
            states.push_back(std::move(change.state));
        }
        return states;
    }
    std::vector<dev::RecordedRequest> downloads() const {
        std::vector<dev::RecordedRequest> found;
        for (auto& request : folder_.server().requests()) {
            if (request.path == "/audio/weights.bin") found.push_back(request);
        }
        return found;
    }
    template <typename Error>
    Error failure() {
        try {
            auto path = cache_->ensureCached(spec_);
            ADD_FAILURE() << "cached at " << path;
        } catch (const Error& error) {
            return error;
        }
        throw std::logic_error("unreached");
    }

    testing::TestFolder folder_;
    std::filesystem::path root_, served_, cacheRoot_;
    std::string weights_;
    ModelSpec spec_;
    testing::FakeClock clock_;
    std::unique_ptr<ManualStarter> starter_;
    std::unique_ptr<ModelCache> cache_;
};

State downloading(std::uint64_t bytes, std::optional<std::uint64_t> total) { return State{State::Downloading{bytes, total}}; }

TEST_F(ModelCacheTest, DownloadsThroughThePartialFileWithProgress) {
    testing::LogCapture capture;
    auto path = cache().ensureCached(spec_);

    EXPECT_EQ(path, finalFile());
    EXPECT_EQ(readFile(finalFile()), weights_);
    EXPECT_FALSE(std::filesystem::exists(partialFile()));
    EXPECT_EQ(cache_->cachedFileURL(spec_.identifier), finalFile());
    // The first report knows only the ModelSpec's size; then the server's length counts, and a report
    // follows each write of at least 64 KiB.
    auto states = drainStates();
    ASSERT_GE(states.size(), 3u);
    EXPECT_EQ(states.front(), downloading(0, 999));
    EXPECT_EQ(states.back(), State{State::Ready{finalFile()}});
    std::uint64_t previous = 0;
    for (size_t i = 1; i + 1 < states.size(); ++i) {
        auto progress = std::get<State::Downloading>(states[i].value);
        EXPECT_EQ(progress.totalBytes, 300000u);
        EXPECT_GE(progress.bytesDownloaded, previous + 65536);
        EXPECT_LE(progress.bytesDownloaded, 300000u);
        previous = progress.bytesDownloaded;
    }
    ASSERT_EQ(downloads().size(), 1u);
    EXPECT_EQ(downloads()[0].headers.count("range"), 0u);
    EXPECT_EQ(downloads()[0].headers["authorization"], "Bearer hf_secret");
    EXPECT_TRUE(capture.contains("ModelCache info: Cached model whisper-large-v3-turbo-q4 at " + finalFile().string()));
}

TEST_F(ModelCacheTest, TheHubTokenGoesToTheHubOnly) {
    cache(true, HubSettings{"https://hub.invalid", "hf_secret"}).ensureCached(spec_);
    ASSERT_EQ(downloads().size(), 1u);
    EXPECT_EQ(downloads()[0].headers.count("authorization"), 0u);
}

TEST_F(ModelCacheTest, AFileAtTheFinalPathIsTheWholeProof) {
    writeFile(finalFile(), "not even weights");
    auto [path, timing] = cache().ensureCachedWithTiming(spec_);
    EXPECT_EQ(path, finalFile());
    EXPECT_TRUE(timing.hit);
    EXPECT_EQ(timing.loadSeconds, 0);
    EXPECT_EQ(readFile(finalFile()), "not even weights");
    EXPECT_EQ(starter_->started(), 0);
    EXPECT_TRUE(downloads().empty());
    EXPECT_EQ(drainStates(), std::vector<State>{State{State::Ready{finalFile()}}});
}

TEST_F(ModelCacheTest, ADroppedTransferResumesFromThePartialFile) {
    folder_.server().setAudioFaults(dev::AudioFaults{.dropAfterBytes = 150000});
    cache();
    auto dropped = failure<http::TransportError>();
    EXPECT_EQ(dropped.kind(), http::TransportError::Kind::connectionLost);
    EXPECT_FALSE(std::filesystem::exists(finalFile()));
    auto kept = std::filesystem::file_size(partialFile());
    ASSERT_GT(kept, 0u);
    ASSERT_LE(kept, 150000u);
    EXPECT_EQ(readFile(partialFile()), weights_.substr(0, kept));
    auto failed = cache_->state(spec_.identifier);
    ASSERT_TRUE(failed && std::holds_alternative<State::Failed>(failed->value));
    EXPECT_EQ(std::get<State::Failed>(failed->value).description, dropped.what());

    folder_.server().setAudioFaults({});
    drainStates();
    EXPECT_EQ(cache_->ensureCached(spec_), finalFile());
    EXPECT_EQ(readFile(finalFile()), weights_);
    EXPECT_FALSE(std::filesystem::exists(partialFile()));
    ASSERT_EQ(downloads().size(), 2u);
    EXPECT_EQ(downloads()[1].headers["range"], "bytes=" + std::to_string(kept) + "-");
    auto states = drainStates();
    ASSERT_GE(states.size(), 2u);
    EXPECT_EQ(states.front(), downloading(kept, 999));
    EXPECT_EQ(std::get<State::Downloading>(states[1].value).totalBytes, 300000u);  // offset + the rest's length
}

TEST_F(ModelCacheTest, AServerThatIgnoresTheRangeRestartsTheFile) {
    writeFile(partialFile(), std::string(100, '#'));  // not the file's first bytes
    folder_.server().setAudioFaults(dev::AudioFaults{.ignoreRange = true});
    cache().ensureCached(spec_);
    EXPECT_EQ(downloads().at(0).headers["range"], "bytes=100-");
    EXPECT_EQ(readFile(finalFile()), weights_);
}

TEST_F(ModelCacheTest, HttpErrorsKeepThePartialFile) {
    writeFile(partialFile(), weights_);  // complete, so the server finds nothing left to send
    auto error = [&] { return failure<CacheError>(); };
    cache();
    auto unsatisfiable = error();
    EXPECT_EQ(unsatisfiable.kind(), CacheError::Kind::httpError);
    EXPECT_EQ(unsatisfiable.status(), 416);
    EXPECT_EQ(unsatisfiable.description(), "HTTP 416 from model download");
    EXPECT_EQ(readFile(partialFile()), weights_);
    std::filesystem::remove(partialFile());

    folder_.server().enqueueReply("/audio/weights.bin", dev::ScriptedReply{.status = 500, .body = "{}"});
    EXPECT_EQ(error().description(), "HTTP 500 from model download");
    spec_.downloadURL = folder_.url("/audio/absent.bin");
    EXPECT_EQ(error().description(), "HTTP 404 from model download");
    EXPECT_FALSE(std::filesystem::exists(finalFile()));
    auto state = cache_->state(spec_.identifier);
    ASSERT_TRUE(state && std::holds_alternative<State::Failed>(state->value));
    EXPECT_EQ(std::get<State::Failed>(state->value).description, "HTTP 404 from model download");
}

TEST_F(ModelCacheTest, TheDigestDecidesWhetherAFileIsKept) {
    std::string digest = sha256HexOfFile(served_ / "weights.bin");
    std::string upper = digest;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    spec_.sha256 = upper;  // compared without regard to case
    EXPECT_EQ(readFile(cache().ensureCached(spec_)), weights_);
    cache_->remove(spec_.identifier);

    // Same length, wrong bytes.
    std::string wrong = weights_;
    wrong[1234] ^= 1;
    folder_.server().setAudioFaults(dev::AudioFaults{.replaceBody = wrong});
    auto mismatch = failure<CacheError>();
    EXPECT_EQ(mismatch.kind(), CacheError::Kind::sha256Mismatch);
    EXPECT_EQ(mismatch.expected(), upper);
    writeFile(root_ / "wrong.bin", wrong);
    EXPECT_EQ(mismatch.actual(), sha256HexOfFile(root_ / "wrong.bin"));
    EXPECT_EQ(mismatch.description(), "SHA-256 mismatch (expected " + upper + ", got " + mismatch.actual() + ")");
    EXPECT_FALSE(std::filesystem::exists(finalFile()));
    EXPECT_FALSE(std::filesystem::exists(partialFile()));  // the next attempt starts from zero
}

TEST_F(ModelCacheTest, AFullDiskOrAnUnwritableFolderIsAnIOErrorWithNothingAtTheFinalPath) {
    // Every write to /dev/full fails with "No space left on device".
    std::filesystem::create_directories(modelDir());
    std::filesystem::create_symlink("/dev/full", partialFile());
    testing::LogCapture capture;
    cache();
    auto full = failure<CacheError>();
    EXPECT_EQ(full.kind(), CacheError::Kind::ioError);
    EXPECT_EQ(full.description(), "I/O error at " + partialFile().string());
    EXPECT_TRUE(capture.contains("No space left on device"));
    EXPECT_FALSE(std::filesystem::exists(finalFile()));

    // A folder without write permission (mode bits don't bind root, who runs our CI machines).
    if (::geteuid() != 0) {
        std::filesystem::remove(partialFile());
        std::filesystem::permissions(modelDir(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        EXPECT_EQ(failure<CacheError>().description(), "I/O error at " + partialFile().string());
        std::filesystem::permissions(modelDir(), std::filesystem::perms::owner_all);
        EXPECT_FALSE(std::filesystem::exists(finalFile()));
    }

    // The models folder cannot be made: a file stands in its way.
    std::filesystem::remove_all(cacheRoot_);
    writeFile(cacheRoot_, "in the way");
    auto blocked = failure<CacheError>();
    EXPECT_EQ(blocked.description(), "I/O error at " + modelDir().string());
}

TEST_F(ModelCacheTest, CallersOfOneModelShareOneTransfer) {
    cache(false);
    auto first = cache_->startCaching(spec_);
    auto second = cache_->startCaching(spec_);
    EXPECT_EQ(starter_->started(), 1);
    EXPECT_FALSE(first.isFinished());
    EXPECT_FALSE(second.isFinished());

    // A waiter that gives up leaves the transfer to the others.
    std::stop_source giveUp;
    giveUp.request_stop();
    try {
        cache_->startCaching(spec_).wait(giveUp.get_token());
        ADD_FAILURE() << "the wait should have ended";
    } catch (const CacheError& error) {
        EXPECT_EQ(error.kind(), CacheError::Kind::cancelled);
    }

    starter_->runHeld();
    EXPECT_EQ(first.wait(), finalFile());
    EXPECT_EQ(second.wait(), finalFile());
    EXPECT_EQ(downloads().size(), 1u);

    // Errors reach every waiter too, and the next call starts afresh.
    cache_->remove(spec_.identifier);
    spec_.downloadURL = folder_.url("/audio/absent.bin");
    auto third = cache_->startCaching(spec_);
    auto fourth = cache_->startCaching(spec_);
    starter_->runHeld();
    for (const auto* pending : {&third, &fourth}) {
        try {
            pending->wait();
            ADD_FAILURE() << "a 404 should fail";
        } catch (const CacheError& error) {
            EXPECT_EQ(error.status(), 404);
        }
    }
    cache_->startCaching(spec_);
    EXPECT_EQ(starter_->started(), 3);
}

TEST_F(ModelCacheTest, RemoveFreesTheFileAndForgetsThePartial) {
    cache();
    writeFile(finalFile(), std::string(12345, 'w'));
    writeFile(partialFile(), std::string(999, 'p'));
    EXPECT_EQ(cache_->remove(spec_.identifier), 12345u);
    EXPECT_FALSE(std::filesystem::exists(finalFile()));
    EXPECT_FALSE(std::filesystem::exists(partialFile()));
    EXPECT_EQ(cache_->state(spec_.identifier), State{State::NotDownloaded{}});  // an entry, not absence
    EXPECT_FALSE(cache_->isCached(spec_.identifier));

    ModelIdentifier unknown{"x", "y", "1"};
    EXPECT_EQ(cache_->remove(unknown), 0u);
    EXPECT_EQ(cache_->state(unknown), std::nullopt);

    writeFile(finalFile(), std::string(777, 'w'));
    EXPECT_EQ(cache_->removeAll(), 777u);
}

TEST_F(ModelCacheTest, RemoveAllLogsAFailureAndGoesOn) {
    cache();
    std::filesystem::create_directories(finalFile() / "cannot-remove-a-full-folder");
    testing::LogCapture capture;
    EXPECT_THROW(cache_->remove(spec_.identifier), CacheError);
    EXPECT_EQ(cache_->removeAll(), 0u);
    EXPECT_TRUE(capture.contains("ModelCache error: ModelCache.removeAll: failed to remove whisper-large-v3-turbo-q4: I/O error at " +
                                 finalFile().string()));
}

TEST_F(ModelCacheTest, DestroyingTheCacheCancelsItsTransfer) {
    // The server holds its answer; only the cancellation can end the transfer soon.
    folder_.server().enqueueReply("/audio/weights.bin", dev::ScriptedReply{.status = 200, .body = weights_, .delaySeconds = 60});
    auto owned = std::make_unique<ModelCache>(ModelCache::Dependencies{
        .rootDirectory = cacheRoot_,
        .session = std::make_shared<http::Session>(),
        .registry = ModelCacheRegistry(HubSettings{}, {spec_}),
    });
    auto pending = owned->startCaching(spec_);
    ASSERT_TRUE(folder_.server().waitUntil([](const dev::DevCoordinator& s) { return !s.requests().empty(); }, std::chrono::seconds(20)));
    owned.reset();
    try {
        pending.wait();
        ADD_FAILURE() << "the transfer should have been cancelled";
    } catch (const CacheError& error) {
        EXPECT_EQ(error.description(), "ModelCache cancelled before completion");
    }
    EXPECT_TRUE(std::filesystem::exists(partialFile()));
    EXPECT_FALSE(std::filesystem::exists(finalFile()));
}

TEST(ModelCacheRegistry, TheWhisperEntryAndItsLookup) {
    ModelCacheRegistry registry(HubSettings{"https://hub.example", std::nullopt});
    ASSERT_EQ(registry.all().size(), 1u);
    const ModelSpec& whisper = registry.all()[0];
    EXPECT_EQ(whisper.identifier, whisperModelIdentifier());
    EXPECT_EQ(whisper.downloadURL, "https://hub.example/ggerganov/whisper.cpp/resolve/main/ggml-large-v3-turbo-q5_0.bin");
    EXPECT_EQ(whisper.filename, "ggml-large-v3-turbo-q5_0.bin");
    EXPECT_EQ(registry.spec(whisperModelIdentifier()), whisper);
    EXPECT_EQ(registry.spec({"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "2"}), std::nullopt);
    EXPECT_EQ(registry.spec(parakeetModelIdentifier()), std::nullopt);
    EXPECT_EQ(ModelCache::defaultRootDirectory().filename(), "models");
    EXPECT_EQ(ModelCache::defaultRootDirectory().parent_path().filename(), "VarnixCompute");
}

TEST(HubSettings, FromTheEnvironment) {
    struct Row {
        std::map<std::string, std::string> environment;
        std::string baseURL;
        std::optional<std::string> token;
    };
    std::vector<Row> rows{
        {{}, "https://huggingface.co", std::nullopt},
        {{{"REGISTRY_URL", "http://mirror.local/"}, {"MODEL_REGISTRY_URL", "http://other"}}, "http://mirror.local", std::nullopt},
        {{{"REGISTRY_URL", ""}, {"MODEL_REGISTRY_URL", "http://other"}}, "http://other", std::nullopt},
        {{{"HUGGINGFACEHUB_API_TOKEN", "c"}, {"HUGGING_FACE_HUB_TOKEN", "b"}}, "https://huggingface.co", "b"},
        {{{"HF_TOKEN", "a"}, {"HUGGING_FACE_HUB_TOKEN", "b"}}, "https://huggingface.co", "a"},
        {{{"HF_TOKEN", ""}, {"HUGGINGFACEHUB_API_TOKEN", "c"}}, "https://huggingface.co", "c"},
    };
    for (const auto& row : rows) {
        auto settings = HubSettings::fromEnvironment([&](const char* name) -> std::optional<std::string> {
            auto found = row.environment.find(name);
            if (found == row.environment.end()) return std::nullopt;
            return found->second;
        });
        EXPECT_EQ(settings.baseURL, row.baseURL);
        EXPECT_EQ(settings.token, row.token);
    }
    HubSettings hub{"https://huggingface.co", "t"};
    EXPECT_TRUE(hub.isHubURL("https://huggingface.co/x/resolve/main/f.bin"));
    EXPECT_FALSE(hub.isHubURL("https://huggingface.co.evil.com/x"));
    EXPECT_FALSE(hub.isHubURL("https://huggingface.co"));
    EXPECT_FALSE(hub.isHubURL("http://huggingface.co/x"));
}

TEST(ModelDownloadProgress, FractionAndVisibility) {
    using P = ModelDownloadProgress;
    auto progress = [](P::Phase phase) { return P{"Whisper large-v3 turbo", std::move(phase)}; };
    EXPECT_EQ(progress(P::Downloading{50, 200}).fractionComplete(), 0.25);
    EXPECT_EQ(progress(P::Downloading{300, 200}).fractionComplete(), 1.0);  // capped
    EXPECT_EQ(progress(P::Downloading{50, 0}).fractionComplete(), std::nullopt);
    EXPECT_EQ(progress(P::Failed{"HTTP 404 from model download"}).fractionComplete(), std::nullopt);
    EXPECT_TRUE(progress(P::Downloading{}).isVisible());
    EXPECT_TRUE(progress(P::Failed{}).isVisible());
    EXPECT_FALSE(progress(P::NotStarted{}).isVisible());
    EXPECT_FALSE(progress(P::Ready{}).isVisible());
}

}  // namespace
}  // namespace corvane
