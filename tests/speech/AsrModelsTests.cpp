// The model set on disk: which files make a version, fetching it from the hub, loading it with
// the right processors, recovering from a damaged cache, and reading the vocabulary.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/AsrModels.h"
#include "SpeechEngine/AsrModelsError.h"
#include "tests/speech/HubServer.h"
#include "tests/support/LogCapture.h"

namespace speech {
namespace {

namespace fs = std::filesystem;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

class AsrModelsTest : public testing::HubTest {
  protected:
    AsrModelsTest() {
        ScriptedRuntime::installModelSet(
            dir.path() / "hub" / "parakeet-models" / "parakeet-tdt-0.6b-v2-coreml",
            AsrModelVersion::v2, {}, 1024, {{5, "hello"}, {6, "there"}});
    }

    fs::path local = dir.path() / "models" / "parakeet-tdt-0.6b-v2";
};

TEST_F(AsrModelsTest, ExistenceAndValidityAreAboutTheVersionFolder) {
    EXPECT_FALSE(AsrModels::isModelValid(downloads, local, AsrModelVersion::v2));
    ScriptedRuntime::installModelSet(local, AsrModelVersion::v2, {}, 1024, {});
    EXPECT_TRUE(AsrModels::isModelValid(downloads, local, AsrModelVersion::v2));
    EXPECT_TRUE(AsrModels::modelsExist(local, AsrModelVersion::v2));
    // Any path inside the models folder names the same version folder next to it.
    EXPECT_TRUE(AsrModels::modelsExist(dir.path() / "models" / "anything", AsrModelVersion::v2));
    testing::writeText(local / "Decoder.mlmodelc" / "coremldata.bin", "garbage");
    EXPECT_FALSE(AsrModels::isModelValid(downloads, local, AsrModelVersion::v2));
    fs::remove(local / "parakeet_vocab.json");
    EXPECT_FALSE(AsrModels::modelsExist(local, AsrModelVersion::v2))
        << "all files but the vocabulary";

    auto ctc = dir.path() / "models" / "parakeet-tdt-ctc-110m";
    ScriptedRuntime::installModelSet(ctc, AsrModelVersion::tdtCtc110m, {}, 8192, {});
    EXPECT_FALSE(fs::exists(ctc / "Encoder.mlmodelc"));
    EXPECT_TRUE(AsrModels::modelsExist(ctc)) << "no encoder in this set, named by its folder";

    struct Row {
        const char* path;
        AsrModelVersion expected;
    };
    for (auto row :
         {Row{"/m/Parakeet-TDT-0.6B-v2", AsrModelVersion::v2},
          Row{"/m/parakeet-ja", AsrModelVersion::tdtJa}, Row{"/m/whatever", AsrModelVersion::v3}}) {
        EXPECT_EQ(AsrModels::versionForPath(row.path), row.expected) << row.path;
    }
    EXPECT_THROW(modelFiles(AsrModelVersion::ctcZhCn), AsrModelsError);
}

TEST_F(AsrModelsTest, DownloadFetchesOnceLoadsAndSkipsAFullFolder) {
    corvane::testing::LogCapture logs;
    std::vector<double> fractions;
    auto folder = AsrModels::download(
        downloads, local, false, AsrModelVersion::v2,
        [&](const DownloadProgress& p) { fractions.push_back(p.fractionCompleted); });
    EXPECT_EQ(folder, local);
    EXPECT_TRUE(AsrModels::modelsExist(local, AsrModelVersion::v2));
    ASSERT_FALSE(fractions.empty());
    EXPECT_DOUBLE_EQ(fractions.back(), 1.0);
    EXPECT_EQ(hub.fileRequests(), 5u);

    hub.clearRequests();
    AsrModels::download(downloads, local, false, AsrModelVersion::v2);
    EXPECT_TRUE(hub.requests().empty()) << "a complete folder transfers nothing";
    EXPECT_TRUE(logs.contains("ASR models already present at: " + local.string()));
    AsrModels::download(downloads, local, true, AsrModelVersion::v2);
    EXPECT_EQ(hub.fileRequests(), 5u) << "force fetches everything again";

    auto models = AsrModels::load(downloads, local, std::nullopt, AsrModelVersion::v2);
    EXPECT_EQ(models.preprocessor->configuration().computeUnits, ComputeUnits::cpuOnly);
    EXPECT_EQ(models.encoder->configuration().computeUnits, ComputeUnits::cpuAndNeuralEngine);
    EXPECT_EQ(models.joint->configuration().computeUnits, ComputeUnits::cpuAndNeuralEngine);
    EXPECT_EQ(models.vocabulary->size(), 2u);
}

TEST_F(AsrModelsTest, ADamagedCacheIsFetchedAgainOnceAndOnlyByEntriesThatMay) {
    EXPECT_THAT(
        [&] { AsrModels::loadFromCache(downloads, local, AsrModelVersion::v2); },
        ThrowsMessage<AsrModelsError>(StrEq("ASR model 'Preprocessor.mlmodelc' not found at: " +
                                            (local / "Preprocessor.mlmodelc").string())));
    EXPECT_TRUE(hub.requests().empty());
    AsrModels::downloadAndLoad(downloads, local, AsrModelVersion::v2);
    EXPECT_EQ(hub.fileRequests(), 5u);
    hub.clearRequests();
    AsrModels::loadFromCache(downloads, local, AsrModelVersion::v2);
    EXPECT_TRUE(hub.requests().empty());

    // A truncated compiled model: its description stops half way. The folder goes, then comes
    // back whole.
    testing::writeText(local / "Encoder.mlmodelc" / "coremldata.bin", "{\"netw");
    testing::writeText(local / "stray.txt", "left over");
    corvane::testing::LogCapture logs;
    auto models = AsrModels::load(downloads, local, std::nullopt, AsrModelVersion::v2);
    EXPECT_TRUE(
        logs.contains("DownloadUtils error: First load failed: Invalid scripted network in " +
                      (local / "Encoder.mlmodelc").string()));
    EXPECT_FALSE(fs::exists(local / "stray.txt"));
    EXPECT_EQ(hub.fileRequests(), 5u);

    // A broken vocabulary is past the networks' own recovery: the whole set is fetched again.
    testing::writeText(local / "parakeet_vocab.json", "{");
    hub.clearRequests();
    EXPECT_EQ(
        AsrModels::loadWithAutoRecovery(downloads, local, AsrModelVersion::v2).vocabulary->size(),
        2u);
    EXPECT_EQ(hub.fileRequests(), 5u);

    // When the hub can't help either, the second failure is the one reported.
    testing::writeText(local / "Encoder.mlmodelc" / "coremldata.bin", "{\"netw");
    hub.answerListings(429);
    EXPECT_THAT([&] { AsrModels::load(downloads, local, std::nullopt, AsrModelVersion::v2); },
                ThrowsMessage<std::exception>(StrEq(
                    "Hugging Face rate limit encountered: Rate limited while listing files")));
}

TEST_F(AsrModelsTest, VocabularyFilesAreReadOrRefusedWithTheirPath) {
    auto vocab = local / "parakeet_vocab.json";
    struct Row {
        std::optional<std::string> contents;  // absent: no file
        std::string expected;
    };
    for (const auto& row :
         {Row{std::nullopt, "Vocabulary file not found at " + vocab.string() +
                                ". Please ensure the vocab file is downloaded with the models."},
          Row{"[\"a\", \"b\"]", "Vocabulary file has unexpected format"},
          Row{"{\"1\": \"a\"", "Failed to load or parse vocabulary file at " + vocab.string()}}) {
        fs::remove(vocab);
        if (row.contents) testing::writeText(vocab, *row.contents);
        EXPECT_THAT(
            [&] { loadVocabulary(vocab); },
            ThrowsMessage<AsrModelsError>(StrEq("Failed to load ASR models: " + row.expected)));
    }
    testing::writeText(vocab,
                       "{\"7\": \"x\", \"pad\": \"y\", \"-2\": \"z\", \"99999999999\": \"w\"}");
    EXPECT_EQ(loadVocabulary(vocab), (Vocabulary{{7, "x"}, {-2, "z"}}));
}

TEST_F(AsrModelsTest, RefusedVersionsAndConfigurations) {
    EXPECT_THROW(AsrModels::download(downloads, local, false, AsrModelVersion::ctcZhCn),
                 AsrModelsError);
    EXPECT_THROW(AsrModels::load(downloads, local, std::nullopt, AsrModelVersion::ctcZhCn),
                 AsrModelsError);

    auto ci = [](const std::string& name) {
        return name == "CI" ? std::optional<std::string>("1") : std::nullopt;
    };
    EXPECT_EQ(AsrModels::optimizedConfiguration(false, ci),
              (ModelConfiguration{ComputeUnits::cpuOnly, false}));
    EXPECT_EQ(AsrModels::optimizedConfiguration(true, {}),
              (ModelConfiguration{ComputeUnits::cpuAndNeuralEngine, true}));
}

}  // namespace
}  // namespace speech
