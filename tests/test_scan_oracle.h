// The per-direction procedure of the angle scans done the long way, as a
// reference for the fast one: project every trajectory, add whole curves for
// every resample, fit every resample curve. Shared by the tests and the benchmark.
#pragma once

#include <omp.h>

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
            const double p =
                m.track_x[j][t] * u[0] + m.track_y[j][t] * u[1] + m.track_z[j][t] * u[2];
            projsq[j][t] = p * p;
            mean[t] += projsq[j][t];
        }
    for (double& v : mean) v /= n;
    if (projsq_out) *projsq_out = projsq;
    return 1e-16 / ((0.0001724 * m.temp) * m.get_track_timeunit()) * slope_of(m, mean.data());
}

// The resamples of bootstrap thread th of nthreads, seeded from
// m.scan_seeds[th % size], or from the random device when there are no seeds.
inline void literal_block(const Mobutils& m, const Table& projsq, int th, int nthreads,
                          Table& resample, std::vector<double>& resample_mob)
{
    const int n = m.nsimu, nt = m.ntime, ns = m.nsamp;
    const double factor = 1e-16 / ((0.0001724 * m.temp) * m.get_track_timeunit());
    const size_t nseeds = m.scan_seeds.size();
    std::mt19937 gen(nseeds ? m.scan_seeds[static_cast<size_t>(th) % nseeds]
                            : std::random_device("default")());
    const int q = ns / nthreads, r = ns % nthreads;
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

// Mobility and error along u. With nthreads > 0 the bootstrap threads are played
// one after the other; with 0 they run in a parallel region of the default size.
inline void literal_treat(const Mobutils& m, const Vec3& u, int nthreads, double& mob, double& err)
{
    Table projsq;
    mob = literal_mob(m, u, &projsq);
    Table resample(m.nsamp, m.ntime);
    std::vector<double> resample_mob(static_cast<size_t>(m.nsamp));
    if (nthreads > 0) {
        for (int th = 0; th < nthreads; ++th)
            literal_block(m, projsq, th, nthreads, resample, resample_mob);
    } else {
#pragma omp parallel
        literal_block(m, projsq, omp_get_thread_num(), omp_get_num_threads(), resample,
                      resample_mob);
    }
    double lo = 1e8, hi = -1e8;
    for (const double v : resample_mob) {
        if (v < lo) lo = v;
        if (v > hi) hi = v;
    }
    err = (hi - lo) * 0.5;
}

}  // namespace scanoracle
