#pragma once
// `corvane earnings`: what the account has earned, for an owner without a screen. Balances,
// today with its pace, the totals of a range, and the week's best jobs, read from the coordinator
// with the enrolled credential; `--csv FILE` writes the same CSV as the earnings page.

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct EarningsCommandDependencies {
    // The enrolled client; null when this computer is not enrolled. May throw when the
    // enrolment's files can't be read.
    std::function<std::shared_ptr<const CoordinatorAPIProtocol>()> coordinatorAPI;
    NowFunction now = systemNow;
};

// `arguments` are those after "earnings". Returns the exit status: 0 shown (and written), 1 the
// coordinator could not be read or the file not written, 2 bad arguments, 3 not enrolled.
int runEarningsCommand(const std::vector<std::string>& arguments, std::ostream& output,
                       std::ostream& errors, const EarningsCommandDependencies& dependencies);

}  // namespace corvane
