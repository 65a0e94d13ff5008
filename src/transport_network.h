// The hopping network of a crystal: the hops of the cell's molecules to their
// neighbours, grouped into classes of equivalent pairs that share one coupling,
// the couplings file the user fills, the hopping rates, and the exact long-time
// diffusion and drift of the network.
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
    int pair_class = 0;    // from 0
    double dG = 0;         // free energy change, eV; set by assign_rates
    double rate = 0;       // per track time unit; set by assign_rates
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

// The hops of the neighbour list that t has built (build_neighbor_list), with
// centre vectors from the molecules' centres of mass, grouped into classes.
Pairs find_pairs(const Transport& t);

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

// Writes the couplings template for the pairs: lambda (and the mode for quantum
// rates) and one line per class, all NA, then every hop with its class as
// comments. Refuses (status 1) to replace an existing file.
void write_couplings_template(const Transport& t, const Pairs& pairs, const std::string& file, bool quantum);

// Reads a couplings file written for these pairs; ends the run (status 1) on a
// line it cannot read, on classes that are not those of the structure, and on
// values that are missing (NA) or not physical.
Couplings read_couplings(const std::string& file, const Pairs& pairs, int molecules, bool quantum);

// ------------------------------------------------ rates
constexpr double kHbar = 6.582119569e-16;    // eV s
constexpr double kBoltzmann = 8.617333262e-5;  // eV / K

// Marcus rate, per second, for coupling V, reorganisation energy lambda and free
// energy change dG (eV) at temperature T (K).
double marcus_rate(double V, double lambda, double dG, double T);
// The same with one effective high-frequency mode of energy hw and Huang-Rhys
// factor S (Marcus-Levich-Jortner; lambda is the classical part).
double mlj_rate(double V, double lambda, double dG, double T, double hw, double S);

// The applied field, V/m, in Cartesian axes: F = Fa a/|a| + Fb b/|b| + Fc c/|c|.
Vec3 applied_field(const Transport& t);

// Sets every hop's rate per track time unit: dG = (E_to - E_from) - q e F.r with
// q = +1 for a hole ('h' in charge.inp) and -1 for an electron ('e'). Ends the run
// (status 1) on a rate that is not finite or a molecule without a hop.
void assign_rates(const Transport& t, const Couplings& c, std::vector<Hop>& hops, bool quantum);

// ------------------------------------------------ the exact answer
// Long-time behaviour of the network: the stationary distribution over the
// cell's molecules, the drift velocity and the diffusion tensor from the cell
// problem (Angstrom and track time units).
struct Exact {
    std::vector<double> pi;  // [molecules] stationary occupation
    Vec3 drift{};            // Angstrom per time unit
    Mat3 D{};                // Angstrom^2 per time unit
    std::vector<Vec3> chi;   // [molecules] corrector of the cell problem, Angstrom
};

// Ends the run (status 1) when the hops do not join every molecule of the cell.
Exact solve_exact(int molecules, const std::vector<Hop>& hops);

// The diffusion tensor of the naive formula 1/2 sum_i pi_i sum_e k_e r_e r_e^T,
// exact only when every molecule's hops cancel; for comparisons.
Mat3 naive_diffusion(const std::vector<double>& pi, const std::vector<Hop>& hops);

// ------------------------------------------------ reports
// The rates table of -rates and kmc_rates.dat; `label` names the time unit.
std::string rates_table(const Transport& t, const Couplings& c, const std::vector<Hop>& hops, bool quantum,
                        const std::string& label);
// kmc_exact.dat: pi, D, the mobility tensor, its principal values and axes, the
// naive formula's, and with a field the exact drift.
std::string exact_report(const Transport& t, const Exact& e, const std::vector<Hop>& hops);

// The drift the trajectories show under the field.
struct Drift {
    Vec3 field{};                          // V/m, Cartesian
    long trajectories = 0;
    double time = 0;                       // of the last snapshot, time units
    Vec3 velocity{}, velocity_se{};        // cm/s, and the standard errors of the means
    double mobility = 0, mobility_se = 0;  // v.F / |F|^2, cm^2/(V s)
    double exact_mobility = 0;             // the network's
};
Drift measured_drift(const Transport& t, const Exact& e, const std::vector<Vec3>& final_x, double time);
// kmc_drift.dat.
std::string drift_report(const Drift& d);

}  // namespace network
