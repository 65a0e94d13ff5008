// kelta_tracks: track files of a carrier hopping on a lattice, with the exact
// diffusion tensor of the walk, for trying and checking kelta_mob.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "track_gen.h"

namespace {

const char* const kHelp =
    "Usage: kelta_tracks [options] settings-file\n"
    "Writes track/track_0001.dat ... in the hopping simulation's format for a carrier\n"
    "hopping on a lattice (a continuous-time random walk, simulated exactly), and prints\n"
    "the walk's diffusion tensor D = 1/2 sum_j k_j r_j r_j^T.\n"
    "\n"
    "Options (they override the settings file):\n"
    "  --dir DIR        directory that receives track/ (default: .)\n"
    "  --nsimu N        number of trajectories\n"
    "  --tsimu T        simulated time per trajectory, in track time units\n"
    "  --tsnap S        time between rows; round(tsimu / tsnap) + 1 rows are written\n"
    "  --seed N         seed of the random numbers: the same seed, the same files\n"
    "  --temp K         temperature for the printed mobility tensor (default: 300)\n"
    "  --timeunit PS|NS the track time unit: of the headers and the printed tensor (default: NS)\n"
    "  -h, --help       this text\n"
    "\n"
    "Settings file, one \"key = value\" per line, '#' or '!' starts a comment:\n"
    "  vector_a = x y z   cell vectors in Angstrom (default: the kelta.inp defaults)\n"
    "  vector_b = x y z\n"
    "  vector_c = x y z\n"
    "  hop = na nb nc k   a hop of na a + nb b + nc c at rate k per time unit; the\n"
    "                     walk also takes the reverse hop at the same rate\n"
    "  nsimu = N, tsimu = T, tsnap = S, seed = N   as the options\n";

void print_tensor(const char* title, const Mat3& m)
{
    std::printf("%s\n", title);
    for (const Vec3& row : m) std::printf("  %14.6e %14.6e %14.6e\n", row[0], row[1], row[2]);
}

}  // namespace

int main(int argc, char** argv)
{
    return run_program("kelta_tracks", [&] {
        std::string file, dir = ".";
        double temp = 300.0;
        units::TimeUnit unit;
        track_gen::Settings over;
        bool nsimu = false, tsimu = false, tsnap = false, seed = false;
        for (int i = 1; i < argc; ++i) {
            const std::string a = argv[i];
            if (a == "--help" || a == "-h") {
                std::fputs(kHelp, stdout);
                end_run(0);
            }
            if (a.rfind("--", 0) != 0) {
                file = a;
                continue;
            }
            if (i + 1 >= argc) fatal_plain(1, "", "kelta_tracks: option " + a + " needs a value\n");
            const char* v = argv[++i];
            if (a == "--dir") dir = v;
            else if (a == "--nsimu") over.nsimu = std::atoi(v), nsimu = true;
            else if (a == "--tsimu") over.tsimu = std::atof(v), tsimu = true;
            else if (a == "--tsnap") over.tsnap = std::atof(v), tsnap = true;
            else if (a == "--seed") over.seed = std::strtoull(v, nullptr, 10), seed = true;
            else if (a == "--temp") temp = std::atof(v);
            else if (a == "--timeunit") {
                const std::optional<units::TimeUnit> u = units::time_unit_named(v);
                if (!u) fatal_plain(1, "", std::string("kelta_tracks: --timeunit can only be PS or NS, not '") + v + "'\n");
                unit = *u;
            }
            else fatal_plain(1, "", "kelta_tracks: unknown option " + a + " (see --help)\n");
        }
        if (file.empty()) fatal_plain(1, "", "kelta_tracks: no settings file given (see --help)\n");
        track_gen::Settings s = track_gen::read_settings(file);
        if (nsimu) s.nsimu = over.nsimu;
        if (tsimu) s.tsimu = over.tsimu;
        if (tsnap) s.tsnap = over.tsnap;
        if (seed) s.seed = over.seed;
        s.time_label = unit.label;
        if (!(s.tsnap > 0) || s.nsimu < 0) fatal_plain(1, "", "kelta_tracks: tsnap must be positive and nsimu not negative\n");
        track_gen::write_tracks(s, dir);
        std::printf("wrote %d track files of %ld rows to %s/track\n", s.nsimu,
                    static_cast<long>(s.tsimu / s.tsnap + 0.5) + 1, dir.c_str());
        const Mat3 d = track_gen::diffusion_tensor(s);
        print_tensor("diffusion tensor D, Angstrom^2 per time unit (Cartesian axes):", d);
        // mu = (e / kT) D, as kelta_mob converts a mean-square-displacement slope 2 D.
        const double f = 2.0 * units::mobility_per_slope(temp, unit.seconds);
        Mat3 mu{};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) mu[i][j] = f * d[i][j];
        std::printf("mobility tensor at %g K, time unit %g s, cm^2/(V s):\n", temp, unit.seconds);
        print_tensor("", mu);
    });
}
