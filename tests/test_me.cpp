// Mobility against temperature and field from the exact answer of the network
// (kelta_kmc's master-equation stages), against closed forms: one molecule per
// cell with Marcus rates, where mu ~ T^-3/2 exp(-lambda / (4 kB T)) and the drift
// is a (k(-e F a) - k(e F a)); and the simulation's temperature series against
// the exact curve. The refusals of bad ranges are recorded cases (kmc_temp_*,
// kmc_field_range_*).
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "hopping_series.h"
#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// The working directory `from` (a folder of inputs) in the current one, with
// the kelta.inp lines `more` before its last line.
void lay(const fs::path& from, const std::string& more)
{
    fs::copy(from, ".", fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    const std::string inp = read_file("kelta.inp");
    write_file("kelta.inp", inp.substr(0, inp.rfind("/\n")) + more + "/\n");
}
const fs::path kPointLattice = fs::path(KELTA_TEST_DATA) / "kmc/point_lattice";
const fs::path kDemo = fs::path(KELTA_TEST_DATA) / "cases/kmc_base/in";

void run_ok(const std::vector<std::string>& args = {"-timeunit", "PS"})
{
    const Outcome o = run_kmc(args);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
}

// The numbers of every line of a table that is not a comment, up to the first
// word that is none.
std::vector<std::vector<double>> rows(const std::string& file)
{
    std::vector<std::vector<double>> table;
    for (const std::string& line : read_lines(file)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        std::vector<double> row;
        for (std::string w; in >> w;) {
            char* end = nullptr;
            const double v = std::strtod(w.c_str(), &end);
            if (*end) break;
            row.push_back(v);
        }
        table.push_back(row);
    }
    return table;
}

// The first number after `key` on the line that begins with it.
double value_of(const std::string& file, const std::string& key)
{
    for (const std::string& line : read_lines(file))
        if (line.rfind(key + " ", 0) == 0) return std::stod(line.substr(key.size()));
    ADD_FAILURE() << "no " << key << " in " << file;
    return NAN;
}

// Columns of me_temp.dat and me_field.dat (from 0).
enum TemperatureColumn { kT, kMu1, kMuAvg = 4, kLocalN, kDriftMu, kKmc1, kKmcAvg = 13 };
enum FieldColumn { kF, kVelocity, kDriftMobility = 5, kRatio };

const double kLambda = 0.180, kKT300 = units::kBoltzmann * 300;

}  // namespace

TEST(MeGrid, BothEndsWhenTheStepDividesTheRange)
{
    using V = std::vector<double>;
    EXPECT_EQ(series::temperatures(200, 300, 50), (V{200, 250, 300}));
    EXPECT_EQ(series::temperatures(200, 300, 40), (V{200, 240, 280}));  // the end left out
    EXPECT_EQ(series::temperatures(300, 200, -50), (V{300, 250, 200}));
    EXPECT_EQ(series::temperatures(250, 250, 10), (V{250}));
    // (0.3 - 0.1) / 0.1 is 1.9999999999999998 in doubles: two steps all the same, ending on 0.3 itself.
    EXPECT_EQ(series::temperatures(0.1, 0.3, 0.1), (V{0.1, 0.2, 0.3}));
    EXPECT_EQ(series::temperatures(100, 100.7, 0.1).size(), 8u);
    const V f = series::fields({1e4, 1e8, 5});
    ASSERT_EQ(f.size(), 5u);
    for (size_t k = 0; k < f.size(); ++k) EXPECT_NEAR(f[k] / std::pow(10.0, 4.0 + static_cast<double>(k)), 1.0, 1e-14);
    EXPECT_EQ(series::folder_name(250.5), "T_250.5");
    EXPECT_EQ(series::folder_name(200 + 3 * 0.1), "T_200.3");
}

