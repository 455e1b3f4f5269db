#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "magcal/magcal_algorithms.h"
#include "offset/offset_kalman_state.h"

namespace {

using magcal::offset::g_offset_kalman;

double xf(int i) { return g_offset_kalman.kf_xf.data[i][0]; }

bool same_elements(const Matrix6& a, const Matrix6& b) {
    return std::memcmp(a.data, b.data, sizeof a.data) == 0;
}

// ---- A rotating device in a fixed Earth field, integrated exactly. ----------

using Mat3 = double[3][3];

void mat_mul(const Mat3 a, const Mat3 b, Mat3 out) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            r[i][j] = 0.0;
            for (int k = 0; k < 3; ++k) r[i][j] += a[i][k] * b[k][j];
        }
    std::memcpy(out, r, sizeof r);
}

// exp([w]x t) by Rodrigues' formula: exact for a rate held over the interval.
void rotation_exp(const double w[3], double t, Mat3 out) {
    const double n = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
    const double angle = n * t;
    Mat3 k = {{0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}};
    if (n > 0.0) {
        const double u[3] = {w[0] / n, w[1] / n, w[2] / n};
        const Mat3 kk = {{0.0, -u[2], u[1]}, {u[2], 0.0, -u[0]}, {-u[1], u[0], 0.0}};
        std::memcpy(k, kk, sizeof k);
    }
    Mat3 k2;
    mat_mul(k, k, k2);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            out[i][j] = (i == j ? 1.0 : 0.0) + std::sin(angle) * k[i][j] +
                        (1.0 - std::cos(angle)) * k2[i][j];
}

struct RotatingDevice {
    Mat3 body_to_world = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
    double field[3] = {22.0, 5.0, -38.0};  // world field, |f| ~ 44.2 uT
    double offset[3] = {25.0, -35.0, 40.0};
    double t = 0.0;

    // Body rate [rad/s], held over each sample interval.
    static void rate_at(double t, double w[3]) {
        w[0] = 1.2 * std::sin(0.9 * t);
        w[1] = 0.9 * std::cos(0.6 * t + 0.3);
        w[2] = 0.7 * std::sin(0.4 * t + 1.1);
    }

    // Reading m = C^T f + b in body axes.
    void reading(double m[3]) const {
        for (int i = 0; i < 3; ++i) {
            m[i] = offset[i];
            for (int k = 0; k < 3; ++k) m[i] += body_to_world[k][i] * field[k];
        }
    }

    // Turns over dt at the current rate; returns that rate as the gyro sample.
    void advance(double dt, double w[3]) {
        rate_at(t, w);
        Mat3 step;
        rotation_exp(w, dt, step);
        mat_mul(body_to_world, step, body_to_world);
        t += dt;
    }

    double field_norm() const {
        return std::sqrt(field[0] * field[0] + field[1] * field[1] + field[2] * field[2]);
    }
};

void run_rotation(RotatingDevice& dev, int samples, double dt) {
    for (int k = 0; k < samples; ++k) {
        double w[3];
        double m[3];
        dev.advance(dt, w);
        dev.reading(m);
        double off[3];
        double radius;
        func_Offset_Calibration_KF_v4(m, w, off, &radius, dt);
    }
}

// ---- Tests ------------------------------------------------------------------

