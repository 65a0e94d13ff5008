// The hopping simulation's parts against independent numbers: rates against the
// worked values of the physics notes, alias tables against their weights, the
// exact network answer against closed forms, and the tracks against themselves
// over threads and slices. (The pair classes of the demo crystal are recorded
// in the case kmc_pairs: every hop with its class, its reverse in the same one.)
#include <gtest/gtest.h>


#include "test_support.h"
#include "test_kmc_oracle.h"
#include "hopping_checks.h"
#include "hopping_walk.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

network::Hop hop(int from, int to, const Vec3& r, double rate)
{
    network::Hop h;
    h.from = from;
    h.to = to;
    h.r = r;
    h.rate = rate;
    return h;
}

// Every hop and its reverse at the same rate.
void both_ways(std::vector<network::Hop>& hops, int from, int to, const Vec3& r, double rate)
{
    hops.push_back(hop(from, to, r, rate));
    hops.push_back(hop(to, from, {-r[0], -r[1], -r[2]}, rate));
}

}  // namespace

// Reference values: the worked numbers of the hopping-physics notes, computed
// there independently of this code (V = 40 meV, lambda = 180 meV, T = 300 K).
TEST(KmcRates, MarcusAndOneModeAgainstWorkedNumbers)
{
    EXPECT_NEAR(network::marcus_rate(0.040, 0.180, 0.0, 300) / 1.107845e13, 1.0, 1e-6);
    EXPECT_NEAR(network::marcus_rate(0.040, 0.180, -0.050, 300) / 2.547592e13, 1.0, 1e-6);
    EXPECT_NEAR(network::marcus_rate(0.015, 0.180, 0.0, 300) / 1.557908e12, 1.0, 1e-6);
    EXPECT_NEAR(network::mlj_rate(0.040, 0.050, 0.0, 300, 0.180, 1.0) / 2.718549e13, 1.0, 1e-6);
    // Without the mode (S = 0) the sum is its first term: the Marcus rate.
    EXPECT_DOUBLE_EQ(network::mlj_rate(0.040, 0.180, -0.02, 300, 0.180, 0.0), network::marcus_rate(0.040, 0.180, -0.02, 300));
    // A large Huang-Rhys factor neither overflows nor stops early: the weights
    // e^-S S^n / n! sum to 1, so a flat Gaussian (huge lambda T) gives the prefactor.
    const double flat = network::mlj_rate(0.040, 1e3, -1e3, 1e9, 1e-9, 700.0);
    EXPECT_NEAR(flat / network::marcus_rate(0.040, 1e3, -1e3, 1e9), 1.0, 1e-9);
    // Marcus rates keep detailed balance: forward and backward differ by exp(-dG / kT).
    // (The frozen mode of the one-mode rates only gives energy away, so they do not.)
    const double kt = units::kBoltzmann * 300;
    EXPECT_NEAR(network::marcus_rate(0.03, 0.1, -0.03, 300) / network::marcus_rate(0.03, 0.1, 0.03, 300),
                std::exp(0.03 / kt), 1e-12 * std::exp(0.03 / kt));
}

TEST(KmcAlias, TablesGiveTheirWeights)
{
    for (const std::vector<double>& w : std::vector<std::vector<double>>{
             {1.0}, {1, 1, 1}, {3, 1}, {0, 2, 0, 5, 1e-9, 7.25}, {1e4, 1.5e3, 1.5e3, 12, 12, 0.3, 0.3}}) {
        const kmc::AliasTable t(w);
        const std::vector<double> p = t.probabilities();
        double sum = 0;
        for (const double x : w) sum += x;
        for (size_t k = 0; k < w.size(); ++k) EXPECT_NEAR(p[k], w[k] / sum, 1e-15) << k;
        // A weight of 0 is never picked, whatever the draw.
        for (double u = 0; u < 1; u += 1.0 / 4096)
            EXPECT_GT(w[static_cast<size_t>(t.pick(u))], 0.0) << u;
        EXPECT_LT(t.pick(std::nextafter(1.0, 0.0)), static_cast<int>(w.size()));
    }
}

