#include "CorvaneApp/dashboard/ChartState.h"

#include <algorithm>
#include <cmath>

namespace corvane {

double niceAxisTop(double largest, double floor) {
    if (!std::isfinite(largest) || largest <= floor) return floor;
    // Four equal steps of 1, 2, 2.5 or 5 times a power of ten, so every tick reads round.
    const double rawStep = largest / 4;
    const double power = std::pow(10.0, std::floor(std::log10(rawStep)));
    for (double factor : {1.0, 2.0, 2.5, 5.0, 10.0}) {
        if (factor * power >= rawStep) return 4 * factor * power;
    }
    return 40 * power;
}

std::string valueAxisFormat(double top, std::string_view prefix, std::string_view suffix,
                            int fractionDigits) {
    const double step = std::isfinite(top) && top > 0 ? top / 4 : 0.25;
    int decimals = 0;
    // A step of 1, 2, 2.5 or 5 times a power of ten needs at most one more decimal than its power.
    while (decimals < 4 && std::fabs(step * std::pow(10.0, decimals) -
                                     std::round(step * std::pow(10.0, decimals))) > 1e-6)
        ++decimals;
    if (decimals > 0) decimals = std::max(decimals, fractionDigits);
    return std::string(prefix) + "%." + std::to_string(decimals) + "f" + std::string(suffix);
}

}  // namespace corvane
