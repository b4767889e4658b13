#pragma once
// The machine's identity as enrolment wrote it to config.yaml: which coordinator, which worker.
// Together with the stored token it is what makes the machine enrolled.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

struct WorkerConfig {
    std::string coordinatorURL;
    std::string workerID;
    std::optional<std::string> onboardingCompletedAt;

    // Absent when the file can't be read or lacks a non-empty coordinator_url or worker_id.
    static std::optional<WorkerConfig> load(const std::filesystem::path& path);
    static std::optional<WorkerConfig> parse(std::string_view yaml);

    // A top-level value with its comment cut at the first "#" (no blank needed), then one pair
    // of quotes removed; empty counts as absent.
    static std::optional<std::string> extractTopLevelString(std::string_view key,
                                                            std::string_view yaml);

    friend bool operator==(const WorkerConfig&, const WorkerConfig&) = default;
};

}  // namespace corvane
