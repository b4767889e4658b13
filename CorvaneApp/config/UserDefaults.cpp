#include "CorvaneApp/config/UserDefaults.h"

#include <cmath>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane {
UserDefaults::UserDefaults() = default;

UserDefaults::UserDefaults(std::filesystem::path file) : file_(std::move(file)) {
    auto text = readFile(*file_);
    if (!text) return;
    auto parsed = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_object()) {
        values_ = std::move(parsed);
        return;
    }
    auto aside = file_->string() + ".corrupt";
    std::error_code error;
    std::filesystem::rename(*file_, aside, error);
    log::get("UserDefaults")
        ->error("{} is not a JSON object; moved it to {} and started with no preferences",
                file_->string(),
                error ? std::string("(move failed: ") + error.message() + ")" : aside);
}

std::filesystem::path UserDefaults::defaultFile() {
    return paths::appConfigDir() / "user-defaults.json";
}

std::optional<nlohmann::json> UserDefaults::valueOf(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(std::string(key));
    if (it == values_.end()) return std::nullopt;
    return *it;
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    auto value = valueOf(key);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    auto value = valueOf(key);
    if (!value || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

std::optional<double> UserDefaults::number(std::string_view key) const {
    auto value = valueOf(key);
    if (!value || !value->is_number()) return std::nullopt;
    return value->get<double>();
}

std::optional<std::int64_t> UserDefaults::integer(std::string_view key) const {
    auto value = valueOf(key);
    if (!value || !value->is_number()) return std::nullopt;
    if (value->is_number_integer()) return value->get<std::int64_t>();
    double number = value->get<double>();
    if (std::trunc(number) != number || std::fabs(number) > 9.0e15) return std::nullopt;
    return static_cast<std::int64_t>(number);
}

bool UserDefaults::contains(std::string_view key) const {
    return valueOf(key).has_value();
}

std::vector<std::string> UserDefaults::keys() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (auto it = values_.begin(); it != values_.end(); ++it) names.push_back(it.key());
    return names;
}

void UserDefaults::setString(std::string_view key, std::string value) {
    set(key, std::move(value));
}
void UserDefaults::setBool(std::string_view key, bool value) {
    set(key, value);
}
void UserDefaults::setNumber(std::string_view key, double value) {
    // JSON has no infinity or NaN; such a value is no preference worth keeping.
    if (!std::isfinite(value)) {
        log::get("UserDefaults")->error("UserDefaults refused a non-finite number for {}", key);
        return;
    }
    set(key, value);
}
void UserDefaults::setInteger(std::string_view key, std::int64_t value) {
    set(key, value);
}

void UserDefaults::set(std::string_view key, nlohmann::json value) {
    std::lock_guard lock(mutex_);
    values_[std::string(key)] = std::move(value);
    persistLocked();
}

void UserDefaults::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (values_.erase(std::string(key)) == 0) return;
    persistLocked();
}

bool UserDefaults::lastWriteSucceeded() const {
    std::lock_guard lock(mutex_);
    return lastWriteSucceeded_;
}

void UserDefaults::persistLocked() {
    if (!file_) return;
    try {
        std::filesystem::create_directories(file_->parent_path());
        // Replace invalid UTF-8 in strings instead of failing the whole file.
        writeFileAtomically(
            *file_, values_.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
            0600);
        lastWriteSucceeded_ = true;
    } catch (const std::exception& error) {
        lastWriteSucceeded_ = false;
        log::get("UserDefaults")->error("UserDefaults write failed: {}", error.what());
    }
}

}  // namespace corvane
