# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors

"""The report script's pieces that decide what a long session looks like and
what it is summarised as: reading columns in blocks, thinning series for
drawing, drawing angles across the 0/360 seam, and the heading summary."""

import math
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools",
                                "magcal"))
import report  # noqa: E402

report.import_packages()
np = report.np
np.seterr(all="ignore")  # as the script runs: NaN and infinite outputs are expected input


def write(test, name, text):
    """A file in a directory removed after `test`."""
    if not hasattr(test, "scratch"):
        test.scratch = tempfile.TemporaryDirectory()
        test.addCleanup(test.scratch.cleanup)
    path = os.path.join(test.scratch.name, name)
    with open(path, "w", encoding="utf-8", newline="") as handle:
        handle.write(text)
    return path


class ColumnReading(unittest.TestCase):
    COLUMNS = [("t", "i8"), ("v", "f4"), ("acc", "level"), ("truth", "f8")]

    def setUp(self):
        # Blocks of a few lines, so that every test crosses block boundaries.
        self.saved_block = report.ColumnReader.BLOCK_BYTES
        report.ColumnReader.BLOCK_BYTES = 40

    def tearDown(self):
        report.ColumnReader.BLOCK_BYTES = self.saved_block

    def read(self, text, **kw):
        return report.ColumnReader(write(self, "in.csv", text), "a test file", self.COLUMNS,
                                   **kw).read()

    def test_clean_and_messy_files_give_the_same_columns(self):
        rows = [(1000000000 + 20000000 * k, 0.1 * k - 3, k % 4, 1e-3 * k) for k in range(200)]
        clean = "extra,t,v,acc,truth\n" + "".join(
            f"x,{t},{v!r},{a},{w!r}\n" for t, v, a, w in rows)
        messy = ("\ufeff# made by hand\n\n extra , t ,v,acc,truth\r\n" + "".join(
            f"x, {t} ,{v!r},{a},{w!r}\r\n" + ("# note\n\n" if k % 37 == 5 else "")
            for k, (t, v, a, w) in enumerate(rows))).rstrip("\r\n")  # no final line end
        for text in (clean, messy):
            table = self.read(text)
            self.assertEqual(table["t"].dtype, np.int64)
            self.assertEqual(table["v"].dtype, np.float32)
            self.assertEqual(table["t"].tolist(), [r[0] for r in rows])
            self.assertEqual(table["v"].tolist(), [float(np.float32(r[1])) for r in rows])
            self.assertEqual(table["acc"].tolist(), [r[2] for r in rows])
            self.assertEqual(table["truth"].tolist(), [r[3] for r in rows])

    def test_wide_timestamps_blanks_and_headerless_files(self):
        big = 2**62 + 1  # not a double
        self.assertEqual(self.read(f"t,v,acc,truth\n{big},1,0,0\n{-big},1,0,0\n")["t"].tolist(),
                         [big, -big])
        table = self.read("t,v,acc,truth\n1,2,3,\n2,2,3,5\n", blank_ok=["truth"])
        self.assertTrue(math.isnan(table["truth"][0]))
        self.assertEqual(table["truth"][1], 5.0)
        table = self.read("# no header\n5,1,2,3\n6,1,2,4\n", layout_if_headerless="t,v,acc,truth")
        self.assertEqual((table["t"].tolist(), table["truth"].tolist()), ([5, 6], [3.0, 4.0]))

    def test_errors_name_file_line_and_field_in_any_block(self):
        good = "".join(f"{k},1.5,3,0\n" for k in range(50))
        head = "t,v,acc,truth\n# comment\n"  # the first bad line below is 3 + 50
        cases = [(head + good + bad + "\n" + good, "53: " + message) for bad, message in [
            ("9,1.2.3,3,0", "field 'v': not a number: \"1.2.3\""),
            ("1.5,1,3,0", "field 't': not an integer: \"1.5\""),
            ("99999999999999999999,1,3,0", "field 't': out of the 64-bit range"),
            ("9,1,4,0", "field 'acc': not 0..3: \"4\""),
            ("9,1,nan,0", "field 'acc': not 0..3: \"nan\""),
            ("9,1,3", "3 fields, the header has 4"),
            ("9,1,3,0,0", "5 fields, the header has 4"),
            ("9,,3,0", "field 'v': empty"),
        ]] + [("# c\nt,v,truth\n1,2,3\n", "2: header: no column 'acc' (not a test file)"),
              ("# only\n\n", " empty: not a test file")]
        for text, message in cases:
            with self.assertRaises(report.InputError) as caught:
                self.read(text)
            self.assertEqual(str(caught.exception).split("in.csv:", 1)[1][:len(message)], message)


