// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal convert: other recordings into the sensor log, then the same input
// checks as replay, naming the source files' lines.
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "log_checks.h"
#include "log_convert.h"
#include "output_file.h"
#include "sensor_log.h"
#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {

const char* const kConvertHelp =
    "usage: magcal convert -o LOG.csv [--acc FILE[:X,Y,Z]] [--gyro FILE[:X,Y,Z]]\n"
    "                      [--mag FILE[:X,Y,Z]] [--log FILE] [options]\n"
    "\n"
    "Writes a sensor log (docs/log-format.md) from recordings in other layouts:\n"
    "one file per sensor, or one wide file named for several sensors. Every\n"
    "sample of every file is merged in time order (acc and gyro before mag at\n"
    "the same instant). Then the replay's input checks run on the result.\n"
    "\n"
    "  -o, --output LOG.csv  the sensor log to write (- for standard output)\n"
    "  --acc, --gyro, --mag FILE[:X,Y,Z]\n"
    "                        a file with that sensor's samples; X,Y,Z name its\n"
    "                        columns by header name or number (from 1), by\n"
    "                        default the three columns after the time column.\n"
    "                        Name the same file for several sensors if it is wide.\n"
    "  --log FILE            a file already in the log format (sorts or merges logs)\n"
    "  --time COL            the time column, by name or number (default 1)\n"
    "  --time-unit U         ns, us, ms or s (default ns); integer or fractional,\n"
    "                        any epoch (kept as it is)\n"
    "  --mag-unit U          uT, nT, mG, G or T (default uT)\n"
    "  --acc-unit U          m/s^2 or g (default m/s^2)\n"
    "  --gyro-unit U         rad/s or deg/s (default rad/s)\n"
    "  --separator C         , ; or tab (default: the most frequent on the first line)\n"
    "  --header, --no-header whether the first line names the columns (default:\n"
    "                        it does when it has no number in the time column)\n"
    "  -h, --help            this text\n"
    "\n"
    "Files may start with a UTF-8 byte-order mark and be gzip-compressed; '#'\n"
    "lines and blank lines are skipped; with ; or tab separators a decimal comma\n"
    "is read as a point. A wide row with a sensor's cells all empty has no sample\n"
    "of it.\n"
    "\n"
    "Exit status: 0 ok, 1 runtime failure, 2 bad input or usage.\n";

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

SensorSource source_arg(sim::Sensor sensor, const std::string& option, const std::string& text) {
    SensorSource s{sensor, text, {}, 1.0};
    const size_t colon = text.rfind(':');
    if (exists(text) || colon == std::string::npos) return s;
    s.path = text.substr(0, colon);
    const std::string list = text.substr(colon + 1);
    size_t start = 0;
    while (true) {
        const size_t comma = list.find(',', start);
        s.columns.push_back(list.substr(start, comma - start));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (s.columns.size() != 3 || s.path.empty()) {
        throw UsageError("option " + option + ": expected FILE or FILE:X,Y,Z, got \"" + text +
                         "\"");
    }
    return s;
}

}  // namespace

int run_convert(int argc, char** argv) {
    ConvertOptions o;
    std::string output;
    std::string units[3] = {"m/s^2", "rad/s", "uT"};  // acc, gyro, mag
    CommandLine cl(argc, argv, 0);
    std::string a;
    bool is_option = false;
    while (cl.next(&a, &is_option)) {
        if (!is_option) throw UsageError("unexpected argument \"" + a + "\"");
        if (a == "-o" || a == "--output") {
            output = cl.value(a);
        } else if (a == "--acc" || a == "--gyro" || a == "--mag") {
            const sim::Sensor s = a == "--acc"    ? sim::Sensor::Acc
                                  : a == "--gyro" ? sim::Sensor::Gyro
                                                  : sim::Sensor::Mag;
            o.sources.push_back(source_arg(s, a, cl.value(a)));
        } else if (a == "--log") {
            o.logs.push_back(cl.value(a));
        } else if (a == "--time") {
            o.time_column = cl.value(a);
        } else if (a == "--time-unit") {
            const std::string u = cl.value(a);
            const auto e = time_unit_exponent(u);
            if (!e)
                throw UsageError("option " + a + ": expected ns, us, ms or s, got \"" + u + "\"");
            o.time_exponent = *e;
        } else if (a == "--acc-unit" || a == "--gyro-unit" || a == "--mag-unit") {
            const int i = a == "--acc-unit" ? 0 : a == "--gyro-unit" ? 1 : 2;
            units[i] = cl.value(a);
            if (!unit_scale(static_cast<sim::Sensor>(i), units[i])) {
                static const char* const kExpected[3] = {"m/s^2 or g", "rad/s or deg/s",
                                                         "uT, nT, mG, G or T"};
                throw UsageError("option " + a + ": expected " + kExpected[i] + ", got \"" +
                                 units[i] + "\"");
            }
        } else if (a == "--separator") {
            const std::string c = cl.value(a);
            if (c == "," || c == ";") {
                o.separator = c[0];
            } else if (c == "tab" || c == "\t") {
                o.separator = '\t';
            } else {
                throw UsageError("option " + a + ": expected , ; or tab, got \"" + c + "\"");
            }
        } else if (a == "--header" || a == "--no-header") {
            cl.no_value(a);
            o.header = a == "--header";
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (output.empty()) throw UsageError("missing -o LOG.csv");
    if (o.sources.empty() && o.logs.empty()) {
        throw UsageError("nothing to convert: give --acc, --gyro, --mag or --log");
    }
    for (SensorSource& s : o.sources)
        s.scale = *unit_scale(s.sensor, units[static_cast<int>(s.sensor)]);
    std::vector<NamedFile> inputs;
    for (const SensorSource& s : o.sources) {
        inputs.push_back({std::string("--") + sensor_name(s.sensor), s.path});
    }
    for (const std::string& path : o.logs) inputs.push_back({"--log", path});
    check_output_names(inputs, {{"-o", output}});

    const Conversion c = convert_recordings(o);
    const CheckReport checks = check_log(c.records);
    if (checks.per_sensor[2] == 0) {
        throw InputError("magcal convert: no mag sample in the input (" +
                         std::to_string(checks.per_sensor[0]) + " acc, " +
                         std::to_string(checks.per_sensor[1]) +
                         " gyro): the library works only on magnetometer samples");
    }
    for (const CheckFinding& f : checks.findings) {
        const std::string where = location(c.files[c.file_of[f.first]], c.records[f.first].line);
        std::fprintf(stderr, "%s\n", describe_finding(f, where, false).c_str());
    }

    OutputFile out(output);
    std::fputs("# magcal convert of", out.stream());
    for (const std::string& f : c.files) std::fprintf(out.stream(), " %s", f.c_str());
    std::fputc('\n', out.stream());
    write_log_header(out.stream());
    for (const LogRecord& r : c.records) write_log_record(out.stream(), r.t_ns, r.sensor, r.v);
    out.commit();
    std::FILE* say = output == "-" ? stderr : stdout;
    std::fprintf(say, "converted %zu acc, %zu gyro, %zu mag samples from %zu file%s -> %s\n",
                 checks.per_sensor[0], checks.per_sensor[1], checks.per_sensor[2], c.files.size(),
                 c.files.size() == 1 ? "" : "s", output.c_str());
    if (!checks.findings.empty()) {
        std::fprintf(say, "%zu kind%s of input warning: see above\n", checks.findings.size(),
                     checks.findings.size() == 1 ? "" : "s");
    }
    return kExitOk;
}

}  // namespace magcal::tool
