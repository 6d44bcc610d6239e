#pragma once

// This folder is a fence around one version of the installed XML-RPC library, 1.33.14. It contains
// none of the daemon's own logic. Each file defines functions of the library or of the C library
// under their own names: the dynamic linker finds those of the executable first. Most of them call
// the original, which NextFunction() finds, and do something before or after it. They keep its C
// interface and let no exception out.

#include <dlfcn.h>

/// Frees a text that the library has allocated. Declared by its internal headers only.
extern "C" void xmlrpc_strfree(const char* text);

namespace fence {

/// The installed function `name`, behind the one of the executable.
template <typename Function>
Function* NextFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace fence
