// The track reader and the average/axis bootstrap done the straightforward way,
// as references for the fast versions: fgets and sscanf line by line, and every
// resample as a whole mean curve fitted by LinearRegression. Shared by the tests
// and the benchmark.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "mob_utils.h"

namespace analysisoracle {

// Reads the tables as the hopping code's reader does, one file after the other.
// Returns false when a file is missing.
inline bool straight_read(Mobutils& m)
{
    const int n = m.nsimu, nt = m.ntime;
    m.track_time.assign(static_cast<size_t>(nt), 0.0);
    for (Table* t : {&m.track_x, &m.track_y, &m.track_z, &m.track_r2}) t->resize(n, nt);
    char line[256];
    for (int j = 0; j < n; ++j) {
        std::FILE* f = std::fopen(strprintf("track/track_%04d.dat", j + 1).c_str(), "r");
        if (!f) return false;
        double v[5] = {0, 0, 0, 0, 0};
        std::fgets(line, sizeof line, f);
        for (int t = 0; t < nt; ++t) {
            if (std::fgets(line, sizeof line, f)) std::sscanf(line, "%lf%lf%lf%lf%lf", &v[0], &v[1], &v[2], &v[3], &v[4]);
            m.track_x[j][t] = v[1];
            m.track_y[j][t] = v[2];
            m.track_z[j][t] = v[3];
            m.track_r2[j][t] = v[4];
            if (j == 0) m.track_time[t] = v[0];
        }
        std::fclose(f);
    }
    return true;
}

// Half the spread of nsamp resample mobilities of the curves data[j][0..ntime):
// each resample adds nsimu rows drawn with randUniform and fits their mean.
inline double straight_bootstrap(const Table& data, int nsimu, int ntime, int nsamp, const double* time,
                                 double factor, double sentinel)
{
    std::vector<double> row(static_cast<size_t>(ntime));
    double lo = sentinel, hi = -sentinel;
    for (int s = 0; s < nsamp; ++s) {
        std::fill(row.begin(), row.end(), 0.0);
        for (int draw = 0; draw < nsimu; ++draw) {
            const int k = static_cast<int>(static_cast<double>(nsimu) * randUniform());
            for (int t = 0; t < ntime; ++t) row[t] += data[k][t];
        }
        for (double& v : row) v /= nsimu;
        const double mob = factor * regression_slope(time, row.data(), ntime);
        if (mob < lo) lo = mob;
        if (mob > hi) hi = mob;
    }
    return (hi - lo) * 0.5;
}

}  // namespace analysisoracle
