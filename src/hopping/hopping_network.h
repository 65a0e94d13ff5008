// The hopping network of a crystal: the rates of the hops between neighbouring
// molecules (pairs.h), the exact long-time diffusion and drift of the network,
// and the reports of both.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "pairs.h"

namespace network {

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