TEST(OffsetKalmanInit, PriorOffsetIsCopiedUnlessExactlyZero) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    ASSERT_EQ(g_offset_kalman.kf_xf.rows, 6);
    ASSERT_EQ(g_offset_kalman.kf_xf.cols, 1);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(xf(i), 30.0) << i;

    const double neg_zero[3] = {-0.0, 0.0, -0.0};  // equal to 0.0
    func_Offset_Calibration_KF_init(neg_zero);
    for (int i = 3; i < 6; ++i) EXPECT_EQ(xf(i), 30.0) << i;

    const double one_axis[3] = {0.0, 0.0, 5.0};
    func_Offset_Calibration_KF_init(one_axis);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xf(i), 30.0) << i;
    EXPECT_EQ(xf(3), 0.0);
    EXPECT_EQ(xf(4), 0.0);
    EXPECT_EQ(xf(5), 5.0);

    const double nan_axis[3] = {0.0, std::numeric_limits<double>::quiet_NaN(), 0.0};
    func_Offset_Calibration_KF_init(nan_axis);
    EXPECT_EQ(xf(3), 0.0);
    EXPECT_TRUE(std::isnan(xf(4)));
    EXPECT_EQ(xf(5), 0.0);

    func_Offset_Calibration_KF_init(nullptr);  // no prior: the 30.0 start
    for (int i = 3; i < 6; ++i) EXPECT_EQ(xf(i), 30.0) << i;

    // Covariances: reading 0.001, offset 1.0, noise density 0.01, measurement 0.1.
    const auto& st = g_offset_kalman;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) {
            const double p = i != j ? 0.0 : (i < 3 ? 0.001 : 1.0);
            EXPECT_EQ(st.kf_Pf.data[i][j], p);
            EXPECT_EQ(st.kf_Pf0.data[i][j], p);
            EXPECT_EQ(st.kf_Qf.data[i][j], i == j ? 0.01 : 0.0);
            EXPECT_EQ(st.kf_Qf0.data[i][j], i == j ? 0.01 : 0.0);
        }
    EXPECT_EQ(st.kf_Rf.rows, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(st.kf_Rf.data[i][j], i == j ? 0.1 : 0.0);
}

TEST(OffsetKalmanSeed, EachFlagSetsOnlyItsHalf) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    const Matrix6 p_before = g_offset_kalman.kf_Pf;
    const double reading[3] = {1.0, 2.0, 3.0};
    const double offset[3] = {-4.0, -5.0, -6.0};

    func_Offset_Calibration_KF_update_xf(0, reading, 0, offset);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(xf(i), 30.0);

    func_Offset_Calibration_KF_update_xf(1, reading, 0, offset);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xf(i), reading[i]);
    for (int i = 3; i < 6; ++i) EXPECT_EQ(xf(i), 30.0);

    func_Offset_Calibration_KF_init(zero);
    func_Offset_Calibration_KF_update_xf(0, reading, 7, offset);  // any non-zero flag
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xf(i), 30.0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xf(3 + i), offset[i]);

    func_Offset_Calibration_KF_update_xf(1, nullptr, 1, nullptr);  // nothing to copy
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xf(3 + i), offset[i]);
    EXPECT_TRUE(same_elements(g_offset_kalman.kf_Pf, p_before));
    EXPECT_EQ(g_offset_kalman.kf_xf.rows, 6);
}

TEST(OffsetKalmanReset, RestoresOnlyTheCovariances) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    auto& st = g_offset_kalman;
    const Matrix6 pf0 = st.kf_Pf0;
    const Matrix6 qf0 = st.kf_Qf0;
    const Matrix6 rf = st.kf_Rf;
    RotatingDevice dev;
    double m[3];
    dev.reading(m);
    func_Offset_Calibration_KF_update_xf(1, m, 1, zero);
    run_rotation(dev, 50, 0.02);

    // Steps never touch the saved covariances, the noise density or Rf.
    EXPECT_TRUE(same_elements(st.kf_Pf0, pf0));
    EXPECT_TRUE(same_elements(st.kf_Qf0, qf0));
    EXPECT_TRUE(same_elements(st.kf_Qf, qf0));
    EXPECT_TRUE(same_elements(st.kf_Rf, rf));
    EXPECT_FALSE(same_elements(st.kf_Pf, pf0));

    const Matrix6 state = st.kf_xf;
    st.kf_Qf.data[1][1] = 7.0;
    st.kf_Qf.data[5][0] = -1.0;
    st.kf_Pf.rows = 2;  // the counts are not the reset's business
    func_Offset_Calibration_KF_reset();
    EXPECT_TRUE(same_elements(st.kf_Pf, pf0));
    EXPECT_TRUE(same_elements(st.kf_Qf, qf0));
    EXPECT_EQ(st.kf_Pf.rows, 2);
    EXPECT_EQ(std::memcmp(&st.kf_xf, &state, sizeof state), 0);
    st.kf_Pf.rows = 6;
}

