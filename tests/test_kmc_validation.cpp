// The whole chain "structure + couplings -> kelta_kmc -> track files ->
// kelta_mob -tensor" against the exact answer of the network: a lattice with
// one molecule per cell, a chain whose corrector is not zero, the demo crystal,
// and the Einstein relation under a weak field. Every run is seeded, so each
// check is deterministic; the deviations are printed in standard errors.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "test_support.h"
#include "hopping_network.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// The words of the first line of `file` that begins with `key`, after the key.
std::vector<double> numbers_after(const std::string& file, const std::string& key, int occurrence = 1)
{
    for (const std::string& line : read_lines(file)) {
        if (line.rfind(key + " ", 0) != 0 || --occurrence > 0) continue;
        std::istringstream in(line.substr(key.size()));
        std::vector<double> v;
        for (double x; in >> x;) v.push_back(x);
        return v;
    }
    ADD_FAILURE() << "no line " << key << " in " << file;
    return {};
}

// Diffusion (Angstrom^2 per time unit of `seconds`) to mobility (cm^2/(V s)) at
// 300 K: e D / (kB T), with e / kB = 1 / 0.0001724 K/V as kelta_mob takes it.
double mobility_at_300K(double seconds) { return 2e-16 / (0.0001724 * 300 * seconds); }

struct Measured {
    double value, se;
};

// kelta_kmc, then kelta_mob -tensor, in the current directory.
void simulate_and_analyse(const std::vector<std::string>& timeunit)
{
    std::vector<std::string> args = timeunit;
    const Outcome kmc = run_kmc(args);
    ASSERT_EQ(kmc.status, 0) << kmc.out << kmc.err;
    // Standard error holds the estimate alone: a run of seconds draws no progress
    // bar where standard error is no terminal.
    EXPECT_EQ(kmc.err.rfind("  estimate: ", 0), 0u) << kmc.err;
    EXPECT_EQ(std::count(kmc.err.begin(), kmc.err.end(), '\n'), 1) << kmc.err;
    args.push_back("-tensor");
    RandomSeeds seeds;
    seeds.ran2 = 5;
    seeds.scan = {11, 12};
    const Outcome mob = run_in_process(args, seeds);
    ASSERT_EQ(mob.status, 0) << mob.out << mob.err;
}

// Principal mobility k (from 1) measured by kelta_mob and its bootstrap standard
// error, and the exact one of kmc_exact.dat.
Measured measured_principal(int k)
{
    const std::vector<double> v = numbers_after("mob_tensor.dat", "principal_" + std::to_string(k), 2);
    return {v.at(0), v.at(1)};
}
double exact_principal(int k) { return numbers_after("kmc_exact.dat", "principal_" + std::to_string(k)).at(0); }

void expect_within_3_se(const std::string& what, double measured, double se, double exact)
{
    const double z = se > 0 ? (measured - exact) / se : (measured == exact ? 0.0 : INFINITY);
    std::printf("  %-40s measured %.5g +- %.2g, exact %.5g: %+.2f standard errors\n", what.c_str(), measured, se, exact, z);
    EXPECT_LE(std::fabs(z), 3.0) << what;
}

// The working directory tests/data/kmc/NAME (structure, kelta.inp, charge.inp
// and the couplings), with more text of kelta.inp before its last line.
void lay(const std::string& name, const std::string& more = "")
{
    fs::copy(fs::path(KELTA_TEST_DATA) / "kmc" / name, ".", fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    const std::string inp = read_file("kelta.inp");
    write_file("kelta.inp", inp.substr(0, inp.rfind("/\n")) + more + "/\n");
}

}  // namespace


