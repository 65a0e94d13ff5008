// Shared test scaffolding: a scratch working directory, file helpers, running
// the built tool, and a generator of track files.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace testsupport {

// The KELTA_* variables preset the configuration; no test may depend on the
// caller's, so they are cleared once before any test runs (tests that want one
// set it themselves).
inline bool clear_kelta_environment()
{
    std::vector<std::string> names;
    for (char** e = environ; *e; ++e)
        if (std::string(*e).rfind("KELTA_", 0) == 0) names.push_back(std::string(*e).substr(0, std::string(*e).find('=')));
    for (const std::string& n : names) unsetenv(n.c_str());
    return true;
}
inline const bool kKeltaEnvironmentCleared = clear_kelta_environment();

// Creates a fresh directory, makes it the working directory, and on
// destruction goes back and removes it.
class ScratchDir {
public:
    ScratchDir()
    {
        old_ = std::filesystem::current_path();
        std::string tmpl = (std::filesystem::temp_directory_path() / "kelta_test_XXXXXX").string();
        path_ = mkdtemp(tmpl.data());
        std::filesystem::current_path(path_);
    }
    ~ScratchDir()
    {
        std::filesystem::current_path(old_);
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path old_, path_;
};

inline void write_file(const std::filesystem::path& name, const std::string& text)
{
    if (name.has_parent_path()) std::filesystem::create_directories(name.parent_path());
    std::ofstream(name, std::ios::binary) << text;
}

inline std::string read_file(const std::filesystem::path& name)
{
    std::ifstream in(name, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Compares `actual` with the recorded file (an absent file records `empty`). With
// UPDATE_CASES set in the environment the file is written from `actual` instead:
// inspect the difference before committing it.
inline void expect_recorded(const std::filesystem::path& file, const std::string& actual,
                            const std::string& empty = "")
{
    if (std::getenv("UPDATE_CASES")) {
        if (actual == empty)
            std::filesystem::remove(file);
        else
            write_file(file, actual);
        return;
    }
    EXPECT_EQ(actual, std::filesystem::exists(file) ? read_file(file) : empty) << file;
}

inline std::vector<std::string> read_lines(const std::filesystem::path& name)
{
    std::vector<std::string> lines;
    std::ifstream in(name);
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

struct RunResult {
    std::string out, err;
    int status = -1;
};

#ifdef KELTA_MOB_EXE  // the benchmarks use the rest without the built tool
// Runs the built tool in `dir` with the given arguments (each shell-quoted).
inline RunResult run_tool(const std::filesystem::path& dir, const std::vector<std::string>& args,
                          const std::string& env = "")
{
    std::string cmd = "cd '" + dir.string() + "' && " + env + " '" KELTA_MOB_EXE "'";
    for (const std::string& a : args) cmd += " '" + a + "'";
    cmd += " > .stdout 2> .stderr";
    const int rc = std::system(cmd.c_str());
    RunResult r;
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : 1000;
    r.out = read_file(dir / ".stdout");
    r.err = read_file(dir / ".stderr");
    std::filesystem::remove(dir / ".stdout");
    std::filesystem::remove(dir / ".stderr");
    return r;
}
#endif

// One carrier position per time point; r2 is written as x^2 + y^2 + z^2.
struct Point {
    double x, y, z;
};
using Trajectory = std::vector<Point>;

inline void write_track(const std::filesystem::path& dir, int number, const Trajectory& traj,
                        double tsnap)
{
    std::filesystem::create_directories(dir / "track");
    char name[64];
    std::snprintf(name, sizeof name, "track/track_%04d.dat", number);
    std::FILE* f = std::fopen((dir / name).string().c_str(), "w");
    std::fprintf(f, "#      t,ns         x,angs         y,angs         z,angs         r2,A^2     istep\n");
    for (size_t t = 0; t < traj.size(); ++t) {
        const Point& p = traj[t];
        std::fprintf(f, "%14.6e %14.6e %14.6e %14.6e %14.6e  %d\n", t * tsnap, p.x, p.y, p.z,
                     p.x * p.x + p.y * p.y + p.z * p.z, static_cast<int>(t) * 3);
    }
    std::fclose(f);
}

// Lattice random walk with anisotropic hop rates; deterministic for a seed.
inline Trajectory random_walk(std::mt19937& gen, int npoints)
{
    static const Point hops[] = {{5, 0, 0}, {-5, 0, 0}, {0, 4, 0}, {0, -4, 0}, {0, 0, 3}, {0, 0, -3}};
    static const double weight[] = {3, 3, 2, 2, 1, 1};
    std::discrete_distribution<int> pick(std::begin(weight), std::end(weight));
    Trajectory t(static_cast<size_t>(npoints), Point{0, 0, 0});
    for (int i = 1; i < npoints; ++i) {
        const Point& h = hops[pick(gen)];
        t[i] = {t[i - 1].x + h.x, t[i - 1].y + h.y, t[i - 1].z + h.z};
    }
    return t;
}

inline void write_random_tracks(const std::filesystem::path& dir, int nsimu, int npoints, double tsnap,
                                unsigned seed = 11)
{
    std::mt19937 gen(seed);
    for (int j = 1; j <= nsimu; ++j) write_track(dir, j, random_walk(gen, npoints), tsnap);
}

// A two-atom molecule in V2000 form.
inline std::string dimer_mol(double x, double y, double z)
{
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  "dimer\n  test\n\n  2  1  0  0  0  0  0  0  0  0999 V2000\n"
                  "%10.4f%10.4f%10.4f C   0  0  0  0  0  0  0  0  0  0  0  0\n"
                  "%10.4f%10.4f%10.4f C   0  0  0  0  0  0  0  0  0  0  0  0\n"
                  "  1  2  1  0\nM  END\n",
                  x, y, z, x + 1.4, y, z);
    return buf;
}

}  // namespace testsupport
