// The trajectories' generators, alias tables and the walk's layout.
#include "hopping_walk.h"

#include <numeric>

namespace kmc {


// ---------------------------------------------------------------- generators

Random::Random(std::uint64_t seed, std::uint64_t trajectory)
{
    std::seed_seq seq{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                      static_cast<std::uint32_t>(trajectory), static_cast<std::uint32_t>(trajectory >> 32)};
    gen_.seed(seq);
}

// ---------------------------------------------------------------- alias tables

// Entries are scaled to mean 1 and paired: each entry below 1 is topped up by
// one above 1, which becomes its alias.
AliasTable::AliasTable(const std::vector<double>& weights)
    : threshold_(weights.size(), 1.0), alias_(weights.size())
{
    std::iota(alias_.begin(), alias_.end(), 0);
    const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
    std::vector<double> p(weights.size());
    std::vector<int> small, large;
    for (size_t k = 0; k < p.size(); ++k) {
        p[k] = std::max(weights[k], 0.0) * static_cast<double>(p.size()) / sum;
        (p[k] < 1.0 ? small : large).push_back(static_cast<int>(k));
    }
    while (!small.empty() && !large.empty()) {
        const int s = small.back(), l = large.back();
        small.pop_back();
        threshold_[s] = p[s];
        alias_[s] = l;
        p[l] = (p[l] + p[s]) - 1.0;
        if (p[l] < 1.0) {
            large.pop_back();
            small.push_back(l);
        }
    }
    // What is left is 1 up to rounding: kept always.
}

std::vector<double> AliasTable::probabilities() const
{
    const double n = static_cast<double>(threshold_.size());
    std::vector<double> p(threshold_.size(), 0.0);
    for (size_t k = 0; k < p.size(); ++k) {
        const double keep = std::clamp(threshold_[k], 0.0, 1.0);
        p[k] += keep / n;
        p[static_cast<size_t>(alias_[k])] += (1.0 - keep) / n;
    }
    return p;
}

// ---------------------------------------------------------------- the walk

Walk::Walk(const Mat3& latt, const std::vector<Vec3>& centres, const std::vector<network::Hop>& hops,
           const std::vector<double>& pi, double unit)
    : latt_(latt), centre_(centres), start_([&pi] {
          std::vector<double> w(pi);
          for (double& x : w) x = std::max(x, 0.0);  // a solver's -1e-17 is 0
          return w;
      }())
{
    const size_t n = centres.size();
    std::vector<std::vector<const network::Hop*>> from(n);
    for (const network::Hop& h : hops) from[h.from].push_back(&h);
    for (size_t m = 0; m < n; ++m) {
        std::vector<double> rates;
        for (const network::Hop* h : from[m]) rates.push_back(h->rate * unit);  // per time unit
        const AliasTable table(rates);
        site_.push_back({static_cast<int>(entry_.size()), static_cast<int>(rates.size()),
                         1.0 / std::accumulate(rates.begin(), rates.end(), 0.0)});
        for (size_t k = 0; k < rates.size(); ++k)
            entry_.push_back({table.threshold()[k], table.alias()[k], from[m][k]->to, from[m][k]->cell});
    }
}

Vec3 Walk::position(int site, const Cell3& cell, int start) const
{
    const Vec3 shift = mat_vec_mul(latt_, {double(cell[0]), double(cell[1]), double(cell[2])});
    Vec3 x;
    for (int k = 0; k < 3; ++k) x[k] = centre_[site][k] + shift[k] - centre_[start][k];
    return x;
}

}  // namespace kmc
