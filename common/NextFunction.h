#pragma once

// The files in daemon/fence/ and FaultText.cpp work around defects and costs of one version of the
// installed XML-RPC library, 1.33.14. They contain none of the daemon's own logic. Each file
// redefines functions of that library or of the C library under their own names: the dynamic linker
// finds the definition in the executable first. Most of them call the original, which
// NextFunction() finds, and add something before or after it. They keep its C interface and throw
// nothing.

#include <dlfcn.h>

/// Frees a text that the library has allocated. Only the library's internal headers declare it.
extern "C" void xmlrpc_strfree(const char* text);

namespace fence {

/// @return the installed library's function `name`, which the executable's definition hides; null
/// if no library defines it
template <typename Function>
Function* NextFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace fence
