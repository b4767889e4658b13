#include "CorvaneApp/models/ModelDownloadProgress.h"

#include <algorithm>

namespace corvane {

std::optional<double> ModelDownloadProgress::fractionComplete() const {
    const auto* downloading = std::get_if<Downloading>(&phase);
    if (!downloading || !downloading->total || *downloading->total == 0) return std::nullopt;
    return std::min(
        1.0, static_cast<double>(downloading->bytes) / static_cast<double>(*downloading->total));
}

bool ModelDownloadProgress::isVisible() const {
    return !std::holds_alternative<NotStarted>(phase) && !std::holds_alternative<Ready>(phase);
}

}  // namespace corvane
