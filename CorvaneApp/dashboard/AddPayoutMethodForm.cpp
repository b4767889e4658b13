#include "CorvaneApp/dashboard/AddPayoutMethodForm.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "CorvaneApp/dashboard/PayoutMethodMeta.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isWalletAddress(std::string_view text) {
    return text.size() == 42 && text.starts_with("0x") &&
           std::all_of(text.begin() + 2, text.end(), isHexDigit);
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool allOf(std::string_view text, bool (*allowed)(char)) {
    return !text.empty() && std::all_of(text.begin(), text.end(), allowed);
}

// ^[A-Z0-9a-z._%+\-]+@[A-Z0-9a-z.\-]+\.[A-Za-z]{2,}$, matched by hand: neither side may hold an
// '@', and the top-level part, after the last dot, is letters only.
bool isEmailAddress(std::string_view text) {
    const auto at = text.find('@');
    if (at == std::string_view::npos) return false;
    const auto local = text.substr(0, at), domain = text.substr(at + 1);
    const auto dot = domain.rfind('.');
    if (dot == std::string_view::npos) return false;
    const auto host = domain.substr(0, dot), top = domain.substr(dot + 1);
    return allOf(local,
                 [](char c) {
                     return isLetter(c) || isDigit(c) ||
                            std::string_view("._%+-").find(c) != std::string_view::npos;
                 }) &&
           allOf(host, [](char c) { return isLetter(c) || isDigit(c) || c == '.' || c == '-'; }) &&
           top.size() >= 2 && allOf(top, isLetter);
}

bool isAccountNumber(std::string_view text) {
    return text.size() >= 4 && text.size() <= 17 && std::all_of(text.begin(), text.end(), isDigit);
}

std::string digitsOf(std::string_view text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), isDigit);
    return digits;
}

struct FieldText {
    std::string_view label;
    std::string_view placeholder;
    std::string_view error;
    std::string_view hint;
};

const FieldText& fieldText(ValidationField field) {
    static const FieldText wallet{"Wallet address", "0x…",
                                  "Enter a valid 42-character 0x wallet address.",
                                  "Must be a 42-character 0x-prefixed hex address."};
    static const FieldText email{"PayPal email", "you@example.com", "Enter a valid email address.",
                                 "Use the email that receives PayPal payouts."};
    static const FieldText routing{"Routing number", "9 digits",
                                   "Routing numbers must be 9 digits and pass the checksum.",
                                   "Nine digits with the standard checksum."};
    static const FieldText account{"Account number", "4 to 17 digits",
                                   "Account numbers must be 4 to 17 digits.",
                                   "Four to seventeen digits."};
    static const FieldText holder{"Account holder name", "Name on the account",
                                  "Enter the account holder name.",
                                  "Use the legal name on the bank account."};
    switch (field) {
        case ValidationField::walletAddress:
            return wallet;
        case ValidationField::email:
            return email;
        case ValidationField::routingNumber:
            return routing;
        case ValidationField::accountNumber:
            return account;
        case ValidationField::accountHolderName:
            return holder;
    }
    return holder;
}

bool belongsTo(ValidationField field, PayoutMethodType method) {
    const auto& fields = fieldsOf(method);
    return std::find(fields.begin(), fields.end(), field) != fields.end();
}

}  // namespace

std::optional<ValidationField> validationField(std::string_view serverField) {
    static const std::map<std::string_view, ValidationField> names{
        {"wallet_address", ValidationField::walletAddress},
        {"walletAddress", ValidationField::walletAddress},
        {"usdc_wallet_address", ValidationField::walletAddress},
        {"email", ValidationField::email},
        {"paypal_email", ValidationField::email},
        {"routing_number", ValidationField::routingNumber},
        {"routingNumber", ValidationField::routingNumber},
        {"account_number", ValidationField::accountNumber},
        {"accountNumber", ValidationField::accountNumber},
        {"account_holder_name", ValidationField::accountHolderName},
        {"accountHolderName", ValidationField::accountHolderName},
    };
    auto it = names.find(serverField);
    if (it == names.end()) return std::nullopt;
    return it->second;
}

bool isValidRoutingNumber(std::string_view text) {
    const std::string digits = digitsOf(text);
    if (digits.size() != 9) return false;
    static constexpr int weights[] = {3, 7, 1};
    int sum = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) sum += (digits[i] - '0') * weights[i % 3];
    return sum % 10 == 0;
}

std::optional<std::string> validationError(ValidationField field, std::string_view text) {
    const std::string value = trimWhitespaceAndNewlines(text);
    bool valid = false;
    switch (field) {
        case ValidationField::walletAddress:
            valid = isWalletAddress(value);
            break;
        case ValidationField::email:
            valid = isEmailAddress(value);
            break;
        case ValidationField::routingNumber:
            valid = isValidRoutingNumber(value);
            break;
        case ValidationField::accountNumber:
            valid = isAccountNumber(value);
            break;
        case ValidationField::accountHolderName:
            valid = !value.empty();
            break;
    }
    if (valid) return std::nullopt;
    return std::string(fieldText(field).error);
}

const std::vector<ValidationField>& fieldsOf(PayoutMethodType method) {
    static const std::vector<ValidationField> usdc{ValidationField::walletAddress};
    static const std::vector<ValidationField> paypal{ValidationField::email};
    static const std::vector<ValidationField> ach{ValidationField::routingNumber,
                                                  ValidationField::accountNumber,
                                                  ValidationField::accountHolderName};
    switch (method) {
        case PayoutMethodType::usdc:
            return usdc;
        case PayoutMethodType::paypal:
            return paypal;
        case PayoutMethodType::ach:
            return ach;
    }
    return ach;
}

