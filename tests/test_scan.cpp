// The angle scans: the fast bootstrap against the literal procedure, and the data
// files of the plane and sphere scans.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>

#include "mob_utils.h"
#include "test_scan_oracle.h"
#include "test_support.h"

using namespace testsupport;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string row(const char* fmt, double a, double b, double c, double d = 0)
{
    char buf[128];
    std::snprintf(buf, sizeof buf, fmt, a, b, c, d);
    return buf;
}

bool same(double a, double b, double rel)
{
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::fabs(a - b) <= rel * std::max(std::fabs(a), std::fabs(b));
}

// Runs a scan and returns the status it ended with (1 when it ran to the end).
template <class F>
int scan_status(F scan)
{
    try {
        scan();
    } catch (const RunExit& e) {
        return e.status();
    }
    return 1;
}

class ScanFiles : public testing::Test {
protected:
    ScratchDir dir;
    Mobutils m;
    void SetUp() override { scanoracle::fill_random_walks(m, 12, 8, 5); }
};

}  // namespace

TEST(ScanBootstrap, GeneratorAndCanonicalMatchTheStandardOnes)
{
    for (const std::uint32_t seed : {0u, 5489u, 0xffffffffu}) {
        Mobutils::Mt19937Block fast(seed);
        std::mt19937 standard(seed);
        for (int i = 0, got = 0; i < 3000; i += 2 * got) {
            const std::uint32_t* p = fast.pairs(37, got);  // blocks of 624 split unevenly
            for (int k = 0; k < 2 * got; ++k)
                ASSERT_EQ(p[k], standard()) << "seed " << seed << ", output " << i + k;
        }
    }
    std::mt19937 a(2024), b(2024);
    for (int i = 0; i < 200000; ++i) {
        const std::uint32_t lo = a(), hi = a();
        ASSERT_EQ(Mobutils::canonical53(lo, hi), (std::generate_canonical<double, 53>(b)));
    }
    // A sum that rounds up to 2^64 stays below 1, as in the standard construction.
    EXPECT_EQ(Mobutils::canonical53(0xffffffffu, 0xffffffffu), std::nextafter(1.0, 0.0));
    EXPECT_EQ(Mobutils::canonical53(0, 0), 0.0);
}

// Same seeds, same thread partition: the fast bootstrap must reproduce the
// literal one on ordinary, not-a-number and degenerate data.
TEST(ScanBootstrap, FastProcedureMatchesLiteral)
{
    const int saved_threads = omp_get_max_threads();
    const Vec3 dirs[] = {{1, 0, 0},
                         {0.6, 0.8, 0},
                         {0, 0, 1},
                         {0.48, -0.6, 0.64},
                         {-6.982962677686267e-15, -0.0, -1.0}};
    struct Case {
        const char* what;
        int nsimu, ntime;
        void (*tweak)(Mobutils&);
    };
    const Case cases[] = {
        {"random walks", 40, 15, [](Mobutils&) {}},
        {"nan points", 40, 15,
         [](Mobutils& m) {
             m.track_z[3][5] = kNaN;
             m.track_x[7][0] = kNaN;
         }},
        {"one trajectory", 1, 15, [](Mobutils&) {}},
        {"identical", 30, 15,
         [](Mobutils& m) {
             for (Table* tab : {&m.track_x, &m.track_y, &m.track_z})
                 for (int j = 1; j < 30; ++j) std::copy_n((*tab)[0], 15, (*tab)[j]);
         }},
        {"no trajectories", 0, 15, [](Mobutils&) {}},
        {"two time points", 10, 2, [](Mobutils&) {}},
        {"one time value", 10, 6,
         [](Mobutils& m) {
             for (double& t : m.track_time) t = 4.0;
         }},
    };
    for (const Case& c : cases)
        for (int threads = 1; threads <= 3; ++threads) {
            Mobutils m;
            scanoracle::fill_random_walks(m, c.nsimu, c.ntime, 99);
            c.tweak(m);
            m.scan_seeds = {17, 4711, 90210};
            omp_set_num_threads(threads);
            m.prepare_scan_work();
            for (const Vec3& u : dirs) {
                double mob, err, lit_mob, lit_err;
                testing::internal::CaptureStderr();
                m.mob_treat_1pt(u, mob, err);
                const std::string messages = testing::internal::GetCapturedStderr();
                testing::internal::CaptureStderr();
                scanoracle::literal_treat(m, u, threads, lit_mob, lit_err);
                EXPECT_EQ(messages, testing::internal::GetCapturedStderr());
                SCOPED_TRACE(std::string(c.what) + ", threads " + std::to_string(threads));
                EXPECT_TRUE(same(mob, lit_mob, 1e-12)) << mob << " vs " << lit_mob;
                EXPECT_TRUE(same(err, lit_err, 1e-10)) << err << " vs " << lit_err;
            }
        }
    omp_set_num_threads(saved_threads);
}

