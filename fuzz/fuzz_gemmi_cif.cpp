// The crystal reader of the hopping simulation from text: the CIF grammar,
// symmetry from operations or symbols, disorder, special positions, then the
// molecules and their checks. Refusals end in RunExit; nothing else may end it.
#include <string_view>

#include "fileio_molecules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    try {
        const crystal::Crystal c =
            crystal::read_cif_text(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.cif");
        const crystal::Molecules m = crystal::find_molecules(c);
        (void)m.summary();
    } catch (const RunExit&) {
    }
    return 0;
}
