// Molecules of a crystal read by fileio_gemmi: atoms bonded by their covalent
// radii (across the cell faces too), each molecule made whole and put in the
// cell by its centre of mass; formulas, and XYZ files of molecules and dimers.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "fileio_gemmi.h"

namespace crystal {

struct Molecule {
    std::vector<int> atoms;  // indices into Crystal::atoms, ascending
    std::vector<int> z;      // atomic numbers, in the same order
    std::vector<Vec3> frac;  // fractional, whole: bonded atoms are next to each other
    std::vector<Vec3> cart;  // Cartesian, Angstrom
    Vec3 centre_frac{};      // centre of mass, each component in [-kOnFace, 1 - kOnFace)
    Vec3 centre_cart{};
    double mass = 0.0;       // amu
    std::string formula;     // Hill order
};

struct Molecules {
    std::vector<Molecule> list;  // largest kind first (see find_molecules)
    // Each kind of molecule (one formula) with its count, largest molecules first.
    std::vector<std::pair<std::string, int>> kinds;
    // "4 x C6H6"; "2 x C20H14O2, 2 x C12H8N2" for a co-crystal.
    std::string summary() const;
};

// A molecule's centre this close below a cell face (fractional) counts as on it:
// centres lie in [-kOnFace, 1 - kOnFace).
constexpr double kOnFace = 1e-6;
// Atoms closer than this are refused as duplicate sites.
constexpr double kDuplicateDistance = 0.5;  // Angstrom
// Atoms of two molecules closer than this times the sum of their covalent radii
// are refused as a fused or mis-typed structure.
constexpr double kFusedFraction = 0.75;

// Bonds atoms closer than bond_dis_scale times the sum of their covalent radii
// and makes the molecules. Ordered by kind (more atoms first, then the formula),
// then by centre (x, then y, then z, to 1e-6). Refused, through fatal() with the
// atoms named: no atom at all, atoms closer than kDuplicateDistance, atoms of two
// molecules closer than kFusedFraction of their radii, and bonds that reach an
// atom's own periodic image (a network, not molecules).
Molecules find_molecules(const Crystal& crystal, double bond_dis_scale = 1.15);

// Standard XYZ files through the checked writer (a failure ends the run): the
// atom count, the comment (one line), then "El x y z" in Angstrom, written
// "%-2s %14.8f %14.8f %14.8f" (X for an element outside the table). The writers
// read only z and cart of a molecule, and only latt of the crystal.
void write_xyz(const std::string& path, const Molecule& molecule, const std::string& comment);
// Two whole molecules, the second moved by `cell` lattice vectors (na, nb, nc).
void write_dimer_xyz(const std::string& path, const Crystal& crystal, const Molecule& first,
                     const Molecule& second, const std::array<int, 3>& cell, const std::string& comment);

}  // namespace crystal
