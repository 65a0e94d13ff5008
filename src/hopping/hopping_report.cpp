// What the hopping simulation reports: the rates of the cell's hops, the exact
// long-time answer of the network, and the drift the trajectories show.

#include <cmath>

#include "hopping_network.h"

namespace network {

namespace {

const char* const kRatesHead =
    "# hops of the cell's molecules: ratetype %s, T = %g K, lambda = %g meV, couplings from %s\n"
    "# mol_i mol_j  na nb nc class     V_meV    dG_meV      r_x_A      r_y_A      r_z_A   rate_per_s  rate_per_%s\n";
const char* const kRatesRow = "%7d%6d%4d%3d%3d%6d%10.3f%10.3f%11.4f%11.4f%11.4f%13.5e%13.5e\n";

// Entries below this fraction of a tensor's largest are rounding and shown as 0.
constexpr double kRounding = 1e-12;

// The tensor times f, with entries at rounding level set to 0.
Mat3 scaled(Mat3 m, double f)
{
    double largest = 0;
    for (const Vec3& row : m)
        for (const double v : row) largest = std::max(largest, std::fabs(v));
    for (Vec3& row : m)
        for (double& v : row) v = std::fabs(v) < kRounding * largest ? 0.0 : v * f;
    return m;
}

double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Angstrom per second to cm/s.
Vec3 in_cm_per_s(const Vec3& v)
{
    return {v[0] * units::kAngstromInCm, v[1] * units::kAngstromInCm, v[2] * units::kAngstromInCm};
}

// A velocity (cm/s) along the field over the field (V/cm): a mobility.
double along_field(const Vec3& v_cm_s, const Vec3& field) { return dot(v_cm_s, field) / (squared_length(field) / 100.0); }

}  // namespace

Vec3 drift_cm_per_s(const Exact& e) { return in_cm_per_s(e.drift); }

double drift_mobility(const Exact& e, const Vec3& field) { return along_field(in_cm_per_s(e.drift), field); }

std::string rates_table(const Conditions& run, const Couplings& c, const std::vector<Hop>& hops, const TimeUnit& unit)
{
    std::string s = strprintf(kRatesHead, run.model == RateModel::quantum ? "quantum" : "marcus", run.temperature,
                              c.lambda_meV, c.file.c_str(), unit.label.c_str());
    for (const Hop& h : hops)
        s += strprintf(kRatesRow, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2], h.pair_class + 1,
                       c.V_meV[h.pair_class], h.dG / units::kMeV, h.r[0], h.r[1], h.r[2], h.rate, h.rate * unit.seconds);
    return s;
}

Mat3 mobility_tensor(const Mat3& D, double temperature, const TimeUnit& unit)
{
    return scaled(scaled(D, unit.seconds), 2.0 * units::mobility_per_slope(temperature, unit.seconds));  // D = slope / 2
}

std::string exact_report(const Conditions& run, const TimeUnit& unit, const Exact& e, const std::vector<Hop>& hops)
{
    const Mat3 mu = mobility_tensor(e.D, run.temperature, unit);
    Vec3 value, naive_value;
    Mat3 axes, naive_axes;
    symmetric_eigen(mu, value, axes);
    symmetric_eigen(mobility_tensor(naive_diffusion(e.pi, hops), run.temperature, unit), naive_value, naive_axes);
    std::string s = strprintf("# exact long-time behaviour of the hopping network, T = %g K, time unit %g s\n",
                              run.temperature, unit.seconds);
    s += "# stationary occupation of the cell's molecules\npi";
    for (const double p : e.pi) s += strprintf(" %.6f", p);
    s += "\n# diffusion tensor D, Angstrom^2 per time unit, Cartesian rows x, y, z\n";
    for (const Vec3& row : scaled(e.D, unit.seconds)) s += strprintf("%14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
    s += "# mobility tensor M = e D / (kB T), cm^2/(V s): the mobility along a unit direction u is u^T M u\n";
    for (const Vec3& row : mu) s += strprintf("%14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
    s += "# principal mobilities, largest first, each with its unit axis x, y, z\n";
    for (int c = 0; c < 3; ++c)
        s += strprintf("principal_%d %14.6e   %9.6f %9.6f %9.6f\n", c + 1, value[c], axes[0][c], axes[1][c], axes[2][c]);
    s += "# the naive 1/2 sum pi k r r^T, without the corrector of the cell problem, would give\n";
    for (int c = 0; c < 3; ++c) s += strprintf("naive_%d     %14.6e\n", c + 1, naive_value[c]);
    if (squared_length(run.field) > 0) {
        const Vec3& field = run.field;
        const Vec3 v = drift_cm_per_s(e);
        s += strprintf("# drift under the field F = %g %g %g V/m (Cartesian)\n", field[0], field[1], field[2]);
        s += strprintf("drift_velocity_cm_s %14.6e %14.6e %14.6e\n", v[0], v[1], v[2]);
        s += strprintf("drift_mobility %14.6e   (v.F / |F|^2, cm^2/(V s))\n", drift_mobility(e, field));
    }
    return s;
}

// The velocity of each trajectory is its displacement over the time; the means
// and their standard errors follow.
Drift measured_drift(const Conditions& run, const TimeUnit& unit, const Exact& e, const std::vector<Vec3>& final_x,
                     double time)
{
    Drift d;
    d.field = run.field;
    d.trajectories = static_cast<long>(final_x.size());
    d.time = time;
    const double n = static_cast<double>(final_x.size()), scale = units::kAngstromInCm / unit.seconds / time;
    std::array<double, 4> sum{}, sum2{};  // velocity x, y, z, then the mobility along F
    for (const Vec3& x : final_x) {
        const Vec3 v = {x[0] * scale, x[1] * scale, x[2] * scale};
        const std::array<double, 4> q = {v[0], v[1], v[2], along_field(v, d.field)};
        for (size_t k = 0; k < q.size(); ++k) {
            sum[k] += q[k];
            sum2[k] += q[k] * q[k];
        }
    }
    std::array<double, 4> mean{}, se{};
    for (size_t k = 0; k < sum.size(); ++k) {
        mean[k] = sum[k] / n;
        se[k] = std::sqrt(std::max(sum2[k] / n - mean[k] * mean[k], 0.0) / (n - 1));
    }
    d.velocity = {mean[0], mean[1], mean[2]};
    d.velocity_se = {se[0], se[1], se[2]};
    d.mobility = mean[3];
    d.mobility_se = se[3];
    d.exact_mobility = drift_mobility(e, d.field);
    return d;
}

std::string drift_report(const Drift& d)
{
    std::string s = strprintf("# drift of the carrier under the field F = %g %g %g V/m (Cartesian), from %ld trajectories "
                              "of %g time units\n", d.field[0], d.field[1], d.field[2], d.trajectories, d.time);
    s += "# mean velocity, cm/s, Cartesian x, y, z, then the standard errors of the mean\n";
    s += strprintf("velocity    %14.6e %14.6e %14.6e\n", d.velocity[0], d.velocity[1], d.velocity[2]);
    s += strprintf("velocity_se %14.6e %14.6e %14.6e\n", d.velocity_se[0], d.velocity_se[1], d.velocity_se[2]);
    s += "# drift mobility v.F / |F|^2, cm^2/(V s): measured, its standard error, and exact for the network\n";
    s += strprintf("drift_mobility %14.6e %14.6e %14.6e\n", d.mobility, d.mobility_se, d.exact_mobility);
    return s;
}

}  // namespace network
