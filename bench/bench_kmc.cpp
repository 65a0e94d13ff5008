// Speed of the hopping simulation against the straightforward design, both
// measured in this run on the demo crystal with the demo's couplings (the
// recorded case kmc_base), and on the same crystal with a cut-off of 8 A (many
// more hops per molecule, couplings falling off with distance):
//   the walk          hops per second per core, no files: alias tables and kept
//                     total rates vs the rates summed and the hop searched
//                     linearly at every step
//   threads           the scaling of the walk from one thread to two
//   whole runs        the built kelta_kmc with its track files
//   master equation   the exact answer at every temperature of a series (150 to
//                     300 K by 10), in the process and as a whole run of the
//                     built kelta_kmc with its table and scripts
// Usage: kelta_bench_kmc [--quick]
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "../tests/test_kmc_oracle.h"
#include "bench_support.h"
#include "hopping_series.h"
#include "hopping_walk.h"

namespace fs = std::filesystem;
using namespace benchsupport;

namespace {

std::string read_text(const fs::path& p)
{
    std::ifstream in(p);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_text(const fs::path& p, const std::string& s) { std::ofstream(p) << s; }

// The kelta.inp of the case with some settings replaced.
void configure(const fs::path& dir, int nsimu, double tsimu, double tsnap, double cutoff)
{
    write_text(dir / "kelta.inp", strprintf("&transport\n  crystal = naphthalene_like.cif\n  ratetype = marcus\n"
                                            "  nsimu = %d\n  tsimu = %g\n  tsnap = %g\n  lat_cutoff = %g\n  seed = 7\n/\n",
                                            nsimu, tsimu, tsnap, cutoff));
}

struct Network {
    Transport t;
    std::vector<network::Hop> hops;
    network::Exact exact;
};

// The network of the directory, in ps, read as kelta_kmc reads it. Without a
// couplings file, one is written with V = 40 meV exp(-(d - 5 A) / 1 A).
void load(Network& n, const fs::path& dir)
{
    fs::current_path(dir);
    const QuietStdout quiet;
    n.t.cif_by_crystal_reader = true;
    n.t.read_kelta_inp("kelta.inp", false);
    n.t.set_track_timeunit(1e-12);
    n.t.read_crystal_strcuture_files(false, false);
    n.t.build_neighbor_list(false);
    n.t.read_charge_inp();
    const network::Pairs p = network::find_pairs(n.t);
    if (!fs::exists(n.t.kelta_dat_file)) {
        network::write_couplings_template(n.t, p, n.t.kelta_dat_file, RateModel::marcus, "hole");
        std::istringstream in(read_text(n.t.kelta_dat_file));
        std::string filled;
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::vector<std::string> w;
            for (std::string x; words >> x;) w.push_back(x);
            if (line.rfind("lambda_meV", 0) == 0) line = "lambda_meV = 180";
            if (w.size() == 11 && line[0] != '#')
                line = line.substr(0, line.size() - 2) + strprintf("%.4f", 40 * std::exp(-(std::stod(w[6]) - 5.0)));
            filled += line + "\n";
        }
        write_text(n.t.kelta_dat_file, filled);
    }
    n.t.rate_model = RateModel::marcus;
    const network::Couplings c = network::read_couplings(n.t.kelta_dat_file, p, n.t.mol_count, RateModel::marcus);
    n.hops = p.hops;
    network::assign_rates(network::run_conditions(n.t), c, n.t.mol_count, n.hops);
    n.exact = network::solve_exact(n.t.mol_count, n.hops);
}

// `count` trajectories of `rows` snapshots every tsnap on `threads` threads;
// the snapshots are summed so that nothing is optimised away. Returns the hops.
template <class Walk>
long long walk_all(const Walk& w, long count, long rows, double tsnap, int threads)
{
    long long hops = 0;
    double sum = 0;
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads) reduction(+ : hops, sum)
    for (long j = 0; j < count; ++j) {
        kmc::Random rng(2026, static_cast<std::uint64_t>(j + 1));
        hops += w.run(rng, rows, tsnap, [&sum](long, const Vec3& x, long long) { sum += x[0]; });
    }
    if (sum == 1.2345) std::printf(" ");  // keeps the positions' sums alive
    return hops;
}

