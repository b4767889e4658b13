#include "CorvaneApp/dashboard/PayoutMethodMeta.h"

namespace corvane {

const MethodMeta& methodMeta(PayoutMethodType method) {
    static const MethodMeta usdc{1, "USDC on Base", "Instant · fee-free"};
    static const MethodMeta paypal{10, "PayPal", "Usually within an hour · 1.5% fee"};
    static const MethodMeta ach{10, "ACH bank transfer", "1-2 business days · fee-free"};
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

std::string minimumText(PayoutMethodType method) {
    return "$" + std::to_string(static_cast<int>(methodMeta(method).min)) + " minimum";
}

std::string methodTitle(const WorkerPayoutMethod& method) {
    if (method.label && !method.label->empty()) return *method.label;
    return std::string(methodMeta(method.method).label);
}

}  // namespace corvane