// With no rotation (zero rate, or dt = 0) F = I6, so one step is the plain
// update of P + Qd, computed here by hand with a cofactor inverse of S.
TEST(OffsetKalmanStep, ZeroRotationIsAHandComputedUpdate) {
    struct Case {
        double gyro[3];
        double dt;
    };
    const Case cases[] = {{{0.0, 0.0, 0.0}, 0.02}, {{0.8, -0.3, 0.5}, 0.0}};
    for (const Case& c : cases) {
        const double zero[3] = {0.0, 0.0, 0.0};
        func_Offset_Calibration_KF_init(zero);

        // Straight after the seeding the blocks are uncorrelated: no rotation,
        // no information about the offset, which must not move at all.
        const double seed[3] = {10.0, 20.0, -30.0};
        func_Offset_Calibration_KF_update_xf(1, seed, 1, zero);
        const double still[3] = {11.0, 19.0, -29.0};
        double off[3];
        double radius;
        func_Offset_Calibration_KF_v4(still, c.gyro, off, &radius, c.dt);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(off[i], 0.0);

        // Correlate reading and offset by turning first, then check one still step.
        RotatingDevice dev;
        double m[3];
        dev.reading(m);
        func_Offset_Calibration_KF_update_xf(1, m, 1, zero);
        run_rotation(dev, 40, 0.02);

        const auto& st = g_offset_kalman;
        double p[6][6];
        double x[6];
        for (int i = 0; i < 6; ++i) {
            x[i] = xf(i);
            for (int j = 0; j < 6; ++j) p[i][j] = st.kf_Pf.data[i][j];
        }
        // Qd = 0.5 (A + A^T) with A = 0.01 (dt + dt^2), all diagonal.
        const double qd = 0.01 * (c.dt + c.dt * c.dt);
        for (int i = 0; i < 6; ++i) p[i][i] += qd;
        // S = P_rr + 0.1 I and its inverse by cofactors.
        double s[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) s[i][j] = p[i][j] + (i == j ? 0.1 : 0.0);
        double si[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                const int r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
                si[i][j] = s[r0][c0] * s[r1][c1] - s[r0][c1] * s[r1][c0];
            }
        const double det = s[0][0] * si[0][0] + s[0][1] * si[1][0] + s[0][2] * si[2][0];
        for (auto& row : si)
            for (double& v : row) v /= det;
        double k[6][3];
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 3; ++j) {
                k[i][j] = 0.0;
                for (int l = 0; l < 3; ++l) k[i][j] += p[i][l] * si[l][j];
            }
        const double z[3] = {m[0] + 0.7, m[1] - 0.4, m[2] + 0.2};
        double expected_x[6];
        for (int i = 0; i < 6; ++i) {
            expected_x[i] = x[i];
            for (int j = 0; j < 3; ++j) expected_x[i] += k[i][j] * (z[j] - x[j]);
        }
        // Joseph form: (I - KH) P (I - KH)^T + 0.1 K K^T.
        double a[6][6];
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j) a[i][j] = (i == j ? 1.0 : 0.0) - (j < 3 ? k[i][j] : 0.0);
        double ap[6][6];
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j) {
                ap[i][j] = 0.0;
                for (int l = 0; l < 6; ++l) ap[i][j] += a[i][l] * p[l][j];
            }
        double expected_p[6][6];
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j) {
                double v = 0.0;
                for (int l = 0; l < 6; ++l) v += ap[i][l] * a[j][l];
                for (int l = 0; l < 3; ++l) v += 0.1 * k[i][l] * k[j][l];
                expected_p[i][j] = v;
            }

        func_Offset_Calibration_KF_v4(z, c.gyro, off, &radius, c.dt);
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(xf(i), expected_x[i], 1e-11) << i;
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j)
                EXPECT_NEAR(st.kf_Pf.data[i][j], expected_p[i][j], 1e-14) << i << "," << j;
        double r2 = 0.0;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(off[i], xf(3 + i));
            EXPECT_NE(off[i], x[3 + i]);  // the correlation lets the offset move
            r2 += (z[i] - off[i]) * (z[i] - off[i]);
        }
        EXPECT_DOUBLE_EQ(radius, std::sqrt(r2));  // from the updated offset
    }
}

