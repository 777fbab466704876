// The built library, loaded as the platform loads it, with none of its classes in sight.
#pragma once

#include <dlfcn.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "raw_database.h"
#include "recorder.h"

class LoadedService {
  public:
    using Interface = vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;

    explicit LoadedService(const char* path) : mLibrary(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (mLibrary == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        mService = Fetch();
    }
    ~LoadedService() { Unload(); }
    LoadedService(const LoadedService&) = delete;
    LoadedService& operator=(const LoadedService&) = delete;

    // Another service object of the library. It lives on after the library: leaked on purpose,
    // where leak checkers see it.
    Interface* Fetch() {
        static auto* kept = new std::vector<android::sp<Interface>>;
        const auto fetch = reinterpret_cast<Interface* (*)(const char*)>(
                dlsym(mLibrary, "HIDL_FETCH_IOfflinetimezone"));
        kept->push_back(fetch("default"));
        return kept->back().get();
    }

    Interface* operator->() { return mService; }

    // Ends the worker when everything posted has been handled, and unloads the library.
    void Unload() {
        if (mLibrary != nullptr) dlclose(mLibrary);
        mLibrary = nullptr;
    }

    // Sends a database in chunks.
    void Send(const Bytes& file, size_t chunkSize) {
        const auto totalSize = static_cast<uint32_t>(file.size());
        uint32_t status = 1;
        for (size_t i = 0; i < file.size(); i += chunkSize) {
            const size_t end = std::min(i + chunkSize, file.size());
            mService->downloadDB(Bytes(file.begin() + static_cast<long>(i),
                                       file.begin() + static_cast<long>(end)),
                                 static_cast<uint32_t>(end - i), totalSize, status);
            status = 2;
        }
        mService->downloadDB({}, 0, totalSize, 3);
    }

  private:
    void* mLibrary;
    Interface* mService = nullptr;
};
