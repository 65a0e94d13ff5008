// The kinetic Monte Carlo hopping simulation and the track files it writes.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "mmutil.h"
#include "hopping_network.h"
#include "tracks.h"

namespace kmc {

// ------------------------------------------------ random numbers
// Each trajectory has its own generator, seeded from the run's seed and the
// trajectory's number, so a trajectory is the same whatever thread or slice
// runs it.
class Random {
public:
    Random(std::uint64_t seed, std::uint64_t trajectory);
    double uniform() { return static_cast<double>(gen_() >> 11) * 0x1p-53; }  // [0, 1)

private:
    std::mt19937_64 gen_;
};

// ------------------------------------------------ the walk
// Walker's alias table: one uniform draw picks entry k with probability
// weight[k] / sum of the weights.
class AliasTable {
public:
    explicit AliasTable(const std::vector<double>& weights);
    int pick(double u) const
    {
        const double x = u * static_cast<double>(threshold_.size());
        const size_t k = std::min(static_cast<size_t>(x), threshold_.size() - 1);
        return x - static_cast<double>(k) < threshold_[k] ? static_cast<int>(k) : alias_[k];
    }
    // The probability of each entry as the table gives it (for checks).
    std::vector<double> probabilities() const;
    const std::vector<double>& threshold() const { return threshold_; }
    const std::vector<int>& alias() const { return alias_; }

private:
    std::vector<double> threshold_;  // [entries] keep entry k when the fraction is below this
    std::vector<int> alias_;         // [entries] the entry taken otherwise
};

// The network laid out for the walk: per molecule its total rate and an alias
// table over its hops, all molecules' tables in one array so that a hop reads
// two neighbouring entries at most.
class Walk {
public:
    // The cell (columns a, b, c), the molecules' centres (Cartesian, Angstrom), the
    // hops with their rates per second, the start distribution, and the time unit
    // of the walk in seconds.
    Walk(const Mat3& latt, const std::vector<Vec3>& centres, const std::vector<network::Hop>& hops,
         const std::vector<double>& pi, double unit);

    // One trajectory of `rows` snapshots every tsnap; calls row(k, position,
    // hops) for k = 0 .. rows - 1 and returns the hops made.
    template <class Row>
    long long run(Random& rng, long rows, double tsnap, Row&& row) const;

    int molecules() const { return static_cast<int>(site_.size()); }

private:
    using Cell3 = std::array<int, 3>;
    // One hop of a molecule, with its entry of the molecule's alias table.
    struct Entry {
        double threshold;  // keep this hop when the draw's fraction is below
        int alias;         // the molecule's hop taken otherwise
        int to;            // molecule of the cell
        Cell3 cell;        // translation, in cell vectors
    };
    struct Site {
        int first, count;      // its entries
        double inverse_total;  // 1 / total rate
    };
    const Entry& choose(const Site& s, double u) const
    {
        const double x = u * static_cast<double>(s.count);
        const int k = std::min(static_cast<int>(x), s.count - 1);
        const Entry& e = entry_[static_cast<size_t>(s.first + k)];
        return x - static_cast<double>(k) < e.threshold ? e : entry_[static_cast<size_t>(s.first + e.alias)];
    }
    Vec3 position(int site, const Cell3& cell, int start) const;

    Mat3 latt_;
    std::vector<Vec3> centre_;  // [molecules] Cartesian, Angstrom
    std::vector<Site> site_;    // [molecules]
    std::vector<Entry> entry_;  // [hops] molecule by molecule
    AliasTable start_;          // over the stationary distribution
};

// Rejection-free: the waiting time at a molecule is exponential with its total
// rate, then one of its hops is drawn in proportion to its rate. A snapshot
// shows the carrier where it is at that time, with the hops made so far.
template <class Row>
long long Walk::run(Random& rng, long rows, double tsnap, Row&& row) const
{
    const int start = start_.pick(rng.uniform());
    int site = start;
    Cell3 cell{};
    long long hops = 0;
    double t = 0.0, next = 0.0;
    for (long k = 0; k < rows;) {
        const Site& here = site_[static_cast<size_t>(site)];
        t += -std::log(1.0 - rng.uniform()) * here.inverse_total;
        while (next <= t) {
            row(k, position(site, cell, start), hops);
            if (++k == rows) return hops;
            next = static_cast<double>(k) * tsnap;
        }
        const Entry& e = choose(here, rng.uniform());
        site = e.to;
        for (int d = 0; d < 3; ++d) cell[d] += e.cell[d];
        ++hops;
    }
    return hops;
}

}  // namespace kmc

namespace kmc {

// ------------------------------------------------ a run
struct Simulation {
    std::string dir = ".";        // receives track/
    std::uint64_t seed = 1;
    long first = 1, count = 0;    // trajectories first .. first + count - 1 (from 1)
    long rows = 0;                // snapshots per trajectory, the start included
    double tsnap = 1;             // track time units
    std::string time_label = "ns";
    bool progress = false;        // a progress bar on standard error
};

struct SimulationResult {
    long long hops = 0;
    std::vector<Vec3> final_x;  // [count] displacement at the last snapshot, Angstrom
    double seconds = 0;         // wall time of the walks and their files
    int threads = 1;
};

// Writes the slice's track files in parallel, trajectory by trajectory; each
// trajectory's generator depends only on (seed, its number), so the files are
// the same whatever the threads or slices. Ends the run (status -1) when a file
// cannot be written, naming the first.
SimulationResult simulate(const Walk& walk, const Simulation& s);

}  // namespace kmc
