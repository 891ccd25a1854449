#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

// Preloaded into a program: a drive that holds another byte than was written at the place FORGETS
// of its first MiB, as long as that is read in one piece.

extern "C" ssize_t pread64(int descriptor, void* memory, std::size_t bytes, off64_t offset)
{
    using Read = ssize_t (*)(int, void*, std::size_t, off64_t);
    static const auto read = reinterpret_cast<Read>(::dlsym(RTLD_NEXT, "pread64"));
    const ssize_t done = read(descriptor, memory, bytes, offset);
    if (offset == 0 && done == ssize_t{1} << 20) {
        static_cast<char*>(memory)[std::atoi(std::getenv("FORGETS"))] ^= 1;
    }
    return done;
}
