// dlopen with RTLD_NOW | RTLD_LOCAL, as a host does: every symbol is bound at
// load time and nothing of the plug-in leaks into the global namespace.
#include "plugin_library.h"

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

PluginLibrary::PluginLibrary(const std::string& path) : path_(path) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* why = dlerror();
        throw RuntimeFailure("cannot load plug-in " + path + ": " + (why ? why : "unknown error"));
    }
    dlerror();
    table_ = static_cast<const MagLibApiInterface*>(dlsym(handle_, "MAG_LIB_API_INTERFACE"));
    if (table_ == nullptr) {
        throw RuntimeFailure("plug-in " + path + " exports no MAG_LIB_API_INTERFACE");
    }
    if (table_->name == nullptr || std::strcmp(table_->name, "MAG_LIB_API_INTERFACE") != 0) {
        throw RuntimeFailure("plug-in " + path + ": MAG_LIB_API_INTERFACE has a wrong name field");
    }
    const void* const* slots = reinterpret_cast<const void* const*>(&table_->initLib);
    for (int i = 0; i < 15; ++i) {
        if (slots[i] == nullptr) {
            throw RuntimeFailure("plug-in " + path + ": MAG_LIB_API_INTERFACE slot " +
                                 std::to_string(i + 1) + " is empty");
        }
    }
}

PluginLibrary::~PluginLibrary() {
    if (handle_ != nullptr) dlclose(handle_);
}

void* PluginLibrary::symbol(const char* name) const {
    dlerror();
    void* p = dlsym(handle_, name);
    if (p == nullptr) throw RuntimeFailure("plug-in " + path_ + " does not export " + name);
    return p;
}

std::string PluginLibrary::default_path() {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return "libmagcal.so";
    exe[n] = '\0';
    std::string dir(exe);
    dir.erase(dir.rfind('/') + 1);
    struct stat st;
    const std::string beside_build = dir + "../libmagcal.so";
    if (stat(beside_build.c_str(), &st) == 0) {
        char resolved[PATH_MAX];
        return realpath(beside_build.c_str(), resolved) ? resolved : beside_build;
    }
    return dir + "libmagcal.so";
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
