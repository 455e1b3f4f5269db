// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The JSON parser recurses once per nesting level, and nothing but the
// loader's 1024-byte read bounds the depth: a file of 1024 '[' or '{' is the
// deepest it can see. Hosts load the plug-in on threads of their own, so
// that depth must fit a small thread stack: the loader runs here on a thread
// with 256 KiB of stack and a guard page below it, where an overflow ends the
// test program. The stack is painted first: what was used is recorded as a
// test property, and must show that the parse went through every level.
//
// Measured when this was written, 1024 levels took 229 KiB in the
// optimised x86-64 build, 246 KiB on arm64 and 149 KiB on 32-bit ARM: the
// optimised builds, which hosts load, are held to 256 KiB itself.
// AddressSanitizer puts redzones around every frame (985 KiB here), so the
// sanitizer build runs on a stack kSanitizerStackFactor times as large.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

#include "magcal/magcal_host.h"
#include "params/JSONObject.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
#define MAGCAL_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MAGCAL_TEST_ASAN 1
#endif
#endif

#ifdef MAGCAL_TEST_ASAN
constexpr size_t kSanitizerStackFactor = 8;
#else
constexpr size_t kSanitizerStackFactor = 1;
#endif
constexpr size_t kStack = 256 * 1024 * kSanitizerStackFactor;  // [bytes]
constexpr size_t kDeepest = 1024;  // what the loader reads of the file [bytes]
constexpr unsigned char kPaint = 0xa5;

// Lowest painted byte that changed: how deep the stack went. Reads memory
// the finished thread left behind, which the sanitizer may still mark.
__attribute__((no_sanitize_address)) size_t stack_used(const unsigned char* stack, size_t size) {
    size_t untouched = 0;
    while (untouched < size && stack[untouched] == kPaint) ++untouched;
    return size - untouched;
}

// Runs `work` on a thread with exactly kStack bytes of stack above a guard
// page; returns the bytes of stack it used. An overflow hits the guard page
// and ends the test program.
size_t run_on_small_stack(const std::function<void()>& work) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* mapping = mmap(nullptr, kStack + page, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) {
        ADD_FAILURE() << "mmap failed";
        return 0;
    }
    unsigned char* base = static_cast<unsigned char*>(mapping);
    EXPECT_EQ(mprotect(base, page, PROT_NONE), 0);
    unsigned char* stack = base + page;
    std::memset(stack, kPaint, kStack);

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    EXPECT_EQ(pthread_attr_setstack(&attr, stack, kStack), 0);
    const auto run = [](void* job) -> void* {
        (*static_cast<const std::function<void()>*>(job))();
        return nullptr;
    };
    pthread_t thread;
    size_t used = 0;
    if (pthread_create(&thread, &attr, run, const_cast<std::function<void()>*>(&work)) == 0) {
        pthread_join(thread, nullptr);
        used = stack_used(stack, kStack);
    } else {
        ADD_FAILURE() << "pthread_create failed";
    }
    pthread_attr_destroy(&attr);
    munmap(mapping, kStack + page);
    return used;
}

class JsonNestingStack : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = ::testing::TempDir() + "magcal_nesting_XXXXXX";
        ASSERT_NE(mkdtemp(&dir_[0]), nullptr);
        path_ = dir_ + "/mag_soft_parameter.json";
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }

    // Loads `text` through the file loader on the small stack; the matrix
    // starts as 7s so that a failed load shows.
    int32_t load(const std::string& text, double matrix[9], size_t* used) {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
        for (int i = 0; i < 9; ++i) matrix[i] = 7.0;
        int32_t result = -1;
        ::testing::internal::CaptureStderr();  // the loader's log
        *used = run_on_small_stack(
            [&] { result = getJsonCalibration(path_.c_str(), "qvg", matrix, 9); });
        ::testing::internal::GetCapturedStderr();
        return result;
    }

    std::string dir_, path_;
};

TEST_F(JsonNestingStack, DeepestUnclosedNestingFailsCleanlyOnASmallStack) {
    std::string alternating(kDeepest, '[');
    for (size_t i = 0; i < kDeepest; i += 2) alternating[i] = '{';
    for (const std::string& text :
         {std::string(kDeepest, '['), std::string(kDeepest, '{'), alternating}) {
        double matrix[9];
        size_t used = 0;
        EXPECT_EQ(load(text, matrix, &used), 1) << text.substr(0, 2);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(matrix[i], 7.0);
        // Each level is at least one call: a return address, 16-byte aligned.
        EXPECT_GE(used, kDeepest * 16) << "the parse did not recurse through every level";
        RecordProperty("stack_bytes_" + text.substr(0, 2), std::to_string(used));
    }
}

TEST_F(JsonNestingStack, DeepestWellFormedNestingLoadsOnASmallStack) {
    // A valid file whose other member nests as deep as 1024 bytes allow.
    const std::string head = R"({"qvg":[1,0,0,0,1,0,0,0,1],"d":)";
    const size_t depth = (kDeepest - head.size() - 1) / 2;
    const std::string text = head + std::string(depth, '[') + std::string(depth, ']') + "}";
    ASSERT_EQ(text.size(), kDeepest);
    double matrix[9];
    size_t used = 0;
    ASSERT_EQ(load(text, matrix, &used), 0);
    const double identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(matrix[i], identity[i]);
    EXPECT_GE(used, depth * 16);

    // The model holds all of it: walk down to the innermost, empty array.
    const std::string brackets = std::string(kDeepest / 2, '[') + std::string(kDeepest / 2, ']');
    std::shared_ptr<android::JSONCompound> root;
    used = run_on_small_stack(
        [&] { root = android::JSONCompound::Parse(brackets.data(), brackets.size()); });
    ASSERT_NE(root, nullptr);
    android::JSONValue level;
    level.setArray(std::static_pointer_cast<android::JSONArray>(root));
    size_t levels = 0;
    std::shared_ptr<android::JSONArray> array;
    while (level.getArray(&array) && array->size() == 1) {
        ++levels;
        android::JSONValue inner;
        array->getValue(0, &inner);
        level = inner;
    }
    EXPECT_EQ(levels + 1, kDeepest / 2);
    EXPECT_EQ(array->size(), 0u);
    // Releasing the value recurses as deep as parsing did.
    run_on_small_stack([&] {
        root.reset();
        level.unset();
        array.reset();
    });
}

}  // namespace
