// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// dlopen with RTLD_NOW | RTLD_LOCAL, as a host does: every symbol is bound at
// load time and nothing of the plug-in leaks into the global namespace.
#include "plugin_library.h"

#ifndef MAGCAL_LIBDIR_FROM_BINDIR
#define MAGCAL_LIBDIR_FROM_BINDIR "../lib"
#endif

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tool_errors.h"

namespace magcal::tool {

LibraryBinding bind_library(void* handle, const std::string& what) {
    LibraryBinding b;
    dlerror();
    b.table = static_cast<const MagLibApiInterface*>(dlsym(handle, "MAG_LIB_API_INTERFACE"));
    if (b.table == nullptr) throw RuntimeFailure(what + " exports no MAG_LIB_API_INTERFACE");
    if (b.table->name == nullptr || std::strcmp(b.table->name, "MAG_LIB_API_INTERFACE") != 0) {
        throw RuntimeFailure(what + ": MAG_LIB_API_INTERFACE has a wrong name field");
    }
    const void* const* slots = reinterpret_cast<const void* const*>(&b.table->initLib);
    for (int i = 0; i < 15; ++i) {
        if (slots[i] == nullptr) {
            throw RuntimeFailure(what + ": MAG_LIB_API_INTERFACE slot " + std::to_string(i + 1) +
                                 " is empty");
        }
    }
    b.get_json_calibration =
        reinterpret_cast<decltype(b.get_json_calibration)>(dlsym(handle, "getJsonCalibration"));
    b.config_softiron =
        reinterpret_cast<decltype(b.config_softiron)>(dlsym(handle, "QvGyroCal_config_softiron"));
    b.config_status =
        reinterpret_cast<decltype(b.config_status)>(dlsym(handle, "QvGyroCal_config_status"));
    b.load_pdc = reinterpret_cast<decltype(b.load_pdc)>(dlsym(handle, "QVG_LoadPDC"));
    b.decision_snapshot =
        reinterpret_cast<decltype(b.decision_snapshot)>(dlsym(handle, "magcal_decision_snapshot"));
    dlerror();
    return b;
}

PluginLibrary::PluginLibrary(const std::string& path) : path_(path) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* why = dlerror();
        throw RuntimeFailure("cannot load plug-in " + path + ": " + (why ? why : "unknown error"));
    }
    try {
        binding_ = bind_library(handle_, "plug-in " + path);
    } catch (...) {
        dlclose(handle_);
        throw;
    }
}

PluginLibrary::~PluginLibrary() {
    if (handle_ != nullptr) dlclose(handle_);
}

namespace {

// The build tree keeps the libraries one level above the tool; an installed
// tool finds them under the library directory of its own prefix.
std::string library_beside_executable(const std::string& file, const std::string& installed) {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return file;
    exe[n] = '\0';
    std::string dir(exe);
    dir.erase(dir.rfind('/') + 1);
    struct stat st;
    // The build tree keeps the library one level up; an installed tool finds
    // it in the library directory of its own prefix.
    for (const std::string& candidate :
         {dir + "../" + file, dir + MAGCAL_LIBDIR_FROM_BINDIR "/" + installed}) {
        if (stat(candidate.c_str(), &st) != 0) continue;
        char resolved[PATH_MAX];
        return realpath(candidate.c_str(), resolved) ? resolved : candidate;
    }
    return dir + file;
}

}  // namespace

std::string PluginLibrary::default_path() {
    return library_beside_executable("libmagcal.so", "libmagcal.so");
}

std::string PluginLibrary::default_trace_path() {
    // Not in the library directory itself, where hosts look for plug-ins.
    return library_beside_executable("libmagcal_trace.so", "magcal/libmagcal_trace.so");
}

StderrSilencer::StderrSilencer(bool active) {
    if (!active) return;
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (saved_ < 0 || null < 0) {
        if (null >= 0) close(null);
        if (saved_ >= 0) close(saved_);
        saved_ = -1;
        return;
    }
    dup2(null, STDERR_FILENO);
    close(null);
}

StderrSilencer::~StderrSilencer() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
}

}  // namespace magcal::tool