// Closed forms of the physics notes beyond those the validation tests meet (one
// molecule per cell, the chain): a layer without hops across it, and a biased
// walk with its stationary occupation and drift.
TEST(KmcExact, ClosedFormsOfTheCellProblem)
{
    // A layer: molecules at z = 0 and 0.4 A, hops within the layer and between the
    // two molecules of a cell, none along c: D_zz = 0, the naive formula not.
    std::vector<network::Hop> layer;
    both_ways(layer, 0, 0, {6, 0, 0}, 1.0);
    both_ways(layer, 1, 1, {6, 0, 0}, 1.0);
    both_ways(layer, 0, 1, {3, 0, 0.4}, 2.0);
    both_ways(layer, 0, 1, {-3, 0, 0.4}, 2.0);
    const network::Exact e3 = network::solve_exact(2, layer);
    EXPECT_NEAR(e3.D[2][2], 0.0, 1e-12);
    EXPECT_GT(network::naive_diffusion(e3.pi, layer)[2][2], 0.1);

    // A biased walk with site energies: pi follows the rates, and the drift is
    // sum pi k r. Molecule 0 goes to 1 at 3 and back at 1 (per time unit), 1 goes
    // on to the next cell's 0 at 2 and back at 1.
    std::vector<network::Hop> biased = {hop(0, 1, {1, 0, 0}, 3), hop(1, 0, {-1, 0, 0}, 1), hop(1, 0, {2, 0, 0}, 2),
                                        hop(0, 1, {-2, 0, 0}, 1)};
    const network::Exact e4 = network::solve_exact(2, biased);
    // Flux balance: pi0 (3 + 1) = pi1 (1 + 2), so pi = (3/7, 4/7).
    EXPECT_NEAR(e4.pi[0], 3.0 / 7, 1e-14);
    EXPECT_NEAR(e4.drift[0], 3.0 / 7 * (3 * 1 - 1 * 2) + 4.0 / 7 * (-1 * 1 + 2 * 2), 1e-13);
}

// The cost of a run on a chain whose molecules alternate: A hops either way at
// kA, B at kB, every hop l = 2 A long. Every hop is an independent +-l, so the
// hop count grows at the mean escape rate K = pi_A 2 kA + pi_B 2 kB
// = 4 kA kB / (kA + kB) with pi_A = kB / (kA + kB), and MSD = l^2 K t: a hundred
// squared hop lengths after 100 / K.
TEST(KmcEstimate, HopsTimeAndSuggestionOnAChainWithAKnownAnswer)
{
    const double kA = 1e12, kB = 3e12;  // per second
    const std::vector<network::Hop> chain = {hop(0, 1, {2, 0, 0}, kA), hop(0, 1, {-2, 0, 0}, kA),
                                             hop(1, 0, {2, 0, 0}, kB), hop(1, 0, {-2, 0, 0}, kB)};
    const network::Exact e = network::solve_exact(2, chain);
    // 10 trajectories of 1000 ps with 201 rows on 2 threads.
    const kmc::Estimate x = kmc::estimate_run(chain, e, 1e-12, 1000, 10, 201, 2);
    const double K = 4 * kA * kB / (kA + kB);  // 3e12 per second
    EXPECT_NEAR(x.escape_rate / K, 1, 1e-12);
    EXPECT_NEAR(x.hops_per_trajectory, 3000, 1e-8);
    EXPECT_NEAR(x.seconds, (30000 * kmc::kSecondsPerHop + 2010 * kmc::kSecondsPerRow) / 2, 1e-15);
    EXPECT_NEAR(x.msd_time, 100 / K / 1e-12, 1e-9);  // 33.3 ps
    EXPECT_EQ(x.tsimu, 50);
    EXPECT_EQ(x.tsnap, 0.25);
    // One trajectory cannot share two threads.
    EXPECT_EQ(kmc::estimate_run(chain, e, 1e-12, 1000, 1, 201, 2).threads, 1);

    // Left in ns, 1e7 trajectories take 3e13 hops: refused with the suggestion, unless forced.
    const kmc::Estimate days = kmc::estimate_run(chain, e, 1e-9, 1000, 10000000, 201, 2);
    EXPECT_NO_THROW(kmc::refuse_long_run(days, "ns", 1000, false, true));
    const Outcome r = capture([&] { kmc::refuse_long_run(days, "ns", 1000, false, false); });
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("about 34.7 days (3e+13 hops: 10000000 trajectories of 3e+06 hops"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("suggests tsimu = 0.05 ns and tsnap = 0.00025 ns. Is tsimu in ns"), std::string::npos) << r.out;
    // Each unit from its first whole one.
    EXPECT_EQ(kmc::duration_text(59), "59 s");
    EXPECT_EQ(kmc::duration_text(60), "1 min");
    EXPECT_EQ(kmc::duration_text(3600), "1 h");
    EXPECT_EQ(kmc::duration_text(86400), "1 days");
}

// The same seed writes the same bytes on one thread and on two, and a slice
// writes exactly the files of the full run it covers.
TEST(KmcTracks, SameSeedSameBytesOverThreadsAndSlices)
{
    const auto tracks = [](const std::vector<std::string>& args, int threads) {
        const ScratchDir dir;
        lay_kmc_run(dir.path());
        const Outcome o = run_kmc(args, threads);
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        return track_files(dir.path());
    };
    const auto one = tracks({"-timeunit", "PS"}, 1), two = tracks({"-timeunit", "PS"}, 2);
    ASSERT_EQ(one.size(), 12u);
    EXPECT_EQ(one, two);
    const auto slice = tracks({"-timeunit", "PS", "-first", "5", "-count", "4"}, 2);
    ASSERT_EQ(slice.size(), 4u);
    for (const auto& [name, text] : slice) EXPECT_EQ(text, one.at(name)) << name;
    EXPECT_TRUE(slice.count("track_0005.dat") && slice.count("track_0008.dat"));
}

