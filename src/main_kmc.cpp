// kelta_kmc: the hopping simulation. From the crystal of kelta.inp and a file of
// couplings it writes the track files that kelta_mob analyses, and prints the
// exact long-time answer of the network beside them.
#include "main_kmc.h"

#include <unistd.h>

#include <Eigen/Eigenvalues>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <string>

#include "transport_kmc.h"

namespace {

const char* const kHelp =
    "Hopping simulation: writes the track files of a charge carrier in the crystal of the\n"
    "input file, with rates from the couplings file, and prints the exact long-time answer\n"
    "\n"
    "Usage: %s [opts]\n"
    "      -config kelta.inp   : set config file, default to 'kelta.inp'\n"
    "      -pairs              : write the couplings file to fill in (kelta_dat_file), then stop\n"
    "      -rates              : print every hop of the cell with its rate, then stop\n"
    "      -timeunit [PS | NS] : unit of tsimu, tsnap and the track times, default NS\n"
    "      -first N            : write trajectories N, N+1, ... only (from 1)\n"
    "      -count M            : write M trajectories only\n"
    "      -h, --help          : this text\n"
    "\n"
    "e.g.: %s -pairs       (then replace every NA of the couplings file)\n"
    "      %s -rates\n"
    "      %s\n"
    "      %s -first 1001 -count 1000\n"
    "\n";

const char* const kRatesHead =
    "# hops of the cell's molecules: ratetype %s, T = %g K, lambda = %g meV, couplings from %s\n"
    "# mol_i mol_j  na nb nc class     V_meV    dG_meV      r_x_A      r_y_A      r_z_A   rate_per_s  rate_per_%s\n";
const char* const kRatesRow = "%7d%6d%4d%3d%3d%6d%10.3f%10.3f%11.4f%11.4f%11.4f%13.5e%13.5e\n";
const char* const kRatesFile = "kmc_rates.dat";
const char* const kExactFile = "kmc_exact.dat";
const char* const kDriftFile = "kmc_drift.dat";

constexpr int kLineRatesFile = 2210;
constexpr int kLineExactFile = 2220;
constexpr int kLineDriftFile = 2230;
constexpr int kLineTemperature = 2240;
constexpr int kLineSlice = 2250;

std::string program_name(const char* argv0)
{
    const std::string s = argv0 ? argv0 : "kelta_kmc";
    const size_t cut = s.find_last_of("/\\");
    return cut == std::string::npos ? s : s.substr(cut + 1);
}

struct Options {
    std::string config = "kelta.inp";
    double timeunit = 1e-9;
    std::string label = "ns";
    bool pairs = false, rates = false;
    long first = 0, count = -1;  // not given
};

[[noreturn]] void usage_error(const std::string& prog, const std::string& text)
{
    fatal_plain(1, "", prog + ": " + text + " (see " + prog + " -h)\n");
}

long whole_number(const std::string& prog, const std::string& option, const char* text)
{
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || v < 0) usage_error(prog, option + " needs a whole number, not '" + text + "'");
    return v;
}

Options parse_options(int argc, char** argv, const std::string& prog)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const auto value = [&]() -> const char* {
            if (i + 1 >= argc) usage_error(prog, "option " + a + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::printf(kHelp, prog.c_str(), prog.c_str(), prog.c_str(), prog.c_str(), prog.c_str());
            end_run(0);
        } else if (a == "-config") {
            o.config = value();
            if (!file_exists(o.config.c_str())) usage_error(prog, "input config file " + o.config + " not found");
        } else if (a == "-pairs") {
            o.pairs = true;
        } else if (a == "-rates") {
            o.rates = true;
        } else if (a == "-timeunit") {
            const std::string u = value();
            if (u != "PS" && u != "NS") usage_error(prog, "-timeunit can only be PS or NS, not '" + u + "'");
            o.timeunit = u == "PS" ? 1e-12 : 1e-9;
            o.label = u == "PS" ? "ps" : "ns";
        } else if (a == "-first") {
            o.first = whole_number(prog, a, value());
        } else if (a == "-count") {
            o.count = whole_number(prog, a, value());
        } else {
            usage_error(prog, "unknown option " + a);
        }
    }
    return o;
}