const std::string& AddPayoutMethodForm::text(ValidationField field) const {
    switch (field) {
        case ValidationField::walletAddress:
            return walletAddress;
        case ValidationField::email:
            return email;
        case ValidationField::routingNumber:
            return routingNumber;
        case ValidationField::accountNumber:
            return accountNumber;
        case ValidationField::accountHolderName:
            return accountHolderName;
    }
    return accountHolderName;
}

std::string& AddPayoutMethodForm::text(ValidationField field) {
    return const_cast<std::string&>(std::as_const(*this).text(field));
}

BuiltRequest buildRequest(const AddPayoutMethodForm& form) {
    BuiltRequest built;
    for (const auto field : fieldsOf(form.selectedTab)) {
        if (auto error = validationError(field, form.text(field))) built.errors[field] = *error;
    }
    if (!built.errors.empty()) return built;
    AddPayoutMethodRequest request;
    request.method = form.selectedTab;
    request.makePrimary = form.makePrimary;
    switch (form.selectedTab) {
        case PayoutMethodType::usdc:
            request.walletAddress = trimWhitespaceAndNewlines(form.walletAddress);
            break;
        case PayoutMethodType::paypal:
            request.email = trimWhitespaceAndNewlines(form.email);
            break;
        case PayoutMethodType::ach:
            // The checked form: the nine digits without the blanks and dashes people type.
            request.routingNumber = digitsOf(form.routingNumber);
            request.accountNumber = trimWhitespaceAndNewlines(form.accountNumber);
            request.accountHolderName = trimWhitespaceAndNewlines(form.accountHolderName);
            request.accountType = form.accountType;
            break;
    }
    built.request = std::move(request);
    return built;
}

FriendlyMessage friendlyMessage(const CoordinatorAPIError& error) {
    using Kind = CoordinatorAPIError::Kind;
    switch (error.kind()) {
        case Kind::httpError: {
            const bool hasDetail = error.detail() && !error.detail()->empty();
            if (error.field() && !error.field()->empty()) {
                if (auto field = validationField(*error.field())) {
                    return {hasDetail ? *error.detail() : std::string(fieldText(*field).error),
                            field};
                }
            }
            if (hasDetail) return {*error.detail(), std::nullopt};
            return {"Coordinator rejected the change (HTTP " + std::to_string(error.statusCode()) +
                        ").",
                    std::nullopt};
        }
        case Kind::encodingError:
            return {"Could not serialize the payout request.", std::nullopt};
        case Kind::decodingError:
            return {"The coordinator returned an unexpected response.", std::nullopt};
        case Kind::unauthorized:
            return {"Sign in again to save payout methods.", std::nullopt};
        case Kind::payoutPrefsSetupRequired:
            return {"Finish payout destination setup before changing payout preferences.",
                    std::nullopt};
        case Kind::payoutCycleConflict:
            return {
                "Wait until the current payout cycle completes before changing payout "
                "preferences.",
                std::nullopt};
        case Kind::networkError:
            break;
    }
    return {"Couldn't reach the coordinator. Check your connection and try again.", std::nullopt};
}

void editField(AddPayoutMethodSheetData& data, ValidationField field, std::string text) {
    data.form.text(field) = std::move(text);
    data.validationErrors.erase(field);
}

std::optional<AddPayoutMethodRequest> beginSubmit(AddPayoutMethodSheetData& data) {
    if (data.isSubmitting) return std::nullopt;
    auto built = buildRequest(data.form);
    data.validationErrors = std::move(built.errors);
    data.submitError.reset();
    if (!built.request) return std::nullopt;
    data.isSubmitting = true;
    return built.request;
}

bool finishSubmit(AddPayoutMethodSheetData& data, const std::optional<CoordinatorAPIError>& error) {
    data.isSubmitting = false;
    if (!error) return true;
    auto message = friendlyMessage(*error);
    // A field of another tab can't be shown where it belongs; the text goes under the form.
    if (message.field && belongsTo(*message.field, data.form.selectedTab)) {
        data.validationErrors[*message.field] = std::move(message.text);
    } else {
        data.submitError = std::move(message.text);
    }
    return false;
}

AddPayoutMethodSheetState addPayoutMethodSheetState(const AddPayoutMethodSheetData& data) {
    AddPayoutMethodSheetState state;
    state.title = "Add payout method";
    for (const auto method : allPayoutMethodTypes) {
        state.tabs.push_back(
            {method, std::string(methodMeta(method).label), method == data.form.selectedTab});
    }
    for (const auto field : fieldsOf(data.form.selectedTab)) {
        const auto& text = fieldText(field);
        std::optional<std::string> error;
        if (auto it = data.validationErrors.find(field); it != data.validationErrors.end())
            error = it->second;
        state.fields.push_back({field, std::string(text.label), std::string(text.placeholder),
                                std::string(text.hint), std::move(error)});
    }
    state.showsAccountType = data.form.selectedTab == PayoutMethodType::ach;
    state.accountTypeLabel = "Account type";
    state.accountTypeTitles = {"Checking", "Savings"};
    state.selectedAccountType = data.form.accountType == PayoutBankAccountType::savings ? 1 : 0;
    state.makePrimaryTitle = "Make this my primary payout method";
    state.makePrimaryHint =
        "If this is your first payout method, the coordinator will make it primary automatically.";
    state.makePrimary = data.form.makePrimary;
    state.submitError = data.submitError;
    state.cancelTitle = "Cancel";
    state.submitTitle = data.isSubmitting ? "Adding…" : "Add method";
    state.editable = !data.isSubmitting;
    return state;
}

}  // namespace corvane
