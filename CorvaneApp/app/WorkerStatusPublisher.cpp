#include "CorvaneApp/app/WorkerStatusPublisher.h"

#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

WorkerStatusPublisher::WorkerStatusPublisher(Session& session, Executor& mainSequence,
                                             std::filesystem::path file)
    : session_(session), file_(std::move(file)) {
    tick();
    timer_ = mainSequence.scheduleRepeating(intervalSeconds, [this] { tick(); });
}

WorkerStatusPublisher::~WorkerStatusPublisher() {
    timer_.cancel();
    if (!last_) return;
    try {
        const auto current = readWorkerStatusFile(file_);
        if (current && current->pid != last_->pid) return;  // another instance's by now
    } catch (const std::exception&) {
        // A damaged file is no one's: it goes.
    }
    std::error_code ignored;
    std::filesystem::remove(file_, ignored);
}

void WorkerStatusPublisher::tick() {
    WorkerStatusRecord record = session_.statusRecord();
    if (!last_ || last_->presentation != record.presentation) {
        const auto& p = record.presentation;
        log::get("corvane")->info("status: {} — {}", p.label, p.sub);
    }
    record.updatedAt = last_ ? last_->updatedAt : "";
    if (last_ && *last_ == record) return;
    record.updatedAt = internetDateTime(systemNow());
    last_ = record;
    try {
        writeWorkerStatusFile(file_, record);
    } catch (const std::exception& error) {
        log::get("corvane")->warn("cannot write the status file {}: {}", file_.string(),
                                  error.what());
    }
}

}  // namespace corvane
