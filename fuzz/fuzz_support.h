// Shared by the fuzz targets: the input as a file the readers can open. (The
// readers' own output is silenced by libFuzzer's -close_fd_mask.)
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace fuzzsupport {

// Writes the input to a file of this process in /dev/shm (or /tmp) and returns its path.
inline std::string as_file(const std::uint8_t* data, size_t size, const char* suffix)
{
    static const std::string dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    const std::string path = dir + "/kelta_fuzz_" + std::to_string(getpid()) + suffix;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return path;
}

}  // namespace fuzzsupport
