#pragma once
// A model download as the screens show it: which model, and how far.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace corvane {

struct ModelDownloadProgress {
    struct Downloading {
        std::uint64_t bytes = 0;
        std::optional<std::uint64_t> total;
        bool operator==(const Downloading&) const = default;
    };
    struct Failed {
        std::string description;
        bool operator==(const Failed&) const = default;
    };
    struct NotStarted {
        bool operator==(const NotStarted&) const = default;
    };
    struct Ready {
        bool operator==(const Ready&) const = default;
    };
    using Phase = std::variant<Downloading, Failed, NotStarted, Ready>;

    std::string modelDisplayName;
    Phase phase = NotStarted{};

    bool operator==(const ModelDownloadProgress&) const = default;

    // Bytes over total, at most 1, while downloading with a known total above zero.
    std::optional<double> fractionComplete() const;
    // Hidden before the start and once ready.
    bool isVisible() const;
};

}  // namespace corvane