// temp.inp replaces the temperature as it does for kelta_mob, so that both
// programs work at the same temperature.
void read_temperature(Transport& t)
{
    read_first_number("temp.inp", t.temp);
    if (!(t.temp > 0.0 && std::isfinite(t.temp)))
        fatal("transport", kLineTemperature, 1,
              strprintf("temp.inp line 1: temp = %g K, not a finite positive temperature\n", t.temp));
}

std::string rates_table(const Transport& t, const network::Couplings& c, const std::vector<network::Hop>& hops,
                        bool quantum, const std::string& label)
{
    std::string s = strprintf(kRatesHead, quantum ? "quantum" : "marcus", t.temp, c.lambda_meV, c.file.c_str(), label.c_str());
    const Vec3 field = t.get_appE_flag() ? network::applied_field(t) : Vec3{};
    const double q = t.charge == "h" ? 1.0 : -1.0;
    for (const network::Hop& h : hops) {
        const double work = q * (field[0] * h.r[0] + field[1] * h.r[1] + field[2] * h.r[2]) * 1e-10;
        const double dG = c.site_meV[h.to] - c.site_meV[h.from] - work * 1e3;
        s += strprintf(kRatesRow, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2], h.pair_class + 1,
                       c.V_meV[h.pair_class], dG, h.r[0], h.r[1], h.r[2], h.rate / t.get_track_timeunit(), h.rate);
    }
    return s;
}

// Eigenvalues, largest first, and their unit axes (columns), each turned so
// that its largest component is positive.
void principal(const Mat3& m, Vec3& value, Mat3& axes)
{
    Eigen::Matrix3d a;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) a(i, j) = m[i][j];
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eig(a);
    for (int c = 0; c < 3; ++c) {
        value[c] = eig.eigenvalues()(2 - c);
        Eigen::Vector3d v = eig.eigenvectors().col(2 - c);
        Eigen::Index big = 0;
        v.cwiseAbs().maxCoeff(&big);
        if (v(big) < 0) v = -v;
        for (int r = 0; r < 3; ++r) axes[r][c] = v(r) == 0.0 ? 0.0 : v(r);  // no -0
    }
}

// Entries below this fraction of the largest are rounding and shown as 0.
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

struct DriftLine {
    Vec3 field{};  // V/m
    double exact = 0;  // cm^2/(V s)
};

DriftLine exact_drift(const Transport& t, const network::Exact& e)
{
    DriftLine d;
    d.field = network::applied_field(t);
    const double f2 = squared_length(d.field);
    const double to_cm_s = 1e-8 / t.get_track_timeunit();
    // v in cm/s over F in V/cm.
    d.exact = (e.drift[0] * d.field[0] + e.drift[1] * d.field[1] + e.drift[2] * d.field[2]) * to_cm_s / (f2 / 100.0);
    return d;
}

