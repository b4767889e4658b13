#pragma once
// The add-payout-method sheet below the toolkit: what the owner typed, the local checks every
// destination passes before anything reaches the coordinator, the request built from it, and the
// words for a refusal. These strings decide where money goes, so nothing is sent while a field
// fails its check.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/coordinator/CoordinatorAPIError.h"

namespace corvane {

enum class ValidationField {
    walletAddress,
    email,
    routingNumber,
    accountNumber,
    accountHolderName
};
using ValidationErrors = std::map<ValidationField, std::string>;

// The coordinator's name for a field, snake or camel case ("usdc_wallet_address" too).
std::optional<ValidationField> validationField(std::string_view serverField);
// Nine digits once blanks and dashes are dropped, weighted 3, 7, 1 and summing to a multiple of 10.
bool isValidRoutingNumber(std::string_view text);
// The failed check's text, or absent when `text` passes (it is trimmed first).
std::optional<std::string> validationError(ValidationField field, std::string_view text);
// The fields the tab of `method` asks for, in order.
const std::vector<ValidationField>& fieldsOf(PayoutMethodType method);

struct AddPayoutMethodForm {
    PayoutMethodType selectedTab = PayoutMethodType::usdc;
    std::string walletAddress;
    std::string email;
    std::string routingNumber;
    std::string accountNumber;
    std::string accountHolderName;
    PayoutBankAccountType accountType = PayoutBankAccountType::checking;
    bool makePrimary = false;

    const std::string& text(ValidationField field) const;
    std::string& text(ValidationField field);
    friend bool operator==(const AddPayoutMethodForm&, const AddPayoutMethodForm&) = default;
};

// The request of the selected tab, or the errors of its fields (only its own fields are checked).
struct BuiltRequest {
    std::optional<AddPayoutMethodRequest> request;
    ValidationErrors errors;
};
BuiltRequest buildRequest(const AddPayoutMethodForm& form);

// A refusal in the owner's words; `field` set when the coordinator named a field of the sheet.
struct FriendlyMessage {
    std::string text;
    std::optional<ValidationField> field;
    friend bool operator==(const FriendlyMessage&, const FriendlyMessage&) = default;
};
FriendlyMessage friendlyMessage(const CoordinatorAPIError& error);

// Everything the sheet holds between opening and closing.
struct AddPayoutMethodSheetData {
    AddPayoutMethodForm form;
    ValidationErrors validationErrors;
    std::optional<std::string> submitError;
    bool isSubmitting = false;
    friend bool operator==(const AddPayoutMethodSheetData&,
                           const AddPayoutMethodSheetData&) = default;
};

// Typing in a field clears the error shown under it.
void editField(AddPayoutMethodSheetData& data, ValidationField field, std::string text);
// The first half of submitting: the request to send (and the sheet is now submitting), or
// absent with the errors put on their fields. Absent too while a submission is under way.
std::optional<AddPayoutMethodRequest> beginSubmit(AddPayoutMethodSheetData& data);
// The second half, with the coordinator's answer (absent: accepted). True when the sheet closes;
// otherwise it stays open with what was typed and the refusal on its field or under the form.
bool finishSubmit(AddPayoutMethodSheetData& data, const std::optional<CoordinatorAPIError>& error);

// The sheet as its view shows it.
struct AddPayoutMethodSheetState {
    struct Tab {
        PayoutMethodType method;
        std::string title;
        bool selected = false;
        friend bool operator==(const Tab&, const Tab&) = default;
    };
    struct Field {
        ValidationField field;
        std::string label;
        std::string placeholder;
        std::string hint;
        std::optional<std::string> error;
        friend bool operator==(const Field&, const Field&) = default;
    };
    std::string title;
    std::vector<Tab> tabs;
    std::vector<Field> fields;  // the selected tab's
    bool showsAccountType = false;
    std::string accountTypeLabel;
    std::vector<std::string> accountTypeTitles;  // checking, savings
    int selectedAccountType = 0;
    std::string makePrimaryTitle;
    std::string makePrimaryHint;
    bool makePrimary = false;
    std::optional<std::string> submitError;
    std::string cancelTitle;
    std::string submitTitle;  // "Adding…" while submitting
    bool editable = true;     // false while submitting
    friend bool operator==(const AddPayoutMethodSheetState&,
                           const AddPayoutMethodSheetState&) = default;
};
AddPayoutMethodSheetState addPayoutMethodSheetState(const AddPayoutMethodSheetData& data);

}  // namespace corvane
