// Track reading and the average and axis mobilities, on small data sets whose
// answers are worked out by hand or by an independent formula.
#include <gtest/gtest.h>

#include <cmath>

#include "mob_utils.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// 1e-16 / (2 kB/e * T * unit * d): the Einstein-relation factor written out.
double einstein_factor(double temp, double unit, double d) { return 1e-16 / (0.0001724 * temp * unit * d); }

std::string mob_line(const char* label, double mob, double dev)
{
    char buf[128];
    std::snprintf(buf, sizeof buf, "%s / dev [cm**2/Vs]: %14.6e  %14.6e\n", label, mob, dev);
    return buf;
}

// An analysis object as main leaves it before the analyses, without structure files.
struct Analysis : Mobutils {
    Analysis(int nsimu_, int ntime_)
    {
        set_varables_default();
        nsimu = nsimu_;
        tsnap = 1.0;
        tsimu = ntime_;
        ntime = ntime_;
        output_level = 0;
        latt = Mat3{{{10, 0, 0}, {0, 12, 0}, {0, 0, 15}}};
        write_file("charge.inp", "h\n");
    }
    void load() { readin_track_data(); }
    // Reads the tracks and runs the chosen analyses; returns what they printed.
    std::string run(bool average, bool axes)
    {
        testing::internal::CaptureStdout();
        load();
        if (average) mob_average();
        if (axes) mob_direction_a_b_c();
        return testing::internal::GetCapturedStdout();
    }
};

double captured_mob(const std::string& file)
{
    const std::string text = read_file(file);
    return std::atof(text.substr(text.find(':') + 1).c_str());
}

class MobAnalysis : public testing::Test {
protected:
    ScratchDir dir;
};

}  // namespace

TEST_F(MobAnalysis, TrackFilesAreReadAsTheHoppingCodeWritesThem)
{
    write_file("track/track_0001.dat", "# header\n0 0 0 0 0 0\n1 1 2 3 14 5 99\n2 2 0 0 4 9\n9 9 9 9 9 9\n");
    // Short file: the last row repeats; an unparsable row repeats the previous one.
    write_file("track/track_0002.dat", "# header\n0.5 1 1 1 3\nbad row\n");
    Analysis a(3, 3);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_THROW(a.load(), RunExit);  // there is no third file
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Reading track data...\n\nERROR  transport : mob_utils : line 175 : \n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to open input file track/track_0003.dat\n");
    EXPECT_EQ(std::vector<double>(a.track_time.begin(), a.track_time.begin() + 3), (std::vector<double>{0, 1, 2}));
    EXPECT_EQ(a.track_x[0][1], 1);
    EXPECT_EQ(a.track_r2[0][2], 4);
    for (int t = 0; t < 3; ++t) EXPECT_EQ(a.track_x[1][t] + a.track_r2[1][t], 4);
    // ntime is tsimu / tsnap rounded; a ratio that is no count ends the run.
    a.input_read = true;
    a.tsimu = 10;
    a.tsnap = 4;
    testing::internal::CaptureStdout();
    a.init();
    EXPECT_EQ(a.ntime, 3);
    a.tsnap = 0;
    EXPECT_THROW(a.init(), RunExit);
    testing::internal::GetCapturedStdout();
}

TEST_F(MobAnalysis, AverageMobilityOfAHandCheckedCurve)
{
    // r2 of two trajectories: 0 2 4 and 0 4 8, so the mean curve 0 3 6 has slope 3.
    write_file("track/track_0001.dat", "#\n0 1 1 0 0\n1 1 1 0 2\n2 2 0 0 4\n");
    write_file("track/track_0002.dat", "#\n0 0 0 0 0\n1 2 0 0 4\n2 2 2 0 8\n");
    Analysis a(2, 3);
    a.output_level = 4;
    EXPECT_EQ(a.run(true, false), "Reading track data...\nTreating mob_average...\n");
    EXPECT_NEAR(captured_mob("mob.dat"), 3 * einstein_factor(300, 1e-9, 3), 1e-12);
    EXPECT_EQ(read_file("aver_track.dat"),
              "  0.000000e+00   0.000000e+00\n  1.000000e+00   3.000000e+00\n  2.000000e+00   6.000000e+00\n");
}

