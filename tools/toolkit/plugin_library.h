// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A magcal library loaded the way a sensor service loads the plug-in
// (dlopen, then the data symbol MAG_LIB_API_INTERFACE), and the binding the
// replay engine calls through: the host table plus the exported functions a
// tool needs beyond it. Any build of the same objects binds the same way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "magcal/magcal_decision_snapshot.h"
#include "magcal/magcal_host.h"

namespace magcal::tool {

struct LibraryBinding {
    const MagLibApiInterface* table = nullptr;
    // The exported functions below are null when the library lacks them; the
    // engine says so when it needs one.
    int32_t (*get_json_calibration)(const char* path, const char* key, double* out,
                                    size_t count) = nullptr;
    int32_t (*config_softiron)(const double* matrix) = nullptr;
    int32_t (*config_status)(const double* offset, int32_t accuracy, double radius) = nullptr;
    int32_t (*load_pdc)(double* matrix) = nullptr;  // re-reads the parameter file, 1 = found
    // Only libmagcal_trace.so exports it; the plug-in hosts load does not.
    int32_t (*decision_snapshot)(MagcalDecisionSnapshot* out, size_t size) = nullptr;
};

// Resolves the binding from a dlopen handle. RuntimeFailure naming `what`
// when the table is missing, misnamed or has an empty slot.
LibraryBinding bind_library(void* handle, const std::string& what);

// Owns one dlopen of a library file; dlclose on destruction. Opening the
// file anew for each replay gives each one a freshly initialised library,
// since all of its state is process-wide.
class PluginLibrary {
  public:
    // RuntimeFailure when the file cannot be loaded or has no valid table.
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const LibraryBinding& binding() const { return binding_; }
    const std::string& path() const { return path_; }

    // The plug-in built beside this executable: <dir of exe>/../libmagcal.so,
    // else <dir of exe>/libmagcal.so.
    static std::string default_path();
    // The plug-in with its decision snapshot, built or installed beside this
    // executable: <dir of exe>/../libmagcal_trace.so, else
    // <dir of exe>/<libdir>/magcal/libmagcal_trace.so.
    static std::string default_trace_path();

  private:
    std::string path_;
    void* handle_ = nullptr;
    LibraryBinding binding_;
};

// Sends this process's stderr to /dev/null while alive (the plug-in logs its
// start-up to stderr); a no-op when `active` is false.
class StderrSilencer {
  public:
    explicit StderrSilencer(bool active);
    ~StderrSilencer();
    StderrSilencer(const StderrSilencer&) = delete;
    StderrSilencer& operator=(const StderrSilencer&) = delete;

  private:
    int saved_ = -1;
};

}  // namespace magcal::tool
