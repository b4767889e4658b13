#pragma once
// Writes config.yaml at enrolment: a new file from the template, or an existing one with only its
// identity keys and token reference updated, so that re-enrolment keeps the owner's settings.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/config/OnboardingConfiguration.h"
#include "CorvaneApp/config/WorkerTokenKeychainRef.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct WorkerConfigWriter {
    std::string coordinatorURL;
    std::string workerID;
    WorkerTokenKeychainRef workerTokenRef;
    OnboardingConfiguration configuration;
    NowFunction now = systemNow;

    // Writes ~/.varnix-compute/config.yaml and returns its path. Throws std::invalid_argument for
    // a value with a line break, std::system_error / filesystem_error for a file that can't be
    // read or written; the old file is then untouched.
    std::filesystem::path write() const;
    std::filesystem::path write(const std::filesystem::path& destination) const;

    // The text of a new file.
    std::string renderYAML() const;
    // `base` with coordinator_url, worker_id, onboarding_completed_at and the token reference
    // updated; the template when `base` is blank.
    std::string buildYAML(std::string_view base) const;

    // Replaces the first unindented "key:" / "key: ..." line by "key: value" (a trailing comment
    // goes with it), or inserts it as the file's first line.
    static void setOrInsertTopLevelScalar(std::string_view key, std::string_view value,
                                          std::vector<std::string>& lines);
    // Replaces the worker_token_keychain block (header and its indented lines), or adds it at the
    // end, before a final empty line.
    void replaceWorkerTokenKeychainBlock(std::vector<std::string>& lines) const;

  private:
    void validate() const;
};

// "2026-11-16T21:00:53Z"
std::string internetDateTime(Date date);
// "HH:mm" in the current time zone.
std::string localHourMinute(Date date);

}  // namespace corvane
