// Couplings and reorganisation energies computed by psi4, held to what physics
// requires of them. Skipped when psi4 is not installed. Small levels (HF with
// 6-31G or STO-3G, exact integrals) keep the whole set to seconds.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "qc_process.h"
#include "qc_projection.h"
#include "qc_psi4.h"
#include "test_qc_support.h"
#include "test_support.h"

using qc::Carrier;
using qctest::ethylene;
using qctest::joined;
using qctest::moved;

namespace {
constexpr double kMeV = 1e-3;  // in eV
}  // namespace

class Psi4 : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!qc::program_exists("psi4")) GTEST_SKIP() << "psi4 is not on PATH: the quantum-chemistry physics tests need it";
    }

    static qc::Calculation level(qc::CalcKind kind, qc::Geometry atoms, int atoms_a = 0, bool tight = false)
    {
        qc::Calculation c;
        c.kind = kind;
        c.atoms = std::move(atoms);
        c.atoms_a = atoms_a;
        c.method = "scf";
        c.basis = "6-31g";
        c.threads = 2;
        c.memory_mb = 500;
        c.extra = "set scf_type pk";
        if (tight) c.extra += "\nset e_convergence 1e-10\nset d_convergence 1e-8";
        return c;
    }

    // Writes, runs and keeps the job; a failed run is reported with psi4's last lines.
    bool compute(const qc::Job& job) const
    {
        engine_.write_input(job);
        const qc::RunResult r = engine_.run(job);
        if (!r.ok) ADD_FAILURE() << r.error << "\n" << r.output_tail;
        return r.ok;
    }

    qc::MonomerOrbitals monomer(const std::string& name, const qc::Geometry& atoms, bool tight = false) const
    {
        const qc::Job job{name, level(qc::CalcKind::MonomerOrbitals, atoms, 0, tight)};
        return compute(job) ? engine_.read_monomer(job) : qc::MonomerOrbitals{};
    }

    qc::DimerMatrices dimer(const std::string& name, const qc::Geometry& a, const qc::Geometry& b, bool tight = false) const
    {
        const qc::Job job{name, level(qc::CalcKind::DimerMatrices, joined(a, b), static_cast<int>(a.size()), tight)};
        return compute(job) ? engine_.read_dimer(job) : qc::DimerMatrices{};
    }

    testsupport::ScratchDir dir_;
    qc::Psi4Engine engine_;
};

TEST_F(Psi4, CofacialCouplingFallsOffExponentiallyAndVanishesFarAway)
{
    // A lattice translation moves the orbitals rigidly: one monomer serves both
    // molecules of every pair.
    const qc::MonomerOrbitals m = monomer("monomer", ethylene());
    ASSERT_FALSE(HasFailure());
    const std::vector<double> d = {3.5, 4.0, 4.5, 5.0};
    std::vector<double> log_j;
    for (const double x : d) {
        const qc::DimerMatrices pair = dimer(strprintf("dimer_%.1f", x), ethylene(), moved(ethylene(), {x, 0, 0}));
        ASSERT_FALSE(HasFailure());
        const double j = qc::dimer_coupling(pair, m, m, Carrier::Hole).j_eff;
        std::printf("J_eff(%.1f A) = %.2f meV\n", x, j / kMeV);
        log_j.push_back(std::log(std::fabs(j)));
    }
    // log|J_eff| against d: a falling straight line (residuals' standard error small).
    double intercept = 0, slope = 0, residual = 0;
    ASSERT_EQ(LinearRegression(d.data(), log_j.data(), static_cast<int>(d.size()), &intercept, &slope, &residual), 0);
    std::printf("log|J_eff| = %.3f %+.3f d, residual %.3f\n", intercept, slope, residual);
    EXPECT_LT(slope, -1.0);  // per Angstrom
    EXPECT_LT(residual, 0.1);

    const qc::DimerMatrices far = dimer("dimer_12", ethylene(), moved(ethylene(), {12.0, 0, 0}));
    ASSERT_FALSE(HasFailure());
    const double j_far = qc::dimer_coupling(far, m, m, Carrier::Hole).j_eff;
    std::printf("J_eff(12 A) = %.3g meV\n", j_far / kMeV);
    EXPECT_LT(std::fabs(j_far), 1 * kMeV);
}

TEST_F(Psi4, SymmetricPairCouplingIsHalfTheSplittingAndElectronsDiffer)
{
    const qc::MonomerOrbitals m = monomer("monomer", ethylene());
    const qc::DimerMatrices pair = dimer("dimer", ethylene(), moved(ethylene(), {4.0, 0, 0}));
    ASSERT_FALSE(HasFailure());
    const qc::Coupling hole = qc::dimer_coupling(pair, m, m, Carrier::Hole);
    const double half = qc::half_splitting(pair, Carrier::Hole);
    std::printf("holes: |J_eff| = %.2f meV, half the HOMO splitting = %.2f meV\n", std::fabs(hole.j_eff) / kMeV, half / kMeV);
    EXPECT_NEAR(std::fabs(hole.j_eff) / half, 1, 0.1);
    // Both molecules are alike: so are their effective site energies.
    EXPECT_NEAR(hole.e_a_eff, hole.e_b_eff, 1e-5);

    const qc::Coupling electron = qc::dimer_coupling(pair, m, m, Carrier::Electron);
    std::printf("electrons: |J_eff| = %.2f meV\n", std::fabs(electron.j_eff) / kMeV);
    EXPECT_GT(std::fabs(std::fabs(electron.j_eff) - std::fabs(hole.j_eff)), 0.05 * std::fabs(hole.j_eff));
    EXPECT_GT(electron.e_a_eff, hole.e_a_eff);  // the LUMO lies above the HOMO
}

