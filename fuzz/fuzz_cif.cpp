// The CIF reader with symmetry expansion and molecule separation, then the
// structure dispatch that makes the molecules whole.
#include "fileio.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string path = fuzzsupport::as_file(data, size, ".cif");
    try {
        FileIO f;
        f.read_data_cif(path.c_str(), true);
        f.mol_input_mode = 2;
        f.read_crystal_strcuture_files(true, false);
    } catch (const RunExit&) {
    }
    return 0;
}
