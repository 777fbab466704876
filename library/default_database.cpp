#include "default_database.h"

#include <dlfcn.h>
#include <offlinetz.h>
#include <unistd.h>

namespace offlinetz {

std::string DefaultDatabasePath() {
    Dl_info library;
    if (dladdr(reinterpret_cast<const void*>(&offlinetz_open), &library) != 0 &&
        library.dli_fname != nullptr) {
        std::string path = library.dli_fname;
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos) {
            path.replace(slash + 1, std::string::npos, OFFLINETZ_LIBRARIES_TO_DATA "/world.bin");
            if (access(path.c_str(), R_OK) == 0) return path;
        }
    }
    return OFFLINETZ_DATA_DIR "/world.bin";
}

}  // namespace offlinetz
