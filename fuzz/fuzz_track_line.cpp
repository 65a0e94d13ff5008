// The track-line parser against sscanf("%lf%lf%lf%lf%lf"): the same five values,
// bit for bit, from any line of up to 255 characters.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mob_utils.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string line(reinterpret_cast<const char*>(data), size < 255 ? size : 255);
    std::array<double, 5> fast = {1, 2, 3, 4, 5}, slow = fast;
    parse_track_line(line.c_str(), fast);
    std::sscanf(line.c_str(), "%lf%lf%lf%lf%lf", &slow[0], &slow[1], &slow[2], &slow[3], &slow[4]);
    if (std::memcmp(fast.data(), slow.data(), sizeof fast) != 0) std::abort();
    return 0;
}
