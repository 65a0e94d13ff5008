// The symmetry-operation parser alone, and the expansion of three atoms by the
// operations the input holds, one per line.
#include <sstream>

#include "fileio.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    FileIO f;
    std::istringstream in(text);
    for (std::string op; std::getline(in, op) && f.symm_ops.size() < 200;) {
        Mat3 R;
        Vec3 t;
        FileIO::ParseTransformString(op, R, t);
        f.symm_ops.push_back(op);
    }
    const double cell[6] = {7, 8, 9, 90, 100, 90};
    f.cell_cell6_to_latt3x3(cell, f.latt);
    f.cif_natoms = 3;
    f.cif_atypes = {6, 8, 1};
    f.cif_nw_radius = {0.77, 0.66, 0.35};
    f.cif_x_s = {0.1, 0.2, 0.3, 0.25, 0.2, 0.3, 0.9, 0.95, 0.05};
    f.cif_x = f.cif_x_s;
    f.flag_detail_print = size % 2 == 1;
    try {
        f.make_spacegroup_P1(3);
    } catch (const RunExit&) {
    }
    return 0;
}
