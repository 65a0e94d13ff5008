// The MOL reader (V2000 fixed columns and V3000 blocks), then the dispatch with
// the default cell.
#include "fileio.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string path = fuzzsupport::as_file(data, size, ".mol");
    try {
        FileIO f;
        f.mol_input_mode = f.mol_count = 1;
        f.mol_names = {path};
        f.vec_a = {8.098, 0, 0};
        f.vec_b = {0, 5.953, 0};
        f.vec_c = {-4.888095, 0, 7.138882};
        f.read_crystal_strcuture_files(true, false);
    } catch (const RunExit&) {
    }
    return 0;
}
