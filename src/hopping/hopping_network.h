// src/hopping: the hopping simulation, kelta_kmc. This header: the rates of the
// hops between neighbouring molecules (pairs.h), the exact long-time diffusion
// and drift of the network, and their reports; hopping_walk.h: the walk and the
// run that writes the track files (src/tracks). It links the model and the track
// files, never the analysis.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "pairs.h"

namespace network {

using units::TimeUnit;

// ------------------------------------------------ run conditions
// What the rates read of a run, besides the couplings.
struct Conditions {
    double temperature = 300;                // K
    double charge = 1;                       // carrier charge in e: +1 a hole, -1 an electron
    Vec3 field{};                            // applied field, V/m, Cartesian (zero: none)
    RateModel model = RateModel::quantum;
};

// The conditions of the run that t was read for: temp (after temp.inp), the
// carrier of charge.inp (ends the run, status 1, unless e or h), the field of
// app_elec_F when it is switched on, the rate model of ratetype.
Conditions run_conditions(const Transport& t);

// The field, V/m, in Cartesian axes from its components along the cell vectors:
// F = Fa a/|a| + Fb b/|b| + Fc c/|c|.
Vec3 applied_field(const Mat3& latt, const Vec3& along_abc);

// ------------------------------------------------ rates
// Marcus rate, per second, for coupling V, reorganisation energy lambda and free
// energy change dG (eV) at temperature T (K).
double marcus_rate(double V, double lambda, double dG, double T);
// The same with one effective high-frequency mode of energy hw and Huang-Rhys
// factor S (Marcus-Levich-Jortner; lambda is the classical part).
double mlj_rate(double V, double lambda, double dG, double T, double hw, double S);

// Sets every hop's dG = (E_to - E_from) - q F.r (eV) and its rate per second.
// Ends the run (status 1) on a rate that is not finite or a molecule of the
// `molecules` without a hop.
void assign_rates(const Conditions& run, const Couplings& c, int molecules, std::vector<Hop>& hops);

// ------------------------------------------------ the exact answer
// Long-time behaviour of the network: the stationary distribution over the
// cell's molecules, the drift velocity and the diffusion tensor from the cell
// problem, in Angstrom and seconds.
struct Exact {
    std::vector<double> pi;  // [molecules] stationary occupation
    Vec3 drift{};            // Angstrom per second
    Mat3 D{};                // Angstrom^2 per second
    std::vector<Vec3> chi;   // [molecules] corrector of the cell problem, Angstrom
};

// Ends the run (status 1) when the hops do not join every molecule of the cell.
Exact solve_exact(int molecules, const std::vector<Hop>& hops);

// The diffusion tensor of the naive formula 1/2 sum_i pi_i sum_e k_e r_e r_e^T
// (Angstrom^2 per second), exact only when every molecule's hops cancel; for
// comparisons.
Mat3 naive_diffusion(const std::vector<double>& pi, const std::vector<Hop>& hops);

// The mobility tensor e D / (kB T), cm^2/(V s), of a diffusion tensor in
// Angstrom^2 per second, converted as the mobility analysis converts its slopes
// (units.h), so that the two programs' numbers compare digit for digit.
Mat3 mobility_tensor(const Mat3& D, double temperature, const TimeUnit& unit);

// The exact drift velocity in cm/s, and the drift mobility v.F / |F|^2 in
// cm^2/(V s) under `field` (V/m).
Vec3 drift_cm_per_s(const Exact& e);
double drift_mobility(const Exact& e, const Vec3& field);

// ------------------------------------------------ reports
// The rates table of -rates and kmc_rates.dat: rates per second and per `unit`.
std::string rates_table(const Conditions& run, const Couplings& c, const std::vector<Hop>& hops, const TimeUnit& unit);
// kmc_exact.dat: pi, D per `unit`, the mobility tensor, its principal values and
// axes, the naive formula's, and with a field the exact drift.
std::string exact_report(const Conditions& run, const TimeUnit& unit, const Exact& e, const std::vector<Hop>& hops);

// The drift the trajectories show under the field.
struct Drift {
    Vec3 field{};                          // V/m, Cartesian
    long trajectories = 0;
    double time = 0;                       // of the last snapshot, time units
    Vec3 velocity{}, velocity_se{};        // cm/s, and the standard errors of the means
    double mobility = 0, mobility_se = 0;  // v.F / |F|^2, cm^2/(V s)
    double exact_mobility = 0;             // the network's
};
// From the displacements (Angstrom) at the last snapshot, `time` units of `unit` after the start.
Drift measured_drift(const Conditions& run, const TimeUnit& unit, const Exact& e, const std::vector<Vec3>& final_x,
                     double time);
// kmc_drift.dat.
std::string drift_report(const Drift& d);

}  // namespace network