TEST_F(ScanFiles, DefaultStepWritesFullFansAndGrid)
{
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    const std::vector<std::string> xz = read_lines("mob_plane_xz.dat");
    ASSERT_EQ(xz.size(), 37u);
    EXPECT_EQ(read_lines("mob_plane_yz.dat").size(), 37u);
    double max = 0;
    for (int i = 0; i <= 36; ++i) {
        const double a = i * 10.0 * kPi / 180.0;
        const double mob = scanoracle::literal_mob(m, {std::cos(a), 0.0, std::sin(a)});
        EXPECT_EQ(xz[i].substr(0, 19), row("%6.0f %12.4e", i * 10.0, mob, 0)) << i;
        max = std::max(max, mob);
    }
    EXPECT_EQ(xz[0].substr(7, 12), xz[36].substr(7, 12));  // 0 and 360 degrees
    EXPECT_EQ(read_lines("mob_plane_xz.gnu")[14],
              row("set xrange [-%g:%g]", 1.2 * max, 1.2 * max, 0));

    const std::vector<std::string> all = read_lines("mob_direction_all.dat");
    ASSERT_EQ(all.size(), 1u + 19 * 38);
    EXPECT_EQ(all[0], "#  phai  thet          mob        error [cm**2/Vs]");
    max = 0;
    for (int i = 0; i <= 18; ++i) {
        const double p = i * 10.0 * kPi / 180.0;
        for (int j = 0; j <= 36; ++j) {
            const double t = (i == 0 || i == 18 ? 0 : j) * 10.0 * kPi / 180.0;
            const Vec3 u{std::sin(p) * std::cos(t), std::sin(p) * std::sin(t), std::cos(p)};
            const double mob = scanoracle::literal_mob(m, u);
            max = std::max(max, mob);
            EXPECT_EQ(all[1 + i * 38 + j].substr(0, 26),
                      row("%6.0f %6.0f %12.4e", i * 10.0, j * 10.0, mob));
        }
        EXPECT_EQ(all[1 + i * 38 + 37], "");
    }
    // A pole row repeats one direction's mobility and error.
    EXPECT_EQ(all[1 + 18 * 38].substr(13), all[1 + 18 * 38 + 36].substr(13));
    EXPECT_EQ(read_lines("mob_direction_all.gnu")[17], row("set xrange [-%.2f:%.2f]", max, max, 0));
}

TEST_F(ScanFiles, DeltaFileStepsAndRounding)
{
    write_file("delta.inp", "2.5\n");
    m.set_angle_delta(7.0);
    m.mob_plane_xy_xz_yz();
    const std::vector<std::string> xy = read_lines("mob_plane_xy.dat");
    ASSERT_EQ(xy.size(), 145u);
    EXPECT_EQ(xy[1].substr(0, 6), "     2");  // 2.5 and 7.5 round half to even
    EXPECT_EQ(xy[3].substr(0, 6), "     8");

    write_file("delta.inp", "7");
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    EXPECT_EQ(m.angle_delta, 7.0);
    const std::vector<std::string> yz = read_lines("mob_plane_yz.dat"),
                                   all = read_lines("mob_direction_all.dat");
    ASSERT_EQ(yz.size(), 52u);
    EXPECT_EQ(yz[51].substr(0, 6), "   357");
    ASSERT_EQ(all.size(), 1u + 27 * 53);
    EXPECT_EQ(all[26 * 53 - 1].substr(0, 13), "   175    357");
    EXPECT_EQ(all[26 * 53], "");
    EXPECT_EQ(all[1 + 26 * 53].substr(0, 13), "   180      0");  // not 26 * 7 = 182

    write_file("delta.inp", "400");
    m.mob_direction_all();
    const std::vector<std::string> south = read_lines("mob_direction_all.dat");
    ASSERT_EQ(south.size(), 4u);
    EXPECT_EQ(south[1].substr(0, 13), "   180      0");
    EXPECT_EQ(south[2].substr(0, 13), "   180    400");
}

