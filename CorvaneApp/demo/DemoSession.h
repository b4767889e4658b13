#pragma once
// The sample session: the same model and screens as a real one, over stand-in sources chosen
// here once. The account comes from the sample account through a demo account API, settings stay
// in memory, the worker is the demo's fixed shard rhythm, and model downloads are simulated. No
// coordinator is contacted and no socket is opened.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/demo/DemoCoordinatorAPI.h"
#include "CorvaneApp/demo/DemoModelDownload.h"
#include "CorvaneApp/demo/DummyDataProvider.h"
#include "CorvaneApp/platform/BackgroundRunner.h"

namespace corvane {

class DemoSession final : public Session {
  public:
    struct Options {
        std::string version;
        Date referenceDate = systemNow();  // the sample account reads as of this instant
        // Whisper "downloads" for a few seconds at launch; off, it is installed from the start.
        bool simulateModelDownload = true;
        bool startBackgroundTasks = true;
        NowFunction now = systemNow;
        // Seconds since the session began, which the shard rhythm follows; absent: a steady clock.
        std::function<double()> sessionElapsed;
    };

    DemoSession(Executor& mainSequence, Options options);
    ~DemoSession() override;

    void launch() override;
    void terminate() override;
    AppModel& model() override { return *model_; }
    WorkerConfigStore& configStore() override { return *configStore_; }
    UserDefaults& userDefaults() override { return userDefaults_; }
    WorkerStatusRecord statusRecord() override;

    // The sample onboarding's end: the session is enrolled again.
    void enroll();
    // Pins the shard rhythm (screenshots show one moment); absent follows the clock again.
    void setSessionElapsedOverride(std::optional<double> seconds);
    const DummyDataProvider& provider() const { return *provider_; }
    EligibilityGate& eligibilityGate() { return *gate_; }

  private:
    std::optional<WorkerControllerSnapshot> workerSnapshot() const;
    void applyDownload(const std::optional<ModelDownloadProgress>& progress,
                       const std::unordered_set<ModelIdentifier>& installed);

    Executor& main_;
    Options options_;
    std::shared_ptr<EligibilityGate> gate_;
    UserDefaults userDefaults_;  // in memory
    InlineBackgroundRunner runner_;
    std::unique_ptr<WorkerConfigStore> configStore_;
    std::shared_ptr<const DummyDataProvider> provider_;
    std::shared_ptr<DemoCoordinatorAPI> api_;
    bool signedOut_ = false;
    std::optional<double> elapsedOverride_;
    DemoModelDownload download_;
    std::unique_ptr<AppModel> model_;
};

}  // namespace corvane
