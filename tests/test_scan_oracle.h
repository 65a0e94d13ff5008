// The per-direction procedure of the angle scans done the long way, as a
// reference for the engine: project every trajectory, add whole curves for every
// resample, fit every resample curve. Shared by the tests and the benchmark.
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "mob_utils.h"
#include "mob_utils_engine.h"

namespace scanoracle {

// Random-walk positions with different spreads along x, y and z; times 0, 5, 10...
inline void fill_random_walks(Mobutils& m, int nsimu, int ntime, unsigned seed)
{
    std::mt19937 gen(seed);
    std::normal_distribution<double> hop(0.0, 1.0);
    m.nsimu = nsimu;
    m.ntime = ntime;
    m.temp = 300.0;
    m.set_track_timeunit(1e-9);
    m.track_time.resize(static_cast<size_t>(ntime));
    for (int t = 0; t < ntime; ++t) m.track_time[t] = t * 5.0;
    const double spread[3] = {3.0, 2.0, 0.5};
    Table* tables[3] = {&m.track_x, &m.track_y, &m.track_z};
    for (int a = 0; a < 3; ++a) {
        Table& tab = *tables[a];
        tab.resize(nsimu, ntime);
        for (int j = 0; j < nsimu; ++j)
            for (int t = 1; t < ntime; ++t) tab[j][t] = tab[j][t - 1] + spread[a] * hop(gen);
    }
}

inline double factor(const Mobutils& m)
{
    return 1e-16 / ((0.0001724 * m.temp) * m.get_track_timeunit());
}

// The engine over the object's trajectories.
inline mob_engine::ScanEngine engine(const Mobutils& m, const std::vector<std::uint32_t>& seeds)
{
    return mob_engine::ScanEngine({m.track_x, m.track_y, m.track_z, m.track_time.data(), m.nsimu, m.ntime, m.nsamp, factor(m)},
                                  seeds);
}

// Mobility from the slope of a mean-square curve over the track times.
inline double mob_of(const Mobutils& m, const double* curve)
{
    double a, b, s;
    LinearRegression(m.track_time.data(), curve, m.ntime, &a, &b, &s);
    return factor(m) * b;
}

// Mobility of the mean projected square along u.
inline double literal_mob(const Mobutils& m, const Vec3& u, Table* projsq_out = nullptr)
{
    Table projsq(m.nsimu, m.ntime);
    std::vector<double> mean(static_cast<size_t>(m.ntime), 0.0);
    for (int j = 0; j < m.nsimu; ++j)
        for (int t = 0; t < m.ntime; ++t) {
            const double p = m.track_x[j][t] * u[0] + m.track_y[j][t] * u[1] + m.track_z[j][t] * u[2];
            mean[t] += projsq[j][t] = p * p;
        }
    for (double& v : mean) v /= m.nsimu;
    if (projsq_out) *projsq_out = projsq;
    return mob_of(m, mean.data());
}

// Mobility and error along direction number d of a scan, u. The bootstrap threads
// are played one after the other: thread t of nthreads takes its contiguous block
// of the resamples and draws them from an MT19937 seeded with seeds[t % size] + d.
inline void literal_treat(const Mobutils& m, const Vec3& u, const std::vector<std::uint32_t>& seeds, int nthreads,
                          std::uint32_t d, double& mob, double& err)
{
    Table projsq;
    mob = literal_mob(m, u, &projsq);
    const int n = m.nsimu, nt = m.ntime, ns = m.nsamp;
    Table resample(ns, nt);
    std::vector<double> resample_mob(static_cast<size_t>(ns));
    for (int th = 0; th < nthreads; ++th) {
        std::mt19937 gen(seeds[static_cast<size_t>(th) % seeds.size()] + d);
        const int q = ns / nthreads, r = ns % nthreads, first = th * q + std::min(th, r);
        for (int k = first; k < first + q + (th < r); ++k) {
            for (int draw = 0; draw < n; ++draw) {
                const int idx = static_cast<int>(n * std::generate_canonical<double, 53>(gen));
                for (int t = 0; t < nt; ++t) resample[k][t] += projsq[idx][t];
            }
            for (int t = 0; t < nt; ++t) resample[k][t] /= n;
            resample_mob[k] = mob_of(m, resample[k]);
        }
    }
    double lo = 1e8, hi = -1e8;  // not-a-number results are passed over
    for (const double v : resample_mob) lo = std::min(lo, v), hi = std::max(hi, v);
    err = (hi - lo) * 0.5;
}

}  // namespace scanoracle
