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

struct Lattice {
    const char* name;
    track_gen::Settings s;
};

Lattice orthorhombic()
{
    Lattice l{"orthorhombic", {}};
    l.s.a = {6, 0, 0}, l.s.b = {0, 7.5, 0}, l.s.c = {0, 0, 9};
    l.s.hops = {{{1, 0, 0}, 40}, {{0, 1, 0}, 12}, {{0, 0, 1}, 2}};
    return l;
}

Lattice monoclinic()  // beta = 115 degrees, hops along a, b, the ab diagonals, c and a + c
{
    Lattice l{"monoclinic", {}};
    const double beta = 115 * M_PI / 180;
    l.s.a = {8, 0, 0}, l.s.b = {0, 6, 0}, l.s.c = {9 * std::cos(beta), 0, 9 * std::sin(beta)};
    l.s.hops = {{{1, 0, 0}, 30}, {{0, 1, 0}, 50}, {{0.5, 0.5, 0}, 40}, {{0.5, -0.5, 0}, 40}, {{0, 0, 1}, 6}, {{1, 0, 1}, 4}};
    return l;
}

// The exact mobility along u in cm^2/(V s), at 300 K with tracks in ns: the
// slope of the projected mean-square displacement is 2 u^T D u.
double exact(const Mat3& d, Vec3 u)
{
    const double len = get_magnitude(u.data());
    double q = 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) q += u[i] / len * d[i][j] * u[j] / len;
    return 2 * q * 1e-16 / (0.0001724 * 300 * 1e-9);
}

// Generates the lattice's tracks in the working directory and runs kelta_mob
// in-process with fixed seeds.
void run(const track_gen::Settings& s, const std::vector<std::string>& options)
{
    track_gen::write_tracks(s, ".");
    char cell[256];
    std::snprintf(cell, sizeof cell, "  vector_a = %.10g %.10g %.10g\n  vector_b = %.10g %.10g %.10g\n  vector_c = %.10g %.10g %.10g\n",
                  s.a[0], s.a[1], s.a[2], s.b[0], s.b[1], s.b[2], s.c[0], s.c[1], s.c[2]);
    write_file("kelta.inp", "&transport\n  molecule = 1 m.mol\n" + std::string(cell) + "  nsimu = " + std::to_string(s.nsimu) +
                                "\n  tsimu = " + std::to_string(s.tsimu) + "\n  tsnap = " + std::to_string(s.tsnap) + "\n  output_level = 0\n/\n");
    write_file("m.mol", kDimerMol);
    write_file("charge.inp", "h\n");
    RandomSeeds seeds;
    seeds.ran2 = 7;
    seeds.scan = {11, 12};
    ASSERT_EQ(run_in_process(options, seeds).status, 0);
}

// The numbers of each line of a file that has some.
std::vector<std::vector<double>> rows(const std::string& file)
{
    std::vector<std::vector<double>> out;
    for (std::string line : read_lines(file)) {
        if (line.empty() || line[0] == '#') continue;
        if (const size_t colon = line.find(':'); colon != std::string::npos) line = line.substr(colon + 1);
        std::istringstream in(line);
        std::vector<double> v;
        std::string token;
        while (in >> token) {
            char* end;
            const double x = std::strtod(token.c_str(), &end);
            if (*end == '\0') v.push_back(x);
        }
        out.push_back(v);
    }
    return out;
}

Vec3 sphere(double phai, double thet)
{
    const double p = phai * M_PI / 180, t = thet * M_PI / 180;
    return {std::sin(p) * std::cos(t), std::sin(p) * std::sin(t), std::cos(p)};
}

}  // namespace

