#pragma once
// Turns termination signals into a call on the Qt thread. The handler only writes the signal's
// number to a pipe; a socket notifier reads it inside the event loop. Each handler is reset to the
// default after its first signal, so a second Ctrl-C ends a shutdown that hangs. One at a time.

#include <csignal>
#include <functional>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

class QSocketNotifier;

namespace corvane {

class SignalPipe {
  public:
    // Throws std::system_error when the pipe or a handler can't be set up, std::logic_error when
    // another SignalPipe is alive.
    SignalPipe(std::initializer_list<int> signalNumbers, std::function<void(int)> onSignal);
    ~SignalPipe();  // puts the previous handlers back
    SignalPipe(const SignalPipe&) = delete;
    SignalPipe& operator=(const SignalPipe&) = delete;

  private:
    void drain();
    void release();

    int readFd_ = -1;
    int writeFd_ = -1;
    std::function<void(int)> onSignal_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::vector<std::pair<int, struct sigaction>> previous_;
};

}  // namespace corvane
