// Physics: tracks of a carrier hopping on a lattice with known rates, whose exact
// mobility along u is (e/kT) u^T D u with D = 1/2 sum_j k_j r_j r_j^T, and every
// mobility kelta_mob writes compared with it.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "test_support.h"
#include "track_gen.h"

using namespace testsupport;

namespace {

track_gen::Settings orthorhombic()
{
    track_gen::Settings s;
    s.a = {6, 0, 0}, s.b = {0, 7.5, 0}, s.c = {0, 0, 9};
    s.hops = {{{1, 0, 0}, 40}, {{0, 1, 0}, 12}, {{0, 0, 1}, 2}};
    return s;
}

track_gen::Settings monoclinic()  // beta = 115 degrees; hops along a, b, the ab diagonals, c, a + c
{
    track_gen::Settings s;
    s.a = {8, 0, 0}, s.b = {0, 6, 0}, s.c = {9 * std::cos(115 * M_PI / 180), 0, 9 * std::sin(115 * M_PI / 180)};
    s.hops = {{{1, 0, 0}, 30}, {{0, 1, 0}, 50}, {{0.5, 0.5, 0}, 40}, {{0.5, -0.5, 0}, 40}, {{0, 0, 1}, 6}, {{1, 0, 1}, 4}};
    return s;
}

// The exact mobility tensor in cm^2/(V s) at 300 K with tracks in ns (the slope of
// the projected mean-square displacement is 2 u^T D u), and its value along u.
Mat3 exact_tensor(const track_gen::Settings& s)
{
    Mat3 m = track_gen::diffusion_tensor(s);
    for (Vec3& row : m)
        for (double& v : row) v *= 2 * 1e-16 / (0.0001724 * 300 * 1e-9);
    return m;
}

double along(const Mat3& m, Vec3 u)
{
    double q = 0, len2 = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) q += u[i] * m[i][j] * u[j] / len2;
    return q;
}

// Generates the tracks in the working directory and runs kelta_mob in-process.
void run(const track_gen::Settings& s, const std::vector<std::string>& options)
{
    track_gen::write_tracks(s, ".");
    std::ostringstream inp;
    inp.precision(12);
    inp << "&transport\n molecule = 1 m.mol\n nsimu = " << s.nsimu << "\n tsimu = " << s.tsimu << "\n tsnap = " << s.tsnap;
    for (const auto& [key, v] : {std::pair{"a", s.a}, {"b", s.b}, {"c", s.c}})
        inp << "\n vector_" << key << " = " << v[0] << " " << v[1] << " " << v[2];
    write_file("kelta.inp", inp.str() + "\n output_level = 0\n/\n");
    std::filesystem::copy_file(fixture("cases/mol_oblique_scans/in/water.mol"), "m.mol");
    write_file("charge.inp", "h\n");
    RandomSeeds seeds;
    seeds.ran2 = 7;
    seeds.scan = {11, 12};
    ASSERT_EQ(run_in_process(options, seeds).status, 0);
}

// The numbers of every line of a file that is not a comment (after a ':' if any).
std::vector<std::vector<double>> rows(const std::string& file)
{
    std::vector<std::vector<double>> out;
    for (std::string line : read_lines(file)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line.substr(line.find(':') + 1));
        std::vector<double> v;
        for (std::string token; in >> token;) {
            char* end;
            const double x = std::strtod(token.c_str(), &end);
            if (*end == '\0') v.push_back(x);
        }
        out.push_back(v);
    }
    return out;
}


}  // namespace

