// Pairs of neighbouring molecules as hops, grouped into classes of equivalent
// pairs that share one coupling, and the couplings file the user (or the
// quantum-chemistry stage) fills: the model that the hopping simulation and the
// coupling calculations both read.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "transport.h"

namespace network {

using Cell = std::array<int, 3>;

// One hop of a molecule of the cell to a neighbour: molecule `to` of the cell
// shifted by `cell`. Every hop has its reverse in the list (to -> from, -cell).
struct Hop {
    int from = 0, to = 0;  // molecules of the cell, from 0
    Cell cell{};           // lattice translation of `to`, in cell vectors
    Vec3 r{};              // centre of `to` (shifted) minus centre of `from`, Angstrom
    double d_min = 0;      // closest atoms of the two molecules, Angstrom
    double d_heavy = 0;    // closest atoms other than hydrogen; not a number without such atoms
    int pair_class = 0;    // from 0
    double dG = 0;         // free energy change, eV; set by assign_rates
    double rate = 0;       // per second; set by assign_rates
};

// Pairs that a lattice translation, the exchange of the two molecules or any
// rigid motion of the crystal maps onto each other: they share one coupling.
struct PairClass {
    int rep = 0;     // the representative hop, an index into the hop list
    int hops = 0;    // hops of the cell's molecules in the class
};

// The neighbour list of a structure as hops, and their classes.
struct Pairs {
    std::vector<Hop> hops;           // [hops] molecule by molecule, each by centre distance
    std::vector<PairClass> classes;  // [classes] by distance of the representative's centres
};

// Two pairs are one class when their sorted lists of interatomic distances
// agree entry by entry within this many Angstrom.
constexpr double kSameDistance = 1e-3;

// The cell's molecules as the pairs see them.
struct Molecules {
    Mat3 latt{};                           // columns: the cell vectors a, b, c, Angstrom
    std::vector<std::vector<double>> x_s;  // [molecules][3 x atoms] fractional, each molecule whole
    std::vector<Vec3> centre_s;            // [molecules] fractional centre of mass
    std::vector<std::vector<int>> z;       // [molecules][atoms] atomic numbers (empty: not known)
};
// A neighbour of a molecule of the cell: molecule `to` of the cell shifted by `cell`.
struct Neighbour {
    int to = 0;
    Cell cell{};
};
using Neighbours = std::vector<std::vector<Neighbour>>;  // [molecules][its neighbours]

// What the structure and the neighbour list that t has built (build_neighbor_list) give the pairs.
Molecules cell_molecules(const Transport& t);
Neighbours neighbours(const Transport& t);

// The hops of the neighbour list, with centre vectors from the molecules'
// centres of mass, grouped into classes.
Pairs find_pairs(const Molecules& m, const Neighbours& n);
inline Pairs find_pairs(const Transport& t) { return find_pairs(cell_molecules(t), neighbours(t)); }

// ------------------------------------------------ the couplings file
// What the user gives per class and per molecule, in meV. A value the file
// leaves as NA is not a number.
struct Couplings {
    std::string file;
    double lambda_meV = 0;          // reorganisation energy
    double hw_meV = 0, huang_rhys = 0;  // the effective high-frequency mode (quantum rates)
    std::vector<double> V_meV;      // [classes] transfer integral
    std::vector<int> V_line;        // [classes] line of the file that gives it
    std::vector<double> site_meV;   // [molecules] site energy, 0 unless given
};

// The carrier the couplings are for, as the couplings file names it: "hole" for
// a positive charge, "electron" for a negative one.
inline std::string carrier_name(double charge) { return charge > 0 ? "hole" : "electron"; }

// Writes the couplings template for the pairs: lambda, the carrier (hole or
// electron), the mode for quantum rates and one line per class, all NA, then
// every hop with its class as comments. Refuses (status 1) to replace an
// existing file.
void write_couplings_template(const Transport& t, const Pairs& pairs, const std::string& file, RateModel model,
                              const std::string& carrier);

// Reads a couplings file written for these pairs; ends the run (status 1) on a
// line it cannot read, on classes that are not those of the structure, on a
// carrier line that names another carrier than `carrier` (when not empty), and
// on values that are missing (NA) or not physical. A file without a carrier line
// is taken for any carrier.
Couplings read_couplings(const std::string& file, const Pairs& pairs, int molecules, RateModel model,
                         const std::string& carrier = "");

// The geometries the couplings are computed on, in XYZ files (Angstrom) in
// `dir`: molecule_N.xyz for each molecule of the cell (N from 1), and
// class_NNN.xyz for each class (from 001): its representative pair, the first
// molecule's atoms, then the second's, each in the order of its molecule file,
// the second moved by exactly its cell's lattice translation.
void write_dimer_files(const Transport& t, const Pairs& pairs, const std::string& dir);

}  // namespace network
