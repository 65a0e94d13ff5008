// kelta_kmc: the hopping simulation. From the crystal of kelta.inp and a file of
// couplings it writes the track files that kelta_mob analyses, and prints the
// exact long-time answer of the network beside them.
#include "main_kmc.h"
#include "hopping_errors.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

#include "hopping_walk.h"

using namespace hopping_error;

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
    "      -jobscript K        : write kmc_job.sh, K slices as a job array of sched_type, then stop\n"
    "      -h, --help          : this text\n"
    "\n"
    "e.g.: %s -pairs       (then replace every NA of the couplings file)\n"
    "      %s -rates\n"
    "      %s\n"
    "      %s -first 1001 -count 1000\n"
    "      %s -jobscript 16\n"
    "\n";

const char* const kRatesFile = "kmc_rates.dat";
const char* const kExactFile = "kmc_exact.dat";
const char* const kDriftFile = "kmc_drift.dat";


struct Options {
    std::string config = "kelta.inp";
    units::TimeUnit unit;
    bool pairs = false, rates = false;
    long first = 0, count = -1;  // not given
    long jobscript = -1;         // slices of a batch script; not given
};

[[noreturn]] void usage_error(const std::string& prog, const std::string& text)
{
    fatal_plain(1, "", prog + ": " + text + " (see " + prog + " -h)\n");
}

long whole_number(const std::string& prog, const std::string& option, const char* text)
{
    long v = 0;
    if (!parse_long(text, v) || v < 0) usage_error(prog, option + " needs a whole number, not '" + text + "'");
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
            std::printf(kHelp, prog.c_str(), prog.c_str(), prog.c_str(), prog.c_str(), prog.c_str(), prog.c_str());
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
            const std::optional<units::TimeUnit> unit = units::time_unit_named(u);
            if (!unit) usage_error(prog, "-timeunit can only be PS or NS, not '" + u + "'");
            o.unit = *unit;
        } else if (a == "-first") {
            o.first = whole_number(prog, a, value());
        } else if (a == "-count") {
            o.count = whole_number(prog, a, value());
        } else if (a == "-jobscript") {
            o.jobscript = whole_number(prog, a, value());
        } else {
            usage_error(prog, "unknown option " + a);
        }
    }
    return o;
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
    s.rows = tracks::track_rows(t.tsimu, t.tsnap);
    s.tsnap = t.tsnap;
    s.time_label = o.unit.label;
    s.progress = isatty(STDERR_FILENO);
    return s;
}

void run(const Options& o, const std::string& prog)
{
    std::printf("*** kelta_kmc: hopping simulation\n");
    Transport t;
    t.read_kelta_inp(o.config.c_str(), false);
    t.set_track_timeunit(o.unit.seconds);
    t.read_crystal_strcuture_files(false, false);
    t.build_neighbor_list(false);
    const network::Pairs pairs = network::find_pairs(t);
    std::printf("  %d molecule(s) in the cell, %zu hops to neighbours within %g A, in %zu classes of equivalent pairs\n",
                t.mol_count, pairs.hops.size(), t.lat_cutoff, pairs.classes.size());
    const bool quantum = t.rate_model == RateModel::quantum;
    if (o.pairs) {
        network::write_couplings_template(t, pairs, t.kelta_dat_file, t.rate_model);
        std::printf("  wrote %s: replace every NA (lambda_meV%s and each class's V_meV in meV%s), then run %s\n",
                    t.kelta_dat_file.c_str(), quantum ? ", hw_meV" : "", quantum ? ", huang_rhys" : "", prog.c_str());
        return;
    }
    t.read_charge_inp();
    t.read_temp_inp("transport", kLineTemperature);
    const network::Couplings c = network::read_couplings(t.kelta_dat_file, pairs, t.mol_count, t.rate_model);
    const network::Conditions conditions = network::run_conditions(t);
    std::vector<network::Hop> hops = pairs.hops;
    network::assign_rates(conditions, c, t.mol_count, hops);
    const std::string table = network::rates_table(conditions, c, hops, o.unit);
    if (o.rates) {
        std::fputs(table.c_str(), stdout);
        return;
    }
    const network::Exact e = network::solve_exact(t.mol_count, hops);
    const std::string report = network::exact_report(conditions, o.unit, e, hops);
    const kmc::Simulation s = plan(t, o);
    // Nothing is written unless every file fits: the side files (the drift file
    // is smaller than the report) and the tracks.
    tracks::check_room(".", s.count, s.rows, 2.0 * static_cast<double>(report.size()) + static_cast<double>(table.size()));
    if (o.jobscript >= 0) {
        if (o.first > 0 || o.count >= 0 || o.jobscript < 1 || o.jobscript > t.nsimu)
            fatal("transport", kLineSlice, 1,
                  strprintf("-jobscript %ld: the slices of a batch script split all nsimu = %ld trajectories, "
                            "from 1 to nsimu slices, without -first or -count\n", o.jobscript, static_cast<long>(t.nsimu)));
        const std::string script =
            t.job.write_kmc_job(s.count, static_cast<int>(o.jobscript), o.config, o.unit.option);
        std::printf("  wrote %s: %ld slices of the %ld trajectories for %s, then kelta_mob -tensor; submit with: sh %s\n",
                    script.c_str(), o.jobscript, s.count, t.job.sched_type.c_str(), script.c_str());
        return;
    }
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
                s.first + s.count - 1, t.tsimu, o.unit.label.c_str(), t.tsnap, o.unit.label.c_str(), t.seed);
    std::fflush(stdout);
    std::vector<Vec3> centres;
    for (int m = 0; m < t.mol_count; ++m) centres.push_back(vec3_at(t.mol_com, static_cast<size_t>(m)));
    const kmc::Walk walk(t.latt, centres, hops, e.pi, o.unit.seconds);
    const kmc::SimulationResult r = kmc::simulate(walk, s);
    std::printf("  %lld hops\n", r.hops);
    if (t.get_appE_flag() && s.count > 1) {
        const network::Drift d =
            network::measured_drift(conditions, o.unit, e, r.final_x, static_cast<double>(s.rows - 1) * t.tsnap);
        write_text(kDriftFile, kLineDriftFile, network::drift_report(d));
        std::printf("  drift mobility along F: %.4g +- %.2g cm^2/(V s) measured, %.4g exact (%s)\n", d.mobility, d.mobility_se,
                    d.exact_mobility, kDriftFile);
    }
    std::printf("*** Successfully done.\n");
}

}  // namespace

int kelta_kmc_main(int argc, char** argv)
{
    const std::string prog = program_name(argc > 0 ? argv[0] : nullptr, "kelta_kmc");
    return run_program(prog, [&] { run(parse_options(argc, argv, prog), prog); });
}

#ifndef KELTA_KMC_NO_MAIN
int main(int argc, char** argv)
{
    return kelta_kmc_main(argc, argv);
}
#endif