// Every written mobility within 4 of its error bars or 3 percent of the exact value;
// the tensor's directions and principal axes as the exact tensor's.
TEST(Physics, EveryMobilityMatchesTheExactTensor)
{
    for (track_gen::Settings s : {orthorhombic(), monoclinic()}) {
        const ScratchDir dir;
        s.nsimu = 1000, s.tsimu = 500, s.tsnap = 5, s.seed = 3;
        run(s, {"-moball", "-tensor"});
        const Mat3 m = exact_tensor(s);
        std::vector<std::array<double, 3>> checks;  // mobility, error, exact
        const auto r = rows("mob.dat")[0];
        checks.push_back({r[0], r[1], (m[0][0] + m[1][1] + m[2][2]) / 3});
        for (const int k : {0, 1, 2}) {
            const auto a = rows(std::string("mob_") + "abc"[k] + ".dat")[0];
            checks.push_back({a[0], a[1], along(m, k == 0 ? s.a : k == 1 ? s.b : s.c)});
        }
        for (const int p : {0, 1, 2})
            for (const auto& l : rows(std::string("mob_plane_") + (p == 0 ? "xy" : p == 1 ? "xz" : "yz") + ".dat")) {
                const double c = std::cos(l[0] * M_PI / 180), sn = std::sin(l[0] * M_PI / 180);
                checks.push_back({l[1], l[2], along(m, p == 0 ? Vec3{c, sn, 0} : p == 1 ? Vec3{c, 0, sn} : Vec3{0, c, sn})});
            }
        const auto t = rows("mob_tensor.dat");
        const Mat3 mu = {{{t[0][0], t[0][1], t[0][2]}, {t[1][0], t[1][1], t[1][2]}, {t[2][0], t[2][1], t[2][2]}}};
        int sphere = 0, covered = 0;
        for (const auto& l : rows("mob_direction_all.dat")) {
            if (l.size() < 4) continue;
            const double p = l[0] * M_PI / 180, th = l[1] * M_PI / 180;  // polar angle, azimuth
            const Vec3 u = {std::sin(p) * std::cos(th), std::sin(p) * std::sin(th), std::cos(p)};
            checks.push_back({l[2], l[3], along(m, u)});
            covered += std::fabs(l[2] - checks.back()[2]) <= l[3];
            ++sphere;
            EXPECT_NEAR(along(mu, u), l[2], 1e-4 * mu[0][0] + 5e-5 * l[2]);  // printed precision
        }
        double worst = 0;
        for (const auto& [mob, err, exact] : checks) {
            EXPECT_LE(std::fabs(mob - exact), std::max(4 * err, 0.03 * exact)) << mob << " vs " << exact;
            worst = std::max(worst, std::fabs(mob - exact) / err);
        }
        std::printf("%zu mobilities, largest deviation %.2f error bars; %d of %d sphere directions (%.0f%%) hold the "
                    "exact value within their error bar\n", checks.size(), worst, covered, sphere, 100.0 * covered / sphere);
        EXPECT_GT(covered, 0.8 * sphere);
        // Rows 3 to 5: principal value and unit axis; rows 14 to 16: value, standard
        // error, 95% interval. The axis must be an eigenvector of the exact tensor.
        for (int k = 0; k < 3; ++k) {
            const Vec3 axis = {t[3 + k][1], t[3 + k][2], t[3 + k][3]};
            const double value = along(m, axis);
            EXPECT_NEAR(t[3 + k][0], value, std::max(4 * t[14 + k][1], 0.03 * value)) << "principal " << k + 1;
            double image2 = 0;  // |M a|^2; |M a|^2 - (a^T M a)^2 is the squared residual of an eigenvector
            for (const Vec3& row : m) image2 += std::pow(row[0] * axis[0] + row[1] * axis[1] + row[2] * axis[2], 2);
            EXPECT_LE(std::sqrt(std::max(0.0, image2 - value * value)), 0.05 * t[3][0]) << "axis " << k + 1;
        }
    }
}

// The 95% intervals of the principal mobilities cover the exact values in most of
// 20 independent data sets (a clearly anisotropic lattice: sorted eigenvalues of
// close pairs are biased upward).
TEST(Physics, PrincipalIntervalsCoverTheExactValues)
{
    track_gen::Settings s = orthorhombic();
    const Mat3 m = exact_tensor(s);
    int covered = 0;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        const ScratchDir dir;
        s.nsimu = 300, s.tsimu = 200, s.tsnap = 5, s.seed = seed;
        run(s, {"-tensor"});
        const auto t = rows("mob_tensor.dat");
        for (int k = 0; k < 3; ++k) covered += t[14 + k][2] <= m[k][k] && m[k][k] <= t[14 + k][3];
    }
    std::printf("95%% intervals of the principal mobilities: %d of 60 cover the exact value\n", covered);
    EXPECT_GE(covered, 48);
}

// Files that cannot be created (a directory stands at each name) end the
// generator with one message however many threads meet them.
TEST(TrackGenerator, UnwritableFilesEndTheRun)
{
    const ScratchDir dir;
    track_gen::Settings s = orthorhombic();
    s.nsimu = 16, s.tsimu = 10, s.tsnap = 5;
    for (int j = 1; j <= s.nsimu; ++j) std::filesystem::create_directories(strprintf("track/track_%04d.dat", j));
    const int threads = omp_get_max_threads();
    omp_set_num_threads(2);
    const Outcome r = capture([&] { track_gen::write_tracks(s, "."); });
    omp_set_num_threads(threads);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "kelta_tracks: cannot write ./track/track_0001.dat: Is a directory\n");  // the first, named
}
