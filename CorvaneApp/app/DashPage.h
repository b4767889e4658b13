#pragma once
// The dashboard's pages, in sidebar order, and their names as the model's `requestedPage` and the
// "cvn.page" default carry them.

#include <array>
#include <optional>
#include <string_view>

namespace corvane {

enum class DashPage { overview, earnings, models, schedule, payouts, settings };

inline constexpr std::array allDashPages{DashPage::overview, DashPage::earnings,
                                         DashPage::models,   DashPage::schedule,
                                         DashPage::payouts,  DashPage::settings};

constexpr std::string_view rawValue(DashPage page) {
    switch (page) {
        case DashPage::overview:
            return "overview";
        case DashPage::earnings:
            return "earnings";
        case DashPage::models:
            return "models";
        case DashPage::schedule:
            return "schedule";
        case DashPage::payouts:
            return "payouts";
        case DashPage::settings:
            return "settings";
    }
    return "overview";
}

constexpr std::optional<DashPage> dashPageFromRaw(std::string_view raw) {
    for (auto page : allDashPages) {
        if (rawValue(page) == raw) return page;
    }
    return std::nullopt;
}

}  // namespace corvane
