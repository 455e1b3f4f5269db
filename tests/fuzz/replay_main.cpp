// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Runs a fuzz target over files and directories of inputs without the
// fuzzing engine, so that the normal and sanitizer builds replay every
// corpus (crashes found earlier included) with any compiler:
//   fuzz_replay_TARGET PATH...
// Each input sits in a heap block of exactly its size, as under the engine,
// so a read past its end is caught by AddressSanitizer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

// Sorted, so that a failure always shows up on the same input first.
// (std::filesystem, not readdir: a 32-bit build under emulation gets
// 64-bit inode numbers that plain readdir refuses.)
bool collect(const fs::path& path, std::vector<std::string>* files) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        if (!fs::exists(path, error)) return false;
        files->push_back(path.string());
        return true;
    }
    std::vector<fs::path> entries;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
        if (it->path().filename().string()[0] != '.') entries.push_back(it->path());
    }
    if (error) return false;
    std::sort(entries.begin(), entries.end());
    for (const fs::path& entry : entries) {
        if (!collect(entry, files)) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (!collect(argv[i], &files)) {
            std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[i]);
            return 2;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "%s: no input to replay\n", argv[0]);
        return 2;
    }
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>()};
        if (!in.eof() && in.fail()) {
            std::fprintf(stderr, "%s: cannot read %s\n", argv[0], file.c_str());
            return 2;
        }
        // A failed property aborts inside; the file named last is the culprit.
        std::fprintf(stderr, "replaying %s\n", file.c_str());
        const std::unique_ptr<uint8_t[]> input(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), input.get());
        LLVMFuzzerTestOneInput(input.get(), bytes.size());
    }
    std::printf("%zu inputs replayed, every property held\n", files.size());
    return 0;
}