// The fast walk (alias tables, kept totals) against the straightforward one
// (rates summed, hop searched linearly, position summed hop by hop) on the
// chain of the notes: the same laws, so the same mean hop count (exactly
// (k1 + k2) t in expectation) and the same mean squared displacement, within
// their statistical errors.
TEST(KmcWalk, FastAndStraightforwardWalksAgree)
{
    const Mat3 latt = {{{4, 0, 0}, {0, 20, 0}, {0, 0, 20}}};
    const double k1 = 11.07845, k2 = 1.557908;  // per ps
    std::vector<network::Hop> chain = {hop(0, 1, {1.2, 0, 0}, k1), hop(1, 0, {-1.2, 0, 0}, k1),
                                       hop(1, 0, {2.8, 0, 0}, k2), hop(0, 1, {-2.8, 0, 0}, k2)};
    chain[2].cell = {1, 0, 0};
    chain[3].cell = {-1, 0, 0};
    const std::vector<double> pi = {0.5, 0.5};
    const kmc::Walk fast(latt, {{0, 0, 0}, {1.2, 0, 0}}, chain, pi, 1.0);  // rates per time unit
    const kmcoracle::StraightWalk straight(2, chain, pi, 1.0);
    constexpr int kRuns = 4000;
    constexpr long kRows = 11;
    constexpr double kSnap = 2.0;  // 20 ps
    const auto stats = [&](const auto& walk) {
        std::array<double, 4> s{};  // sum of hops, of hops^2, of x^2, of x^4 at the end
        for (int j = 0; j < kRuns; ++j) {
            kmc::Random rng(99, static_cast<std::uint64_t>(j));
            double x2 = 0;
            const double n = static_cast<double>(walk.run(rng, kRows, kSnap, [&](long, const Vec3& x, long long) { x2 = x[0] * x[0]; }));
            s = {s[0] + n, s[1] + n * n, s[2] + x2, s[3] + x2 * x2};
        }
        return s;
    };
    const std::array<double, 4> a = stats(fast), b = stats(straight);
    const auto mean_se = [](double sum, double sum2) {
        const double m = sum / kRuns;
        return std::pair{m, std::sqrt((sum2 / kRuns - m * m) / (kRuns - 1))};
    };
    const auto [hops_a, se_a] = mean_se(a[0], a[1]);
    const auto [hops_b, se_b] = mean_se(b[0], b[1]);
    const double expected = (k1 + k2) * 20.0;
    EXPECT_LT(std::fabs(hops_a - expected), 4 * se_a) << hops_a << " " << expected;
    EXPECT_LT(std::fabs(hops_b - expected), 4 * se_b) << hops_b << " " << expected;
    const auto [msd_a, msd_se_a] = mean_se(a[2], a[3]);
    const auto [msd_b, msd_se_b] = mean_se(b[2], b[3]);
    EXPECT_LT(std::fabs(msd_a - msd_b), 4 * std::hypot(msd_se_a, msd_se_b)) << msd_a << " " << msd_b;
    // 2 D t with the chain's D = a^2 k1 k2 / (2 (k1 + k2)), up to the offset within the cell.
    EXPECT_NEAR(msd_a / (2 * 16 * k1 * k2 / (2 * (k1 + k2)) * 20.0), 1.0, 0.1);
}

// The room check counts whole blocks per file. A file of 41 rows fits one block
// of 4096 bytes (82 + 41 x 96 bytes at most), one of 42 rows needs two: on a
// disk of 16 free blocks 16 and 8 such files fit, 17 and 9 do not.
TEST(KmcTracks, TheRoomCheckCountsWholeBlocks)
{
    const ScratchDir dir;
    const SmallDisk disk(dir.path() / "disk", "64k");
    if (!disk.mounted()) GTEST_SKIP() << "cannot mount a tmpfs here (root only)";
    const std::string at = (dir.path() / "disk").string();
    const auto refused = [&](long files, long rows, double other = 0) {
        return capture([&] { tracks::check_room(at, files, rows, other); }).status == 1;
    };
    EXPECT_FALSE(refused(16, 41));
    EXPECT_TRUE(refused(17, 41));
    EXPECT_FALSE(refused(8, 42));
    EXPECT_TRUE(refused(9, 42));
    EXPECT_FALSE(refused(1, 41, 15 * 4096.0));  // the side files count too
    EXPECT_TRUE(refused(1, 41, 15 * 4096.0 + 1));
}
