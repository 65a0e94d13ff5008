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
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "hopping_checks.h"
#include "hopping_series.h"
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
    "      -collect            : write me_temp.dat from the folders of the temperature series, then stop\n"
    "      -force              : run even when the estimate says it would take more than a day\n"
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

const char* const kTemperatureFile = "me_temp.dat";
const char* const kFieldWithoutDirection =
    "field_range gives the magnitudes of the field along the direction of app_elec_F: set app_elec_F to a field "
    "that is not zero (app_elec_F = 1 0 0 points along a and is negligible elsewhere)\n";
const char* const kNoMolecule =
    "the structure gives no molecule, so there is no network to simulate: name a crystal with molecules, or MOL "
    "files, in %s\n";
const char* const kNoPair =
    "no two molecules come within lat_cutoff = %g A of each other (%d molecule(s) in the cell, nei_scell %d %d %d): "
    "the network has no hop to simulate; raise lat_cutoff or nei_scell\n";
const char* const kNoMobTensor =
    "%zu of the %zu temperatures without a simulated mobility (the first: %s is not there): their kmc columns of "
    "me_temp.dat are nan\n";

struct Options {
    std::string config = "kelta.inp";
    units::TimeUnit unit;
    bool pairs = false, rates = false, collect = false, force = false;
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
        } else if (a == "-collect") {
            o.collect = true;
        } else if (a == "-force") {
            o.force = true;
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

// -jobscript K splits all nsimu trajectories into 1 .. nsimu slices.
void check_slices(const Transport& t, const Options& o)
{
    if (o.first > 0 || o.count >= 0 || o.jobscript < 1 || o.jobscript > t.nsimu)
        fatal("transport", kLineSlice, 1,
              strprintf("-jobscript %ld: the slices of a batch script split all nsimu = %ld trajectories, "
                        "from 1 to nsimu slices, without -first or -count\n", o.jobscript, static_cast<long>(t.nsimu)));
}

// The principal mobilities (and the drift) of an exact report, as the run prints them.
void print_principal(const std::string& report)
{
    for (size_t at = 0; at < report.size();) {
        const size_t end = report.find('\n', at);
        const std::string line = report.substr(at, end - at);
        if (line.rfind("principal_", 0) == 0 || line.rfind("drift_mobility", 0) == 0) std::printf("    %s\n", line.c_str());
        at = end + 1;
    }
}

void run(const Options& o, const std::string& prog, bool nested = false);

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

// What the estimate of a run's time needs; the jobs of a batch script share the work.
kmc::RunPlan run_plan(const Transport& t, const Options& o, const kmc::Simulation& s, size_t temperatures = 1)
{
    const long jobs = o.jobscript > 0 ? o.jobscript * static_cast<long>(temperatures) : 1;
    return {o.unit, t.tsimu, s.count, s.rows, jobs, t.nsimu == 2000 && t.tsimu == 1000, o.force};
}

// Changes into a folder for the life of the object.
class InFolder {
public:
    explicit InFolder(const std::string& dir) : back_(std::filesystem::current_path()) { std::filesystem::current_path(dir); }
    ~InFolder()
    {
        std::error_code ec;
        std::filesystem::current_path(back_, ec);
    }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;

private:
    std::filesystem::path back_;
};

// What the stages share: the input, the network and its couplings, the rates at
// the run's temperature.
struct Setup {
    Transport t;
    network::Pairs pairs;
    network::Couplings couplings;
    network::Conditions conditions;
    std::vector<network::Hop> hops;  // with the rates of `conditions`
    std::string table;               // their table
    series::Network network() const { return {t.mol_count, t.latt, &couplings, pairs.hops}; }
};

// The simulation at the run's temperature in the working directory, as a batch
// script when -jobscript asks for one: the exact answer, the tracks, the drift.
void simulate(Setup& u, const Options& o)
{
    const Transport& t = u.t;
    const network::Exact e = network::solve_exact(t.mol_count, u.hops);
    const std::string report = network::exact_report(u.conditions, o.unit, e, u.hops);
    const kmc::Simulation s = plan(t, o);
    kmc::check_run(u.network(), u.conditions, {}, run_plan(t, o, s));
    // Nothing is written unless every file fits: the side files (the drift file
    // is smaller than the report) and the tracks.
    tracks::check_room(".", s.count, s.rows, 2.0 * static_cast<double>(report.size()) + static_cast<double>(u.table.size()));
    if (o.jobscript >= 0) {
        check_slices(t, o);
        const std::string script =
            t.job.write_kmc_job(s.count, static_cast<int>(o.jobscript), o.config, o.unit.option, o.force);
        std::printf("  wrote %s: %ld slices of the %ld trajectories for %s, then kelta_mob -tensor; submit with: sh %s\n",
                    script.c_str(), o.jobscript, s.count, t.job.sched_type.c_str(), script.c_str());
        return;
    }
    write_text(kRatesFile, kLineRatesFile, u.table);
    write_text(kExactFile, kLineExactFile, report);
    std::printf("  rates in %s; the exact long-time answer of the network (%s):\n", kRatesFile, kExactFile);
    print_principal(report);
    create_directory("track");
    std::printf("  %ld trajectories (%ld to %ld) of %g %s, a snapshot every %g %s, seed %d: track/\n", s.count, s.first,
                s.first + s.count - 1, t.tsimu, o.unit.label.c_str(), t.tsnap, o.unit.label.c_str(), t.seed);
    std::fflush(stdout);
    std::vector<Vec3> centres;
    for (int m = 0; m < t.mol_count; ++m) centres.push_back(vec3_at(t.mol_com, static_cast<size_t>(m)));
    const kmc::Walk walk(t.latt, centres, u.hops, e.pi, o.unit.seconds);
    const kmc::SimulationResult r = kmc::simulate(walk, s);
    std::printf("  %lld hops\n", r.hops);
    if (t.get_appE_flag() && s.count > 1) {
        const network::Drift d =
            network::measured_drift(u.conditions, o.unit, e, r.final_x, static_cast<double>(s.rows - 1) * t.tsnap);
        write_text(kDriftFile, kLineDriftFile, network::drift_report(d));
        std::printf("  drift mobility along F: %.4g +- %.2g cm^2/(V s) measured, %.4g exact (%s)\n", d.mobility, d.mobility_se,
                    d.exact_mobility, kDriftFile);
    }
}

// The exact answer at the run's temperature alone (unless the simulation wrote
// it), and the drift against field when field_range asks for it.
void exact_stage(const Setup& u, const Options& o, bool written, const std::vector<double>& field_grid)
{
    if (!written) {
        const network::Exact e = network::solve_exact(u.t.mol_count, u.hops);
        const std::string report = network::exact_report(u.conditions, o.unit, e, u.hops);
        write_text(kRatesFile, kLineRatesFile, u.table);
        write_text(kExactFile, kLineExactFile, report);
        std::printf("  master equation at %g K: rates in %s; the exact long-time answer of the network (%s):\n",
                    u.conditions.temperature, kRatesFile, kExactFile);
        print_principal(report);
    }
    if (!field_grid.empty()) {
        const series::FieldSeries f = series::field_series(u.network(), u.conditions, u.conditions.field, field_grid);
        std::printf("  %s\n", series::write_field_files(f, u.t.ratetype).c_str());
    }
}

// The exact answer at every temperature of the series, with the simulation's
// mobilities from its folders when `measured`; me_temp.dat and its pictures.
void temperature_table(Setup& u, const Options& o, const std::vector<double>& temps, bool measured)
{
    std::vector<series::TemperaturePoint> points;
    std::vector<std::string> missing;
    for (const double T : temps) {
        network::Conditions at = u.conditions;
        at.temperature = T;
        points.push_back(series::temperature_point(u.network(), at, o.unit));
        if (!measured) continue;
        const std::string file = series::folder_name(T) + "/mob_tensor.dat";
        points.back().kmc = series::read_mob_tensor(file);
        if (!points.back().kmc.present) missing.push_back(file);
    }
    if (!missing.empty())
        u.t.warn(strprintf(kNoMobTensor, missing.size(), temps.size(), missing[0].c_str()));
    const std::string fits = series::write_temperature_files(points, u.t.latt, u.conditions, u.t.ratetype);
    std::printf("  mobility against temperature%s: %zu temperatures from %s to %s K in %s (%s, %s):\n",
                measured ? ", exact and simulated" : " from the master equation", temps.size(),
                series::temperature_text(temps.front()).c_str(), series::temperature_text(temps.back()).c_str(),
                kTemperatureFile, "me_temp.gnu-png", "me_temp.py");
    for (size_t at = 0; at < fits.size();) {
        const size_t end = fits.find('\n', at);
        std::printf("    %s\n", fits.substr(at, end - at).c_str());
        at = end + 1;
    }
}

// The simulation at every temperature of the series, each in its folder; as a
// job array of temperatures x slices when -jobscript asks for one.
void simulate_series(const Setup& u, const Options& o, const std::vector<double>& temps, const std::string& prog)
{
    const kmc::Simulation s = plan(u.t, o);
    kmc::check_run(u.network(), u.conditions, temps, run_plan(u.t, o, s, temps.size()));
    const double n = static_cast<double>(temps.size());
    tracks::check_room(".", s.count * static_cast<long>(temps.size()), s.rows, n * 4.0 * static_cast<double>(u.table.size()));
    std::vector<std::string> folders;
    for (const double T : temps) folders.push_back(series::folder_name(T));
    // The script first: it checks the slices and the scheduler before any folder is laid out.
    if (o.jobscript >= 0) {
        check_slices(u.t, o);
        const std::string script =
            u.t.job.write_kmc_series_job(folders, s.count, static_cast<int>(o.jobscript), o.config, o.unit.option, o.force);
        for (size_t k = 0; k < temps.size(); ++k) series::lay_folder(u.t, o.config, temps[k], folders[k]);
        std::printf("  wrote %zu folders (%s to %s) and %s: %ld slices at each temperature for %s, then kelta_mob "
                    "-tensor in each folder and %s -collect; submit with: sh %s\n",
                    folders.size(), folders.front().c_str(), folders.back().c_str(), script.c_str(), o.jobscript,
                    u.t.job.sched_type.c_str(), prog.c_str(), script.c_str());
        return;
    }
    for (size_t k = 0; k < temps.size(); ++k) series::lay_folder(u.t, o.config, temps[k], folders[k]);
    Options in = o;
    in.config = "kelta.inp";
    for (const std::string& folder : folders) {
        std::printf("  == %s/\n", folder.c_str());
        const InFolder here(folder);
        run(in, prog, true);
    }
}

void run(const Options& o, const std::string& prog, bool nested)
{
    if (!nested) std::printf("*** kelta_kmc: hopping simulation\n");
    Setup u;
    Transport& t = u.t;
    t.cif_by_crystal_reader = true;
    t.read_kelta_inp(o.config.c_str(), false);
    t.set_track_timeunit(o.unit.seconds);
    t.read_crystal_strcuture_files(false, false);
    if (t.mol_count == 0) fatal("transport", kLineNoClass, 1, strprintf(kNoMolecule, o.config.c_str()));
    std::printf("  molecules in the cell: %s\n", t.mol_kinds().c_str());
    std::fflush(stdout);
    t.build_neighbor_list(false);
    u.pairs = network::find_pairs(t);
    const network::Pairs& pairs = u.pairs;
    if (pairs.classes.empty())
        fatal("transport", kLineNoClass, 1,
              strprintf(kNoPair, t.lat_cutoff, t.mol_count, t.scell_n[0], t.scell_n[1], t.scell_n[2]));
    std::printf("  %d molecule(s) in the cell, %zu hops to neighbours within %g A, in %zu classes of equivalent pairs\n",
                t.mol_count, pairs.hops.size(), t.lat_cutoff, pairs.classes.size());
    const bool quantum = t.rate_model == RateModel::quantum;
    t.read_charge_inp();
    if (o.pairs) {
        // The couplings are for the carrier of the run: a hole's differ from an electron's.
        const std::string carrier = network::carrier_name(network::run_conditions(t).charge);
        network::write_couplings_template(t, pairs, t.kelta_dat_file, t.rate_model, carrier);
        const std::filesystem::path beside = std::filesystem::path(t.kelta_dat_file).parent_path();
        const std::string dimers = (beside / "dimers").string();
        network::write_dimer_files(t, pairs, dimers);
        std::printf("  wrote %s for the %s: replace every NA (lambda_meV%s and each class's V_meV in meV%s), then run "
                    "%s\n  the geometries: %s/molecule_N.xyz for the %d molecule(s), %s/class_NNN.xyz for the %zu "
                    "pair(s) of the classes\n",
                    t.kelta_dat_file.c_str(), carrier.c_str(), quantum ? ", hw_meV" : "", quantum ? ", huang_rhys" : "",
                    prog.c_str(), dimers.c_str(), t.mol_count, dimers.c_str(), pairs.classes.size());
        return;
    }
    t.read_temp_inp("transport", kLineTemperature);
    u.conditions = network::run_conditions(t);
    u.couplings = network::read_couplings(t.kelta_dat_file, pairs, t.mol_count, t.rate_model,
                                          network::carrier_name(u.conditions.charge));
    if (!nested)
        for (const std::string& w : network::coupling_warnings(u.couplings, pairs, t.rate_model)) t.warn(w);
    u.hops = pairs.hops;
    network::assign_rates(u.conditions, u.couplings, t.mol_count, u.hops);
    u.table = network::rates_table(u.conditions, u.couplings, u.hops, o.unit);
    if (o.rates) {
        std::fputs(u.table.c_str(), stdout);
        return;
    }

    // The stages the switches select, every range checked before any file is written.
    const bool mc = t.do_transport_run_MC != 0, mc_temp = t.do_transport_run_MC_temp != 0,
               mc_collect = t.do_transport_get_mob_MC_temp != 0,
               me = t.do_transport_run_ME != 0 || t.do_transport_get_mob_ME != 0,
               me_temp = t.do_transport_run_ME_temp != 0 || t.do_transport_get_mob_ME_temp != 0;
    std::vector<double> temps, field_grid;
    if (mc_temp || mc_collect || me_temp || o.collect) temps = series::temperatures(t.start_temp, t.end_temp, t.delta_temp);
    if (me && t.field_range_on && !o.collect && o.jobscript < 0) {
        if (!(squared_length(u.conditions.field) > 0)) fatal("transport", kLineFieldRange, 1, kFieldWithoutDirection);
        field_grid = series::fields(t.field_range);
    }
    if (o.collect) {
        temperature_table(u, o, temps, true);
    } else if (o.jobscript >= 0) {
        mc_temp ? simulate_series(u, o, temps, prog) : simulate(u, o);
        return;
    } else {
        if (mc) simulate(u, o);
        if (mc_temp) simulate_series(u, o, temps, prog);
        if (mc_collect) {
            for (const double T : temps) series::analyse_folder(series::folder_name(T), o.unit);
        }
        if (me) exact_stage(u, o, mc, field_grid);
        if (mc_collect || me_temp) temperature_table(u, o, temps, mc_collect);
        if (!mc && !mc_temp && !mc_collect && !me && !me_temp)
            std::printf("  nothing to run: do_transport_run_MC, _run_MC_temp, _get_mob_MC_temp, _run_ME, _get_mob_ME, "
                        "_run_ME_temp and _get_mob_ME_temp are all 0\n");
    }
    if (!nested) std::printf("*** Successfully done.\n");
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
