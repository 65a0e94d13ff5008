// Track reading and the average and axis bootstrap against the straightforward versions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "mob_utils_engine.h"
#include "test_analysis_oracle.h"
#include "test_scan_oracle.h"
#include "test_support.h"
#include "track_gen.h"

using namespace testsupport;

// Every kind of line the parser must hand to sscanf, and the fgets split of a line
// longer than 255 characters, in files read in parallel.
TEST(TrackReader, SameTablesAsTheStraightforwardReader)
{
    const ScratchDir dir;
    const std::string odd[] = {
        "1 2 3 4 5 6\n", "  1.5e+00\t-2.25E-1 3. .5 7e2\n", "+1 2 3 4 5\n", "nan 1 3 4 5\n", "1 2 inf -INFINITY 5\n",
        "0x1p3 2 3 4 5\n", "1 2 x 4 5\n", "1 2 3\n", "1e 2 3 4 5\n", "1e+ 2 3 4 5\n", "1 2 3 4 5e\n", "\v1\f2\r3 4 5\n",
        "12345678901234567890123 18446744073709551621 3 4 5\n", "4e-320 1e400 -1e-400 0.1e-22 9007199254740993\n",
        "1 2 3 4 5" + std::string(300, ' ') + "9 8 7 6 5\n",       std::string("1 2\0 3 4 5\n", 11),
        "-0 -.0 1.e1 -1.E+01 00012.5e-0003\n", "\n",             "1,2 3 4 5\n", "1 2 3 4 5 6 7 8 9 10\n",
        "1 2 3 4 5\r\n"};
    std::string text = "# header\n";
    for (const std::string& l : odd) text += l;
    std::array<double, 5> v;
    for (int e = -16; e <= 28; ++e) {  // the mantissas' exponents e - 6 are all within the quick path's +-22
        const std::string row = "1.234567e" + std::to_string(e) + " -9.876543e" + std::to_string(e) + " 0 0 0\r\n";
        EXPECT_TRUE(parse_track_line(row.c_str(), v)) << row;
        text += row;
    }
    track_gen::Settings walk;
    walk.hops = {{{1, 0, 0}, 0.5}, {{0, 1, 0}, 0.3}, {{0, 0, 1}, 0.1}};
    walk.nsimu = 40, walk.tsimu = 1000, walk.tsnap = 1;  // files longer than the reader's 64 kB blocks
    track_gen::write_tracks(walk, ".");
    write_file("track/track_0001.dat", text);
    write_file("track/track_0002.dat", "#\n0 1 2 3 4\nbad\n");  // short: its last line repeats
    write_file("track/track_0003.dat", "");
    Mobutils fast, straight;
    for (Mobutils* m : {&fast, &straight}) m->nsimu = 40, m->ntime = 900, m->tsnap = 1;
    const Outcome read = capture([&] { fast.readin_track_data(); });
    EXPECT_EQ(read.err,
              "WARNING: track/track_0001.dat line 5 holds a value that is not a finite number; the mobilities "
              "computed from it are not numbers\n"
              "WARNING: 1 track file(s) hold no data lines, the first track/track_0003.dat; their carriers are "
              "taken as not moving\n"
              "WARNING: 2 track file(s) hold fewer data rows than ntime = 900, the first track/track_0001.dat with 67; "
              "their last row stands for the missing time points, so the mobility comes out too small. Likely cause: "
              "tsimu or tsnap in the input file is not that of the simulation\n"
              "WARNING: track/track_0001.dat line 2 holds time 1 where the time grid expects 0 x tsnap = 0; the "
              "analysis takes the times from the file, but tsnap in the input file is likely not that of the "
              "simulation\n");
    EXPECT_EQ(fast.warnings.size(), 4u);
    ASSERT_TRUE(analysisoracle::straight_read(straight));
    EXPECT_EQ(std::memcmp(fast.track_time.data(), straight.track_time.data(), 900 * sizeof(double)), 0);
    for (const auto table : {&Mobutils::track_x, &Mobutils::track_y, &Mobutils::track_z, &Mobutils::track_r2})
        for (int j = 0; j < 40; ++j) ASSERT_EQ(std::memcmp((fast.*table)[j], (straight.*table)[j], 900 * sizeof(double)), 0) << j;
}

