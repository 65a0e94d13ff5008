// What the benchmarks share: quiet standard output, timings, whole runs of a
// built program with their peak memory.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace benchsupport {

namespace fs = std::filesystem;

// Standard output goes to /dev/null while one of these lives.
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
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int saved_;
};

// Median seconds of `runs` calls.
inline double median_time(int runs, const std::function<void()>& f)
{
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        f();
        t.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

struct RunFigures {
    double wall = 0, peak_mb = 0;
};

// The built program `exe` in `dir` with `args`, run `runs` times as its own
// process: median wall time and the largest resident size, from the kernel's
// accounting.
inline RunFigures whole_runs(const char* exe, const fs::path& dir, int runs, std::vector<std::string> args = {})
{
    std::vector<double> walls;
    RunFigures r;
    for (int i = 0; i < runs; ++i) {
        std::fflush(stdout);  // or the child's own stdout would repeat what is buffered
        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = fork();
        if (pid == 0) {
            if (chdir(dir.c_str()) != 0 || !std::freopen("/dev/null", "w", stdout)) _exit(127);
            args.insert(args.begin(), exe);
            std::vector<char*> argv;
            for (std::string& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            execv(exe, argv.data());
            _exit(127);
        }
        int status = 0;
        rusage use{};
        wait4(pid, &status, 0, &use);
        walls.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        r.peak_mb = std::max(r.peak_mb, static_cast<double>(use.ru_maxrss) / 1024.0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) std::printf("  run in %s failed\n", dir.c_str());
    }
    std::sort(walls.begin(), walls.end());
    r.wall = walls[walls.size() / 2];
    return r;
}

}  // namespace benchsupport
