#include "simulator/PreloadList.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace simulator {

namespace {

/// The loader only warns of a library that it cannot preload, and COMMAND would then run on the
/// machine's own devices.
void CheckLibrary(const std::string& library) {
    void* const handle = dlopen(library.c_str(), RTLD_LAZY);
    if (handle == nullptr) {
        throw std::runtime_error("cannot load " + library + "; is umockdev installed?");
    }
    dlclose(handle);
}

}  // namespace

/// What the user preloads comes first (a sanitizer's runtime has to), then our own library, which
/// has to stand in front of umockdev's. Ours is named by a link in the testbed: a blank or a colon
/// in the path of our own would end the name too early.
std::string PreloadList(const std::filesystem::path& testbedFolder,
                        const std::filesystem::path& libraryFolder) {
    const std::filesystem::path ownLibrary = testbedFolder / PELLIX_SIM_PRELOAD_NAME;
    std::filesystem::create_symlink(libraryFolder / PELLIX_SIM_PRELOAD_NAME, ownLibrary);
    CheckLibrary(ownLibrary);
    CheckLibrary(UMOCKDEV_PRELOAD_NAME);
    const char* const usersList = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
    const std::string first = usersList == nullptr ? "" : std::string(usersList) + ":";
    return first + ownLibrary.string() + ":" + UMOCKDEV_PRELOAD_NAME;
}

}  // namespace simulator
