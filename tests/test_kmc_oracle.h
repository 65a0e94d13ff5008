// The straightforward walk, kept as the oracle of the fast one (and its
// benchmark): at every step the molecule's total rate is summed over its hops
// and the hop is found by a linear search of the running sum.
#pragma once

#include <cmath>
#include <vector>

#include "hopping_walk.h"

namespace kmcoracle {

class StraightWalk {
public:
    // Rates per second, walked in time units of `unit` seconds.
    StraightWalk(int molecules, const std::vector<network::Hop>& hops, const std::vector<double>& pi, double unit)
        : pi_(pi), from_(static_cast<size_t>(molecules))
    {
        for (network::Hop h : hops) {
            h.rate *= unit;
            from_[h.from].push_back(h);
        }
    }

    // As kmc::Walk::run: row(k, position, hops) for every snapshot.
    template <class Row>
    long long run(kmc::Random& rng, long rows, double tsnap, Row&& row) const
    {
        int site = pick(pi_, rng.uniform());
        Vec3 x{};
        long long hops = 0;
        double t = 0;
        for (long k = 0; k < rows;) {
            double total = 0;
            for (const network::Hop& h : from_[site]) total += h.rate;
            t += -std::log(1.0 - rng.uniform()) / total;
            for (; k < rows && static_cast<double>(k) * tsnap <= t; ++k) row(k, x, hops);
            if (k == rows) break;
            const double u = rng.uniform() * total;
            double sum = 0;
            size_t e = 0;
            while (e + 1 < from_[site].size() && (sum += from_[site][e].rate) <= u) ++e;
            const network::Hop& h = from_[site][e];
            for (int d = 0; d < 3; ++d) x[d] += h.r[d];
            site = h.to;
            ++hops;
        }
        return hops;
    }

private:
    static int pick(const std::vector<double>& w, double u)
    {
        double total = 0, sum = 0;
        for (const double x : w) total += x;
        int k = 0;
        while (k + 1 < static_cast<int>(w.size()) && (sum += w[k]) <= u * total) ++k;
        return k;
    }
    std::vector<double> pi_;
    std::vector<std::vector<network::Hop>> from_;  // [molecules][its hops]
};

}  // namespace kmcoracle
