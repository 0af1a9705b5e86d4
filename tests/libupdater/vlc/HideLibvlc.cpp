// Preloaded into a test process to make libvlc look absent: dlopen() of any file whose name contains "libvlc"
// fails with the loader's own "cannot open shared object file" error.
#include <cstring>
#include <dlfcn.h>
#include <string>

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int mode)
{
    static const auto next = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    const char* name = file && std::strrchr(file, '/') ? std::strrchr(file, '/') + 1 : file;
    if (name && std::strstr(name, "libvlc"))
        return next((std::string("/hidden-by-test/") + name).c_str(), mode);
    return next(file, mode);
}
