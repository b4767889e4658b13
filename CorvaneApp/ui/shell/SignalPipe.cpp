#include "CorvaneApp/ui/shell/SignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace corvane {
namespace {

// A signal handler can reach nothing but globals: this is the write end of the live pipe, or -1.
std::atomic<int> gSignalWriteFd{-1};

extern "C" void writeSignalNumber(int signalNumber) {
    const int savedErrno = errno;
    const int fd = gSignalWriteFd.load();
    if (fd >= 0) {
        const auto byte = static_cast<unsigned char>(signalNumber);
        [[maybe_unused]] auto written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

}  // namespace

SignalPipe::SignalPipe(std::initializer_list<int> signalNumbers, std::function<void(int)> onSignal)
    : onSignal_(std::move(onSignal)) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "signal pipe");
    }
    readFd_ = fds[0];
    writeFd_ = fds[1];
    int expected = -1;
    if (!gSignalWriteFd.compare_exchange_strong(expected, writeFd_)) {
        ::close(readFd_);
        ::close(writeFd_);
        throw std::logic_error("only one SignalPipe may be alive at a time");
    }
    notifier_ = std::make_unique<QSocketNotifier>(readFd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { drain(); });

    for (int signalNumber : signalNumbers) {
        struct sigaction action {};
        action.sa_handler = writeSignalNumber;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART | SA_RESETHAND;
        struct sigaction old {};
        if (::sigaction(signalNumber, &action, &old) != 0) {
            const int error = errno;
            release();
            throw std::system_error(error, std::generic_category(), "sigaction");
        }
        previous_.emplace_back(signalNumber, old);
    }
}

SignalPipe::~SignalPipe() {
    release();
}

void SignalPipe::release() {
    for (auto& [signalNumber, old] : previous_) ::sigaction(signalNumber, &old, nullptr);
    previous_.clear();
    notifier_.reset();
    if (writeFd_ >= 0) gSignalWriteFd.store(-1);
    if (readFd_ >= 0) ::close(readFd_);
    if (writeFd_ >= 0) ::close(writeFd_);
    readFd_ = writeFd_ = -1;
}

void SignalPipe::drain() {
    unsigned char buffer[16];
    for (;;) {
        const auto got = ::read(readFd_, buffer, sizeof buffer);
        if (got <= 0) break;
        for (ssize_t i = 0; i < got; ++i) {
            if (onSignal_) onSignal_(buffer[i]);
        }
    }
}

}  // namespace corvane
