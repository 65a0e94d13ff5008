// The series of the exact answer: the temperature and field grids, one point of
// each series, the fits of the temperature dependence and the tables.
#include "hopping_series.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include "hopping_errors.h"

using namespace hopping_error;

namespace series {

namespace {

const char* const kModule = "transport";

const char* const kBadEnds =
    "start_temp = %g K, end_temp = %g K: the temperatures of a series must be finite and positive\n";
const char* const kZeroStep =
    "delta_temp = %g K: the series from start_temp = %g K to end_temp = %g K needs a finite step that is not zero\n";
const char* const kWrongSign =
    "delta_temp = %g K leads away from end_temp: from start_temp = %g K to end_temp = %g K the step needs the "
    "other sign\n";
const char* const kTooMany =
    "start_temp = %g K to end_temp = %g K by delta_temp = %g K makes %.0f temperatures, more than %ld\n";
const char* const kBadFieldRange =
    "field_range = %g %g %g: it needs F_first F_last N with 0 < F_first <= F_last (V/m, finite) and a whole N "
    "from 1 to %ld\n";

// A step divides the range when the number of steps is whole to this fraction of a step.
constexpr double kWholeSteps = 1e-9;
// Components of a velocity below this fraction of its length are rounding, shown as 0.
constexpr double kRounding = 1e-12;
// The local exponent compares the temperatures T (1 - h) and T (1 + h).
constexpr double kLocalStep = 1e-3;

double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vec3 cross(const Vec3& a, const Vec3& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double trace(const Mat3& m) { return m[0][0] + m[1][1] + m[2][2]; }

// The least-squares slope of y against x; not a number with fewer than two
// points or no spread in x.
double slope(const std::vector<double>& x, const std::vector<double>& y)
{
    const double n = static_cast<double>(x.size());
    double sx = 0, sy = 0;
    for (size_t k = 0; k < x.size(); ++k) sx += x[k], sy += y[k];
    double sxx = 0, sxy = 0;
    for (size_t k = 0; k < x.size(); ++k) {
        sxx += (x[k] - sx / n) * (x[k] - sx / n);
        sxy += (x[k] - sx / n) * (y[k] - sy / n);
    }
    return x.size() < 2 || sxx == 0 ? NAN : sxy / sxx;
}

// "%14.6e", and "nan" for every value that is not a number, whatever its sign.
std::string number(double v) { return std::isnan(v) ? "           nan" : strprintf("%14.6e", v); }

}  // namespace

// ------------------------------------------------ grids

std::vector<double> temperatures(double start, double end, double step)
{
    if (!(std::isfinite(start) && start > 0 && std::isfinite(end) && end > 0))
        fatal(kModule, kLineTemperatures, 1, strprintf(kBadEnds, start, end));
    if (!(std::isfinite(step) && step != 0)) fatal(kModule, kLineTemperatures, 1, strprintf(kZeroStep, step, start, end));
    const double steps = (end - start) / step;
    if (steps < -kWholeSteps) fatal(kModule, kLineTemperatures, 1, strprintf(kWrongSign, step, start, end));
    const double whole = std::round(steps);
    const bool divides = std::fabs(steps - whole) <= kWholeSteps;
    const double count = (divides ? whole : std::floor(steps)) + 1;
    if (count > static_cast<double>(kMostTemperatures))
        fatal(kModule, kLineTemperatures, 1, strprintf(kTooMany, start, end, step, count, kMostTemperatures));
    std::vector<double> T;
    for (long k = 0; k < static_cast<long>(count); ++k) T.push_back(start + static_cast<double>(k) * step);
    if (divides) T.back() = end;
    return T;
}

std::string temperature_text(double T)
{
    char buf[64];
    const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, T);
    return std::string(buf, r.ptr);
}

std::string folder_name(double T) { return "T_" + temperature_text(T); }

std::vector<double> fields(const Vec3& range)
{
    const double first = range[0], last = range[1], n = range[2];
    if (!(std::isfinite(first) && first > 0 && std::isfinite(last) && last >= first && n >= 1 &&
          n <= static_cast<double>(kMostFields) && n == std::floor(n)))
        fatal(kModule, kLineFields, 1, strprintf(kBadFieldRange, first, last, n, kMostFields));
    std::vector<double> f;
    const long count = static_cast<long>(n);
    for (long k = 0; k < count; ++k)
        f.push_back(k == 0 ? first : k == count - 1 ? last : first * std::pow(last / first, static_cast<double>(k) / (n - 1)));
    return f;
}

// ------------------------------------------------ the network at any conditions

network::Exact solve_at(const Network& n, const network::Conditions& run)
{
    std::vector<network::Hop> hops = n.hops;
    network::assign_rates(run, *n.couplings, n.molecules, hops);
    return network::solve_exact(n.molecules, hops);
}

// ------------------------------------------------ against temperature

TemperaturePoint temperature_point(const Network& n, network::Conditions run, const TimeUnit& unit)
{
    TemperaturePoint p;
    p.T = run.temperature;
    const network::Exact e = solve_at(n, run);
    const Mat3 mu = network::mobility_tensor(e.D, p.T, unit);
    symmetric_eigen(mu, p.value, p.axes);
    p.average = trace(mu) / 3;
    p.drift_mobility = squared_length(run.field) > 0 ? network::drift_mobility(e, run.field) : NAN;
    const auto log_average_at = [&](double T) {
        run.temperature = T;
        return std::log(trace(network::mobility_tensor(solve_at(n, run).D, T, unit)) / 3);
    };
    p.local_n = -(log_average_at(p.T * (1 + kLocalStep)) - log_average_at(p.T * (1 - kLocalStep))) /
                (std::log1p(kLocalStep) - std::log1p(-kLocalStep));
    return p;
}

Fit fit(const std::vector<double>& T, const std::vector<double>& mu)
{
    std::vector<double> log_T, inverse_T, log_mu;
    for (size_t k = 0; k < T.size(); ++k) {
        log_T.push_back(std::log(T[k]));
        inverse_T.push_back(1 / T[k]);
        log_mu.push_back(std::log(mu[k]));
    }
    return {-slope(log_T, log_mu), -slope(inverse_T, log_mu) * units::kBoltzmann / units::kMeV};
}

std::string axis_label(const Mat3& latt, const Vec3& axis)
{
    const Vec3 a = {latt[0][0], latt[1][0], latt[2][0]}, b = {latt[0][1], latt[1][1], latt[2][1]},
               c = {latt[0][2], latt[1][2], latt[2][2]};
    const std::pair<const char*, Vec3> directions[] = {{"a", a}, {"b", b}, {"c", c}, {"a*", cross(b, c)},
                                                       {"b*", cross(c, a)}, {"c*", cross(a, b)}};
    const char* name = "a";
    double best = -1;
    for (const auto& [label, d] : directions) {
        const double cosine = std::fabs(dot(axis, d)) / get_magnitude(d) / get_magnitude(axis);
        if (cosine > best + 1e-12) best = cosine, name = label;
    }
    return strprintf("%s(%.1f)", name, units::degrees(std::acos(std::min(best, 1.0))));
}

Measured read_mob_tensor(const std::string& file)
{
    Measured m;
    std::ifstream in(file);
    if (!in) return m;
    std::map<std::string, int> seen;
    int found = 0;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string key;
        double value = NAN, se = NAN;
        words >> key >> value >> se;
        const int occurrence = ++seen[key];
        if (key == "average") {
            m.average = value, m.average_se = se, ++found;
        } else if (occurrence == 2 && key.size() == 11 && key.rfind("principal_", 0) == 0 && key[10] >= '1' &&
                   key[10] <= '3') {
            m.value[key[10] - '1'] = value, m.se[key[10] - '1'] = se, ++found;
        }
    }
    m.present = found == 4;
    return m;
}

