// The angle scans at the default size (2000 trajectories of 200 points, step 10,
// 742 directions): the full scans as the tool runs them, against the literal
// procedure that adds whole curves for every resample. The literal full scans
// would take minutes, so their time is the literal per-direction time measured on
// a subset of directions, times the number of directions.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "../tests/test_scan_oracle.h"
#include "../tests/test_support.h"

namespace {

constexpr int kTrajectories = 2000, kPoints = 200;
constexpr double kStep = 10.0;
constexpr int kDirections = 3 * 37 + 2 + 17 * 37;  // plane fans, poles, sphere interior


class QuietStdout {
public:
    QuietStdout() : saved_(dup(1))
    {
        std::fflush(stdout);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    }
    ~QuietStdout()
    {
        std::fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
    }

private:
    int saved_;
};

// Directions spread over the sphere, for the per-direction measurements.
std::vector<Vec3> sample_directions(int n)
{
    std::vector<Vec3> dirs;
    for (int i = 0; i < n; ++i) {
        const double p = (i + 0.5) * kPi / n, t = i * 2.4;
        dirs.push_back({std::sin(p) * std::cos(t), std::sin(p) * std::sin(t), std::cos(p)});
    }
    return dirs;
}

// Keeps each benchmark's mean real time per iteration (seconds) for the summary.
class Recorder : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> seconds;
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration)
                seconds[r.run_name.function_name] =
                    r.real_accumulated_time / static_cast<double>(r.iterations);
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char** argv)
{
    const testsupport::ScratchDir sandbox;  // the files the scans write
    Mobutils m;
    scanoracle::fill_random_walks(m, kTrajectories, kPoints, 42);
    m.set_angle_delta(kStep);
    const std::vector<Vec3> subset = sample_directions(6);

    const auto full_scans = [&](benchmark::State& st) {
        for (auto _ : st) {
            const QuietStdout quiet;
            m.mob_plane_xy_xz_yz();
            m.mob_direction_all();
        }
    };
    const auto fast_directions = [&](benchmark::State& st) {
        const mob_engine::ScanEngine engine = scanoracle::engine(m, {});
        std::vector<double> mob, err;
        for (auto _ : st) engine.treat(subset, mob, err);
        st.SetItemsProcessed(st.iterations() * static_cast<int64_t>(subset.size()));
    };
    const auto literal_directions = [&](benchmark::State& st) {
        double mob, err;
        for (auto _ : st)
            for (const Vec3& u : subset) scanoracle::literal_treat(m, u, {1, 2}, 2, 0, mob, err);
        st.SetItemsProcessed(st.iterations() * static_cast<int64_t>(subset.size()));
    };
    benchmark::RegisterBenchmark("fast/full_scans", full_scans)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3);
    benchmark::RegisterBenchmark("fast/per_direction", fast_directions)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("literal/per_direction", literal_directions)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);

    benchmark::Initialize(&argc, argv);
    Recorder rec;
    benchmark::RunSpecifiedBenchmarks(&rec);
    benchmark::Shutdown();

    const auto has = [&](const char* n) { return rec.seconds.count(n) != 0; };
    if (!has("fast/full_scans") || !has("literal/per_direction")) return 0;
    const double fast = rec.seconds["fast/full_scans"];
    const double literal_dir =
        rec.seconds["literal/per_direction"] / static_cast<double>(subset.size());
    const double literal = literal_dir * kDirections;
    std::printf("\n%d trajectories x %d points, step %g, %d directions\n", kTrajectories, kPoints,
                kStep, kDirections);
    std::printf("fast full scans, measured:                     %8.3f s\n", fast);
    std::printf("literal full scans, extrapolated (%.1f ms per direction on %zu directions, x %d): "
                "%8.3f s\n",
                literal_dir * 1e3, subset.size(), kDirections, literal);
    std::printf("literal / fast: %.1f\n", literal / fast);
    return 0;
}
