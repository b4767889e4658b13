#pragma once
// What each way of being paid costs and needs: its payout minimum, its name and its terms.

#include <string>
#include <string_view>

#include "CorvaneApp/coordinator/AccountRecords.h"

namespace corvane {

struct MethodMeta {
    double min = 0;  // USD
    std::string_view label;
    std::string_view note;
};

const MethodMeta& methodMeta(PayoutMethodType method);
// "$10 minimum"
std::string minimumText(PayoutMethodType method);
// The row's own label when it has one, else its method's.
std::string methodTitle(const WorkerPayoutMethod& method);

}  // namespace corvane