std::string write_temperature_files(const std::vector<TemperaturePoint>& points, const Mat3& latt,
                                    const network::Conditions& run, const std::string& ratetype)
{
    std::vector<double> T, kmc_T, kmc_average;
    std::array<std::vector<double>, 4> exact;  // the principal mobilities, then the average
    for (const TemperaturePoint& p : points) {
        T.push_back(p.T);
        for (int c = 0; c < 3; ++c) exact[c].push_back(p.value[c]);
        exact[3].push_back(p.average);
        if (p.kmc.present) kmc_T.push_back(p.T), kmc_average.push_back(p.kmc.average);
    }
    std::array<Fit, 4> fits;
    for (int c = 0; c < 4; ++c) fits[c] = fit(T, exact[c]);
    const Fit kmc_fit = fit(kmc_T, kmc_average);

    OutputFile f("me_temp.dat", kModule, kLineTemperatureTable);
    f.print("# mobility against temperature: the exact answer of the hopping network (ratetype %s, carrier %s,\n"
            "# field %g %g %g V/m Cartesian) and the simulation's where it ran (kelta_mob -tensor in T_<T>/)\n",
            ratetype.c_str(), run.charge > 0 ? "h" : "e", run.field[0], run.field[1], run.field[2]);
    f.write("# mobilities in cm^2/(V s): mu_1 >= mu_2 >= mu_3 the principal mobilities, each on its axis (axis_k: the\n"
            "# nearest of a, b, c, a*, b*, c* and the angle to it in degrees), mu_avg the trace / 3;\n"
            "# n_local = -d ln mu_avg / d ln T at T; drift_mu = v.F / |F|^2 under the field (nan without one);\n"
            "# kmc_k, kmc_avg: the simulation's principal and average mobilities from T_<T>/mob_tensor.dat with\n"
            "# their bootstrap standard errors (nan where it did not run)\n");
    f.print("# fits over %s .. %s K (%zu temperatures), least squares: mu ~ T^-n (ln mu against ln T) and\n"
            "# mu ~ exp(-Ea / (kB T)) (ln mu against 1/T, Ea = -slope x kB)\n",
            temperature_text(T.front()).c_str(), temperature_text(T.back()).c_str(), T.size());
    const char* const names[] = {"mu_1", "mu_2", "mu_3", "mu_avg"};
    for (int c = 0; c < 4; ++c)
        f.print("# fit %-8s n = %9.4f   Ea = %9.3f meV\n", names[c], fits[c].n, fits[c].ea_meV);
    if (kmc_T.size() >= 2)
        f.print("# fit %-8s n = %9.4f   Ea = %9.3f meV   (%zu temperatures)\n", "kmc_avg", kmc_fit.n, kmc_fit.ea_meV,
                kmc_T.size());
    f.write("#     T_K           mu_1           mu_2           mu_3         mu_avg        n_local       drift_mu"
            "          kmc_1       kmc_1_se          kmc_2       kmc_2_se          kmc_3       kmc_3_se        kmc_avg"
            "     kmc_avg_se  axis_1 axis_2 axis_3\n");
    for (const TemperaturePoint& p : points) {
        const Measured& m = p.kmc;
        std::vector<double> values = {p.value[0], p.value[1], p.value[2], p.average, p.local_n, p.drift_mobility};
        for (int c = 0; c < 3; ++c) values.insert(values.end(), {m.value[c], m.se[c]});
        values.insert(values.end(), {m.average, m.average_se});
        if (!m.present) std::fill(values.begin() + 6, values.end(), NAN);
        std::string row = strprintf("%10.3f", p.T);
        for (const double v : values) {
            row += ' ';
            row += number(v);
        }
        for (int c = 0; c < 3; ++c) {
            row += "  ";
            row += axis_label(latt, {p.axes[0][c], p.axes[1][c], p.axes[2][c]});
        }
        row += '\n';
        f.write(row);
    }
    f.commit();

    // The pictures name each principal axis as it lies at the first temperature.
    const TemperaturePoint& first = points.front();
    std::array<std::string, 4> axes;
    for (int c = 0; c < 3; ++c) axes[c] = axis_label(latt, {first.axes[0][c], first.axes[1][c], first.axes[2][c]});
    write_temperature_scripts(axes, fits, !kmc_T.empty(), std::min(T.front(), T.back()), std::max(T.front(), T.back()));
    std::string summary;
    for (int c = 0; c < 4; ++c) {
        const std::string curve = c < 3 ? std::string(names[c]) + " along " + axes[c] : "average";
        summary += strprintf("%-22s mu ~ T^-n with n = %7.3f, Ea = %8.2f meV\n", curve.c_str(), fits[c].n, fits[c].ea_meV);
    }
    if (kmc_T.size() >= 2)
        summary += strprintf("%-22s mu ~ T^-n with n = %7.3f, Ea = %8.2f meV\n", "simulation, average", kmc_fit.n,
                             kmc_fit.ea_meV);
    return summary;
}

