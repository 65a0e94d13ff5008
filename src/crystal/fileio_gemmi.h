// The crystal reader of the hopping simulation: a CIF file (read with gemmi) to
// its unit cell and every atom of that cell, symmetry applied, special positions
// merged and one conformer of each disorder kept.
//
// The CIF reader of the analysis (FileIO::read_data_cif) is a different thing
// and stays as it is; this one shares only the element table and the cell
// convention with it.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "mmutil.h"

namespace crystal {

// One atom of the unit cell.
struct CellAtom {
    int z = 0;          // atomic number (1 .. 103)
    std::string label;  // the label of the site it comes from
    int site = 0;       // that site's row in the file's atom loop, from 0
    int op = 0;         // the operation that made it (Crystal::operations), 0 the first listed
    Vec3 frac{};        // fractional, each component in [0, 1)
    Vec3 cart{};        // Cartesian, Angstrom: latt . frac
};

struct Crystal {
    std::string source;                // the file name (or the name given with the text), for messages
    std::string block;                 // the data block read
    std::array<double, 6> cell{};      // a, b, c (Angstrom), alpha, beta, gamma (degrees)
    Mat3 latt{};                       // columns a, b, c, as FileIO lays them out: a along x, b in the xy plane
    Mat3 latt_inv{};
    std::string symmetry;              // where the operations came from, e.g. "Hall symbol -P 2ybc"
    std::vector<std::string> operations;  // as applied, distinct, in the order listed or generated
    std::vector<CellAtom> atoms;       // site by site, each site's images in the order of the operations
    std::string formula_sum;           // _chemical_formula_sum as written ("" when absent)
    int formula_units = 0;             // _cell_formula_units_Z (0 when absent)
    std::vector<std::string> warnings; // as printed on standard error, without "WARNING: "

    // Cartesian coordinates of a fractional position.
    Vec3 to_cartesian(const Vec3& f) const { return mat_vec_mul(latt, f); }
    // "C3", or "C3 (by -x,y+1/2,-z)" for an atom that an operation other than the first made.
    std::string atom_name(int i) const;
};

// Reads a CIF file; every failure ends the run through fatal() (status -1) with
// a message naming the file, and every warning goes to standard error once.
Crystal read_cif_file(const std::string& path);
// The same from text in memory (`name` stands for the file in messages).
Crystal read_cif_text(std::string_view text, const std::string& name);

// ---------------------------------------------------------------- elements
// The element of a `_atom_site_type_symbol` value ("C", "Cl", "CL", "O2-",
// "Fe3+"): the one or two letters it starts with, in any case. 0 when none.
int element_from_type(std::string_view type);
// The element of a site label ("C(10)", "H8A", "Cl1", "CL1", "O", "HO1"); 0 when none.
// See fileio_sites.cpp for the rule.
int element_from_label(std::string_view label);
// "C", "Cl"; "" outside the table.
std::string element_symbol(int z);
double covalent_radius(int z);  // Angstrom
double atomic_mass(int z);      // amu

// ---------------------------------------------------------------- formulas
// Element counts indexed by atomic number.
using Composition = std::vector<int>;
// Hill order: C, then H, then the others alphabetically; without carbon all
// alphabetically. A count of one is not written: "C6H6", "CH2Cl2".
std::string hill_formula(const Composition& counts);
// The counts of a formula written as in _chemical_formula_sum ("C12 H8 N2, C20
// H14 O2" adds both parts up; "C6H6" reads too). False when a part is no element
// with a whole count.
bool parse_formula(std::string_view text, Composition& counts);

}  // namespace crystal
