// Small numeric rules shared by every stage.
#pragma once

#include <cstdint>

namespace magcal {

// Truncation toward zero into an int32, defined for every input: values that
// do not fit (and NaN) give INT32_MIN, which is what the hardware conversion
// yields, instead of undefined behaviour.
inline int32_t truncate_to_int32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// A hold-off written as hundredths of a second, in samples of the current
// period (integer division). A zero period gives 0 rather than a trap.
inline int32_t samples_for(int32_t hundredths, int32_t period_10ms) {
    if (period_10ms == 0) return 0;
    return hundredths / period_10ms;
}

}  // namespace magcal
