// What the hopping simulation checks before it spends time: couplings that look
// like a unit slip or lie outside the hopping regime (warnings), and the run's
// cost from the exact answer, with a refusal of a run that would take more than a
// day unless the user insists.
#pragma once

#include <string>
#include <vector>

#include "hopping_series.h"

namespace network {

// One warning text per doubtful value of the couplings file (each ends in a
// newline): lambda_meV below 1 meV; every non-zero V_meV below 1 meV; a class
// whose V is below 1 meV while a class farther apart has 1 meV or more (both
// look like electronvolts); a class whose |V| is above half the reorganisation
// energy (lambda, plus S x hw for quantum rates), outside the hopping regime.
std::vector<std::string> coupling_warnings(const Couplings& c, const Pairs& pairs, RateModel model);

}  // namespace network

namespace kmc {

// A whole run's cost, and the run the exact answer suggests instead.
struct Estimate {
    double escape_rate = 0;          // total rate of leaving a molecule, averaged over pi, per second
    long trajectories = 0;
    double hops_per_trajectory = 0;  // expected, over tsimu
    double hops = 0;                 // expected, all trajectories
    double rows = 0;                 // snapshot rows written, all trajectories
    int threads = 1;
    long jobs = 1;                   // of a batch script, sharing the work
    int temperatures = 1;            // of a series, summed
    double seconds = 0;              // expected wall time of one job
    double msd_time = 0;             // time units: the slowest axis' MSD reaches 100 squared hop lengths (0: none)
    double tsimu = 0, tsnap = 0;     // suggested, time units (0: none)
};

// Cost per hop and per snapshot row on one thread, seconds. The benchmark of the
// walk (bench/bench_kmc.cpp, README "Performance") measures 2.4e7 to 5.2e7 hops
// per second per thread on a quiet machine, and whole runs of 2,000 trajectories
// of 201 rows (1.2e8 hops) in 1.7 s on two threads. On the shared 2-core build
// machine under a load of 8 to 10, the same whole run took 8.6 s on two threads
// (7.2e6 hops per second per thread, rows included), and 400 trajectories 1.7 s
// on one thread (1.5e7). A hop is taken as 2e-7 s, slower than all of these, and
// a row (one printf line) as 1e-6 s.
constexpr double kSecondsPerHop = 2e-7;
constexpr double kSecondsPerRow = 1e-6;
// A run expected to take longer than this is refused unless the user insists.
constexpr double kMostSeconds = 86400;

// The cost of `trajectories` trajectories of tsimu (time units of `unit_seconds`)
// with `rows` snapshots each on `threads` threads, in the network of `hops` with
// the exact answer `e`.
Estimate estimate_run(const std::vector<network::Hop>& hops, const network::Exact& e, double unit_seconds,
                      double tsimu, long trajectories, long rows, int threads);

// A rounded time for humans: "3.2 s", "4.1 min", "2.5 h", "3.1 days".
std::string duration_text(double seconds);

// "expected hops ..., estimated time ..., suggested tsimu/tsnap" as one line for standard error.
std::string estimate_text(const Estimate& x, const std::string& time_label);

// Ends the run (status 1) when the estimate exceeds kMostSeconds and `force` is
// false, with the estimate and the suggested tsimu and tsnap; `defaults` says
// that nsimu and tsimu hold their default values (a block closed too early).
void refuse_long_run(const Estimate& x, const std::string& time_label, double tsimu, bool defaults, bool force);

// What check_run needs of the run besides the network.
struct RunPlan {
    units::TimeUnit unit;
    double tsimu = 0;
    long trajectories = 0, rows = 0;  // of each temperature
    long jobs = 1;                    // batch jobs that share the work (1: this process)
    bool defaults = false;            // nsimu and tsimu hold their defaults
    bool force = false;               // -force
};

// The estimate of the simulation at each of `temps` (with the conditions of `run`
// otherwise), summed, on this process's threads: printed on standard error, then
// refused (refuse_long_run) when one job would take more than a day.
Estimate check_run(const series::Network& n, network::Conditions run, const std::vector<double>& temps,
                   const RunPlan& p);

}  // namespace kmc