std::string exact_report(const Transport& t, const network::Exact& e, const std::vector<network::Hop>& hops)
{
    const double f = network::mobility_factor(t.temp, t.get_track_timeunit());
    const Mat3 mu = scaled(e.D, f);
    Vec3 value, naive_value;
    Mat3 axes, naive_axes;
    principal(mu, value, axes);
    principal(scaled(network::naive_diffusion(e.pi, hops), f), naive_value, naive_axes);
    std::string s = strprintf("# exact long-time behaviour of the hopping network, T = %g K, time unit %g s\n", t.temp,
                              t.get_track_timeunit());
    s += "# stationary occupation of the cell's molecules\npi";
    for (const double p : e.pi) s += strprintf(" %.6f", p);
    s += "\n# diffusion tensor D, Angstrom^2 per time unit, Cartesian rows x, y, z\n";
    for (const Vec3& row : scaled(e.D, 1.0)) s += strprintf("%14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
    s += "# mobility tensor M = e D / (kB T), cm^2/(V s): the mobility along a unit direction u is u^T M u\n";
    for (const Vec3& row : mu) s += strprintf("%14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
    s += "# principal mobilities, largest first, each with its unit axis x, y, z\n";
    for (int c = 0; c < 3; ++c)
        s += strprintf("principal_%d %14.6e   %9.6f %9.6f %9.6f\n", c + 1, value[c], axes[0][c], axes[1][c], axes[2][c]);
    s += "# the naive 1/2 sum pi k r r^T, without the corrector of the cell problem, would give\n";
    for (int c = 0; c < 3; ++c) s += strprintf("naive_%d     %14.6e\n", c + 1, naive_value[c]);
    if (t.get_appE_flag()) {
        const DriftLine d = exact_drift(t, e);
        s += strprintf("# drift under the field F = %g %g %g V/m (Cartesian)\n", d.field[0], d.field[1], d.field[2]);
        const double to_cm_s = 1e-8 / t.get_track_timeunit();
        s += strprintf("drift_velocity_cm_s %14.6e %14.6e %14.6e\n", e.drift[0] * to_cm_s, e.drift[1] * to_cm_s,
                       e.drift[2] * to_cm_s);
        s += strprintf("drift_mobility %14.6e   (v.F / |F|^2, cm^2/(V s))\n", d.exact);
    }
    return s;
}

// Mean velocity and drift mobility v.F/|F|^2 over the trajectories, with the
// standard errors of the means.
void write_drift(const Transport& t, const network::Exact& e, const kmc::SimulationResult& r, double time)
{
    const DriftLine d = exact_drift(t, e);
    const double n = static_cast<double>(r.final_x.size());
    const double to_cm_s = 1e-8 / t.get_track_timeunit() / time;
    const double f2 = squared_length(d.field) / 100.0;  // (V/cm) per (V/m), times |F|^2 in V/m
    Vec3 mean{}, sq{};
    double mu = 0, mu2 = 0;
    for (const Vec3& x : r.final_x) {
        const double m = (x[0] * d.field[0] + x[1] * d.field[1] + x[2] * d.field[2]) * to_cm_s / f2;
        mu += m;
        mu2 += m * m;
        for (int k = 0; k < 3; ++k) {
            mean[k] += x[k] * to_cm_s;
            sq[k] += x[k] * to_cm_s * x[k] * to_cm_s;
        }
    }
    const auto se = [n](double sum, double sum2) { return std::sqrt(std::max(sum2 / n - sum * sum / (n * n), 0.0) / (n - 1)); };
    OutputFile f(kDriftFile, "transport", kLineDriftFile);
    f.print("# drift of the carrier under the field F = %g %g %g V/m (Cartesian), from %ld trajectories of %g time units\n",
            d.field[0], d.field[1], d.field[2], static_cast<long>(n), time);
    f.print("# mean velocity, cm/s, Cartesian x, y, z, then the standard errors of the mean\n");
    f.print("velocity    %14.6e %14.6e %14.6e\n", mean[0] / n, mean[1] / n, mean[2] / n);
    f.print("velocity_se %14.6e %14.6e %14.6e\n", se(mean[0], sq[0]), se(mean[1], sq[1]), se(mean[2], sq[2]));
    f.print("# drift mobility v.F / |F|^2, cm^2/(V s): measured, its standard error, and exact for the network\n");
    f.print("drift_mobility %14.6e %14.6e %14.6e\n", mu / n, se(mu, mu2), d.exact);
    f.commit();
    std::printf("  drift mobility along F: %.4g +- %.2g cm^2/(V s) measured, %.4g exact (%s)\n", mu / n, se(mu, mu2),
                d.exact, kDriftFile);
}

void write_text(const char* name, int line, const std::string& text)
{
    OutputFile f(name, "transport", line);
    f.write(text);
    f.commit();
}

// The slice and the time grid of the run.
kmc::Simulation plan(const Transport& t, const Options& o)
{
    kmc::Simulation s;
    s.seed = static_cast<std::uint64_t>(static_cast<std::uint32_t>(t.seed));
    s.first = o.first > 0 ? o.first : 1;
    s.count = o.count >= 0 ? o.count : t.nsimu - s.first + 1;
    if (s.first < 1 || s.count < 0 || s.first + s.count - 1 > t.nsimu)
        fatal("transport", kLineSlice, 1,
              strprintf("the slice -first %ld -count %ld lies outside the nsimu = %d trajectories\n", s.first, s.count,
                        t.nsimu));
    if (!(t.tsnap > 0.0 && t.tsimu >= 0.0 && t.tsimu / t.tsnap < 1e9))
        fatal("transport", kLineSlice, 1,
              strprintf("tsimu = %g and tsnap = %g give no usable number of snapshots\n", t.tsimu, t.tsnap));
    s.rows = kmc::track_rows(t.tsimu, t.tsnap);
    s.tsnap = t.tsnap;
    s.time_label = o.label;
    s.progress = isatty(STDERR_FILENO);
    return s;
}

void run(const Options& o, const std::string& prog)
{
    std::printf("*** kelta_kmc: hopping simulation\n");
    Transport t;
    t.read_kelta_inp(o.config.c_str(), false);
    t.set_track_timeunit(o.timeunit);
    t.read_crystal_strcuture_files(false, false);
    t.calc_homo();
    t.build_neighbor_list(false);
    const network::Pairs pairs = network::find_pairs(t);
    std::printf("  %d molecule(s) in the cell, %zu hops to neighbours within %g A, in %zu classes of equivalent pairs\n",
                t.mol_count, pairs.hops.size(), t.lat_cutoff, pairs.classes.size());
    const bool quantum = my_strcasestr(t.ratetype.c_str(), "quant", 5);
    if (o.pairs) {
        network::write_couplings_template(t, pairs, t.kelta_dat_file, quantum);
        std::printf("  wrote %s: replace every NA (lambda_meV%s and each class's V_meV, in meV), then run %s\n",
                    t.kelta_dat_file.c_str(), quantum ? ", hw_meV, huang_rhys" : "", prog.c_str());
        return;
    }
    t.read_charge_inp();
    read_temperature(t);
    const network::Couplings c = network::read_couplings(t.kelta_dat_file, pairs, t.mol_count, quantum);
    std::vector<network::Hop> hops = pairs.hops;
    network::assign_rates(t, c, hops, quantum);
    const std::string table = rates_table(t, c, hops, quantum, o.label);
    if (o.rates) {
        std::fputs(table.c_str(), stdout);
        return;
    }
    const network::Exact e = network::solve_exact(t.mol_count, hops);
    const std::string report = exact_report(t, e, hops);
    const kmc::Simulation s = plan(t, o);
    // Nothing is written unless every file fits: the side files (the drift file
    // is smaller than the report) and the tracks.
    kmc::check_room(".", s.count, s.rows, 2.0 * static_cast<double>(report.size()) + static_cast<double>(table.size()));
    write_text(kRatesFile, kLineRatesFile, table);
    write_text(kExactFile, kLineExactFile, report);
    std::printf("  rates in %s; the exact long-time answer of the network (%s):\n", kRatesFile, kExactFile);
    for (size_t at = 0; at < report.size();) {
        const size_t end = report.find('\n', at);
        const std::string line = report.substr(at, end - at);
        if (line.rfind("principal_", 0) == 0 || line.rfind("drift_mobility", 0) == 0) std::printf("    %s\n", line.c_str());
        at = end + 1;
    }
    create_directory("track");
    std::printf("  %ld trajectories (%ld to %ld) of %g %s, a snapshot every %g %s, seed %d: track/\n", s.count, s.first,
                s.first + s.count - 1, t.tsimu, o.label.c_str(), t.tsnap, o.label.c_str(), t.seed);
    std::fflush(stdout);
    const kmc::Walk walk(t, hops, e.pi);
    const kmc::SimulationResult r = kmc::simulate(walk, s);
    std::printf("  %lld hops\n", r.hops);
    if (t.get_appE_flag() && s.count > 1) write_drift(t, e, r, static_cast<double>(s.rows - 1) * t.tsnap);
    std::printf("*** Successfully done.\n");
}

}  // namespace

int kelta_kmc_main(int argc, char** argv)
{
    const std::string prog = program_name(argc > 0 ? argv[0] : nullptr);
    try {
        run(parse_options(argc, argv, prog), prog);
    } catch (const RunExit& e) {
        std::fflush(stdout);
        return e.status();
    } catch (const std::bad_alloc&) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: out of memory\n", prog.c_str());
        return -1;
    }
    return 0;
}

#ifndef KELTA_KMC_NO_MAIN
int main(int argc, char** argv)
{
    return kelta_kmc_main(argc, argv);
}
#endif
