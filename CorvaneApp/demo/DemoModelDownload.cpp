#include "CorvaneApp/demo/DemoModelDownload.h"

#include "CorvaneApp/models/ModelCatalogue.h"

namespace corvane {
namespace {

std::uint64_t catalogueSize(const ModelIdentifier& identifier) {
    const auto entry = catalogueEntry(identifier);
    return entry ? entry->downloadSizeBytes : 0;
}

}  // namespace

DemoModelDownload::DemoModelDownload(Executor& mainSequence,
                                     std::function<void(const std::optional<ModelDownloadProgress>&,
                                                        const std::unordered_set<ModelIdentifier>&)>
                                         onChange)
    : main_(mainSequence), onChange_(std::move(onChange)) {}

void DemoModelDownload::start(const ModelIdentifier& identifier) {
    downloading_ = identifier;
    step_ = 0;
    installed_.erase(identifier);
    progress_ =
        ModelDownloadProgress{modelDisplayName(identifier),
                              ModelDownloadProgress::Downloading{0, catalogueSize(identifier)}};
    timer_ = main_.scheduleRepeating(stepSeconds, [this] { step(); });
    tell();
}

void DemoModelDownload::step() {
    if (!downloading_) return;
    const std::uint64_t total = catalogueSize(*downloading_);
    if (++step_ < steps) {
        progress_->phase = ModelDownloadProgress::Downloading{total / steps * step_, total};
    } else {
        installed_.insert(*downloading_);
        downloading_.reset();
        progress_.reset();
        timer_.cancel();
    }
    tell();
}

void DemoModelDownload::markInstalled(const ModelIdentifier& identifier) {
    installed_.insert(identifier);
    tell();
}

std::uint64_t DemoModelDownload::remove(const ModelIdentifier& identifier) {
    if (downloading_ == identifier) {
        downloading_.reset();
        progress_.reset();
        timer_.cancel();
    }
    const bool wasInstalled = installed_.erase(identifier) > 0;
    tell();
    return wasInstalled ? catalogueSize(identifier) : 0;
}

}  // namespace corvane
