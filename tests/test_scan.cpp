// The bootstrap engine of the angle scans against the literal procedure fed the
// same draws, on ordinary and awkward trajectories.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>

#include "test_scan_oracle.h"

using namespace mob_engine;

TEST(ScanEngine, GeneratorAndCanonicalMatchTheStandardOnes)
{
    for (const std::uint32_t seed : {0u, 5489u, 2024u, 0xffffffffu}) {
        Mt19937Block fast(seed);
        std::mt19937 standard(seed), canonical(seed);
        for (int i = 0, got = 0; i < 100000; i += 2 * got) {
            const std::uint32_t* p = fast.pairs(37, got);  // blocks of 624 split unevenly
            for (int k = 0; k < 2 * got; k += 2) {
                ASSERT_EQ((std::pair<std::uint_fast32_t, std::uint_fast32_t>{p[k], p[k + 1]}), (std::pair{standard(), standard()})) << "seed " << seed << ", output " << i + k;
                ASSERT_EQ(canonical53(p[k], p[k + 1]), (std::generate_canonical<double, 53>(canonical)));
            }
        }
    }
    // A sum that rounds up to 2^64 stays below 1, as in the standard construction.
    EXPECT_EQ(canonical53(0xffffffffu, 0xffffffffu), std::nextafter(1.0, 0.0));
}

// Same seeds, same thread partition: the engine must reproduce the literal
// procedure, messages included. The awkward data: values that are not numbers or
// too large for the moment form, motion along one line (every direction across
// it has a mobility at rounding level) or in one plane, and degenerate sets.
TEST(ScanEngine, EveryDirectionAsTheLiteralProcedure)
{
    const int saved_threads = omp_get_max_threads();
    const std::vector<Vec3> dirs = {{1, 0, 0}, {0.6, 0.8, 0}, {0, 0, 1}, {0.48, -0.6, 0.64},
                                    {-std::sqrt(0.5), std::sqrt(0.5), 0}, {0, 0.6, -0.8},
                                    {-6.982962677686267e-15, -0.0, -1.0}};
    const std::vector<std::uint32_t> seeds = {17, 4711, 90210};
    const struct { std::string what; int nsimu, ntime; } cases[] = {{"random walks", 40, 15}, {"nan point", 40, 15}, {"infinite point", 40, 15},
                 {"huge point", 40, 15},   {"along a line", 30, 15}, {"in a plane", 30, 15},
                 {"one trajectory", 1, 15}, {"identical", 30, 15},  {"no trajectories", 0, 15}, {"shifted", 30, 15},
                 {"two time points", 10, 2}};
    for (const auto& c : cases)
        for (int threads = 1; threads <= 3; ++threads) {
            SCOPED_TRACE(c.what + ", threads " + std::to_string(threads));
            Mobutils m;
            scanoracle::fill_random_walks(m, c.nsimu, c.ntime, 99);
            for (int j = 0; j < m.nsimu; ++j)
                for (int t = 0; t < m.ntime; ++t) {
                    double &x = m.track_x[j][t], &y = m.track_y[j][t], &z = m.track_z[j][t];
                    if (c.what == "along a line") y = x, z = 0;  // the diagonal of the xy plane
                    if (c.what == "in a plane") z = 0;
                    if (c.what == "shifted") x += 7, z -= 3;  // positions that do not start at 0
                    if (c.what == "identical") x = m.track_x[0][t], y = m.track_y[0][t], z = m.track_z[0][t];
                }
            if (c.what == "nan point") m.track_z[3][5] = NAN;
            if (c.what == "infinite point") m.track_x[7][4] = INFINITY;
            if (c.what == "huge point") m.track_y[2][6] = 1e200;
            omp_set_num_threads(threads);
            std::vector<double> mob, err;
            testing::internal::CaptureStderr();
            scanoracle::engine(m, seeds).treat(dirs, mob, err);
            const std::string messages = testing::internal::GetCapturedStderr();
            std::string literal_messages;
            for (size_t d = 0; d < dirs.size(); ++d) {
                double lit[2];
                testing::internal::CaptureStderr();
                scanoracle::literal_treat(m, dirs[d], seeds, threads, static_cast<std::uint32_t>(d), lit[0], lit[1]);
                literal_messages += testing::internal::GetCapturedStderr();
                const double fast[2] = {mob[d], err[d]};
                for (const int k : {0, 1})  // mobility to 1e-12, error to 1e-10
                    EXPECT_TRUE(std::isnan(lit[k]) ? std::isnan(fast[k])
                                                   : std::fabs(fast[k] - lit[k]) <= (k ? 1e-10 : 1e-12) * std::fabs(lit[k]))
                        << "direction " << d << ": " << fast[k] << " vs " << lit[k];
                EXPECT_FALSE(mob[d] < 0) << "direction " << d;
            }
            EXPECT_EQ(messages, literal_messages);
        }
    omp_set_num_threads(saved_threads);
}