// Every written mobility within 4 of its error bars or 3 percent of the exact value.
TEST(Physics, EveryMobilityMatchesTheExactTensor)
{
    for (Lattice l : {orthorhombic(), monoclinic()}) {
        SCOPED_TRACE(l.name);
        const ScratchDir dir;
        l.s.nsimu = 1000, l.s.tsimu = 500, l.s.tsnap = 5, l.s.seed = 3;
        run(l.s, {"-moball", "-tensor"});
        const Mat3 d = track_gen::diffusion_tensor(l.s);
        struct Check {
            double mob, err, exact;
        };
        std::vector<Check> checks = {{rows("mob.dat")[0][0], rows("mob.dat")[0][1],
                                      (exact(d, {1, 0, 0}) + exact(d, {0, 1, 0}) + exact(d, {0, 0, 1})) / 3}};
        const Vec3 cell[3] = {l.s.a, l.s.b, l.s.c};
        for (int k = 0; k < 3; ++k) {
            const auto r = rows(std::string("mob_") + "abc"[k] + ".dat")[0];
            checks.push_back({r[0], r[1], exact(d, cell[k])});
        }
        const std::vector<std::pair<const char*, int>> planes = {{"xy", 0}, {"xz", 1}, {"yz", 2}};
        for (const auto& [plane, p] : planes)
            for (const auto& r : rows(std::string("mob_plane_") + plane + ".dat")) {
                const double c = std::cos(r[0] * M_PI / 180), s = std::sin(r[0] * M_PI / 180);
                const Vec3 u = p == 0 ? Vec3{c, s, 0} : p == 1 ? Vec3{c, 0, s} : Vec3{0, c, s};
                checks.push_back({r[1], r[2], exact(d, u)});
            }
        int sphere_rows = 0, covered = 0;
        double worst = 0;
        for (const auto& r : rows("mob_direction_all.dat")) {
            if (r.size() < 4) continue;
            checks.push_back({r[2], r[3], exact(d, sphere(r[0], r[1]))});
            ++sphere_rows;
            covered += std::fabs(r[2] - checks.back().exact) <= r[3];
        }
        for (const Check& c : checks) {
            EXPECT_LE(std::fabs(c.mob - c.exact), std::max(4 * c.err, 0.03 * c.exact)) << c.mob << " vs " << c.exact;
            worst = std::max(worst, std::fabs(c.mob - c.exact) / c.err);
        }
        std::printf("%s: %zu mobilities, largest deviation %.2f error bars; %d of %d sphere directions (%.0f%%) "
                    "hold the exact value within their error bar\n",
                    l.name, checks.size(), worst, covered, sphere_rows, 100.0 * covered / sphere_rows);
        EXPECT_GT(covered, 0.8 * sphere_rows);

        // The tensor: every scan direction is u^T M u to printed precision; the
        // principal values within their errors of the exact ones.
        const auto t = rows("mob_tensor.dat");
        const Mat3 m = {{{t[0][0], t[0][1], t[0][2]}, {t[1][0], t[1][1], t[1][2]}, {t[2][0], t[2][1], t[2][2]}}};
        for (const auto& r : rows("mob_direction_all.dat")) {
            if (r.size() < 4) continue;
            const Vec3 u = sphere(r[0], r[1]);
            double q = 0;
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) q += u[i] * m[i][j] * u[j];
            EXPECT_NEAR(q, r[2], 1e-4 * m[0][0] + 5e-5 * r[2]);
        }
        // Rows 3 to 5: principal value and axis; rows 14 to 16: value, standard error,
        // 95% interval. The axis must be an eigenvector of the exact tensor.
        for (int k = 0; k < 3; ++k) {
            const Vec3 axis = {t[3 + k][1], t[3 + k][2], t[3 + k][3]};
            const double value = t[3 + k][0], along = exact(d, axis), se = t[14 + k][1];
            EXPECT_NEAR(value, along, std::max(4 * se, 0.03 * along)) << "principal " << k + 1;
            double residual = 0;
            for (int i = 0; i < 3; ++i) {
                double e = 0;
                for (int j = 0; j < 3; ++j) e += 2 * d[i][j] * 1e-16 / (0.0001724 * 300 * 1e-9) * axis[j];
                residual += (e - along * axis[i]) * (e - along * axis[i]);
            }
            EXPECT_LE(std::sqrt(residual), 0.05 * t[3][0]) << "axis " << k + 1;
        }
    }
}

// The 95% intervals of the principal mobilities cover the exact values in most of
// 20 independent data sets (a clearly anisotropic lattice: sorted eigenvalues of
// close pairs are biased upward).
TEST(Physics, PrincipalIntervalsCoverTheExactValues)
{
    Lattice l = orthorhombic();
    const Mat3 d = track_gen::diffusion_tensor(l.s);
    const double expected[3] = {exact(d, {1, 0, 0}), exact(d, {0, 1, 0}), exact(d, {0, 0, 1})};
    int covered = 0, total = 0;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        const ScratchDir dir;
        l.s.nsimu = 300, l.s.tsimu = 200, l.s.tsnap = 5, l.s.seed = seed;
        run(l.s, {"-tensor"});
        const auto t = rows("mob_tensor.dat");
        for (int k = 0; k < 3; ++k, ++total) covered += t[14 + k][2] <= expected[k] && expected[k] <= t[14 + k][3];
    }
    std::printf("95%% intervals of the principal mobilities: %d of %d cover the exact value\n", covered, total);
    EXPECT_GE(covered, 0.8 * total);
}
