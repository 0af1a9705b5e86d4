// Preloaded into a test process to make libvlc look absent: dlopen() of a hidden name fails
// with the loader's own "cannot open shared object file" error. HIDE_LIBVLC chooses what is
// hidden (the file names are compared without their directory):
//
//   all          (default) every name containing "libvlc"
//   unversioned  "libvlc.so" only, as on a system without libvlc's development files
//   searched     "libvlc.so", and any libvlc name without a directory (looked up on the
//                loader's search path), so that only a path into a directory can load it

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>

namespace {

bool hidden(const char* file)
{
    const char* slash = std::strrchr(file, '/');
    const char* name = slash ? slash + 1 : file;
    if (!std::strstr(name, "libvlc"))
        return false;
    const char* mode = std::getenv("HIDE_LIBVLC");
    if (!mode || std::strcmp(mode, "all") == 0)
        return true;
    const bool unversioned = std::strcmp(name, "libvlc.so") == 0;
    if (std::strcmp(mode, "unversioned") == 0)
        return unversioned;
    if (std::strcmp(mode, "searched") == 0)
        return unversioned || !slash;
    return false;
}

} // namespace

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int mode)
{
    using Dlopen = void* (*)(const char*, int);
    static const Dlopen next = reinterpret_cast<Dlopen>(dlsym(RTLD_NEXT, "dlopen"));
    if (file && hidden(file)) {
        const char* slash = std::strrchr(file, '/');
        const std::string nowhere = std::string("/hidden-by-test/") + (slash ? slash + 1 : file);
        return next(nowhere.c_str(), mode);
    }
    return next(file, mode);
}
