#include "track_gen.h"

#include "tracks.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace track_gen {

namespace {


[[noreturn]] void bad_line(const std::string& path, int line, const std::string& text)
{
    fatal_plain(1, "", "kelta_tracks: " + path + " line " + std::to_string(line) + ": cannot read '" + text + "'\n");
}

// Reads `n` numbers from the value; false when fewer are there.
bool numbers(const std::string& value, double* out, int n)
{
    std::istringstream in(value);
    for (int i = 0; i < n; ++i)
        if (!(in >> out[i])) return false;
    return true;
}

}  // namespace

Settings read_settings(const std::string& path)
{
    std::ifstream in(path);
    if (!in) fatal_plain(1, "", "kelta_tracks: cannot open " + path + "\n");
    Settings s;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        line = line.substr(0, line.find_first_of("#!"));
        const size_t eq = line.find('=');
        if (eq == std::string::npos) {
            if (line.find_first_not_of(" \t\r") != std::string::npos) bad_line(path, number, line);
            continue;
        }
        std::string key = line.substr(0, eq);
        trim(key);
        const std::string value = line.substr(eq + 1);
        double v[4];
        bool ok = true;
        if (key == "vector_a" || key == "vector_b" || key == "vector_c") {
            Vec3& vec = key == "vector_a" ? s.a : key == "vector_b" ? s.b : s.c;
            ok = numbers(value, vec.data(), 3);
        } else if (key == "hop") {
            ok = numbers(value, v, 4) && v[3] >= 0;
            s.hops.push_back({{v[0], v[1], v[2]}, v[3]});
        } else if (key == "nsimu" || key == "tsimu" || key == "tsnap" || key == "seed") {
            ok = numbers(value, v, 1) && v[0] >= 0;
            if (key == "nsimu") s.nsimu = static_cast<int>(v[0]);
            if (key == "tsimu") s.tsimu = v[0];
            if (key == "tsnap") s.tsnap = v[0];
            if (key == "seed") s.seed = static_cast<std::uint64_t>(v[0]);
        } else {
            ok = false;
        }
        if (!ok) bad_line(path, number, line);
    }
    return s;
}

Vec3 displacement(const Settings& s, const Hop& h)
{
    Vec3 r{};
    for (int i = 0; i < 3; ++i) r[i] = h.cell[0] * s.a[i] + h.cell[1] * s.b[i] + h.cell[2] * s.c[i];
    return r;
}

Mat3 diffusion_tensor(const Settings& s)
{
    Mat3 d{};
    for (const Hop& h : s.hops) {
        const Vec3 r = displacement(s, h);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) d[i][j] += h.rate * r[i] * r[j];  // 1/2 (k r r + k (-r)(-r))
    }
    return d;
}

void write_tracks(const Settings& s, const std::string& dir)
{
    std::filesystem::create_directories(dir + "/track");
    const long rows = tracks::track_rows(s.tsimu, s.tsnap);
    tracks::check_room(dir + "/track", s.nsimu, rows);
    std::vector<Vec3> r;
    for (const Hop& h : s.hops) r.push_back(displacement(s, h));
    std::vector<std::string> failure(static_cast<size_t>(std::max(s.nsimu, 0)));  // why a file is not complete
    std::atomic<bool> out_of_memory{false};
#pragma omp parallel for schedule(dynamic, 4)
    for (int j = 0; j < s.nsimu; ++j) {
        try {  // nothing may leave the parallel region
            std::seed_seq seq{static_cast<std::uint32_t>(s.seed), static_cast<std::uint32_t>(s.seed >> 32),
                              static_cast<std::uint32_t>(j)};
            std::mt19937_64 gen(seq);
            std::vector<std::poisson_distribution<long>> count;
            for (const Hop& h : s.hops) count.emplace_back(h.rate * s.tsnap);
            tracks::TrackWriter out(tracks::track_file_name(dir, j + 1), s.time_label);
            Vec3 x{};
            long long steps = 0;
            for (long t = 0; t < rows && out.open(); ++t) {
                if (t > 0)
                    for (size_t k = 0; k < r.size(); ++k) {
                        const long forward = count[k](gen), backward = count[k](gen);
                        steps += forward + backward;
                        for (int i = 0; i < 3; ++i) x[i] += static_cast<double>(forward - backward) * r[k][i];
                    }
                out.row(static_cast<double>(t) * s.tsnap, x, steps);
            }
            failure[j] = out.finish();
        } catch (const std::bad_alloc&) {
            out_of_memory.store(true, std::memory_order_relaxed);
        }
    }
    if (out_of_memory.load()) throw std::bad_alloc();
    for (int j = 0; j < s.nsimu; ++j)
        if (!failure[j].empty())
            fatal_plain(1, "", "kelta_tracks: cannot write " + tracks::track_file_name(dir, j + 1) + ": " + failure[j] + "\n");
}

}  // namespace track_gen
