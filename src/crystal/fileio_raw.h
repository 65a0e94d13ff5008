// Inside the crystal reader: what the CIF text gave (fileio_gemmi.cpp), before
// the sites become the atoms of the cell (fileio_sites.cpp), and the refusals.
#pragma once

#include <string>
#include <vector>

#include "fileio_gemmi.h"

namespace crystal {

// One row of the atom loop, as written.
struct RawSite {
    std::string label;
    std::string type;      // "" when the loop has no type column
    std::string x, y, z;   // fractional coordinates as written, "0.1234(5)"
    std::string occupancy; // "" when the loop has no occupancy column
    std::string assembly;  // disorder assembly, "" when none ('.', '?' or no column)
    std::string group;     // disorder group, "" when none ('.', '?', '0' or no column)
    bool dummy = false;    // _atom_site_calc_flag dum: a point such as a ring centroid, no atom
};

// A symmetry operation: fractional x' = R x + t.
struct RawOp {
    Mat3 R{};
    Vec3 t{};
    std::string triplet;  // "-x,y+1/2,-z+1/2"
};

struct RawStructure {
    std::string source, block;
    std::array<double, 6> cell{};
    std::string symmetry;
    std::vector<RawOp> ops;
    std::vector<RawSite> sites;
    std::string formula_sum;
    int formula_units = 0;
    std::vector<std::string> warnings;  // found while reading the text
};

// The atoms of the cell from what the text gave; prints the warnings.
Crystal build_crystal(RawStructure&& raw);

// Ends the run (status -1) with the error header and `text` on standard output.
[[noreturn]] void refuse(int line, const std::string& text);

// The line the error header names for each refusal of the crystal reader.
enum RefusalLine {
    kLineOpen = 3101,
    kLineSyntax,
    kLineNoAtoms,
    kLineCell,
    kLineOperation,
    kLineNoSymmetry,
    kLineSite,
    kLineElement,
    kLineTooManyAtoms,
    kLineDuplicate,
    kLineNoMolecule,
    kLineFused,
    kLineNetwork,
    kLineXyz,
};

// The names of at most `shown` items, "A, B, C and 4 more".
std::string name_list(const std::vector<std::string>& names, size_t shown = 12);

}  // namespace crystal