void compare_walks(const char* title, const Network& n, long count, long rows, double tsnap)
{
    std::vector<Vec3> centres;
    for (int m = 0; m < n.t.mol_count; ++m) centres.push_back(vec3_at(n.t.mol_com, static_cast<size_t>(m)));
    const kmc::Walk fast(n.t.latt, centres, n.hops, n.exact.pi, units::kPicosecond);
    const kmcoracle::StraightWalk straight(n.t.mol_count, n.hops, n.exact.pi, units::kPicosecond);
    long long hf = 0, hs = 0;
    const double tf = median_time(3, [&] { hf = walk_all(fast, count, rows, tsnap, 1); });
    const double ts = median_time(3, [&] { hs = walk_all(straight, count, rows, tsnap, 1); });
    std::printf("\nthe walk, %s (%zu hops per molecule), 1 thread, no files:\n", title,
                n.hops.size() / static_cast<size_t>(n.t.mol_count));
    std::printf("  alias tables, total rates kept:      %.3g hops in %6.3f s: %.3g hops per second\n",
                static_cast<double>(hf), tf, static_cast<double>(hf) / tf);
    std::printf("  rates summed, hop searched linearly: %.3g hops in %6.3f s: %.3g hops per second\n",
                static_cast<double>(hs), ts, static_cast<double>(hs) / ts);
    std::printf("  ratio: %.2fx\n", (static_cast<double>(hf) / tf) / (static_cast<double>(hs) / ts));
    const double t1 = median_time(3, [&] { walk_all(fast, 2 * count, rows, tsnap, 1); });
    const double t2 = median_time(3, [&] { walk_all(fast, 2 * count, rows, tsnap, 2); });
    std::printf("  %ld trajectories on 1 and 2 threads: %.3f s and %.3f s, scaling %.2fx\n", 2 * count, t1, t2, t1 / t2);
}

}  // namespace

int main(int argc, char** argv)
{
    const bool quick = argc > 1 && std::string(argv[1]) == "--quick";
    const fs::path home = fs::current_path(), demo = fs::path(KELTA_BENCH_DATA) / "kmc", wide = demo.string() + "_wide";
    for (const fs::path& d : {demo, wide}) {
        fs::remove_all(d);
        fs::create_directories(d);
        fs::copy(fs::path(KELTA_TEST_DATA) / "cases/kmc_base/in", d, fs::copy_options::recursive);
    }
    fs::remove(wide / "kelta-marcus.dat");
    configure(wide, 3, 1, 1, 8.0);
    const long count = quick ? 64 : 256, rows = 201;
    const double tsnap = 5;  // ps: 1 ns per trajectory
    std::printf("kelta_kmc benchmark: trajectories of %g ps; every ratio measured in this run\n", (rows - 1) * tsnap);
    {
        Network n;
        load(n, demo);
        compare_walks("demo crystal, cut-off 4 A", n, count, rows, tsnap);
    }
    {
        Network n;
        load(n, wide);
        compare_walks("demo crystal, cut-off 8 A", n, count / 4, rows, tsnap);
    }

    // The master equation's temperature series: no walk, no track file.
    {
        Network n;
        load(n, demo);
        const network::Pairs p = network::find_pairs(n.t);
        const network::Couplings c = network::read_couplings(n.t.kelta_dat_file, p, n.t.mol_count, RateModel::marcus);
        const series::Network net{n.t.mol_count, n.t.latt, &c, p.hops};
        const std::vector<double> temps = series::temperatures(150, 300, 10);
        double sum = 0;
        const double in_process = median_time(9, [&] {
            for (const double T : temps) {
                network::Conditions at = network::run_conditions(n.t);
                at.temperature = T;
                sum += series::temperature_point(net, at, units::TimeUnit{}).average;
            }
        });
        std::printf("\nthe master equation's temperature series, demo crystal, %zu temperatures (3 solutions of the cell "
                    "problem each):\n  in the process: %.3g ms (%.3g ms per temperature)%s\n",
                    temps.size(), 1e3 * in_process, 1e3 * in_process / static_cast<double>(temps.size()),
                    sum == 1.2345 ? " " : "");
        write_text(demo / "kelta.inp", "&transport\n  crystal = naphthalene_like.cif\n  ratetype = marcus\n"
                                       "  do_transport_run_MC = 0\n  do_transport_run_ME_temp = 1\n"
                                       "  start_temp = 150\n  end_temp = 300\n  delta_temp = 10\n/\n");
        fs::current_path(home);
        const RunFigures run = whole_runs(KELTA_KMC_EXE, demo, 9, {"-timeunit", "PS"});
        std::printf("  whole run of kelta_kmc (the structure, the pairs, me_temp.dat and its scripts): wall %.3f s, "
                    "peak memory %.0f MB\n", run.wall, run.peak_mb);
    }

    // Whole runs of the built kelta_kmc: the walk, the track files, the side files.
    fs::current_path(home);
    for (const auto& [nsimu, tsimu] : {std::pair{2000, 1000}, std::pair{20000, 1000}}) {
        if (quick && nsimu > 2000) break;
        configure(demo, nsimu, tsimu, 5, 4.0);
        const RunFigures run = whole_runs(KELTA_KMC_EXE, demo, 1, {"-timeunit", "PS"});
        std::printf("\nwhole run of kelta_kmc, %d trajectories of %d ps, 201 snapshots each: wall %.2f s, peak memory "
                    "%.0f MB\n", nsimu, tsimu, run.wall, run.peak_mb);
        fs::remove_all(demo / "track");
    }
    return 0;
}