// The fits recover the exponent of a power law and the energy of an Arrhenius law exactly.
TEST(MeGrid, FitsOfPowerAndArrheniusLaws)
{
    const std::vector<double> T = {120, 180, 250, 330};
    std::vector<double> power, arrhenius;
    for (const double t : T) {
        power.push_back(3.7 * std::pow(t, -2.9));
        arrhenius.push_back(0.02 * std::exp(-0.045 / (units::kBoltzmann * t)));
    }
    EXPECT_NEAR(series::fit(T, power).n, 2.9, 1e-12);
    EXPECT_NEAR(series::fit(T, arrhenius).ea_meV, 45.0, 1e-9);
    EXPECT_TRUE(std::isnan(series::fit({300}, {1.0}).n));
}

// The series at a temperature is the single-temperature answer at it, under a
// field too; both stages in one run of the demo crystal.
TEST(MeSeries, OneTemperatureOfTheSeriesIsTheAnswerAtIt)
{
    const ScratchDir dir;
    lay(kDemo, "  temp = 250\n  app_elec_F = 1e5 0 0\n  do_transport_run_MC = 0\n  do_transport_run_ME = 1\n"
               "  do_transport_get_mob_ME_temp = 1\n  start_temp = 200\n  end_temp = 300\n  delta_temp = 50\n");
    run_ok();
    EXPECT_FALSE(fs::exists("track"));  // the master equation alone
    const auto t = rows("me_temp.dat");
    ASSERT_EQ(t.size(), 3u);
    const std::vector<double>& at = t[1];
    ASSERT_EQ(at[kT], 250);
    for (int k = 1; k <= 3; ++k) EXPECT_EQ(at[kMu1 + k - 1], value_of("kmc_exact.dat", "principal_" + std::to_string(k))) << k;
    EXPECT_NEAR(at[kMuAvg], (at[1] + at[2] + at[3]) / 3, 1e-6 * at[kMuAvg]);
    EXPECT_EQ(at[kDriftMu], value_of("kmc_exact.dat", "drift_mobility"));
    for (const auto& r : t) EXPECT_TRUE(std::isnan(r[kKmc1]) && std::isnan(r[kKmcAvg]));  // no simulation ran
}

// One molecule per cell with Marcus rates (dG = 0): D is a sum of k r r^T, so
// mu = e D / (kB T) ~ T^-3/2 exp(-lambda / (4 kB T)) in every direction, and
// -d ln mu / d ln T = 3/2 - lambda / (4 kB T): rising with T below lambda / (6 kB)
// (348 K for 180 meV).
TEST(MeSeries, OneMoleculePerCellFollowsTheMarcusLaw)
{
    const ScratchDir dir;
    lay(kPointLattice, "  do_transport_run_MC = 0\n  do_transport_run_ME_temp = 1\n"
                       "  start_temp = 100\n  end_temp = 400\n  delta_temp = 25\n");
    run_ok();
    const auto t = rows("me_temp.dat");
    ASSERT_EQ(t.size(), 13u);
    const auto law = [](double T) { return std::pow(T, -1.5) * std::exp(-kLambda / (4 * units::kBoltzmann * T)); };
    const std::vector<double>& ref = t[8];
    ASSERT_EQ(ref[kT], 300);
    for (const auto& r : t) {
        for (int c = kMu1; c <= kMuAvg; ++c)
            EXPECT_NEAR(r[c] / ref[c], law(r[kT]) / law(300), 2e-6 * law(r[kT]) / law(300)) << r[kT] << " " << c;
        EXPECT_NEAR(r[kLocalN], 1.5 - kLambda / (4 * units::kBoltzmann * r[kT]), 1e-5) << r[kT];
    }
    EXPECT_LT(t.front()[kMuAvg], ref[kMuAvg]);  // thermally activated near room temperature
}