TEST_F(MobAnalysis, IdenticalTrajectoriesHaveNoSpreadAndTempInpRescales)
{
    std::mt19937 gen(3);
    const Trajectory t = random_walk(gen, 30);
    for (int j = 1; j <= 5; ++j) write_track(dir.path(), j, t, 2.0);
    write_file("temp.inp", "600\n");
    Analysis a(5, 30);
    a.flag_binfo = true;
    a.set_track_timeunit(1e-12);
    const std::string out = a.run(true, true);
    EXPECT_NE(out.find("  temp  = 600\n"), std::string::npos);
    EXPECT_NE(out.find("  temp = 600\n"), std::string::npos);
    double x[30], r2[30], time[30], a0, slope, s;
    for (int i = 0; i < 30; ++i) {
        time[i] = 2.0 * i;
        r2[i] = t[i].x * t[i].x + t[i].y * t[i].y + t[i].z * t[i].z;
        x[i] = t[i].x * t[i].x;
    }
    LinearRegression(time, r2, 30, &a0, &slope, &s);
    char expect[64];
    std::snprintf(expect, sizeof expect, "%14.6e", slope * einstein_factor(600, 1e-12, 3));
    EXPECT_EQ(read_file("mob.dat"), mob_line("mob_ave", std::atof(expect), 0.0));
    LinearRegression(time, x, 30, &a0, &slope, &s);
    EXPECT_NEAR(captured_mob("mob_a.dat") / (slope * einstein_factor(600, 1e-12, 1)), 1.0, 1e-6);
    EXPECT_EQ(read_file("mob_a.dat").substr(read_file("mob_a.dat").size() - 15), "  0.000000e+00\n");
}

TEST_F(MobAnalysis, AxisMobilitiesOfAnOrthogonalCellAddUpToTheAverage)
{
    write_random_tracks(dir.path(), 40, 25, 1.0);
    Analysis a(40, 25);
    a.run(true, true);
    const double sum = captured_mob("mob_a.dat") + captured_mob("mob_b.dat") + captured_mob("mob_c.dat");
    EXPECT_NEAR(sum / 3 / captured_mob("mob.dat"), 1.0, 1e-5);
    // Motion along x only: nothing along b and c.
    write_file("track/track_0001.dat", "#\n0 0 0 0 0\n1 3 0 0 9\n2 5 0 0 25\n3 8 0 0 64\n");
    write_file("track/track_0002.dat", "#\n0 0 0 0 0\n1 -2 0 0 4\n2 -6 0 0 36\n3 -7 0 0 49\n");
    Analysis x(2, 4);
    x.output_level = 4;
    x.run(false, true);
    EXPECT_GT(captured_mob("mob_a.dat"), 0.0);
    EXPECT_EQ(read_file("mob_b.dat"), mob_line("mob_b", 0.0, 0.0));
    EXPECT_EQ(read_file("mob_c.dat"), mob_line("mob_c", 0.0, 0.0));
    EXPECT_EQ(read_lines("aver_track_c.dat").size(), 4u);
}

TEST_F(MobAnalysis, DegenerateDataGiveZeroFits)
{
    // Two time points: every fit fails with one message each, zeros written.
    write_random_tracks(dir.path(), 3, 2, 1.0);
    Analysis a(3, 2);
    testing::internal::CaptureStderr();
    a.run(true, false);
    std::string expected;
    for (int i = 0; i < 101; ++i) expected += "Not enough data [2] (at least n > 2)!\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
    EXPECT_EQ(read_file("mob.dat"), mob_line("mob_ave", 0.0, 0.0));
    // No trajectories: the mean curves are 0/0, but the time grid is never read,
    // so every fit is degenerate (all times equal) and gives slope 0.
    Analysis none(0, 5);
    none.output_level = 4;
    none.run(true, true);
    EXPECT_NE(read_file("aver_track.dat").find("nan"), std::string::npos);
    EXPECT_EQ(read_file("mob.dat"), mob_line("mob_ave", 0.0, 0.0));
    EXPECT_EQ(read_file("mob_b.dat"), mob_line("mob_b", 0.0, 0.0));
}
