#include "CorvaneApp/ui/shell/QtExecutor.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <cmath>
#include <exception>
#include <mutex>

#include "CorvaneApp/platform/Log.h"

namespace corvane {

namespace {

// An exception must not unwind through Qt's event loop: log it and keep running.
void runGuarded(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        log::get("QtExecutor")->error("Work on the main sequence failed: {}", error.what());
    } catch (...) {
        log::get("QtExecutor")->error("Work on the main sequence failed with an unknown error");
    }
}

int toMilliseconds(double seconds, bool repeating) {
    double ms = std::isfinite(seconds) ? std::ceil(seconds * 1000.0)
                                       : (seconds > 0 ? double(INT_MAX) : 0.0);
    ms = std::clamp(ms, 0.0, double(INT_MAX));
    // A zero-interval repeating timer would spin the loop.
    return std::max(static_cast<int>(ms), repeating ? 1 : 0);
}

}  // namespace

// Where other threads post to. The executor clears `anchor` under the lock before deleting it, so
// a post either lands in the queue of a live object or is dropped.
struct QtExecutor::Gate {
    std::mutex mutex;
    QObject* anchor = nullptr;  // guarded by mutex

    void post(std::function<void()> work) {
        std::lock_guard lock(mutex);
        if (anchor == nullptr) return;
        QMetaObject::invokeMethod(
            anchor, [work = std::move(work)] { runGuarded(work); }, Qt::QueuedConnection);
    }
};

QtExecutor::QtExecutor(QObject& context)
    : anchor_(std::make_unique<QObject>()), gate_(std::make_shared<Gate>()) {
    if (anchor_->thread() != context.thread()) anchor_->moveToThread(context.thread());
    gate_->anchor = anchor_.get();
}

QtExecutor::~QtExecutor() {
    {
        std::lock_guard lock(gate_->mutex);
        gate_->anchor = nullptr;
    }
    timers_.clear();
    anchor_.reset();
}

bool QtExecutor::onOwnThread() const {
    return QThread::currentThread() == anchor_->thread();
}

void QtExecutor::post(std::function<void()> work) {
    gate_->post(std::move(work));
}

TimerHandle QtExecutor::scheduleOnce(double delaySeconds, std::function<void()> work) {
    return schedule(delaySeconds, false, std::move(work));
}

TimerHandle QtExecutor::scheduleRepeating(double intervalSeconds, std::function<void()> work) {
    return schedule(intervalSeconds, true, std::move(work));
}

TimerHandle QtExecutor::schedule(double seconds, bool repeating, std::function<void()> work) {
    const auto id = nextTimerID_.fetch_add(1);
    const int ms = toMilliseconds(seconds, repeating);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    if (onOwnThread()) {
        startTimer(id, ms, repeating, cancelled, std::move(work));
    } else {
        // QTimer lives on the Qt thread; a cancel posted later is queued behind this start.
        gate_->post([this, id, ms, repeating, cancelled, work = std::move(work)]() mutable {
            startTimer(id, ms, repeating, cancelled, std::move(work));
        });
    }
    std::weak_ptr<Gate> weakGate = gate_;
    return TimerHandle([this, weakGate, id, cancelled] {
        // The flag stops a firing already due; the QTimer itself is deleted on its own thread.
        // Posted work only runs while the executor lives, so `this` is valid there.
        cancelled->store(true);
        if (auto gate = weakGate.lock()) gate->post([this, id] { timers_.erase(id); });
    });
}

void QtExecutor::startTimer(std::uint64_t id, int milliseconds, bool repeating,
                            const std::shared_ptr<std::atomic<bool>>& cancelled,
                            std::function<void()> work) {
    if (cancelled->load()) return;
    auto timer = std::make_unique<QTimer>();
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(!repeating);
    timer->setInterval(milliseconds);
    QObject::connect(timer.get(), &QTimer::timeout, anchor_.get(),
                     [this, id, repeating, cancelled, work = std::move(work)] {
                         if (cancelled->load()) return;
                         // A fired one-shot is retired later: a QTimer can't be deleted inside its
                         // own signal.
                         if (!repeating) gate_->post([this, id] { timers_.erase(id); });
                         runGuarded(work);
                     });
    timer->start();
    timers_.emplace(id, std::move(timer));
}

}  // namespace corvane
