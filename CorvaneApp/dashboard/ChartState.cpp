#include "CorvaneApp/dashboard/ChartState.h"

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

}  // namespace corvane
