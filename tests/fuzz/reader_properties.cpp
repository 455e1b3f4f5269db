// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
#include "reader_properties.h"

#include "line_reader.h"
#include "log_checks.h"

namespace magcal::fuzz {

void require_names_file_and_line(const std::string& message, const std::string& name, int max_line,
                                 std::vector<std::string> whole_file) {
    whole_file.push_back("gzip-compressed, and this magcal was built without zlib");
    std::string why;
    FUZZ_REQUIRE(names_file_and_line(message, name, max_line, whole_file, &why), "%s: %s",
                 why.c_str(), message.c_str());
}

bool same_sample(const tool::LogRecord& a, const tool::LogRecord& b) {
    return a.t_ns == b.t_ns && a.sensor == b.sensor && same_float(a.v[0], b.v[0]) &&
           same_float(a.v[1], b.v[1]) && same_float(a.v[2], b.v[2]);
}

void require_log_round_trip(const std::vector<tool::LogRecord>& records) {
    const std::string text = written_by([&](std::FILE* out) {
        tool::write_log_header(out);
        for (const tool::LogRecord& r : records) {
            tool::write_log_record(out, r.t_ns, r.sensor, r.v);
        }
    });
    std::vector<tool::LogRecord> again;
    const std::string error = input_error_of([&] {
        tool::LineReader in(text, "rewritten.csv");
        again = tool::read_sensor_log(in);
    });
    FUZZ_REQUIRE(error.empty(), "the writer's log does not read back: %s", error.c_str());
    FUZZ_REQUIRE(again.size() == records.size(), "%zu samples written, %zu read back",
                 records.size(), again.size());
    for (size_t i = 0; i < records.size(); ++i) {
        FUZZ_REQUIRE(same_sample(records[i], again[i]),
                     "sample %zu (line %d) changes when written and read back", i, records[i].line);
    }
}

void require_checks_consistent(const std::vector<tool::LogRecord>& records) {
    const tool::CheckReport report = tool::check_log(records);
    FUZZ_REQUIRE(
        report.per_sensor[0] + report.per_sensor[1] + report.per_sensor[2] == records.size(),
        "the checks count %zu + %zu + %zu records of %zu", report.per_sensor[0],
        report.per_sensor[1], report.per_sensor[2], records.size());
    for (size_t i = 0; i < report.findings.size(); ++i) {
        const tool::CheckFinding& f = report.findings[i];
        FUZZ_REQUIRE(i == 0 || report.findings[i - 1].kind < f.kind,
                     "findings out of order or twice");
        FUZZ_REQUIRE(f.count >= 1 && f.first < records.size() && !f.detail.empty(),
                     "a finding about no record: first %zu, count %zu", f.first, f.count);
        const std::string line = tool::describe_finding(f, "log.csv:1", false);
        FUZZ_REQUIRE(line.find('\n') == std::string::npos, "a finding takes two lines: %s",
                     line.c_str());
    }
}

}  // namespace magcal::fuzz