// The drift along a (hops of a = 5 A) of a hole under F: v = a (k(-e F a) -
// k(e F a)); the hops along b and c cancel. At low field it is the Einstein
// mobility; past e F a = lambda the forward hop enters the inverted region and
// the velocity falls. An electron drifts the other way at the same speed.
TEST(MeField, EinsteinAtLowFieldAndTheInvertedRegionAtHighField)
{
    const ScratchDir dir;
    lay(kPointLattice, "  do_transport_run_MC = 0\n  do_transport_run_ME = 1\n  app_elec_F = 1 0 0\n"
                       "  field_range = 1e4 2e9 31\n");
    run_ok();
    const auto f = rows("me_field.dat");
    ASSERT_EQ(f.size(), 31u);
    size_t peak = 0;
    for (size_t k = 0; k < f.size(); ++k) {
        const double x = f[k][kF] * 5e-10;  // e F a, eV
        const double v = 5e-8 * (network::marcus_rate(0.040, kLambda, -x, 300) - network::marcus_rate(0.040, kLambda, x, 300));
        EXPECT_NEAR(f[k][kVelocity], v, 1e-5 * std::fabs(v)) << f[k][kF];
        if (f[k][kVelocity] > f[peak][kVelocity]) peak = k;
    }
    // e D_xx / (kB T) with D_xx = k a^2 (a hop each way), the CODATA kB.
    const double einstein = network::marcus_rate(0.040, kLambda, 0, 300) * 25e-16 / kKT300;
    EXPECT_NEAR(f[0][kDriftMobility], einstein, 1e-6 * einstein);
    EXPECT_NEAR(f[0][kRatio], 1.0, 1e-6);
    const double at_peak = f[peak][kF] * 5e-10;
    EXPECT_GT(at_peak, 0.5 * kLambda);
    EXPECT_LT(at_peak, 1.5 * kLambda);
    for (size_t k = peak + 1; k < f.size(); ++k) EXPECT_LT(f[k][kDriftMobility], f[k - 1][kDriftMobility]) << f[k][kF];
    EXPECT_LT(f.back()[kVelocity], 0.1 * f[peak][kVelocity]);

    write_file("charge.inp", "e\n");
    run_ok();
    const auto e = rows("me_field.dat");
    for (size_t k = 0; k < f.size(); ++k) EXPECT_NEAR(e[k][kDriftMobility], -f[k][kDriftMobility], 1e-6 * f[k][kDriftMobility]);
    EXPECT_NEAR(e[0][kRatio], 1.0, 1e-6);
}

// The simulation at two temperatures, each in its folder, analysed by kelta_mob:
// every simulated mobility within four of its standard errors of the exact one,
// and the folder's tracks those of a plain run at its temperature.
TEST(MeSeries, SimulatedPointsLieOnTheExactCurve)
{
    const ScratchDir dir;
    const std::string run = "  nsimu = 200\n  tsimu = 50\n  tsnap = 1\n  output_level = 0\n";
    fs::create_directories("series");
    fs::current_path("series");
    lay(kDemo, run + "  do_transport_run_MC = 0\n  do_transport_run_MC_temp = 1\n  do_transport_get_mob_MC_temp = 1\n"
                     "  start_temp = 200\n  end_temp = 300\n  delta_temp = 100\n");
    run_ok();
    const auto t = rows("me_temp.dat");
    ASSERT_EQ(t.size(), 2u);
    for (const auto& r : t)
        for (int c = 0; c < 4; ++c) {
            const double exact = r[kMu1 + c], simulated = r[kKmc1 + 2 * c], se = r[kKmc1 + 2 * c + 1];
            std::printf("  %g K, %s: simulated %.4g +- %.2g, exact %.4g (%+.1f standard errors)\n", r[kT],
                        c < 3 ? ("principal " + std::to_string(c + 1)).c_str() : "average", simulated, se, exact,
                        (simulated - exact) / se);
            EXPECT_LT(std::fabs(simulated - exact), 4 * se) << r[kT] << " " << c;
        }
    EXPECT_NE(read_file("me_temp.dat").find("# fit kmc_avg"), std::string::npos);

    fs::create_directories(dir.path() / "plain");
    fs::current_path(dir.path() / "plain");
    lay(kDemo, run + "  temp = 300\n");
    run_ok();
    EXPECT_EQ(track_files("."), track_files(dir.path() / "series/T_300"));
}
