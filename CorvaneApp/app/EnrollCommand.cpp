#include "CorvaneApp/app/EnrollCommand.h"

#include <istream>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "CorvaneApp/app/OnboardingViewModel.h"
#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/LoopExecutor.h"

namespace corvane {

const char* const kEnrollUsage =
    "usage: corvane enroll --coordinator URL [--token-stdin | --token-file FILE]\n"
    "                      [--schedule always-on | business-hours | HH:MM-HH:MM]\n"
    "\n"
    "Connects this computer to a Corvane coordinator without the setup window: registers it,\n"
    "stores the worker credential in the keyring (or ~/.varnix-compute/credentials when no\n"
    "keyring is reachable), writes ~/.varnix-compute/config.yaml and prints the worker id.\n"
    "\n"
    "  --coordinator URL   the coordinator to register with\n"
    "  --token-stdin       read the invitation (enrolment) token from the first line of "
    "standard\n"
    "                      input, e.g.  corvane enroll --coordinator URL --token-stdin < "
    "token.txt\n"
    "  --token-file FILE   read the invitation token from FILE\n"
    "                      Without either, the computer registers without an invitation.\n"
    "                      The token is never accepted as an argument: arguments show in the\n"
    "                      process list and the shell history.\n"
    "  --schedule WHEN     when the worker may run: always-on (default; whenever the computer "
    "is\n"
    "                      idle and on AC power), business-hours (9:00-17:00 every day), or a\n"
    "                      daily window such as 22:00-06:00\n"
    "  --help              show this text\n"
    "\n"
    "Exit status: 0 enrolled, 1 enrolment failed (nothing is left half-written), 2 bad "
    "usage.\n";

namespace {

constexpr std::size_t kTokenLimit = 4096;

struct UsageError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

struct EnrollOptions {
    std::string coordinatorURL;
    bool tokenFromInput = false;
    std::optional<std::filesystem::path> tokenFile;
    std::string schedule = "always-on";
    bool help = false;
};

EnrollOptions parse(const std::vector<std::string>& arguments) {
    EnrollOptions options;
    bool haveURL = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& flag = arguments[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= arguments.size()) throw UsageError(flag + " needs a value");
            return arguments[++i];
        };
        if (flag == "--help" || flag == "-h") {
            options.help = true;
        } else if (flag == "--coordinator") {
            options.coordinatorURL = value();
            haveURL = true;
        } else if (flag == "--token-stdin") {
            options.tokenFromInput = true;
        } else if (flag == "--token-file") {
            options.tokenFile = value();
        } else if (flag == "--schedule") {
            options.schedule = value();
        } else if (flag == "--token" || flag.starts_with("--token=")) {
            // Deliberately not echoed: the value may be the token itself.
            throw UsageError(
                "the token is not taken as an argument; use --token-stdin or --token-file");
        } else {
            throw UsageError("unknown option " + flag.substr(0, flag.find('=')));
        }
    }
    if (options.help) return options;
    if (!haveURL) throw UsageError("--coordinator URL is required");
    if (options.tokenFromInput && options.tokenFile)
        throw UsageError("use either --token-stdin or --token-file");
    return options;
}

std::string trimmedToken(std::string text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

// Throws std::runtime_error with a text that never holds the token.
std::optional<std::string> readToken(const EnrollOptions& options, std::istream& input) {
    std::optional<std::string> raw;
    std::string source;
    if (options.tokenFromInput) {
        source = "standard input";
        std::string line;
        if (!std::getline(input, line) && line.empty())
            throw std::runtime_error("no invitation token on standard input");
        raw = std::move(line);
    } else if (options.tokenFile) {
        source = options.tokenFile->string();
        raw = readFile(*options.tokenFile);
        if (!raw) throw std::runtime_error("cannot read the invitation token file " + source);
    } else {
        return std::nullopt;
    }
    if (raw->size() > kTokenLimit)
        throw std::runtime_error("the invitation token in " + source + " is too long");
    std::string token = trimmedToken(std::move(*raw));
    if (token.empty()) throw std::runtime_error("the invitation token in " + source + " is empty");
    for (unsigned char c : token) {
        if (c < 0x20 || c == 0x7F)
            throw std::runtime_error("the invitation token in " + source +
                                     " holds control characters");
    }
    return token;
}

// "HH:MM" to hour and minute.
std::optional<std::pair<int, int>> parseClock(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || text.size() - colon != 3 || colon == 0 || colon > 2)
        return std::nullopt;
    const auto hour = parseDecimalInteger(text.substr(0, colon));
    const auto minute = parseDecimalInteger(text.substr(colon + 1));
    if (!hour || !minute || *hour < 0 || *hour > 23 || *minute < 0 || *minute > 59 ||
        text[0] == '+' || text[0] == '-' || text[colon + 1] == '+' || text[colon + 1] == '-') {
        return std::nullopt;
    }
    return std::pair{static_cast<int>(*hour), static_cast<int>(*minute)};
}

