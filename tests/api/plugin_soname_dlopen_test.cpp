// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Hosts dlopen the plug-in by the name "libmagcal.so", and programs that link
// it record its SONAME as their dependency: the two must be the same name, or
// a linked program would look for a file that no device ships.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <string>

namespace {

// The DT_SONAME entry of a loaded object, read from its dynamic section as
// the dynamic loader has relocated it; empty when there is none.
std::string loaded_soname(void* handle) {
    struct link_map* map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return "<no link map>";
    const char* strings = nullptr;
    ElfW(Xword) soname = 0;
    bool has_soname = false;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB) strings = reinterpret_cast<const char*>(entry->d_un.d_ptr);
        if (entry->d_tag == DT_SONAME) {
            soname = entry->d_un.d_val;
            has_soname = true;
        }
    }
    if (!has_soname || strings == nullptr) return "";
    return strings + soname;
}

TEST(PluginFile, SonameIsTheFileNameHostsLoad) {
    void* handle = dlopen(MAGCAL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_EQ(loaded_soname(handle), "libmagcal.so");
    dlclose(handle);
}

}  // namespace
