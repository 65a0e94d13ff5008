// The simulation's run over trajectories: parallel, reproducible, with every
// track file checked and renamed into place only when complete.
#include <omp.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>

#include "hopping_checks.h"
#include "hopping_errors.h"
#include "hopping_walk.h"

using namespace hopping_error;

namespace kmc {

namespace {

const char* const kModule = "transport";
const char* const kTrackFailed = "Failed to write output file %s: %s\n";
constexpr double kProgressSeconds = 0.2;
constexpr int kBarWidth = 40;

class ProgressBar {
public:
    ProgressBar(bool shown, long total)
        : shown_(shown), total_(total), start_(std::chrono::steady_clock::now()), last_(start_)
    {
    }
    // Called by one thread only. The time left assumes the trajectories to come
    // take as long as those done.
    void show(long done)
    {
        const auto now = std::chrono::steady_clock::now();
        if (!shown_ || std::chrono::duration<double>(now - last_).count() < kProgressSeconds) return;
        last_ = now;
        const int filled = total_ > 0 ? static_cast<int>(kBarWidth * done / total_) : kBarWidth;
        const double elapsed = std::chrono::duration<double>(now - start_).count();
        const std::string left =
            done > 0 ? "about " + duration_text(elapsed * static_cast<double>(total_ - done) / static_cast<double>(done)) + " left"
                     : "";
        std::fprintf(stderr, "\r  trajectories %ld / %ld [%s%s] %-24s", done, total_, std::string(filled, '#').c_str(),
                     std::string(kBarWidth - filled, '.').c_str(), left.c_str());
        std::fflush(stderr);
    }
    // The closing line: the speed of the run.
    void finish(long long hops, double seconds, int threads) const
    {
        if (!shown_) return;
        std::fprintf(stderr, "\r  trajectories %ld / %ld: %lld hops in %.3g s on %d thread(s), %.3g hops per second%*s\n",
                     total_, total_, hops, seconds, threads, static_cast<double>(hops) / seconds, 40, "");
    }

private:
    bool shown_;
    long total_;
    std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace

SimulationResult simulate(const Walk& walk, const Simulation& s)
{
    SimulationResult r;
    r.final_x.assign(static_cast<size_t>(s.count), Vec3{});
    std::vector<std::string> failure(static_cast<size_t>(s.count));  // why a file could not be written
    std::atomic<long> done{0};
    std::atomic<bool> out_of_memory{false};
    ProgressBar bar(s.progress, s.count);
    long long hops = 0;
    const auto start = std::chrono::steady_clock::now();
#pragma omp parallel reduction(+ : hops)
    {
#pragma omp single
        r.threads = omp_get_num_threads();
#pragma omp for schedule(dynamic, 1)
        for (long j = 0; j < s.count; ++j) {
            try {  // nothing may leave the parallel region
                const long number = s.first + j;
                Random rng(s.seed, static_cast<std::uint64_t>(number));
                tracks::TrackWriter out(tracks::track_file_name(s.dir, number), s.time_label);
                if (out.open())
                    hops += walk.run(rng, s.rows, s.tsnap, [&](long k, const Vec3& x, long long n) {
                        out.row(static_cast<double>(k) * s.tsnap, x, n);
                        if (k == s.rows - 1) r.final_x[j] = x;
                    });
                failure[j] = out.finish();
            } catch (const std::bad_alloc&) {
                out_of_memory.store(true, std::memory_order_relaxed);
            }
            const long now = done.fetch_add(1, std::memory_order_relaxed) + 1;
            if (omp_get_thread_num() == 0) bar.show(now);
        }
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    r.hops = hops;
    bar.finish(r.hops, r.seconds, r.threads);
    if (out_of_memory.load()) throw std::bad_alloc();
    for (long j = 0; j < s.count; ++j)
        if (!failure[j].empty())
            fatal(kModule, kLineTrackWrite, -1, "",
                  strprintf(kTrackFailed, tracks::track_file_name(s.dir, s.first + j).c_str(), failure[j].c_str()));
    return r;
}

}  // namespace kmc
