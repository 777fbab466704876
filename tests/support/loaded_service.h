// The built library, loaded as the platform loads it: tests reach only what it exports.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "recorder.h"

class LoadedService {
  public:
    // Loads the library and fetches a service object. Ends the process if it cannot be loaded.
    LoadedService() : mLibrary(dlopen(OFFLINETZ_LOCAL_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (mLibrary == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        mService = Fetch();
    }
    ~LoadedService() { Unload(); }
    LoadedService(const LoadedService&) = delete;
    LoadedService& operator=(const LoadedService&) = delete;

    // Another service object of the library. It is never destroyed, and is kept where leak checkers
    // find it: a process must not destroy it after the library is unloaded.
    IOfflinetimezone* Fetch() {
        static auto* kept = new std::vector<sp<IOfflinetimezone>>;
        const auto fetch = reinterpret_cast<IOfflinetimezone* (*)(const char*)>(
                dlsym(mLibrary, "HIDL_FETCH_IOfflinetimezone"));
        kept->push_back(fetch("default"));
        return kept->back().get();
    }

    IOfflinetimezone* Get() { return mService; }
    IOfflinetimezone* operator->() { return mService; }

    // Unloads the library, which first lets its worker handle all that was posted.
    void Unload() {
        if (mLibrary != nullptr) dlclose(mLibrary);
        mLibrary = nullptr;
    }

  private:
    void* mLibrary;
    IOfflinetimezone* mService = nullptr;
};