TEST_F(Psi4, CouplingIsUnchangedByRigidMotionAndByExchange)
{
    // A slipped pair, so that no symmetry hides a wrong orbital; converged tightly
    // enough for the comparisons at 0.1 meV.
    const Eigen::Vector3d slip(3.8, 0.4, 0.7), axis(1, 2, 3), shift(1.5, -2.0, 0.7);
    const qc::MonomerOrbitals m = monomer("monomer", ethylene(), true);
    const qc::DimerMatrices pair = dimer("pair", ethylene(), moved(ethylene(), slip), true);
    const qc::DimerMatrices swapped = dimer("swapped", moved(ethylene(), slip), ethylene(), true);
    // The whole pair turned and moved; the turned molecule has its own orbitals.
    const qc::Geometry turned = moved(ethylene(), shift, axis, 40);
    const qc::MonomerOrbitals mt = monomer("monomer_turned", turned, true);
    const qc::DimerMatrices pair_moved = dimer("moved", turned, moved(moved(ethylene(), slip), shift, axis, 40), true);
    ASSERT_FALSE(HasFailure());

    const qc::Coupling c = qc::dimer_coupling(pair, m, m, Carrier::Hole);
    const qc::Coupling cs = qc::dimer_coupling(swapped, m, m, Carrier::Hole);
    const qc::Coupling cm = qc::dimer_coupling(pair_moved, mt, mt, Carrier::Hole);
    std::printf("|J_eff| = %.5f, exchanged %.5f, moved %.5f meV\n", std::fabs(c.j_eff) / kMeV, std::fabs(cs.j_eff) / kMeV,
                std::fabs(cm.j_eff) / kMeV);
    EXPECT_NEAR(std::fabs(cs.j_eff), std::fabs(c.j_eff), 1e-4);
    EXPECT_NEAR(std::fabs(cm.j_eff), std::fabs(c.j_eff), 1e-4);
    EXPECT_NEAR(cs.e_a_eff, c.e_b_eff, 1e-4);
    EXPECT_NEAR(cs.e_b_eff, c.e_a_eff, 1e-4);
    EXPECT_NEAR(cm.e_a_eff, c.e_a_eff, 1e-4);
    // Turned orbitals of the unturned pair do not fit it.
    EXPECT_EQ(testsupport::capture([&] { qc::dimer_coupling(pair, mt, mt, Carrier::Hole); }).status, 1);
}

TEST_F(Psi4, FourPointReorganisationEnergyOfEthylene)
{
    qc::Calculation c = level(qc::CalcKind::Reorganisation, ethylene());
    c.basis = "sto-3g";
    const qc::Job job{"reorganisation", c};
    ASSERT_TRUE(compute(job));
    const qc::ReorganisationEnergies e = engine_.read_reorganisation(job);
    const qc::Reorganisation r = qc::four_point(e);
    std::printf("lambda = %.1f meV: ion %.1f + neutral %.1f meV\n", r.lambda / kMeV, r.ion_relaxation / kMeV,
                r.neutral_relaxation / kMeV);
    EXPECT_GT(r.ion_relaxation, 0);
    EXPECT_GT(r.neutral_relaxation, 0);
    EXPECT_GT(r.ion_relaxation / r.neutral_relaxation, 0.5);
    EXPECT_LT(r.ion_relaxation / r.neutral_relaxation, 2.0);
    // Taking an electron out of the pi bond lengthens it.
    const auto cc = [](const qc::Geometry& g) {
        return get_magnitude({g[0].x[0] - g[1].x[0], g[0].x[1] - g[1].x[1], g[0].x[2] - g[1].x[2]});
    };
    std::printf("C=C: neutral %.4f A, cation %.4f A\n", cc(e.neutral_geometry), cc(e.ion_geometry));
    EXPECT_GT(cc(e.ion_geometry), cc(e.neutral_geometry) + 0.02);
}

TEST_F(Psi4, AFailedCalculationShowsItsOutputAndLeavesNoResults)
{
    qc::Calculation c = level(qc::CalcKind::MonomerOrbitals, ethylene());
    c.basis = "no-such-basis";
    const qc::Job job{"failed", c};
    engine_.write_input(job);
    const qc::RunResult r = engine_.run(job);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find("psi4 ended with status"), std::string::npos) << r.error;
    EXPECT_NE(r.output_tail.find("NO-SUCH-BASIS"), std::string::npos) << r.output_tail;
    EXPECT_EQ(testsupport::capture([&] { engine_.read_monomer(job); }).out,
              "\nERROR  transport : qc : line 201 : \nresults file failed/results.txt cannot be read\n");
}
