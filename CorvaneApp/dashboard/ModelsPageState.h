#pragma once
// Everything the Models page shows: who picks the models, the filter, the categories with the
// Whisper and Parakeet rows (status, size, progress, install, retry and remove), the disk the
// weights take beside the owner's files, and the budget card. The budget, eviction and category
// choices are stored preferences of the page; nothing in the worker reads them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"

namespace corvane {

// `auto` is a keyword here; the stored word stays "auto".
enum class ModelsPageMode { automatic, manual };
enum class ModelsPageFilter { all, installed, available, update };
enum class ModelsPageCategory { transcription, imagegen, embeddings, textgen };
enum class ModelStatus { serving, idle, paused, downloading, update, available, failed };

std::string_view rawValue(ModelsPageMode mode);          // "auto", "manual"
std::string_view rawValue(ModelsPageFilter filter);      // "all", "installed", ...
std::string_view rawValue(ModelsPageCategory category);  // "transcription", "imagegen", ...

// The page's preferences in the user's defaults, with their defaults.
struct ModelsPagePrefs {
    static constexpr std::string_view modeKey = "cvn.models.mode";
    static constexpr std::string_view diskBudgetKey = "cvn.models.diskBudgetGB";
    static constexpr std::string_view purgeDaysKey = "cvn.models.purgeDays";
    static constexpr std::string_view allowTranscriptionKey = "cvn.models.catAllowTranscription";

    ModelsPageMode mode = ModelsPageMode::automatic;
    double diskBudgetGB = 20.0;
    int purgeDays = 30;
    bool catAllowTranscription = true;

    // A stored value of the wrong kind, or out of range, reads as the default.
    static ModelsPagePrefs load(const UserDefaults& defaults);
    friend bool operator==(const ModelsPagePrefs&, const ModelsPagePrefs&) = default;
};

// A row's status and download fraction from the one download the model knows and whether the
// row's weights are on disk.
struct ModelRowStatus {
    ModelStatus status = ModelStatus::available;
    std::optional<double> fraction;
    friend bool operator==(const ModelRowStatus&, const ModelRowStatus&) = default;
};
ModelRowStatus rowStatus(const std::optional<ModelDownloadProgress>& progress, bool installed);

struct ModelsPageRow {
    enum class Action { install, retry, remove };
    struct Button {
        Action action;
        std::string title;  // "Remove · 0.53 GB"
        friend bool operator==(const Button&, const Button&) = default;
    };

    std::string id;
    std::string name;
    ModelsPageCategory cat = ModelsPageCategory::transcription;
    double sizeGB = 0;
    std::string quant;
    ModelStatus status = ModelStatus::available;
    std::string lastServed;
    std::string desc;
    std::string license;
    std::string published;
    std::string vram;
    std::optional<int> contextSec;

    // How it shows.
    bool installed = false;  // its weights are on disk
    std::string statusText;  // "Installed"
    std::string details;     // "0.53 GB · q5_0 · MIT · OpenAI · Nov 2023"
    std::optional<double> fraction;
    std::string progressText;  // "41% · 235 MB / 574 MB", or why the download failed
    std::vector<Button> buttons;
    std::string note;  // the auto mode's word on the switch, or why the row cannot serve here
    friend bool operator==(const ModelsPageRow&, const ModelsPageRow&) = default;
};

// Gigabytes of 2 to the 30th bytes.
struct DiskAllocationBar {
    double total = 0;
    double free = 0;
    double corvaneUsed = 0;
    double corvaneBudget = 0;

    struct Segment {
        enum class Kind { system, models, headroom, rest };
        Kind kind;
        double gigabytes = 0;
        friend bool operator==(const Segment&, const Segment&) = default;
    };
    // The system and the owner's files, the models, what the budget leaves, and the rest: they
    // add up to the total.
    std::vector<Segment> segments() const;
    friend bool operator==(const DiskAllocationBar&, const DiskAllocationBar&) = default;
};

struct ModelsPageState {
    struct ModeOption {
        ModelsPageMode mode;
        std::string title;
        std::string line;
        bool selected = false;
        friend bool operator==(const ModeOption&, const ModeOption&) = default;
    };
    struct FilterOption {
        ModelsPageFilter filter;
        std::string title;
        bool selected = false;
        friend bool operator==(const FilterOption&, const FilterOption&) = default;
    };
    struct Category {
        ModelsPageCategory category;
        std::string name;
        std::string line;
        bool open = false;                // has rows and a switch; the others are closed choices
        bool allowed = false;             // its switch
        std::string pausedText;           // shown while switched off
        std::string usage;                // "0.53 GB on disk"
        std::vector<ModelsPageRow> rows;  // those the filter lets through
        friend bool operator==(const Category&, const Category&) = default;
    };
    struct LegendEntry {
        DiskAllocationBar::Segment::Kind kind;
        std::string text;  // "Transcription · 0.5 GB"
        friend bool operator==(const LegendEntry&, const LegendEntry&) = default;
    };

    std::string modeQuestion = "Who picks what to serve?";
    std::vector<ModeOption> modes;
    std::string modeLine;
    std::vector<FilterOption> filters;
    std::vector<Category> categories;
    std::optional<std::string> emptyText;    // "No models match this filter."
    std::optional<std::string> removalText;  // what the last removal freed

    std::string diskTitle = "Disk used by Corvane models";
    std::optional<DiskAllocationBar> disk;  // absent until the volume is measured
    std::vector<LegendEntry> diskLegend;

    std::string budgetTitle = "MAXIMUM SPACE CORVANE CAN USE";
    std::string budgetText =
        "Hard cap on how much space Corvane can use for model weights. We'll evict the "
        "least-used models to stay under.";
    int budgetGB = 20;
    int budgetMinimum = 1;
    int budgetMaximum = 200;
    std::string budgetValueText;  // "20 GB"
    std::string freeText;         // "171.2 GB free right now. Corvane can never claim ..."
    std::string purgeTitle = "Evict after unused for";
    int purgeDays = 30;
    std::vector<int> purgeChoices;
    std::string purgeText =
        "Free disk space by removing models that haven't served a job in a while. They'll "
        "re-download when needed.";
    std::string integrityTitle = "Integrity verification";
    std::string integrityText =
        "Model hashes are always verified at launch. This ensures you serve accurate results.";

    friend bool operator==(const ModelsPageState&, const ModelsPageState&) = default;
};

// The last removal the page carried out, to say what it freed.
struct ModelRemoval {
    std::string name;
    std::uint64_t bytesFreed = 0;
    friend bool operator==(const ModelRemoval&, const ModelRemoval&) = default;
};

// "Whisper large-v3 turbo ... Parakeet TDT v2": the two rows, Whisper first, unfiltered.
std::vector<ModelsPageRow> modelsPageRows(const AppModel& model, ModelsPageMode mode);
// Gigabytes of the installed rows of `category`.
double categoryDiskUsage(const std::vector<ModelsPageRow>& rows, ModelsPageCategory category);
// The identifier behind a row id; absent for any other id, which install and remove pass over.
std::optional<ModelIdentifier> modelIdentifierForRow(std::string_view rowID);

ModelsPageState modelsPageState(const AppModel& model, const ModelsPagePrefs& prefs,
                                ModelsPageFilter filter,
                                const std::optional<ModelRemoval>& lastRemoval);

}  // namespace corvane
