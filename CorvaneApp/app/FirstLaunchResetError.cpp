#include "CorvaneApp/app/FirstLaunchResetError.h"

#include "CorvaneApp/app/DemoTools.h"
#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

void resetToFirstLaunchState(Session& session) {
    if (auto* tools = session.demoTools()) {
        tools->resetToFirstLaunchState();
        return;
    }
    log::get("AppModel")
        ->info("resetToFirstLaunchState refused: dataMode={}", rawValue(session.dataMode()));
    throw FirstLaunchResetError::notAvailableInRealDataMode();
}

}  // namespace corvane