TEST_F(ScanFiles, NanStepWritesEmptyResults)
{
    write_file("delta.inp", "nan\n");
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    for (const char* f : {"mob_plane_xy.dat", "mob_plane_xz.dat", "mob_plane_yz.dat"})
        EXPECT_EQ(read_file(f), "") << f;
    EXPECT_EQ(read_file("mob_direction_all.dat"),
              "#  phai  thet          mob        error [cm**2/Vs]\n");
    EXPECT_EQ(read_lines("mob_plane_yz.gnu")[14], "set xrange [-0:0]");
    EXPECT_EQ(read_lines("mob_direction_all.py")[39], "ax.set_xlim(-0.00, 0.00)");
}

TEST_F(ScanFiles, TooSmallStepCancelsWithStatusZero)
{
    write_file("delta.inp", "0\n");
    m.set_flag_binfo(true);
    testing::internal::CaptureStdout();
    EXPECT_EQ(scan_status([&] { m.mob_plane_xy_xz_yz(); }), 0);
    EXPECT_EQ(scan_status([&] { m.mob_direction_all(); }), 0);
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Treating mob_plane_xy_xz_yz...\n  deltaa = 0\n"
        "\nERROR  transport : mob_utils : line 992 : \ndeltaa too small, mob_xy_xz_yz() canceled!\n"
        "Treating mob_direction_all...\n  deltaa = 0\n"
        "\nERROR  transport : mob_utils : line 700 : \ndeltaa too small, mb-direction-all "
        "canceled!\n");
    EXPECT_FALSE(std::filesystem::exists("mob_plane_xy.dat"));
    EXPECT_FALSE(std::filesystem::exists("mob_direction_all.dat"));
}

TEST_F(ScanFiles, NoTrajectoriesAndTooFewTimePoints)
{
    m.set_angle_delta(120.0);
    scanoracle::fill_random_walks(m, 0, 8, 5);
    m.mob_plane_xy_xz_yz();
    EXPECT_EQ(read_lines("mob_plane_xy.dat")[0],
              "     0         -nan  -1.0000e+08");  // 0/0 is -nan here
    EXPECT_EQ(read_lines("mob_plane_xy.gnu")[15], "set yrange [-0:0]");

    scanoracle::fill_random_walks(m, 12, 2, 5);
    testing::internal::CaptureStderr();
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();  // two pole rows and one row of 4 directions
    const std::string err = testing::internal::GetCapturedStderr();
    size_t count = 0;
    for (size_t p = 0;
         (p = err.find("Not enough data [2] (at least n > 2)!\n", p)) != std::string::npos; ++p)
        ++count;
    EXPECT_EQ(count, (12u + 6u) * 101u);
    EXPECT_EQ(read_lines("mob_plane_xz.dat")[3], "   360   0.0000e+00   0.0000e+00");
}

TEST_F(ScanFiles, UnwritableDataFileEndsTheRun)
{
    std::filesystem::create_directory("mob_plane_xz.dat");
    std::filesystem::create_directory("mob_direction_all.dat");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(scan_status([&] { m.mob_plane_xy_xz_yz(); }), -1);
    EXPECT_EQ(scan_status([&] { m.mob_direction_all(); }), -1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(out.find("line 1080 : \n") != out.npos && out.find("line 725 : \n") != out.npos)
        << out;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to open input file mob_plane_xz.dat\nFailed to open input file "
              "mob_direction_all.dat\n");
    EXPECT_EQ(read_lines("mob_plane_xy.dat").size(), 37u);  // the earlier plane stays written
}
