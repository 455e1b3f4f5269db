// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Parsing of motion scripts. Numbers are read with strtod over the whole
// word; anything else in a segment is an error that names the segment.
#include "sim/motion_script.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace magcal::sim {
namespace {

constexpr double kDeg = kPi / 180.0;
constexpr double kMaxSegmentS = 1e6;  // keeps a typo from asking for years of samples [s]

[[noreturn]] void fail(size_t index, const std::string& text, const std::string& why) {
    throw std::invalid_argument("motion script segment " + std::to_string(index) + " \"" + text +
                                "\": " + why);
}

double number(const std::string& word, size_t index, const std::string& text, const char* what) {
    char* end = nullptr;
    const double v = std::strtod(word.c_str(), &end);
    if (word.empty() || *end != '\0' || !std::isfinite(v))
        fail(index, text, std::string(what) + " is not a number: \"" + word + "\"");
    return v;
}

double positive_seconds(double s, size_t index, const std::string& text) {
    if (!(s > 0.0) || s > kMaxSegmentS)
        fail(index, text, "the time must be more than 0 and at most 1e6 seconds");
    return s;
}

Vec3 body_axis(const std::string& word, size_t index, const std::string& text) {
    if (word == "x") return {1.0, 0.0, 0.0};
    if (word == "y") return {0.0, 1.0, 0.0};
    if (word == "z") return {0.0, 0.0, 1.0};
    fail(index, text, "the axis must be x, y or z, not \"" + word + "\"");
}

ScriptSegment parse_segment(const std::vector<std::string>& w, size_t index,
                            const std::string& text) {
    ScriptSegment s;
    const std::string& verb = w[0];
    auto expect = [&](size_t lo, size_t hi, const char* usage) {
        if (w.size() < lo || w.size() > hi) fail(index, text, std::string("expected ") + usage);
    };
    if (verb == "hold") {
        expect(2, 2, "hold SECONDS");
        s.duration_s = positive_seconds(number(w[1], index, text, "the time"), index, text);
    } else if (verb == "turn" || verb == "tilt") {
        expect(4, 4,
               verb == "turn" ? "turn AXIS DEGREES DEG_PER_S" : "tilt EDGE DEGREES DEG_PER_S");
        s.kind = ScriptSegment::Kind::Turn;
        double deg = number(w[2], index, text, "the angle");
        if (verb == "turn") {
            s.axis = body_axis(w[1], index, text);
        } else {
            // Raising +x turns about -y; raising +y turns about +x.
            if (w[1] == "+x" || w[1] == "-x") {
                s.axis = {0.0, 1.0, 0.0};
                if (w[1] == "+x") deg = -deg;
            } else if (w[1] == "+y" || w[1] == "-y") {
                s.axis = {1.0, 0.0, 0.0};
                if (w[1] == "-y") deg = -deg;
            } else {
                fail(index, text, "the edge must be +x, -x, +y or -y, not \"" + w[1] + "\"");
            }
        }
        const double rate = number(w[3], index, text, "the rate");
        if (!(rate > 0.0)) fail(index, text, "the rate must be more than 0 degrees per second");
        if (deg == 0.0) fail(index, text, "the angle must not be 0");
        s.angle_rad = deg * kDeg;
        s.duration_s = positive_seconds(std::fabs(deg) / rate, index, text);
    } else if (verb == "magnet") {
        expect(3, 4, "magnet MICROTESLA SECONDS [east|north|up|down]");
        s.kind = ScriptSegment::Kind::Magnet;
        s.field_ut = number(w[1], index, text, "the field");
        if (s.field_ut < 0.0 || s.field_ut > 5000.0)
            fail(index, text, "the field must be between 0 and 5000 uT");
        s.duration_s = positive_seconds(number(w[2], index, text, "the time"), index, text);
        const std::string dir = w.size() == 4 ? w[3] : "east";
        if (dir == "east")
            s.direction = {1.0, 0.0, 0.0};
        else if (dir == "north")
            s.direction = {0.0, 1.0, 0.0};
        else if (dir == "up")
            s.direction = {0.0, 0.0, 1.0};
        else if (dir == "down")
            s.direction = {0.0, 0.0, -1.0};
        else
            fail(index, text, "the direction must be east, north, up or down, not \"" + dir + "\"");
    } else {
        fail(index, text, "unknown segment \"" + verb + "\" (expected hold, turn, tilt or magnet)");
    }
    return s;
}

}  // namespace

std::vector<ScriptSegment> parse_motion_script(const std::string& text) {
    std::vector<ScriptSegment> script;
    std::string piece;
    size_t index = 0;
    auto take = [&](const std::string& raw) {
        std::istringstream words(raw);
        std::vector<std::string> w;
        for (std::string word; words >> word;) w.push_back(word);
        if (w.empty()) return;
        ++index;
        std::string shown;
        for (const std::string& word : w) shown += (shown.empty() ? "" : " ") + word;
        script.push_back(parse_segment(w, index, shown));
    };
    for (char c : text) {
        if (c == ';' || c == '\n') {
            take(piece);
            piece.clear();
        } else {
            piece += c;
        }
    }
    take(piece);
    if (script.empty()) throw std::invalid_argument("motion script is empty");
    return script;
}

double script_duration(const std::vector<ScriptSegment>& script) {
    double total = 0.0;
    for (const ScriptSegment& s : script) total += s.duration_s;
    return total;
}

}  // namespace magcal::sim
