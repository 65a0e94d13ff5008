#include "mob_utils.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace {

const char* const kModule = "mob_utils";
const char* const kBadTimeGrid =
    "tsimu = %g and tsnap = %g give no usable number of time points (round(tsimu / tsnap) must be "
    "a whole number from 0 to %d)\n";

// Curve of every trajectory averaged over trajectories, summed in trajectory order.
void mean_curve(const Table& data, int nsimu, int ntime, std::vector<double>& mean)
{
    std::fill(mean.begin(), mean.begin() + ntime, 0.0);
    for (int j = 0; j < nsimu; ++j) {
        const double* row = data[j];
        for (int t = 0; t < ntime; ++t) mean[t] += row[t];
    }
    for (int t = 0; t < ntime; ++t) mean[t] /= nsimu;
}

// The clock seeds the bootstrap of a run; a fixed seed restarts the generator.
void seed_ran2(const RandomSeeds& seeds)
{
    if (seeds.ran2)
        reset_random_state(*seeds.ran2);
    else
        init_random_seed();
}

// The sequential bootstrap of the average and axis analyses: every resample
// draws nsimu trajectories with replacement from the process-wide generator.
// Returns half the spread of the resample mobilities, the running minimum and
// maximum starting from the given sentinel.
double sequential_bootstrap(const Table& data, int nsimu, int ntime, int nsamp,
                            const std::vector<double>& time, double factor, double sentinel)
{
    Table resample(nsamp, ntime + 1);
    std::vector<double> mobs(static_cast<size_t>(nsamp));
    for (int s = 0; s < nsamp; ++s) {
        double* row = resample[s];
        for (int n = 0; n < nsimu; ++n) {
            const int k = static_cast<int>(static_cast<double>(nsimu) * randUniform());
            const double* src = data[k];
            for (int t = 0; t < ntime; ++t) row[t] += src[t];
        }
        for (int t = 0; t < ntime; ++t) row[t] /= nsimu;
        mobs[s] = factor * regression_slope(time.data(), row, ntime);
    }
    double lo = sentinel, hi = -sentinel;
    for (const double m : mobs) {
        if (m < lo) lo = m;
        if (m > hi) hi = m;
    }
    return (hi - lo) * 0.5;
}

void write_aver_track(const char* name, int line, const std::vector<double>& time,
                      const std::vector<double>& mean, int ntime)
{
    const File f = open_file(name, "wt");
    if (!f) fatal_open(kModule, line, name);
    for (int t = 0; t < ntime; ++t) std::fprintf(f.get(), "%14.6e %14.6e\n", time[t], mean[t]);
}

void write_mob_line(const char* name, int line, const std::string& label, double mob, double dev)
{
    const File f = open_file(name, "wt");
    if (!f) fatal_open(kModule, line, name);
    std::fprintf(f.get(), "%s / dev [cm**2/Vs]: %14.6e  %14.6e\n", label.c_str(), mob, dev);
}

}  // namespace

// Reads up to five numbers of a track row; a field that is no number stops
// the scan and the fields not reached keep their values.
void parse_track_line(const char* line, double* v)
{
    std::sscanf(line, "%lf%lf%lf%lf%lf", &v[0], &v[1], &v[2], &v[3], &v[4]);
}

Mobutils::Mobutils() = default;

void Mobutils::init()
{
    if (!input_read) read_kelta_inp("kelta.inp", flag_binfo);
    const double points = tsimu / tsnap + 0.5;
    if (!(points >= 0.0 && points < static_cast<double>(INT_MAX)))
        fatal(kModule, 95, 1, strprintf(kBadTimeGrid, tsimu, tsnap, INT_MAX - 1));
    ntime = static_cast<int>(points);
    if (flag_binfo) {
        std::cout << "  nsimu = " << nsimu << "\n";
        std::cout << "  tsimu = " << tsimu << " ps\n";
        std::cout << "  tsnap = " << tsnap << " ps\n";
        std::cout << "  tstep = " << tstep << " ps\n";
        std::cout << "  ntime = " << ntime << "\n";
    }
    read_charge_inp();
    if (flag_binfo) std::cout << "  MC chargetype = " << charge << "\n";
}

