// The per-sample update's three smoothing filters (field average, pitch and
// roll, azimuth), each cut in two around the sum over its history, so that
// the update can run the three sums side by side (smoothed_outputs.cpp)
// while the exported filters run them one at a time. Each sum reads the
// history's `entries` newest entries, oldest first, before the new entry
// goes in.
#pragma once

#include <cstdint>

namespace magcal {

struct FieldAverageStep {
    int32_t length;   // entries averaged, the new one included
    int32_t entries;  // history entries the sum reads
};
// False once the first call after an initialisation has filled the history
// with v: the output is then v itself.
bool field_average_begin(const double v[3], FieldAverageStep* step);
// Puts v into the history and replaces it by the average.
void field_average_end(double v[3], const double sum[3], const FieldAverageStep& step);

struct TiltStep {
    int32_t n;        // samples in the mean, the new one included
    int32_t entries;  // history entries the sum reads (the sum starts at acc)
};
TiltStep tilt_begin();
void tilt_end(const double acc[3], const double sum[3], const TiltStep& step, double* pitch,
              double* roll);

struct AzimuthStep {
    int32_t length;   // history length for the current period
    int32_t entries;  // history entries the sum reads
    double wrap;      // added to terms below 180 [deg]
    double start;     // the sum's first term, the input's own [deg]
};
// False for the first azimuth after a reset, which is its own output.
bool azimuth_begin(double a, AzimuthStep* step);
// The terms of the `entries` newest history entries by age (0 the newest):
// an outlier's term is +0.0. Returns the number of outliers. `term` has room
// for 100 entries.
int32_t azimuth_terms(double a, const AzimuthStep& step, double term[100]);
double azimuth_end(double a, double sum, int32_t outliers, const AzimuthStep& step);

// The three filters at once, with the same bits and the same history
// updates as average_filter(field), QvGyroCal_update_get_pitch_roll(acc) and
// angle_filter(azimuth) called in that order; acc must not overlap field.
void smoothed_outputs(double field[3], const double acc[3], double azimuth, double* pitch,
                      double* roll, double* heading);

}  // namespace magcal