TEST(OffsetKalmanStep, RecoversTheOffsetOfATurningDevice) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    RotatingDevice dev;
    double m[3];
    dev.reading(m);
    func_Offset_Calibration_KF_update_xf(1, m, 1, zero);

    const double dt = 0.02;  // 50 Hz
    double err = 0.0;
    double radius = 0.0;
    for (int second = 1; second <= 20; ++second) {
        for (int k = 0; k < 50; ++k) {
            double w[3];
            dev.advance(dt, w);
            dev.reading(m);
            double off[3];
            func_Offset_Calibration_KF_v4(m, w, off, &radius, dt);
            err = std::sqrt((off[0] - dev.offset[0]) * (off[0] - dev.offset[0]) +
                            (off[1] - dev.offset[1]) * (off[1] - dev.offset[1]) +
                            (off[2] - dev.offset[2]) * (off[2] - dev.offset[2]));
        }
        if (second == 2 || second == 5 || second == 10 || second == 20)
            std::printf("offset filter after %2d s at 50 Hz: offset error %.3g uT, "
                        "radius %.4f uT (true %.4f)\n",
                        second, err, radius, dev.field_norm());
        if (second == 10) {
            EXPECT_LT(err, 3.0);
        }
    }
    EXPECT_LT(err, 1.0);
    EXPECT_NEAR(radius, dev.field_norm(), 1.0);
}

TEST(OffsetKalmanStep, NonFiniteInputSpreadsUntilResetAndSeeding) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    const double m[3] = {10.0, 20.0, 30.0};
    const double bad_gyro[3] = {std::numeric_limits<double>::quiet_NaN(), 0.0, 0.0};
    double off[3];
    double radius;
    func_Offset_Calibration_KF_v4(m, bad_gyro, off, &radius, 0.02);
    EXPECT_TRUE(std::isnan(off[0]));
    EXPECT_TRUE(std::isnan(radius));

    func_Offset_Calibration_KF_reset();
    func_Offset_Calibration_KF_update_xf(1, m, 1, zero);
    const auto& st = g_offset_kalman;
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(std::isfinite(xf(i)));
        for (int j = 0; j < 6; ++j) {
            EXPECT_TRUE(std::isfinite(st.kf_Pf.data[i][j]));
            EXPECT_TRUE(std::isfinite(st.kf_Qf.data[i][j]));
        }
    }
    const double gyro[3] = {0.5, 0.0, 0.0};
    func_Offset_Calibration_KF_v4(m, gyro, off, &radius, 0.02);
    for (double v : off) EXPECT_TRUE(std::isfinite(v));
    EXPECT_TRUE(std::isfinite(radius));

    // Missing inputs are ignored rather than read.
    const Matrix6 held = st.kf_xf;
    func_Offset_Calibration_KF_v4(nullptr, gyro, off, &radius, 0.02);
    func_Offset_Calibration_KF_v4(m, nullptr, off, &radius, 0.02);
    EXPECT_EQ(std::memcmp(&st.kf_xf, &held, sizeof held), 0);
}

}  // namespace