class Series(unittest.TestCase):
    def test_each_result_finds_the_first_truth_row_with_its_timestamp(self):
        truth_t = np.array([30, 10, 20, 10, 50], dtype="i8")
        rows = report.join_truth(np.array([10, 20, 25, 50, 60, 30], dtype="i8"), truth_t)
        self.assertEqual(rows.tolist(), [1, 2, -1, 4, -1, 0])
        self.assertEqual(report.join_truth(np.array([1, 2]), np.zeros(0, "i8")).tolist(), [-1, -1])

    def test_thinning_keeps_extremes_in_order_and_bounds_the_size(self):
        x = np.arange(10.0)
        self.assertIs(report.minmax_decimate(x, x * 2, buckets=5)[0], x)  # short: as it is
        n = 100003  # not a multiple of the bucket size
        x = np.arange(n) * 0.02
        y = np.random.default_rng(3).normal(size=n)
        y[777], y[54321], y[-1] = 40.0, -35.0, 25.0  # spikes, one in the last, short bucket
        xs, ys = report.minmax_decimate(x, y, buckets=300)
        self.assertLessEqual(len(xs), 600)
        for k in (777, 54321, n - 1):
            self.assertEqual(xs[list(ys).index(y[k])], x[k])  # there, at its own time
        self.assertTrue(np.all(np.diff(xs) >= 0))

    def test_thinning_keeps_a_gap_only_where_a_whole_bucket_has_no_value(self):
        y = np.ones(10000)
        y[4000:6000] = math.nan
        y[100] = math.nan  # a single missing value is not worth a gap
        xs, ys = report.minmax_decimate(np.arange(10000.0), y, buckets=100)
        gap = np.isnan(ys)
        self.assertTrue(gap.any())
        self.assertTrue(np.all((xs[gap] >= 4000) & (xs[gap] < 6000)))

    def test_shading_share_per_bucket(self):
        flag = np.zeros(1000, bool)
        flag[:250] = True
        edges, share = report.bucket_fraction(np.arange(1000.0), flag, buckets=4)
        self.assertEqual(share.tolist(), [1.0, 0.0, 0.0, 0.0])
        self.assertEqual(edges.tolist(), [0.0, 250.0, 500.0, 750.0, 999.0])


class AnglesAcrossTheSeam(unittest.TestCase):
    def test_wrap180(self):
        got = report.wrap180(np.array([180.0, -180.0, 540.0, -190.0, 0.0, 359.0]))
        self.assertEqual(got.tolist(), [180.0, 180.0, 180.0, 170.0, 0.0, -1.0])

    def test_a_turn_through_north_is_drawn_on_both_edges_without_a_jump(self):
        angle = np.array([340.0, 355.0, 5.0, 20.0])
        segments = report.circular_segments(np.arange(4.0), report.unwrap_degrees(angle), 0.0)
        # The step 355 -> 5 is drawn from 355 up past the top edge and again
        # from below the bottom edge up to 5, so it shows on both edges.
        crossing = segments[segments[:, 0, 0] == 1.0]
        self.assertEqual(sorted(crossing[:, :, 1].tolist()), [[-5.0, 5.0], [355.0, 365.0]])
        self.assertEqual(len(segments), 4)

    def test_unwrap_leaves_gaps_and_restarts_after_them(self):
        u = report.unwrap_degrees(np.array([350.0, 5.0, math.nan, 190.0, 200.0]))
        self.assertEqual(u[:2].tolist(), [350.0, 365.0])
        self.assertTrue(math.isnan(u[2]))
        self.assertEqual(u[4] - u[3], 10.0)

    def test_a_whole_turn_between_two_points_is_a_full_height_bar(self):
        segments = report.circular_segments(np.array([0.0, 1.0]), np.array([10.0, 400.0]), -180.0)
        self.assertEqual(segments.tolist(), [[[0.0, -180.0], [0.0, 180.0]]])


