// The per-direction procedure of the angle scans done the long way, as a
// reference for the fast one: project every trajectory, add whole curves for
// every resample, fit every resample curve. Shared by the tests and the benchmark.
#pragma once

#include <random>
#include <vector>

#include "mob_utils.h"

namespace scanoracle {

// Random-walk positions with different spreads along x, y and z; times 0, dt, 2 dt...
inline void fill_random_walks(Mobutils& m, int nsimu, int ntime, unsigned seed, double dt = 5.0)
{
    std::mt19937 gen(seed);
    std::normal_distribution<double> hop(0.0, 1.0);
    m.nsimu = nsimu;
    m.ntime = ntime;
    m.temp = 300.0;
    m.set_track_timeunit(1e-9);
    m.track_time.resize(static_cast<size_t>(ntime));
    for (int t = 0; t < ntime; ++t) m.track_time[t] = t * dt;
    Table* tables[3] = {&m.track_x, &m.track_y, &m.track_z};
    const double spread[3] = {3.0, 2.0, 0.5};
    for (int a = 0; a < 3; ++a) {
        tables[a]->resize(nsimu, ntime + 2);
        for (int j = 0; j < nsimu; ++j)
            for (int t = 1; t < ntime; ++t)
                (*tables[a])[j][t] = (*tables[a])[j][t - 1] + spread[a] * hop(gen);
    }
}

inline double slope_of(const Mobutils& m, const double* curve)
{
    double a, b, s;
    LinearRegression(m.track_time.data(), curve, m.ntime, &a, &b, &s);
    return b;
}

// Mobility of the mean projected square along u.
inline double literal_mob(const Mobutils& m, const Vec3& u, Table* projsq_out = nullptr)
{
    const int n = m.nsimu, nt = m.ntime;
    Table projsq(n, nt);
    std::vector<double> mean(static_cast<size_t>(nt), 0.0);
    for (int j = 0; j < n; ++j)
        for (int t = 0; t < nt; ++t) {
            const double p = m.track_x[j][t] * u[0] + m.track_y[j][t] * u[1] + m.track_z[j][t] * u[2];
            projsq[j][t] = p * p;
            mean[t] += projsq[j][t];
        }
    for (double& v : mean) v /= n;
    if (projsq_out) *projsq_out = projsq;
    return 1e-16 / ((0.0001724 * m.temp) * m.get_track_timeunit()) * slope_of(m, mean.data());
}

// Mobility and error along u, with the bootstrap threads played one after the
// other: thread th of nthreads seeds from m.scan_seeds[th % size].
inline void literal_treat(const Mobutils& m, const Vec3& u, int nthreads, double& mob, double& err)
{
    const int n = m.nsimu, nt = m.ntime, ns = m.nsamp;
    const double factor = 1e-16 / ((0.0001724 * m.temp) * m.get_track_timeunit());
    Table projsq;
    mob = literal_mob(m, u, &projsq);
    Table resample(ns, nt);
    std::vector<double> resample_mob(static_cast<size_t>(ns));
    const int q = ns / nthreads, r = ns % nthreads;
    for (int th = 0; th < nthreads; ++th) {
        std::mt19937 gen(m.scan_seeds[static_cast<size_t>(th) % m.scan_seeds.size()]);
        const int first = th < r ? th * (q + 1) : r + th * q;
        const int count = th < r ? q + 1 : q;
        for (int k = first; k < first + count; ++k) {
            for (int d = 0; d < n; ++d) {
                const int idx = static_cast<int>(n * std::generate_canonical<double, 53>(gen));
                for (int t = 0; t < nt; ++t) resample[k][t] += projsq[idx][t];
            }
            for (int t = 0; t < nt; ++t) resample[k][t] /= n;
            resample_mob[k] = factor * slope_of(m, resample[k]);
        }
    }
    double lo = 1e8, hi = -1e8;
    for (const double v : resample_mob) {
        if (v < lo) lo = v;
        if (v > hi) hi = v;
    }
    err = (hi - lo) * 0.5;
}

}  // namespace scanoracle
