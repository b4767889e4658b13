#include "CorvaneApp/dashboard/ModelsPageState.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/dashboard/Formatting.h"
#include "CorvaneApp/models/ModelCatalogue.h"

namespace corvane {
namespace {

constexpr double kBytesPerGB = 1024.0 * 1024.0 * 1024.0;
constexpr std::string_view kWhisperRowID = "whisper-large-v3-turbo";
constexpr std::string_view kParakeetRowID = "parakeet-tdt-0.6b-v2";

std::string_view statusWords(ModelStatus status) {
    switch (status) {
        case ModelStatus::serving:
            return "Serving";
        case ModelStatus::idle:
            return "Installed";
        case ModelStatus::paused:
            return "Paused";
        case ModelStatus::downloading:
            return "Downloading";
        case ModelStatus::update:
            return "Update available";
        case ModelStatus::available:
            return "Not installed";
        case ModelStatus::failed:
            return "Download failed";
    }
    return "Not installed";
}

// The download the model knows, when it is this row's.
std::optional<ModelDownloadProgress> progressOf(const AppModel& model,
                                                const ModelIdentifier& identifier) {
    const auto& progress = model.modelInstall().modelDownloadProgress();
    if (progress && progress->modelDisplayName == modelDisplayName(identifier)) return progress;
    return std::nullopt;
}

ModelsPageRow makeRow(const AppModel& model, ModelsPageMode mode, const ModelIdentifier& identifier,
                      bool runnable) {
    ModelsPageRow row;
    const bool whisper = identifier == whisperModelIdentifier();
    if (whisper) {
        row.id = kWhisperRowID;
        row.name = "Whisper large-v3-turbo";
        row.quant = "q5_0";
        row.desc =
            "Transcribes audio in 99 languages — strong on accented speech and noisy recordings. "
            "Runs on this computer's processor. This is the model Corvane uses to earn you money "
            "from transcription jobs.";
        row.license = "MIT · OpenAI";
        row.published = "Nov 2023";
        row.contextSec = 30;
    } else {
        row.id = kParakeetRowID;
        row.name = "Parakeet TDT v2";
        row.desc =
            "Transcribes English audio. Faster than Whisper and more accurate on English speech. "
            "English-only — multilingual jobs route to Whisper instead.";
        row.license = "Apache-2.0 · NVIDIA";
        row.published = "Jul 2024";
    }
    row.cat = ModelsPageCategory::transcription;
    const auto entry = catalogueEntry(identifier);
    row.sizeGB = entry ? double(entry->downloadSizeBytes) / kBytesPerGB : 0.0;
    row.lastServed = "—";

    const bool installed = model.modelInstall().installedModelIDs().contains(identifier);
    row.installed = installed;
    const auto progress = progressOf(model, identifier);
    const auto status = rowStatus(progress, installed);
    row.status = status.status;
    row.fraction = status.fraction;
    row.statusText = statusWords(row.status);

    std::vector<std::string> details{fixed(row.sizeGB, 2) + " GB"};
    for (const auto* part : {&row.quant, &row.license, &row.published}) {
        if (!part->empty()) details.push_back(*part);
    }
    for (std::size_t i = 0; i < details.size(); ++i) row.details += (i ? " · " : "") + details[i];

    if (progress) {
        if (const auto* downloading =
                std::get_if<ModelDownloadProgress::Downloading>(&progress->phase)) {
            row.progressText =
                byteProgressSubtitle(downloading->bytes, downloading->total, row.fraction);
        } else if (const auto* failed =
                       std::get_if<ModelDownloadProgress::Failed>(&progress->phase)) {
            row.progressText = failed->description;
        }
    }

    using Action = ModelsPageRow::Action;
    if (row.status == ModelStatus::failed && runnable) {
        row.buttons.push_back({Action::retry, "Retry download"});
    } else if (row.status == ModelStatus::available && runnable) {
        row.buttons.push_back({Action::install, "Install"});
    }
    if (installed && row.status != ModelStatus::downloading) {
        row.buttons.push_back({Action::remove, "Remove · " + fixed(row.sizeGB, 2) + " GB"});
    }
    if (!runnable) {
        row.note =
            "This build of Corvane has no runtime for Parakeet on Linux, so it cannot serve jobs "
            "here and is not offered for install. Whisper serves every transcription job.";
    } else if (mode == ModelsPageMode::automatic) {
        row.note = "Corvane is managing your models. Switch to manual mode to override.";
    }
    return row;
}

bool passes(const ModelsPageRow& row, ModelsPageFilter filter) {
    switch (filter) {
        case ModelsPageFilter::all:
            return true;
        case ModelsPageFilter::installed:
            return row.status != ModelStatus::available;
        case ModelsPageFilter::available:
            return row.status == ModelStatus::available;
        case ModelsPageFilter::update:
            return row.status == ModelStatus::update;
    }
    return true;
}

}  // namespace

std::string_view rawValue(ModelsPageMode mode) {
    return mode == ModelsPageMode::manual ? "manual" : "auto";
}

std::string_view rawValue(ModelsPageFilter filter) {
    switch (filter) {
        case ModelsPageFilter::all:
            return "all";
        case ModelsPageFilter::installed:
            return "installed";
        case ModelsPageFilter::available:
            return "available";
        case ModelsPageFilter::update:
            return "update";
    }
    return "all";
}

std::string_view rawValue(ModelsPageCategory category) {
    switch (category) {
        case ModelsPageCategory::transcription:
            return "transcription";
        case ModelsPageCategory::imagegen:
            return "imagegen";
        case ModelsPageCategory::embeddings:
            return "embeddings";
        case ModelsPageCategory::textgen:
            return "textgen";
    }
    return "transcription";
}

ModelsPagePrefs ModelsPagePrefs::load(const UserDefaults& defaults) {
    ModelsPagePrefs prefs;
    if (defaults.string(modeKey) == "manual") prefs.mode = ModelsPageMode::manual;
    if (auto budget = defaults.number(diskBudgetKey);
        budget && std::isfinite(*budget) && *budget >= 1 && *budget <= 100'000) {
        prefs.diskBudgetGB = *budget;
    }
    if (auto days = defaults.integer(purgeDaysKey); days && *days >= 1 && *days <= 3650)
        prefs.purgeDays = int(*days);
    if (auto allow = defaults.boolean(allowTranscriptionKey)) prefs.catAllowTranscription = *allow;
    return prefs;
}

ModelRowStatus rowStatus(const std::optional<ModelDownloadProgress>& progress, bool installed) {
    if (!progress || std::holds_alternative<ModelDownloadProgress::NotStarted>(progress->phase))
        return {installed ? ModelStatus::idle : ModelStatus::available, std::nullopt};
    if (std::holds_alternative<ModelDownloadProgress::Failed>(progress->phase))
        return {ModelStatus::failed, std::nullopt};
    if (std::holds_alternative<ModelDownloadProgress::Ready>(progress->phase))
        return {ModelStatus::idle, std::nullopt};
    return {ModelStatus::downloading, progress->fractionComplete()};
}

std::vector<DiskAllocationBar::Segment> DiskAllocationBar::segments() const {
    using Kind = Segment::Kind;
    const double used = std::max(corvaneUsed, 0.0);
    const double freeSpace = std::clamp(free, 0.0, std::max(total, 0.0));
    const double system = std::max(total - freeSpace - used, 0.0);
    const double headroom = std::clamp(corvaneBudget - used, 0.0, freeSpace);
    return {{Kind::system, system},
            {Kind::models, used},
            {Kind::headroom, headroom},
            {Kind::rest, std::max(freeSpace - headroom, 0.0)}};
}

std::vector<ModelsPageRow> modelsPageRows(const AppModel& model, ModelsPageMode mode) {
    return {
        makeRow(model, mode, whisperModelIdentifier(), true),
        makeRow(model, mode, parakeetModelIdentifier(), model.modelInstall().parakeetRunnable())};
}

double categoryDiskUsage(const std::vector<ModelsPageRow>& rows, ModelsPageCategory category) {
    double total = 0;
    for (const auto& row : rows) {
        if (row.cat == category && row.installed) total += row.sizeGB;
    }
    return total;
}

std::optional<ModelIdentifier> modelIdentifierForRow(std::string_view rowID) {
    if (rowID == kWhisperRowID) return whisperModelIdentifier();
    if (rowID == kParakeetRowID) return parakeetModelIdentifier();
    return std::nullopt;
}

ModelsPageState modelsPageState(const AppModel& model, const ModelsPagePrefs& prefs,
                                ModelsPageFilter filter,
                                const std::optional<ModelRemoval>& lastRemoval) {
    ModelsPageState state;
    state.modes = {
        {ModelsPageMode::automatic, "Corvane manages models",
         "We pick what to download and serve based on demand, your computer's specs, and your "
         "budget. Best for most people.",
         prefs.mode == ModelsPageMode::automatic},
        {ModelsPageMode::manual, "I'll choose manually",
         "Only serve the models you've explicitly toggled on below. You may earn less — or pay "
         "less in electricity — depending on demand.",
         prefs.mode == ModelsPageMode::manual},
    };
    state.modeLine = prefs.mode == ModelsPageMode::automatic
                         ? "Corvane is managing these. Toggles below only take effect in manual "
                           "mode."
                         : "You are driving. Only models you enable below will serve jobs.";
    for (auto [value, title] : {std::pair{ModelsPageFilter::all, "All"},
                                std::pair{ModelsPageFilter::installed, "Installed"},
                                std::pair{ModelsPageFilter::available, "Available"},
                                std::pair{ModelsPageFilter::update, "Updates"}}) {
        state.filters.push_back({value, title, value == filter});
    }

    const auto rows = modelsPageRows(model, prefs.mode);
    const double used = categoryDiskUsage(rows, ModelsPageCategory::transcription);
    std::size_t shown = 0;
    for (auto [category, name, line] : {
             std::tuple{ModelsPageCategory::transcription, "Transcription",
                        "Speech-to-text. Whisper handles 99 languages; Parakeet is faster for "
                        "English."},
             std::tuple{ModelsPageCategory::imagegen, "Image generation",
                        "Stable Diffusion, SDXL, FLUX. Higher $/job, runs less often."},
             std::tuple{ModelsPageCategory::embeddings, "Embeddings",
                        "Vector embeddings for search & RAG."},
             std::tuple{ModelsPageCategory::textgen, "Text generation",
                        "Small LLMs — Qwen, Llama, Phi."},
         }) {
        ModelsPageState::Category entry{category, name, line, false, false, "", "", {}};
        if (category == ModelsPageCategory::transcription) {
            entry.open = true;
            entry.allowed = prefs.catAllowTranscription;
            entry.usage = fixed(used, 2) + " GB on disk";
            for (const auto& row : rows) {
                if (passes(row, filter)) entry.rows.push_back(row);
            }
            shown += entry.rows.size();
        }
        if (!entry.allowed) entry.pausedText = "Paused — no models in this category will serve";
        state.categories.push_back(std::move(entry));
    }
    if (shown == 0) state.emptyText = "No models match this filter.";
    if (lastRemoval) {
        state.removalText =
            "Removed " + lastRemoval->name + " · freed " + formatFileBytes(lastRemoval->bytesFreed);
    }

    state.budgetGB = int(std::lround(prefs.diskBudgetGB));
    state.budgetValueText = std::to_string(state.budgetGB) + " GB";
    state.purgeDays = prefs.purgeDays;
    state.purgeChoices = {7, 14, 30, 60, 90};
    if (std::find(state.purgeChoices.begin(), state.purgeChoices.end(), prefs.purgeDays) ==
        state.purgeChoices.end()) {
        state.purgeChoices.push_back(prefs.purgeDays);
        std::sort(state.purgeChoices.begin(), state.purgeChoices.end());
    }
    if (const auto& volume = model.modelInstall().volume()) {
        state.disk = DiskAllocationBar{volume->totalGB, volume->freeGB, used, prefs.diskBudgetGB};
        using Kind = DiskAllocationBar::Segment::Kind;
        const auto segments = state.disk->segments();
        state.diskLegend = {
            {Kind::system, "The system & files · " + formatGB(segments[0].gigabytes)},
            {Kind::models, "Transcription · " + formatGB(segments[1].gigabytes)},
            {Kind::headroom, "Budget headroom · " + formatGB(segments[2].gigabytes)},
        };
        state.freeText = fixed(volume->freeGB, 1) +
                         " GB free right now. Corvane can never claim space the system or your "
                         "files already use.";
        state.budgetMaximum = std::max(
            {int(std::floor(volume->freeGB + used)), state.budgetGB, state.budgetMinimum + 9});
    } else {
        state.budgetMaximum = std::max(200, state.budgetGB);
    }
    return state;
}

}  // namespace corvane
