#pragma once
// Small presentation preferences and bookkeeping keyed by name ("cvn.schedule.tab", ...), kept in
// a JSON object file under the XDG config folder. Every change is written through at once,
// atomically. Safe to use from any thread.

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane {

class UserDefaults {
  public:
    // Kept in memory only.
    UserDefaults();
    // Backed by `file`, read now. A file that isn't a JSON object is moved aside to
    // "<file>.corrupt" (logged) so the next write doesn't destroy it, and reading starts empty.
    explicit UserDefaults(std::filesystem::path file);

    // $XDG_CONFIG_HOME/Corvane/user-defaults.json
    static std::filesystem::path defaultFile();

    std::optional<std::string> string(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    // Any JSON number.
    std::optional<double> number(std::string_view key) const;
    // A JSON number with no fraction.
    std::optional<std::int64_t> integer(std::string_view key) const;
    bool contains(std::string_view key) const;
    std::vector<std::string> keys() const;

    // A failed write is logged and the value is kept in memory; preferences never stop the app.
    void setString(std::string_view key, std::string value);
    void setBool(std::string_view key, bool value);
    void setNumber(std::string_view key, double value);
    void setInteger(std::string_view key, std::int64_t value);
    void remove(std::string_view key);

    // Whether the last write reached the disk (always true in memory).
    bool lastWriteSucceeded() const;

  private:
    void set(std::string_view key, nlohmann::json value);
    void persistLocked();  // requires mutex_
    std::optional<nlohmann::json> valueOf(std::string_view key) const;

    const std::optional<std::filesystem::path> file_;
    mutable std::mutex mutex_;
    nlohmann::json values_ = nlohmann::json::object();  // guarded by mutex_
    bool lastWriteSucceeded_ = true;                    // guarded by mutex_
};

}  // namespace corvane
