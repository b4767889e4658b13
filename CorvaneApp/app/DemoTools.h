#pragma once
// What the sample session offers a demo beyond the screens: going back to the first launch. A
// real session offers none, and that absence is its refusal (see FirstLaunchResetError.h).

namespace corvane {

class DemoTools {
  public:
    virtual ~DemoTools() = default;
    // Signs the sample session out and clears its credentials, model cache and the screens'
    // remembered choices, as on the first launch.
    virtual void resetToFirstLaunchState() = 0;
};

}  // namespace corvane
