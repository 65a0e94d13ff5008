// The angle scans: the fast bootstrap against the literal procedure, and the data
// files of the plane and sphere scans.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>

#include "mob_utils.h"
#include "test_scan_oracle.h"
#include "test_support.h"

using namespace testsupport;

namespace {

std::string row(const char* fmt, double a, double b, double c = 0)
{
    char buf[128];
    std::snprintf(buf, sizeof buf, fmt, a, b, c);
    return buf;
}

}  // namespace

TEST(ScanBootstrap, GeneratorAndCanonicalMatchTheStandardOnes)
{
    for (const std::uint32_t seed : {0u, 5489u, 2024u, 0xffffffffu}) {
        Mobutils::Mt19937Block fast(seed);
        std::mt19937 standard(seed), canonical(seed);
        for (int i = 0, got = 0; i < 100000; i += 2 * got) {
            const std::uint32_t* p = fast.pairs(37, got);  // blocks of 624 split unevenly
            for (int k = 0; k < 2 * got; k += 2) {
                ASSERT_EQ(p[k], standard()) << "seed " << seed << ", output " << i + k;
                ASSERT_EQ(p[k + 1], standard()) << "seed " << seed << ", output " << i + k + 1;
                ASSERT_EQ(Mobutils::canonical53(p[k], p[k + 1]),
                          (std::generate_canonical<double, 53>(canonical)));
            }
        }
    }
    // A sum that rounds up to 2^64 stays below 1, as in the standard construction.
    EXPECT_EQ(Mobutils::canonical53(0xffffffffu, 0xffffffffu), std::nextafter(1.0, 0.0));
}

// Same seeds, same thread partition: the fast bootstrap must reproduce the literal
// one, messages included, on ordinary, not-a-number and degenerate data.
TEST(ScanBootstrap, FastProcedureMatchesLiteral)
{
    const int saved_threads = omp_get_max_threads();
    const Vec3 dirs[] = {{1, 0, 0}, {0.6, 0.8, 0}, {0, 0, 1}, {0.48, -0.6, 0.64},
                         {-6.982962677686267e-15, -0.0, -1.0}};
    const struct {
        std::string what;
        int nsimu, ntime;
    } cases[] = {{"random walks", 40, 15}, {"nan points", 40, 15},     {"one trajectory", 1, 15},
                 {"identical", 30, 15},    {"no trajectories", 0, 15}, {"two time points", 10, 2}};
    for (const auto& c : cases)
        for (int threads = 1; threads <= 3; ++threads) {
            SCOPED_TRACE(c.what + ", threads " + std::to_string(threads));
            Mobutils m;
            scanoracle::fill_random_walks(m, c.nsimu, c.ntime, 99);
            if (c.what == "nan points") m.track_z[3][5] = m.track_x[7][0] = NAN;
            for (int j = 1; j < m.nsimu && c.what == "identical"; ++j)
                for (Table* tab : {&m.track_x, &m.track_y, &m.track_z})
                    std::copy_n((*tab)[0], m.ntime, (*tab)[j]);
            RandomSeeds seeds;
            seeds.scan = {17, 4711, 90210};
            omp_set_num_threads(threads);
            m.prepare_scan_work(seeds);
            for (const Vec3& u : dirs) {
                double fast[2], lit[2];
                testing::internal::CaptureStderr();
                m.mob_treat_1pt(u, fast[0], fast[1]);
                const std::string messages = testing::internal::GetCapturedStderr();
                testing::internal::CaptureStderr();
                scanoracle::literal_treat(m, u, seeds.scan, threads, lit[0], lit[1]);
                EXPECT_EQ(messages, testing::internal::GetCapturedStderr());
                for (const int k : {0, 1})  // mobility to 1e-12, error to 1e-10
                    EXPECT_TRUE(std::isnan(lit[k]) ? std::isnan(fast[k])
                                                   : std::fabs(fast[k] - lit[k]) <=
                                                         (k ? 1e-10 : 1e-12) * std::fabs(lit[k]))
                        << fast[k] << " vs " << lit[k];
            }
        }
    omp_set_num_threads(saved_threads);
}

