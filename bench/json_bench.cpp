// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Cost of reading a typical soft-iron parameter file's text: parse, look up
// the member and convert its nine numbers. Runs once per start-up.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "params/JSONObject.h"

namespace {

const char kSoftIronText[] =
    "{\n  \"device\": \"board-a\",\n  \"qvg\": [1.0213, -0.0121, 0.0034,\n"
    "          -0.0098, 0.9871, 0.0152,\n          0.0021, 0.0117, 1.0042]\n}\n";

void BM_ParseSoftIronText(benchmark::State& state) {
    for (auto _ : state) {
        auto root = android::JSONCompound::Parse(kSoftIronText, std::strlen(kSoftIronText));
        auto settings = std::static_pointer_cast<android::JSONObject>(root);
        android::JSONValue member;
        std::shared_ptr<android::JSONArray> array;
        settings->getValue("qvg", &member);
        member.getArray(&array);
        double sum = 0.0;
        for (size_t i = 0; i < 9; ++i) {
            android::JSONValue element;
            float value = 0.0f;
            array->getValue(i, &element);
            element.getFloat(&value);
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_ParseSoftIronText);

void BM_ParseNumber(benchmark::State& state) {
    const char text[] = "-1.25e1";
    for (auto _ : state) {
        android::JSONValue value;
        benchmark::DoNotOptimize(android::JSONValue::Parse(text, sizeof text - 1, &value));
    }
}
BENCHMARK(BM_ParseNumber);

}  // namespace
