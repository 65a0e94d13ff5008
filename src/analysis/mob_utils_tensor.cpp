// The mobility tensor (option -tensor): every direction's mobility is u^T M u
// for one symmetric tensor M, the slope of the trajectory-averaged x x^T curves
// times the one-dimensional factor. Written to mob_tensor.dat with its principal
// values, the mobility along the cell and reciprocal directions, bootstrap
// standard errors and percentile intervals, and a check that the mean-square
// displacement grows linearly over the whole simulated time.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <numeric>
#include <random>

#include "mob_utils.h"
#include "mob_utils_errors.h"
#include "mob_utils_engine.h"

using namespace mob_utils_error;

namespace {

const char* const kModule = "mob_utils";
const char* const kTensorFile = "mob_tensor.dat";
constexpr int kResamples = 200;

using mob_engine::Form;

Mat3 as_matrix(const Form& f)
{
    return {{{f[0], f[3], f[4]}, {f[3], f[1], f[5]}, {f[4], f[5], f[2]}}};
}

double along(const Mat3& m, Vec3 u)
{
    const double len = get_magnitude(u);
    for (double& x : u) x /= len;
    double q = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) q += u[i] * m[i][j] * u[j];
    return q;
}

Spread spread_of(std::vector<double> v)
{
    const double n = static_cast<double>(v.size());
    double mean = 0.0, ss = 0.0;
    for (const double x : v) mean += x / n;
    for (const double x : v) {
        const double dev = x - mean;
        ss += dev * dev;
    }
    std::sort(v.begin(), v.end());
    return {std::sqrt(ss / (n - 1.0)), quantile_sorted(v, 0.025), quantile_sorted(v, 0.975), (v.back() - v.front()) * 0.5};
}

// The average mobility's per-trajectory slopes over time points [first, last).
std::vector<double> r2_slopes(const Mobutils& m, int first, int last)
{
    const mob_engine::SlopeWeights w(m.track_time.data() + first, last - first);
    std::vector<double> s(static_cast<size_t>(std::max(m.nsimu, 0)));
    for (size_t j = 0; j < s.size(); ++j) s[j] = w.slope(m.track_r2[static_cast<int>(j)] + first);
    return s;
}

double mean(const std::vector<double>& v, const std::vector<int>& pick)
{
    double sum = 0.0;
    for (const int j : pick) sum += v[static_cast<size_t>(j)];
    return sum / static_cast<double>(pick.size());
}

void write_report(OutputFile& out, const TensorReport& r, int nsimu, int ntime, double temp, double unit)
{
    out.print("# mobility tensor M, cm^2/(V s): the mobility along a unit direction u is u^T M u\n");
    out.print("# %d trajectories of %d time points, temperature %g K, time unit %g s\n", nsimu, ntime, temp, unit);
    out.print("# tensor in Cartesian axes, rows x, y, z\n");
    for (const Vec3& row : r.mu) out.print("%14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
    out.print("# principal mobilities, largest first, each with its unit axis x, y, z\n");
    for (int c = 0; c < 3; ++c)
        out.print("principal_%d %14.6e   %9.6f %9.6f %9.6f\n", c + 1, r.principal[c], r.axes[0][c], r.axes[1][c],
                     r.axes[2][c]);
    out.print("anisotropy %12.4e   (largest / smallest principal mobility)\n", r.principal[0] / r.principal[2]);
    out.print("# mobility along the cell vectors and along the reciprocal directions (a* is normal to b and c)\n");
    for (int c = 0; c < 3; ++c) out.print("along_%c  %14.6e\n", "abc"[c], r.along[0][c]);
    for (int c = 0; c < 3; ++c) out.print("along_%c* %14.6e\n", "abc"[c], r.along[1][c]);
    out.print("# bootstrap over %d resamples of the trajectories: value, standard error (standard deviation\n"
                      "# of the resamples), 95%% percentile interval low and high, and the half-range the other files report\n",
                 kResamples);
    const std::array<const char*, 4> labels = {"average", "principal_1", "principal_2", "principal_3"};
    for (size_t k = 0; k < labels.size(); ++k)
        out.print("%-12s %14.6e %14.6e %14.6e %14.6e %14.6e\n", labels[k], r.value[k], r.spread[k].se,
                     r.spread[k].low, r.spread[k].high, r.spread[k].half_range);
    out.print("# linearity: the average mobility fitted over the first and over the second half of the\n"
                      "# time points, each with its standard error\n");
    out.print("first_half   %14.6e %14.6e\nsecond_half  %14.6e %14.6e\n", r.value[4], r.spread[4].se, r.value[5],
                 r.spread[5].se);
    // Both halves come from the same trajectories: their combined standard error is
    // that of the difference over the same resamples.
    out.print("difference   %14.6e %14.6e   (second - first, standard error from the same resamples)\n",
                 r.value[6], r.spread[6].se);
    out.print("# verdict: %s\n", r.linearity_verdict.c_str());
    out.print("# convergence in the number of trajectories: the average mobility and its standard error (standard\n"
              "# deviation of the trajectories' mobilities over the root of their number) from the first nsimu/8,\n"
              "# nsimu/4, nsimu/2 and all trajectories\n");
    for (const TensorReport::Subset& c : r.convergence)
        out.print("convergence %8d %14.6e %14.6e\n", c.trajectories, c.mob, c.se);
    out.print("# convergence verdict: %s\n", r.convergence_verdict.c_str());
}

std::string linearity_verdict(const TensorReport& r, int nsimu)
{
    if (!r.halves) return "too few time points to compare the two halves";
    if (nsimu < 2) return "too few trajectories to compare the two halves";  // no resample can tell their spread
    if (std::fabs(r.value[6]) > 3.0 * r.spread[6].se)
        return "WARNING: the halves differ by more than 3 combined standard errors: the motion is not diffusive over "
               "the whole time (a ballistic start, or a saturation)";
    return "the halves agree within 3 combined standard errors: the motion is diffusive";
}

// The average mobility of the first n trajectories: the mean of their own
// mobilities, as the fit is linear in the curve; its standard error from their spread.
TensorReport::Subset first_trajectories(const std::vector<double>& slopes, int n, double f3)
{
    double sum = 0.0, ss = 0.0;
    for (int j = 0; j < n; ++j) sum += f3 * slopes[static_cast<size_t>(j)];
    const double mob = sum / n;
    for (int j = 0; j < n; ++j) {
        const double d = f3 * slopes[static_cast<size_t>(j)] - mob;
        ss += d * d;
    }
    return {n, mob, n > 1 ? std::sqrt(ss / (n - 1.0) / n) : NAN};
}

// The last two subsets (half and all the trajectories) agree when their error
// bars overlap.
std::string convergence_verdict(const std::vector<TensorReport::Subset>& c)
{
    if (c.size() < 2 || !(c[c.size() - 2].se >= 0)) return "too few trajectories to judge";
    const TensorReport::Subset &half = c[c.size() - 2], &all = c.back();
    if (std::fabs(half.mob - all.mob) <= half.se + all.se)
        return "the last two agree within their errors: the number of trajectories is enough";
    return "more trajectories would change the result";
}

}  // namespace