// (a) One molecule per cell: D = 1/2 sum k r r^T over every hop, here k_a a^2,
// k_b b^2, k_c c^2 on the diagonal; the rates are the Marcus rates of the notes'
// formula, computed here from V alone. (d) Then the Einstein relation: under a
// field F along a with e F a = 2.5 meV, a tenth of kB T, the drift mobility
// v.F/|F|^2 equals the zero-field diffusion mobility along F, measured and exact.
TEST(KmcValidation, OneMoleculePerCellAndTheEinsteinRelation)
{
    const ScratchDir dir;
    lay("point_lattice");
    simulate_and_analyse({"-timeunit", "PS"});
    const double f = mobility_at_300K(1e-12);
    const std::vector<double> expected = {f * network::marcus_rate(0.040, 0.180, 0, 300) * 1e-12 * 25,
                                          f * network::marcus_rate(0.030, 0.180, 0, 300) * 1e-12 * 36,
                                          f * network::marcus_rate(0.020, 0.180, 0, 300) * 1e-12 * 49};
    for (int k = 1; k <= 3; ++k) {
        EXPECT_NEAR(exact_principal(k), expected[k - 1], 1e-6 * expected[k - 1]) << k;
        const Measured m = measured_principal(k);
        expect_within_3_se("one molecule per cell, principal " + std::to_string(k), m.value, m.se, expected[k - 1]);
    }
    ASSERT_NEAR(std::fabs(numbers_after("mob_tensor.dat", "principal_1").at(1)), 1.0, 1e-2);  // the largest along a = x
    const Measured diffusion = measured_principal(1);

    lay("point_lattice", "  seed = 2027\n  app_elec_F = 5e6 0 0\n");
    fs::remove_all("track");
    const Outcome o = run_kmc({"-timeunit", "PS"});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    const std::vector<double> drift = numbers_after("kmc_drift.dat", "drift_mobility");  // measured, se, exact
    EXPECT_NEAR(drift.at(2), expected[0], 1e-3 * expected[0]);  // linear response of the network itself
    expect_within_3_se("drift mobility vs exact drift", drift.at(0), drift.at(1), drift.at(2));
    expect_within_3_se("drift mobility vs exact diffusion", drift.at(0), drift.at(1), expected[0]);
    expect_within_3_se("drift vs measured diffusion mobility", drift.at(0), std::hypot(drift.at(1), diffusion.se), diffusion.value);
}

// (b) The chain of the notes: cell a = 4 A, molecules at 0 and 1.2 A, short hops
// at V = 40 meV and long ones at 15 meV. The exact D_xx = a^2 k1 k2 / (2 (k1 +
// k2)) = 10926.7 A^2/ns; the naive formula's 14083.5 is far outside the error.
TEST(KmcValidation, ChainWithACorrector)
{
    const ScratchDir dir;
    lay("chain");
    simulate_and_analyse({});
    const double f = mobility_at_300K(1e-9);
    const double exact = f * 10926.7, naive = f * 14083.5;
    EXPECT_NEAR(exact_principal(1), exact, 1e-4 * exact);
    EXPECT_NEAR(numbers_after("kmc_exact.dat", "naive_1").at(0), naive, 1e-4 * naive);
    const Measured m = measured_principal(1);
    expect_within_3_se("chain, D_xx as a mobility", m.value, m.se, exact);
    std::printf("  %-40s %.1f standard errors from the measurement\n", "the naive formula lies", (naive - m.value) / m.se);
    EXPECT_GT((naive - m.value) / m.se, 6.0);
    for (int k = 2; k <= 3; ++k) EXPECT_EQ(measured_principal(k).value, 0.0);  // nothing moves across the chain
}

// (c) The demo crystal with the demo's couplings: every principal mobility
// kelta_mob measures is within 3 standard errors of the exact one.
TEST(KmcValidation, DemoCrystal)
{
    const ScratchDir dir;
    fs::copy(fs::path(KELTA_TEST_DATA) / "cases/kmc_base/in", dir.path(), fs::copy_options::recursive);
    write_file("kelta.inp", "&transport\n  crystal = naphthalene_like.cif\n  ratetype = marcus\n  nsimu = 2000\n"
                            "  tsimu = 100\n  tsnap = 1\n  output_level = 0\n  seed = 2026\n/\n");
    simulate_and_analyse({"-timeunit", "PS"});
    for (int k = 1; k <= 3; ++k) {
        const Measured m = measured_principal(k);
        expect_within_3_se("demo crystal, principal " + std::to_string(k), m.value, m.se, exact_principal(k));
    }
}