// ------------------------------------------------ against field

FieldSeries field_series(const Network& n, const network::Conditions& run, const Vec3& direction,
                         const std::vector<double>& grid)
{
    FieldSeries s;
    const double length = get_magnitude(direction);
    for (int k = 0; k < 3; ++k) s.direction[k] = direction[k] / length;
    s.temperature = run.temperature;
    s.charge = run.charge;
    network::Conditions at = run;
    at.field = {};
    const Mat3 D = solve_at(n, at).D;  // Angstrom^2 per second
    const Vec3 Du = mat_vec_mul(D, s.direction);
    s.zero_field = dot(s.direction, Du) * units::kSquareAngstromInCm2 / (units::kBoltzmann * run.temperature);
    for (const double F : grid) {
        for (int k = 0; k < 3; ++k) at.field[k] = F * s.direction[k];
        const network::Exact e = solve_at(n, at);
        FieldPoint p;
        p.field = F;
        p.velocity = network::drift_cm_per_s(e);
        const double speed = get_magnitude(p.velocity);
        for (double& v : p.velocity) v = std::fabs(v) < kRounding * speed ? 0.0 : v;  // by symmetry, to rounding
        p.along = dot(p.velocity, s.direction);
        p.mobility = network::drift_mobility(e, at.field);
        s.points.push_back(p);
    }
    return s;
}

