#pragma once
// One Corvane per desktop session: the first instance owns a name on the session bus, and a
// second start asks it to come forward and ends instead of running a second worker.

#include <QObject>

#include <functional>
#include <memory>

namespace corvane {

class SingleInstance final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "computer.corvane.Desktop")

  public:
    static constexpr const char* serviceName = "computer.corvane.Desktop";
    static constexpr const char* objectPath = "/computer/corvane/Desktop";

    enum class Outcome {
        first,    // this process is the instance; `onActivate` runs when another start asks
        another,  // one was running and has been asked to come forward
        noBus,    // no session bus to ask: this process runs on its own
    };
    struct Claim {
        Outcome outcome;
        std::unique_ptr<SingleInstance> instance;  // set for `first`; keeps the name while alive
    };
    static Claim claim(std::function<void()> onActivate);

    explicit SingleInstance(std::function<void()> onActivate);  // use claim()
    ~SingleInstance() override;

  public slots:
    Q_SCRIPTABLE void Activate();

  private:
    std::function<void()> onActivate_;
};

}  // namespace corvane
