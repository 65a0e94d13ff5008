// The input-file reader on arbitrary text; a "crystal" line reads that CIF too.
#include "fuzz_support.h"
#include "kelta_inp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string path = fuzzsupport::as_file(data, size, ".inp");
    try {
        KeltaInp k;
        k.read_kelta_inp(path.c_str(), true);
    } catch (const RunExit&) {
    }
    return 0;
}