// The mean of the drawn trajectories' slopes against the fit of the mean of
// their curves: the same draws, the same generator state afterwards.
TEST(SequentialBootstrap, SameAsFittingWholeResampleCurves)
{
    for (const int ntime : {15, 2})
        for (const char* data : {"walks", "nan", "inf", "equal times", "none", "close times"}) {
            SCOPED_TRACE(std::string(data) + ", ntime " + std::to_string(ntime));
            Mobutils m;
            scanoracle::fill_random_walks(m, std::strcmp(data, "none") == 0 ? 0 : 30, ntime, 5);
            if (std::strcmp(data, "nan") == 0) m.track_x[4][1] = NAN;
            if (std::strcmp(data, "inf") == 0 && ntime > 2) m.track_x[9][2] = INFINITY;
            if (std::strcmp(data, "equal times") == 0) std::fill(m.track_time.begin(), m.track_time.end(), 3.0);
            // Steps of 1.83e-10: the fit's determinant 4200 h^2 = 1.4e-16 is just above the degenerate limit 1.11e-16.
            if (std::strcmp(data, "close times") == 0) for (int t = 0; t < ntime; ++t) m.track_time[t] = t * 1.83e-10;
            const mob_engine::SlopeWeights weights(m.track_time.data(), m.ntime);
            std::vector<double> slopes;
            for (int j = 0; j < m.nsimu; ++j) slopes.push_back(weights.slope(m.track_x[j]));
            testing::internal::CaptureStderr();
            reset_random_state(321);
            const double fast = mob_engine::sequential_bootstrap(slopes, weights, m.track_time.data(), 100, 7.0, 1e8);
            const double next_fast = randUniform();
            reset_random_state(321);
            const double slow = analysisoracle::straight_bootstrap(m.track_x, m.nsimu, m.ntime, 100, m.track_time.data(), 7.0, 1e8);
            EXPECT_EQ(randUniform(), next_fast);
            std::string messages = testing::internal::GetCapturedStderr();
            EXPECT_EQ(messages.substr(0, messages.size() / 2), messages.substr(messages.size() / 2));
            EXPECT_NEAR(fast, slow, 1e-10 * std::fabs(slow));
        }
}

// The sphere's own bounds on its step, which a run never meets: the planes end it first.
TEST(SphereScan, OwnBoundsOnTheStep)
{
    const ScratchDir dir;
    Mobutils m;
    for (const double step : {9e-7, 0.2}) {  // 901 x 1801 directions at 0.2
        const Outcome o = capture([&] { m.set_angle_delta(step), m.mob_direction_all({}); });
        EXPECT_EQ(o.out.substr(o.out.find("mob_utils : line")) + std::to_string(o.status),
                  step < 0.1 ? "mob_utils : line 700 : \ndeltaa too small, mb-direction-all canceled!\n0"
                             : "mob_utils : line 703 : \ndeltaa = 0.2 would give 1622701 directions, more than the 1000000 a scan may compute; use a larger step\n1");
    }
}

// Twenty carriers that each move 3 A along x and 1 A up or down y by the last
// time point drift: the mean (3, 0, 0) A lies sqrt(9 x 20 / 1) = 13.4 standard
// errors out and is 3 times the spread. Back and forth along x they do not; and
// nineteen are too few to tell.
TEST(TrackChecks, ADriftIsWarnedAboutOnce)
{
    const auto warnings = [](int n, double back_and_forth) {
        Mobutils m;
        m.nsimu = n, m.ntime = 3, m.track_time = {0, 1, 2};
        for (Table* t : {&m.track_x, &m.track_y, &m.track_z}) t->resize(n, 3);
        for (int j = 0; j < n; ++j) {
            m.track_x[j][2] = j % 2 ? 3 : 3 * back_and_forth;
            m.track_y[j][2] = j % 2 ? 1 : -1;
        }
        capture([&] { m.check_drift(); });
        return m.warnings;
    };
    EXPECT_EQ(warnings(20, 1), std::vector<std::string>{
        "the carriers drift: their mean displacement at t = 2, (3, 0, 0) A, lies 13.4 standard errors from zero and is 3 "
        "times the spread of the displacements; the mean-square displacement counts the drift as motion, so the "
        "mobilities come out too large (under a field, kelta_kmc writes the drift mobility to kmc_drift.dat)\n"});
    EXPECT_TRUE(warnings(20, -1).empty());
    EXPECT_TRUE(warnings(19, 1).empty());
}