std::string write_field_files(const FieldSeries& s, const std::string& ratetype)
{
    const FieldPoint& low = s.points.front();
    const double ratio = s.charge * low.mobility / s.zero_field;
    const bool einstein = std::fabs(ratio - 1) <= 1e-3;
    OutputFile f("me_field.dat", kModule, kLineFieldTable);
    f.print("# drift against field: the exact answer of the hopping network (ratetype %s, carrier %s, T = %g K),\n"
            "# the field F along the unit direction %.6f %.6f %.6f (Cartesian) of app_elec_F, %zu magnitudes from\n"
            "# %g to %g V/m (field_range)\n",
            ratetype.c_str(), s.charge > 0 ? "h" : "e", s.temperature, s.direction[0], s.direction[1], s.direction[2],
            s.points.size(), low.field, s.points.back().field);
    f.print("# zero-field mobility along F, e D_FF / (kB T) with the CODATA kB: %.6e cm^2/(V s)\n", s.zero_field);
    f.print("# einstein: at %g V/m q v.F / |F|^2 is %.6f times it: %s\n", low.field, ratio,
            einstein ? "the low-field drift mobility is the zero-field mobility (the Einstein relation)"
                     : "they differ by more than 1e-3 (the field is not small against kB T / (e r), or the rates "
                       "do not keep detailed balance)");
    f.write("# F_V_m: field magnitude; v_F: drift velocity along F, v_x v_y v_z: Cartesian, cm/s; drift_mu = v.F / |F|^2\n"
            "# (cm^2/(V s), negative for an electron); ratio = q drift_mu / zero-field mobility\n"
            "#         F_V_m            v_F            v_x            v_y            v_z       drift_mu          ratio\n");
    for (const FieldPoint& p : s.points)
        f.print("%14.6e %14.6e %14.6e %14.6e %14.6e %14.6e %14.6e\n", p.field, p.along, p.velocity[0], p.velocity[1],
                p.velocity[2], p.mobility, s.charge * p.mobility / s.zero_field);
    f.commit();
    write_field_scripts(s);
    return strprintf("drift against field in me_field.dat: q v.F/|F|^2 = %.6g cm^2/(V s) at %g V/m, %.6f times the "
                     "zero-field mobility along F%s",
                     s.charge * low.mobility, low.field, ratio, einstein ? " (the Einstein relation)" : "");
}

}  // namespace series
