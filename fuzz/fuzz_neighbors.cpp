// The neighbour-list builder on a structure made from the input bytes: up to
// four molecules of up to four atoms in a cell, a cut-off and a search range.
#include <cstring>

#include "fuzz_support.h"
#include "transport.h"

namespace {
// The next byte of the input, or 0 past its end.
struct Bytes {
    const std::uint8_t* p;
    size_t n;
    unsigned next() { return n ? (--n, *p++) : 0u; }
    double unit() { return next() / 255.0; }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    Bytes b{data, size};
    Transport t;
    const double cell[6] = {2 + 10 * b.unit(), 2 + 10 * b.unit(), 2 + 10 * b.unit(), 60 + 60 * b.unit(),
                            60 + 60 * b.unit(), 60 + 60 * b.unit()};
    t.cell_cell6_to_latt3x3(cell, t.latt);
    t.lat_cutoff = 8 * b.unit();
    t.scell_n = {static_cast<int>(b.next() % 4) - 1, static_cast<int>(b.next() % 4), static_cast<int>(b.next() % 4)};
    t.mol_count = 1 + static_cast<int>(b.next() % 4);
    for (int m = 0; m < t.mol_count; ++m) {
        const int n = 1 + static_cast<int>(b.next() % 4);
        t.mol_natoms.push_back(n);
        t.mol_atypes.push_back(std::vector<int>(static_cast<size_t>(n), 6));
        std::vector<double> x;
        for (int i = 0; i < 3 * n; ++i) x.push_back(3 * b.unit() - 1);
        t.mol_x_s.push_back(x);
        t.mol_x.push_back(x);
    }
    t.mol_mass.resize(static_cast<size_t>(t.mol_count));
    t.mol_com.resize(3 * static_cast<size_t>(t.mol_count));
    t.mol_com_s.resize(3 * static_cast<size_t>(t.mol_count));
    t.fill_mass_and_centres();
    try {
        t.build_neighbor_list(true);
    } catch (const RunExit&) {
    }
    return 0;
}