class HeadingSummary(unittest.TestCase):
    def summary(self, accuracy, fused, level=None, processed=None):
        """The summary and its lines, the azimuth output exactly on a truth of 0."""
        s = report.Session()
        n = len(accuracy)
        s.t = np.arange(n) * 0.5
        s.accuracy = np.array(accuracy, dtype="i1")
        s.processed = np.array(processed or [1] * n, dtype="i1")
        s.level = np.array(level or [True] * n)
        s.fused_heading = np.array(fused, dtype="f8")
        s.azimuth, s.truth_heading = np.zeros(n, "f4"), np.zeros(n)
        s.level_source = "true attitude"
        h = report.heading_summary(s)
        return h, report.summary_lines(h, s)

    def test_from_accuracy_3_on_over_level_processed_samples(self):
        h, lines = self.summary(accuracy=[0, 2, 3, 3, 2, 3, 3], fused=[90, 90, 3, 356, 1, 50, 5],
                                level=[True, True, True, True, True, False, True],
                                processed=[1, 1, 1, 1, 1, 1, 0])
        # Rows 2, 3 and 4 (after the first 3, including a later 2): 3, -4, 1 deg.
        self.assertEqual(h["count"], 3)
        self.assertAlmostEqual(h["fused_rms"], math.sqrt((9 + 16 + 1) / 3), places=12)
        self.assertEqual(h["azimuth_rms"], 0.0)
        self.assertEqual(h["accuracy3_time"], 1.0)
        self.assertIn("from accuracy 3 on", lines[0])

    def test_whole_session_when_accuracy_3_never_comes(self):
        h, lines = self.summary(accuracy=[0, 1, 2, 2], fused=[10, 20, 350, 0])
        self.assertEqual(h["count"], 4)
        self.assertAlmostEqual(h["fused_rms"], math.sqrt((100 + 400 + 100) / 4), places=12)
        self.assertIn("over the whole session, accuracy 3 never reached", lines[0])
        self.assertIn("WHOLE SESSION", report.summary_scope(h, "true attitude"))

    def test_non_finite_fused_output_is_left_out_and_counted(self):
        h, lines = self.summary(accuracy=[3, 3, 3], fused=[2, math.nan, math.inf])
        self.assertEqual((h["count"], h["nonfinite"], h["fused_rms"]), (1, 2, 2.0))
        self.assertIn("2 samples with a non-finite fused output", lines[1])


class EvidenceTimeline(unittest.TestCase):
    def test_steadiness_runs_follow_the_sample_period_as_the_library_counts(self):
        # len30 is 30 / period for periods of 2 to 29 (10 ms units), else 30;
        # the trackers need len30 / 2, len30 and 2 * (len30 / 3) samples.
        need6, need35, need3 = report.steady_needed(np.array([2, 5, 1, 25, 30, 6]))
        self.assertEqual(need6.tolist(), [7, 3, 15, 0, 15, 2])
        self.assertEqual(need35.tolist(), [15, 6, 30, 1, 30, 5])
        self.assertEqual(need3.tolist(), [10, 4, 20, 0, 20, 2])

    def test_lanes_read_the_library_thresholds(self):
        tr = {name: np.zeros(3, "f8" if kind == "f8" else "i8")
              for name, kind in report.TRACE_COLUMNS}
        tr["period_10ms"][:] = 2
        tr.update((name, np.array(values)) for name, values in dict(
            turn_cnt_x=[999, 1000, 1000], in35=[14, 15, 16], flip_cnt_y=[1000, 1000, 0],
            flip_cnt_z=[1000, 0, 1000], offset_est_x=[9.9, 10.0, 0], offset_est_y=[0, 0, 10.0],
            range_hold=[0, 1, 30]).items())
        lanes = dict(report.evidence_lanes(tr))
        self.assertEqual(lanes["turn about x done"].tolist(), [False, True, True])
        self.assertEqual(lanes["radius steady 3.5 µT"].tolist(), [False, True, True])
        # Two of the three flip counters done count as turned over.
        self.assertEqual(lanes["turned over"].tolist(), [True, False, False])
        self.assertEqual(lanes["offset near sphere (x, y < 10 µT)"].tolist(), [True, False, False])
        self.assertEqual(lanes["swing hold (0.6 s)"].tolist(), [False, True, True])

    def test_a_trace_of_other_results_is_refused_by_name(self):
        header = ",".join(name for name, _ in report.TRACE_COLUMNS)
        row = ",".join("0" for _ in report.TRACE_COLUMNS)[1:]
        path = write(self, "t.csv", f"{header}\n5{row}\n6{row}\n")
        self.assertEqual(len(report.read_trace(path, np.array([5, 6]))["t_ns"]), 2)
        for results in ([5, 7], [5, 6, 7], [5]):
            with self.assertRaises(report.InputError) as caught:
                report.read_trace(path, np.array(results))
            self.assertIn(path + ": not the trace of these results", str(caught.exception))


if __name__ == "__main__":
    unittest.main()