TEST(ScanFiles, DefaultStepWritesFullFansAndGrid)
{
    ScratchDir dir;
    Mobutils m;
    scanoracle::fill_random_walks(m, 12, 8, 5);
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    const std::vector<std::string> xy = read_lines("mob_plane_xy.dat"),
                                   all = read_lines("mob_direction_all.dat");
    ASSERT_EQ(xy.size(), 37u);
    ASSERT_EQ(all.size(), 1u + 19 * 38);
    EXPECT_EQ(all[0], "#  phai  thet          mob        error [cm**2/Vs]");
    double max = 0, xy_max = 0;
    for (int i = 0; i <= 18; ++i) {
        const double p = i * 10.0 * kPi / 180.0;
        for (int j = 0; j <= 36; ++j) {
            const double t = (i == 0 || i == 18 ? 0 : j) * 10.0 * kPi / 180.0;
            const Vec3 u{std::sin(p) * std::cos(t), std::sin(p) * std::sin(t), std::cos(p)};
            const double mob = scanoracle::literal_mob(m, u);
            const std::string& line = all[1 + i * 38 + j];
            EXPECT_EQ(line.substr(0, 26), row("%6.0f %6.0f %12.4e", i * 10.0, j * 10.0, mob));
            max = std::max(max, mob);
            if (i != 9) continue;  // the equator is the xy plane
            EXPECT_EQ(xy[j].substr(0, 19), line.substr(7, 19));
            xy_max = std::max(xy_max, mob);
        }
        EXPECT_EQ(all[1 + i * 38 + 37], "");
    }
    // A pole row repeats one direction's mobility and error.
    EXPECT_EQ(all[1 + 18 * 38].substr(13), all[1 + 18 * 38 + 36].substr(13));
    EXPECT_EQ(read_lines("mob_plane_xy.gnu")[14],
              row("set xrange [-%g:%g]", 1.2 * xy_max, 1.2 * xy_max));
    EXPECT_EQ(read_lines("mob_direction_all.gnu")[17], row("set xrange [-%.2f:%.2f]", max, max));
}

TEST(ScanFiles, StepFromDeltaFile)
{
    ScratchDir dir;
    Mobutils m;
    scanoracle::fill_random_walks(m, 12, 8, 5);
    m.set_angle_delta(10.0);
    write_file("delta.inp", "7");  // overrides the step set
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    const std::vector<std::string> yz = read_lines("mob_plane_yz.dat"),
                                   all = read_lines("mob_direction_all.dat");
    ASSERT_EQ(yz.size(), 52u);
    EXPECT_EQ(yz[51].substr(0, 6), "   357");
    ASSERT_EQ(all.size(), 1u + 27 * 53);
    EXPECT_EQ(all[26 * 53 - 1].substr(0, 13), "   175    357");
    EXPECT_EQ(all[26 * 53], "");
    EXPECT_EQ(all[1 + 26 * 53].substr(0, 13), "   180      0");  // not 26 * 7 = 182

    write_file("delta.inp", "nan\n");  // no angles, empty results, ranges of 0
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    for (const char* f : {"mob_plane_xy.dat", "mob_plane_xz.dat", "mob_plane_yz.dat"})
        EXPECT_EQ(read_file(f), "") << f;
    EXPECT_EQ(read_file("mob_direction_all.dat"), all[0] + "\n");
    EXPECT_EQ(read_lines("mob_plane_yz.gnu")[14], "set xrange [-0:0]");

    write_file("delta.inp", "0\n");  // cancels the scan, writing nothing, with status 0
    for (const char* f : {"mob_plane_xy.dat", "mob_direction_all.dat"}) std::filesystem::remove(f);
    m.set_flag_binfo(true);
    testing::internal::CaptureStdout();
    for (auto scan : {&Mobutils::mob_plane_xy_xz_yz, &Mobutils::mob_direction_all}) {
        try {
            (m.*scan)(RandomSeeds{});
            ADD_FAILURE() << "the scan ran to the end";
        } catch (const RunExit& e) {
            EXPECT_EQ(e.status(), 0);
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Treating mob_plane_xy_xz_yz...\n  deltaa = 0\n\nERROR  transport : mob_utils : line "
              "992 : \ndeltaa too small, mob_xy_xz_yz() canceled!\nTreating mob_direction_all...\n"
              "  deltaa = 0\n\nERROR  transport : mob_utils : line 700 : \ndeltaa too small, "
              "mb-direction-all canceled!\n");
    EXPECT_FALSE(std::filesystem::exists("mob_plane_xy.dat") ||
                 std::filesystem::exists("mob_direction_all.dat"));
}