void Mobutils::mob_tensor(const RandomSeeds& seeds)
{
    std::cout << "Treating mob_tensor..." << "\n";
    const int n = std::max(nsimu, 0), half = ntime / 2;
    const double f1 = mobility_per_slope(), f3 = f1 / ndim;
    const mob_engine::ScanEngine engine({track_x, track_y, track_z, track_time.data(), n, ntime, nsamp, f1}, {});
    const std::vector<Form>& slopes = engine.slope_tensors();
    const std::vector<double> r2_all = r2_slopes(*this, 0, ntime), r2_first = r2_slopes(*this, 0, half),
                              r2_second = r2_slopes(*this, half, ntime);
    const auto tensor_of = [&](const std::vector<int>& pick) {
        Form mean_form{};
        for (const int j : pick)
            for (size_t i = 0; i < mean_form.size(); ++i) mean_form[i] += slopes[j][i] / static_cast<double>(pick.size());
        Mat3 t = as_matrix(mean_form);
        for (Vec3& row : t)
            for (double& v : row) v *= f1;
        return t;
    };

    TensorReport r;
    std::vector<int> all(static_cast<size_t>(n));
    std::iota(all.begin(), all.end(), 0);
    r.mu = tensor_of(all);
    symmetric_eigen(r.mu, r.principal, r.axes);
    for (int c = 0; c < 3; ++c) {
        r.along[0][c] = along(r.mu, {latt[0][c], latt[1][c], latt[2][c]});
        r.along[1][c] = along(r.mu, {latt_inv[c][0], latt_inv[c][1], latt_inv[c][2]});
    }
    const double first = f3 * mean(r2_first, all), second = f3 * mean(r2_second, all);
    r.value = {f3 * mean(r2_all, all), r.principal[0], r.principal[1], r.principal[2], first, second, second - first};
    r.halves = half >= 3;

    // 200 resamples of the trajectories, from a generator of this analysis alone;
    // one trajectory has no spread to tell. The MSD picture's bands use them too.
    r.spread.fill(Spread{NAN, NAN, NAN, NAN});
    std::vector<std::vector<int>> picks;  // [resamples][nsimu] the trajectories each drew
    if (n > 1) {
        std::mt19937 gen(seeds.scan.empty() ? std::random_device("default")() : seeds.scan.front());
        std::uniform_int_distribution<int> draw(0, n - 1);
        std::array<std::vector<double>, 7> boot;
        for (int s = 0; s < kResamples; ++s) {
            std::vector<int>& pick = picks.emplace_back(static_cast<size_t>(n));
            for (int& j : pick) j = draw(gen);
            Vec3 value;
            Mat3 unused;
            symmetric_eigen(tensor_of(pick), value, unused);
            const double half1 = f3 * mean(r2_first, pick), half2 = f3 * mean(r2_second, pick);
            const std::array<double, 7> resample = {f3 * mean(r2_all, pick), value[0], value[1], value[2], half1, half2,
                                                    half2 - half1};
            for (size_t k = 0; k < resample.size(); ++k) boot[k].push_back(resample[k]);
        }
        for (size_t k = 0; k < r.spread.size(); ++k) r.spread[k] = spread_of(boot[k]);
    }

    r.linearity_verdict = linearity_verdict(r, nsimu);
    for (const int part : {8, 4, 2, 1})
        if (n / part > 0) r.convergence.push_back(first_trajectories(r2_all, n / part, f3));
    r.convergence_verdict = convergence_verdict(r.convergence);

    OutputFile f(kTensorFile, kModule, kLineTensorFile);
    write_report(f, r, nsimu, ntime, temp, get_track_timeunit());
    f.commit();
    write_msd(r, picks);
    result_tensor = r;
}