void applySchedule(const std::string& schedule, OnboardingViewModel& model) {
    if (schedule == "always-on") {
        model.applySchedulePreset(OnboardingSchedulePreset::alwaysOn);
        return;
    }
    if (schedule == "business-hours") {
        model.applySchedulePreset(OnboardingSchedulePreset::businessHours);
        return;
    }
    const auto dash = schedule.find('-');
    const auto start = dash == std::string::npos
                           ? std::nullopt
                           : parseClock(std::string_view(schedule).substr(0, dash));
    const auto end = dash == std::string::npos
                         ? std::nullopt
                         : parseClock(std::string_view(schedule).substr(dash + 1));
    if (!start || !end) {
        throw UsageError(
            "--schedule must be always-on, business-hours or a window such as 22:00-06:00, not "
            "\"" +
            schedule + "\"");
    }
    model.updateCustomStart(addSeconds(model.makeTime(start->first), start->second * 60.0));
    model.updateCustomEnd(addSeconds(model.makeTime(end->first), end->second * 60.0));
}

}  // namespace

int runEnrollCommand(const std::vector<std::string>& arguments, std::istream& input,
                     std::ostream& output, std::ostream& errors,
                     const EnrollDependencies& dependencies) {
    EnrollOptions options;
    std::optional<std::string> token;
    LoopExecutor loop;
    std::optional<OnboardingViewModel> model;
    try {
        options = parse(arguments);
        if (options.help) {
            output << kEnrollUsage;
            return 0;
        }
        token = readToken(options, input);
        model.emplace(OnboardingViewModel::Dependencies{&loop,
                                                        std::make_shared<TaskBackgroundRunner>(),
                                                        dependencies.registrationClient,
                                                        dependencies.credentialStore,
                                                        dependencies.configPath,
                                                        dependencies.machineFacts(),
                                                        {},
                                                        {},
                                                        dependencies.now});
        applySchedule(options.schedule, *model);
    } catch (const UsageError& error) {
        errors << "corvane enroll: " << error.what() << "\n" << kEnrollUsage;
        return 2;
    } catch (const std::exception& error) {
        errors << "corvane enroll: " << error.what() << "\n";
        return 1;
    }

    model->advance();
    model->setCoordinatorURL(options.coordinatorURL);
    if (token) {
        model->setShowAdvancedOptions(true);
        model->setEnrollmentToken(*token);
    }
    // The view model answers on its main sequence: run it until the request has landed.
    auto untilDone = [&] {
        Subscription done = model->observe([&] {
            if (!model->isWorking()) loop.quit();
        });
        if (model->isWorking()) loop.run();
    };
    errors << "Registering this computer (" << model->machine().computerName << ") with "
           << options.coordinatorURL << " ...\n";
    model->connect();
    untilDone();
    if (model->step() != OnboardingStep::configure) {
        const std::string message = model->errorMessage().value_or("registration failed");
        errors << "corvane enroll: " << message << "\n";
        // The window's "Advanced" section is these options here.
        if (message.find("Advanced") != std::string::npos) {
            errors << "Give the invitation code with --token-stdin or --token-file.\n";
        }
        return 1;
    }
    model->saveConfiguration();
    untilDone();
    if (model->step() != OnboardingStep::done || !model->summary()) {
        errors << "corvane enroll: "
               << model->errorMessage().value_or("saving the enrolment failed") << "\n";
        return 1;
    }
    errors << "This computer is ready. Worker credential stored; settings written to "
           << dependencies.configPath.string() << "\n";
    output << model->summary()->workerID << "\n";
    return 0;
}

}  // namespace corvane
