// Whether the filter steps may take their specialised kernels.
//
// Every specialised step reproduces its plain step bit for bit (and falls
// back to it by itself whenever an operand is not finite). The switch exists
// so that tests can run the plain reference on the same inputs and compare.
#pragma once

namespace magcal {

struct FastPathSwitch {
    bool plain_only;  // true: every step takes its plain path
};

extern FastPathSwitch g_fast_path;

inline bool fast_path_enabled() {
    return !g_fast_path.plain_only;
}
void set_fast_path_enabled(bool enabled);

}  // namespace magcal
