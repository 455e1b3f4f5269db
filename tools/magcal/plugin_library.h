// The magcal plug-in loaded the way a sensor service loads it: dlopen, then
// the data symbol MAG_LIB_API_INTERFACE, then calls through its table. The
// exported algorithm functions (soft-iron reader and installer, status
// restore) are resolved by name when a command needs them.
#pragma once

#include <string>

#include "magcal/magcal_host.h"

namespace magcal::tool {

class PluginLibrary {
  public:
    // RuntimeFailure when the file cannot be loaded or has no valid table.
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const MagLibApiInterface& table() const { return *table_; }
    const std::string& path() const { return path_; }

    // An exported function by name; RuntimeFailure when it is missing.
    template <typename Fn>
    Fn function(const char* name) const {
        return reinterpret_cast<Fn>(symbol(name));
    }

    // The plug-in built beside this executable: <dir of exe>/../libmagcal.so,
    // else <dir of exe>/libmagcal.so.
    static std::string default_path();

  private:
    void* symbol(const char* name) const;

    std::string path_;
    void* handle_ = nullptr;
    const MagLibApiInterface* table_ = nullptr;
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