// The directory is always "track": the -trackdir option only changes the
// printed name, as users of the hopping code expect.
void Mobutils::readin_track_data()
{
    std::cout << "Reading track data..." << "\n";
    if (flag_binfo) std::cout << "  nsimu = " << nsimu << "\n" << "  ntime = " << ntime << "\n";
    const int rows = std::max(nsimu, 0);
    track_time.assign(static_cast<size_t>(ntime) + 2, 0.0);
    track_x.resize(rows, ntime + 2);
    track_y.resize(rows, ntime + 2);
    track_z.resize(rows, ntime + 2);
    track_r2.resize(rows, ntime + 2);

    // A line that cannot be parsed, or is missing because the file ended early,
    // repeats the previous row's values; there are none before the first row.
    double v[5] = {0, 0, 0, 0, 0};
    char line[256];
    for (int j = 0; j < nsimu; ++j) {
        const std::string name = strprintf("track/track_%04d.dat", j + 1);
        const File f = open_file(name, "rt");
        if (!f) fatal_open(kModule, 175, name);
        std::fgets(line, sizeof line, f.get());  // header
        for (int t = 0; t < ntime; ++t) {
            if (std::fgets(line, sizeof line, f.get())) parse_track_line(line, v);
            track_x[j][t] = v[1];
            track_y[j][t] = v[2];
            track_z[j][t] = v[3];
            track_r2[j][t] = v[4];
            if (j == 0) track_time[t] = v[0];
        }
    }
    track_loaded = true;
}

void Mobutils::output_mob_data(int mob_all, const RandomSeeds& seeds)
{
    mob_average(seeds);
    mob_direction_a_b_c(seeds);
    if ((output_level & 2) != 0 || mob_all != 0) {
        mob_plane_xy_xz_yz(seeds);
        mob_direction_all(seeds);
    }
}

void Mobutils::mob_average(const RandomSeeds& seeds)
{
    std::cout << "Treating mob_average..." << "\n";
    read_first_number("temp.inp", temp);  // replaces temp for every later analysis
    if (flag_binfo) std::cout << "  temp  = " << temp << "\n";
    const int n = std::max(nsimu, 0);
    std::vector<double> mean(static_cast<size_t>(ntime) + 1, 0.0);
    mean_curve(track_r2, n, ntime, mean);
    if (output_level & 4) write_aver_track("aver_track.dat", 275, track_time, mean, ntime);
    const double f = 1e-16 / (((0.0001724 * temp) * get_track_timeunit()) * static_cast<double>(ndim));
    if (flag_binfo)
        std::cout << "  nsimu = " << nsimu << "\n" << "  nsamp = " << nsamp << "\n" << "  ntime = " << ntime << "\n";
    seed_ran2(seeds);
    const double dev = sequential_bootstrap(track_r2, n, ntime, nsamp, track_time, f, 1e20);
    const double mob = f * regression_slope(track_time.data(), mean.data(), ntime);
    write_mob_line("mob.dat", 411, "mob_ave", mob, dev);
    if (flag_binfo) std::cout << "done." << "\n";
}

void Mobutils::mob_direction_a_b_c(const RandomSeeds& seeds)
{
    std::cout << "Treating mob_direction..." << "\n";
    read_first_number("temp.inp", temp);  // replaces temp for every later analysis
    if (flag_binfo) std::cout << "  temp = " << temp << "\n";
    const int n = std::max(nsimu, 0);
    Table projected(n, ntime + 2);
    std::vector<double> mean(static_cast<size_t>(ntime) + 2, 0.0);
    const double f1 = 1e-16 / ((0.0001724 * temp) * get_track_timeunit());
    const char* const axes[3] = {"a", "b", "c"};
    for (int axis = 0; axis < 3; ++axis) {
        // A zero lattice column gives not-a-number directions, as documented.
        const double len = std::sqrt(latt[0][axis] * latt[0][axis] + latt[1][axis] * latt[1][axis] +
                                     latt[2][axis] * latt[2][axis]);
        const double ux = latt[0][axis] / len, uy = latt[1][axis] / len, uz = latt[2][axis] / len;
        for (int j = 0; j < n; ++j) {
            const double *x = track_x[j], *y = track_y[j], *z = track_z[j];
            double* out = projected[j];
            for (int t = 0; t < ntime; ++t) {
                const double p = x[t] * ux + y[t] * uy + z[t] * uz;
                out[t] = p * p;
            }
        }
        mean_curve(projected, n, ntime, mean);
        if (output_level & 4)
            write_aver_track(strprintf("aver_track_%s.dat", axes[axis]).c_str(), 528, track_time, mean, ntime);
        seed_ran2(seeds);
        const double dev = sequential_bootstrap(projected, n, ntime, nsamp, track_time, f1, 1e8);
        const double mob = f1 * regression_slope(track_time.data(), mean.data(), ntime);
        write_mob_line(strprintf("mob_%s.dat", axes[axis]).c_str(), 645, strprintf("mob_%s", axes[axis]), mob, dev);
    }
    if (flag_binfo) std::cout << "done." << "\n";
}
