// Speed and memory of kelta_mob against the straightforward design, every ratio
// measured in the same run on generated data (cached under the build directory):
//   track reading      fast parser and parallel files vs fgets + sscanf per line
//   average + axes     per-trajectory slopes vs a fitted mean curve per resample
//   angle scans        the engine vs projecting and fitting every resample
//   whole runs         the built kelta_mob at 2,000 x 200 and 20,000 x 500
// Usage: kelta_bench_mob [--quick]   (--quick: the small data set only)
#include <fcntl.h>
#include <omp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "../tests/test_analysis_oracle.h"
#include "../tests/test_scan_oracle.h"
#include "bench_support.h"
#include "track_gen.h"

namespace fs = std::filesystem;
using namespace benchsupport;

namespace {

const fs::path kData = fs::path(KELTA_BENCH_DATA);

// A working directory of nsimu trajectories of npoints time points on the
// naphthalene-like lattice of the demo; written once, then reused.
fs::path working_dir(int nsimu, int npoints)
{
    const fs::path dir = kData / ("run" + std::to_string(nsimu) + "x" + std::to_string(npoints));
    if (fs::exists(dir / "done")) return dir;
    std::printf("generating %s ...\n", dir.c_str());
    std::fflush(stdout);
    track_gen::Settings s;
    s.hops = {{{1, 0, 0}, 3000}, {{0, 1, 0}, 6000}, {{0.5, 0.5, 0}, 4000}, {{0.5, -0.5, 0}, 4000}, {{0, 0, 1}, 300}};
    s.nsimu = nsimu;
    s.tsnap = 5;
    s.tsimu = 5.0 * npoints;
    s.seed = 2026;
    track_gen::write_tracks(s, dir.string());
    const auto write = [&dir](const char* name, const std::string& text) { std::ofstream(dir / name) << text; };
    write("charge.inp", "e\n");
    write("m.mol", "m\n\n\n  2  0  0  0  0  0  0  0  0  0999 V2000\n"
                   "    0.0000    0.0000    0.0000 C   0\n    1.4000    0.0000    0.0000 C   0\nM  END\n");
    write("kelta.inp", "&transport\n  molecule = 1 m.mol\n  nsimu = " + std::to_string(nsimu) +
                           "\n  tsimu = " + std::to_string(5 * npoints) + "\n/\n");
    write("done", "");
    return dir;
}

double megabytes_of_tracks(const fs::path& dir)
{
    double bytes = 0;
    for (const fs::directory_entry& e : fs::directory_iterator(dir / "track")) bytes += static_cast<double>(e.file_size());
    return bytes / 1e6;
}

// A loaded analysis object for the directory; the working directory moves there.
void load(Mobutils& m, const fs::path& dir, bool fast)
{
    fs::current_path(dir);
    const QuietStdout quiet;
    m.read_kelta_inp("kelta.inp", false);
    m.read_crystal_strcuture_files(false, false);
    m.init();
    if (fast)
        m.readin_track_data();
    else
        analysisoracle::straight_read(m);
}

// The average and axis analyses the straightforward way: every resample a whole
// mean curve of the r2 table or of a projected-square table, fitted.
void straight_average_and_axes(Mobutils& m)
{
    const double f = 1e-16 / (0.0001724 * m.temp * 1e-9);
    analysisoracle::straight_bootstrap(m.track_r2, m.nsimu, m.ntime, m.nsamp, m.track_time.data(), f / 3, 1e20);
    Table projected(m.nsimu, m.ntime);
    for (int axis = 0; axis < 3; ++axis) {
        const Vec3 u = {m.latt[0][axis], m.latt[1][axis], m.latt[2][axis]};
        const double len = get_magnitude(u);
        for (int j = 0; j < m.nsimu; ++j)
            for (int t = 0; t < m.ntime; ++t) {
                const double p = (m.track_x[j][t] * u[0] + m.track_y[j][t] * u[1] + m.track_z[j][t] * u[2]) / len;
                projected[j][t] = p * p;
            }
        analysisoracle::straight_bootstrap(projected, m.nsimu, m.ntime, m.nsamp, m.track_time.data(), f, 1e8);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const bool quick = argc > 1 && std::string(argv[1]) == "--quick";
    const int threads = omp_get_max_threads();
    std::printf("kelta_mob benchmark, %d threads; every ratio measured in this run\n", threads);
    const fs::path small = working_dir(2000, 200);
    const double mb = megabytes_of_tracks(small);
    const fs::path home = fs::current_path();

    // Track reading.
    Mobutils fast, straight;
    load(fast, small, true);
    load(straight, small, false);
    omp_set_num_threads(1);
    const double read1 = median_time(5, [&] { load(fast, small, true); });
    omp_set_num_threads(threads);
    const double readn = median_time(5, [&] { load(fast, small, true); });
    const double read_straight = median_time(3, [&] { load(straight, small, false); });
    std::printf("\ntrack reading, %.1f MB of text in 2,000 files:\n", mb);
    std::printf("  fast, 1 thread:           %7.3f s  %6.0f MB/s per core\n", read1, mb / read1);
    std::printf("  fast, %d threads:          %7.3f s  %6.0f MB/s\n", threads, readn, mb / readn);
    std::printf("  fgets + sscanf:           %7.3f s  %6.0f MB/s per core\n", read_straight, mb / read_straight);
    std::printf("  fast / straightforward per core: %.1fx\n", read_straight / read1);

    // Average and axes (stdout of the analyses goes to /dev/null).
    double avg_fast, avg_straight, scans_fast, literal_dir;
    const std::vector<Vec3> some = {{1, 0, 0}, {0, 0.6, 0.8}, {0.48, -0.6, 0.64}, {0, 1, 0}};
    {
    const QuietStdout quiet;
    avg_fast = median_time(5, [&] {
        fast.mob_average();
        fast.mob_direction_a_b_c();
    });
    avg_straight = median_time(3, [&] { straight_average_and_axes(straight); });
    // Angle scans: the engine in full; the literal procedure on a few directions.
    scans_fast = median_time(3, [&] {
        fast.mob_plane_xy_xz_yz();
        fast.mob_direction_all();
    });
    literal_dir = median_time(1, [&] {
        double mob, err;
        for (const Vec3& u : some) scanoracle::literal_treat(fast, u, {1, 2}, 2, 0, mob, err);
    }) / static_cast<double>(some.size());
    }
    constexpr int kDirections = 3 * 37 + 2 + 17 * 37;
    const double scans_literal = literal_dir * kDirections;
    std::printf("\naverage + axis mobility, 4 bootstraps of 100 resamples:\n");
    std::printf("  per-trajectory slopes:    %7.3f s\n  whole resample curves:    %7.3f s\n  ratio: %.0fx\n",
                avg_fast, avg_straight, avg_straight / avg_fast);
    std::printf("\nangle scans, step 10 (%d directions):\n", kDirections);
    std::printf("  engine, measured:         %7.3f s\n", scans_fast);
    std::printf("  literal, %.1f ms per direction on %zu directions, x %d: %.2f s\n", literal_dir * 1e3, some.size(),
                kDirections, scans_literal);
    std::printf("  ratio: %.0fx\n", scans_literal / scans_fast);

    fs::current_path(home);
    const RunFigures run_small = whole_runs(KELTA_MOB_EXE, small, 7);
    const double straight_total = read_straight + avg_straight + scans_literal;
    std::printf("\nwhole default run, 2,000 x 200, step 10, all analyses (the built kelta_mob, median of 7):\n");
    std::printf("  wall %.3f s, peak memory %.0f MB (track tables %.0f MB)\n", run_small.wall, run_small.peak_mb,
                4.0 * 8 * 2000 * 200 / 1048576.0);
    std::printf("  straightforward design, the sum of the parts above: %.2f s; ratio %.0fx\n", straight_total,
                straight_total / run_small.wall);
    if (!quick) {
        const fs::path large = working_dir(20000, 500);
        const RunFigures run_large = whole_runs(KELTA_MOB_EXE, large, 3);
        const double tables = 4.0 * 8 * 20000 * 500 / 1048576.0;
        std::printf("\nwhole run, 20,000 x 500, all analyses (median of 3):\n");
        std::printf("  wall %.3f s, peak memory %.0f MB = %.2f x the %.0f MB of track tables\n", run_large.wall,
                    run_large.peak_mb, run_large.peak_mb / tables, tables);
    }
    return 0;
}
