// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Loads the soft-iron matrix: the member `key` of the JSON object in a small
// parameter file, an array whose first nine numbers are the 3x3 matrix in
// row-major order (dimensionless gains). Every number passes through single
// precision, as the JSON model stores it, before it is widened to double.
// Runs once at start-up, so it may allocate and log; on any failure the
// caller's matrix is left as it was.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "api/log.h"
#include "magcal/magcal_host.h"
#include "params/File.h"
#include "params/JSONObject.h"

namespace {

constexpr const char* kTag = "JSONObject";
constexpr size_t kReadLimit = 1024;  // the parameter file is a few hundred bytes at most
constexpr size_t kMatrixSize = 9;    // 3x3 soft-iron matrix

// The object held in the file, or an empty one when it cannot be opened, read
// or parsed as an object.
std::shared_ptr<android::JSONObject> read_settings(const char* path) {
    std::shared_ptr<android::JSONObject> settings;
    android::File file(path, "r");
    const int32_t err = file.initCheck();
    if (err != 0) {
        magcal::log_error(kTag, "xs4410 settings file(%s) open failed: %d (%s)", path, err,
                          std::strerror(-err));
    } else {
        char* buf = static_cast<char*>(std::malloc(kReadLimit));
        if (buf == nullptr) {
            magcal::log_error(kTag, "buf malloc fail");
        } else {
            const ssize_t size = file.read(buf, kReadLimit);
            magcal::log_error(kTag, "Msensor readSettings size is %d", static_cast<int>(size));
            // A failed read (-1) parses as no bytes at all.
            const size_t parsed = size > 0 ? static_cast<size_t>(size) : 0;
            std::shared_ptr<android::JSONCompound> root = android::JSONCompound::Parse(buf, parsed);
            std::free(buf);
            if (root != nullptr && root->isObject()) {
                settings = std::static_pointer_cast<android::JSONObject>(root);
            }
        }
    }
    file.close();
    if (settings == nullptr) settings = std::make_shared<android::JSONObject>();
    return settings;
}

}  // namespace

extern "C" MAGCAL_API int32_t getJsonCalibration(const char* path, const char* key, double out[],
                                                 size_t count) {
    magcal::log_error(kTag, "kxs4410 getJsonCalibration\n");

    const std::shared_ptr<android::JSONObject> settings = read_settings(path);

    android::JSONValue member;
    std::shared_ptr<android::JSONArray> array;
    if (!settings->getValue(key, &member) || !member.getArray(&array)) {
        magcal::log_error(kTag, "kxs4410 get json array err\n");
        return 1;
    }

    double tmp_output[kMatrixSize] = {};
    for (size_t i = 0; i < count; ++i) {
        android::JSONValue element;
        float value;
        if (!array->getValue(i, &element) || !element.getFloat(&value)) {
            magcal::log_error(kTag, "kxs4410 get json float err\n");
            return 1;
        }
        // Elements past the ninth are checked but have no slot to go to.
        if (i < kMatrixSize) tmp_output[i] = static_cast<double>(value);
    }

    magcal::log_error(kTag, "For debug only: tmp_output has total %d Bytes\n",
                      static_cast<int>(sizeof tmp_output));
    std::memcpy(out, tmp_output, sizeof tmp_output);
    return 0;
}
