// The dimer projection and the four-point reorganisation energy on small cases
// with answers worked out by hand or by an independent orthogonalisation.
#include <gtest/gtest.h>

#include <cmath>

#include "qc_projection.h"
#include "test_support.h"

using testsupport::capture;

namespace {
constexpr double kEv = qc::kHartreeToEv;
const std::string kQcError = "\nERROR  transport : qc : line ";

// A monomer whose saved orbitals are the columns of c, the first of them orbital `first`.
qc::MonomerOrbitals monomer(const Eigen::MatrixXd& c, int homo, int first, const std::string& source)
{
    qc::MonomerOrbitals m;
    m.source = source;
    m.nbf = static_cast<int>(c.rows());
    m.nmo = m.nbf;
    m.homo = homo;
    m.first = first;
    m.coefficients = c;
    m.energies = Eigen::VectorXd::LinSpaced(m.nmo, -1, 1);
    return m;
}
}  // namespace

TEST(QcProjection, TwoSiteModelGivesTheClosedForm)
{
    // One function per molecule: S_AB = s, e_A = e_B = e and J = t, so
    // J_eff = (t - e s) / (1 - s^2), and both sites sit at (e - t s) / (1 - s^2).
    for (const auto& [s, e, t] : {std::tuple{0.1, -0.3, -0.02}, std::tuple{-0.25, -0.45, 0.03}, std::tuple{0.0, -0.2, 0.01}}) {
        Eigen::MatrixXd S(2, 2), F(2, 2);
        S << 1, s, s, 1;
        F << e, t, t, e;
        const qc::Coupling c = qc::project(S, F, Eigen::VectorXd{{1}}, Eigen::VectorXd{{1}});
        EXPECT_NEAR(c.s_ab, s, 1e-15);
        EXPECT_NEAR(c.j, t * kEv, 1e-12);
        EXPECT_NEAR(c.j_eff, (t - e * s) / (1 - s * s) * kEv, 1e-12);
        EXPECT_NEAR(c.e_a_eff, (e - t * s) / (1 - s * s) * kEv, 1e-12);
        EXPECT_NEAR(c.e_b_eff, c.e_a_eff, 1e-12);
        // The other phase of b turns the coupling's sign and nothing else.
        const qc::Coupling flipped = qc::project(S, F, Eigen::VectorXd{{1}}, Eigen::VectorXd{{-1}});
        EXPECT_NEAR(flipped.j_eff, -c.j_eff, 1e-12);
        EXPECT_NEAR(flipped.e_a_eff, c.e_a_eff, 1e-12);
    }
}

TEST(QcProjection, NonOrthogonalFourFunctionPair)
{
    // Two functions per molecule overlapping 0.25 within each molecule; across,
    // function 1 meets 3 (overlap 0.1, Fock -0.05) and 2 meets 4 (0.2, -0.1). The
    // bonding combination (1, 1) / sqrt(2.5) is normalised on each molecule, and
    //   S_AB = 0.3 / 2.5 = 0.12,  J = -0.15 / 2.5 = -0.06,
    //   e_A = 2 (-0.5 - 0.1) / 2.5 = -0.48,  e_B = 2 (-0.4 - 0.1) / 2.5 = -0.4,
    //   J_eff = (-0.06 + 0.88 * 0.06) / (1 - 0.0144) = -0.0072 / 0.9856.
    Eigen::MatrixXd S(4, 4), F(4, 4);
    S << 1, 0.25, 0.1, 0,  //
        0.25, 1, 0, 0.2,   //
        0.1, 0, 1, 0.25,   //
        0, 0.2, 0.25, 1;
    F << -0.5, -0.1, -0.05, 0,  //
        -0.1, -0.5, 0, -0.1,    //
        -0.05, 0, -0.4, -0.1,   //
        0, -0.1, -0.1, -0.4;
    const Eigen::VectorXd a = Eigen::VectorXd{{1, 1}} / std::sqrt(2.5);
    const qc::Coupling c = qc::project(S, F, a, a);
    EXPECT_NEAR(c.norm_a, 1, 1e-14);
    EXPECT_NEAR(c.norm_b, 1, 1e-14);
    EXPECT_NEAR(c.s_ab, 0.12, 1e-14);
    EXPECT_NEAR(c.j, -0.06 * kEv, 1e-12);
    EXPECT_NEAR(c.e_a, -0.48 * kEv, 1e-12);
    EXPECT_NEAR(c.e_b, -0.4 * kEv, 1e-12);
    EXPECT_NEAR(c.j_eff, -0.0072 / 0.9856 * kEv, 1e-12);

    // The pair's 2 x 2 problem orthogonalised symmetrically, S^-1/2 H S^-1/2:
    // its diagonal is the effective site energies, its off-diagonal J_eff.
    Eigen::Matrix2d h, s2;
    h << c.e_a, c.j, c.j, c.e_b;
    s2 << 1, c.s_ab, c.s_ab, 1;
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix2d> eig(s2);
    const Eigen::Matrix2d root = eig.operatorInverseSqrt();
    const Eigen::Matrix2d orth = root * h * root;
    EXPECT_NEAR(c.e_a_eff, orth(0, 0), 1e-12);
    EXPECT_NEAR(c.e_b_eff, orth(1, 1), 1e-12);
    EXPECT_NEAR(c.j_eff, orth(0, 1), 1e-12);
    EXPECT_GT(c.e_b_eff, c.e_a_eff);  // B's site is the higher, as e_B > e_A
}

TEST(QcProjection, OrbitalsArePickedFromTheSavedWindow)
{
    // Orbitals 3 .. 6 saved (HOMO 4): HOMO-1, HOMO, LUMO, LUMO+1.
    Eigen::MatrixXd c = Eigen::MatrixXd::Zero(8, 4);
    for (int k = 0; k < 4; ++k) c(k, k) = k + 1;
    const qc::MonomerOrbitals m = monomer(c, 4, 3, "mono/results.txt");
    EXPECT_EQ(qc::frontier_index(m, qc::Carrier::Hole, 0), 4);
    EXPECT_EQ(qc::frontier_index(m, qc::Carrier::Hole, 1), 3);
    EXPECT_EQ(qc::frontier_index(m, qc::Carrier::Electron, 0), 5);
    EXPECT_EQ(qc::frontier_orbital(m, qc::Carrier::Electron, 1)(3), 4.0);  // the fourth column
    const auto o = capture([&] { qc::frontier_index(m, qc::Carrier::Hole, 2); });
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.out, kQcError + "402 : \nmono/results.txt: HOMO-2 is orbital 3, and the saved orbitals are 4 to 7\n");
    EXPECT_EQ(capture([&] { qc::frontier_index(m, qc::Carrier::Electron, 2); }).status, 1);
}

TEST(QcProjection, BasesThatDoNotFitTheDimerAreRefused)
{
    // A two-site dimer whose molecules have one normalised function each.
    qc::DimerMatrices d;
    d.source = "dimer/results.txt";
    d.nbf = 2;
    d.nbf_a = 1;
    d.homo = 0;
    d.overlap = Eigen::Matrix2d{{1, 0.1}, {0.1, 1}};
    d.fock = Eigen::Matrix2d{{-0.3, -0.02}, {-0.02, -0.3}};
    d.energies = Eigen::VectorXd{{-0.32, -0.28}};
    const qc::MonomerOrbitals one = monomer(Eigen::MatrixXd::Ones(1, 1), 0, 0, "a/results.txt");
    EXPECT_NEAR(qc::dimer_coupling(d, one, one, qc::Carrier::Hole).j_eff, (-0.02 + 0.03) / 0.99 * kEv, 1e-12);

    const qc::MonomerOrbitals two = monomer(Eigen::MatrixXd::Identity(2, 2), 0, 0, "b/results.txt");
    auto o = capture([&] { qc::dimer_coupling(d, one, two, qc::Carrier::Hole); });
    EXPECT_EQ(o.out, kQcError + "401 : \ndimer/results.txt has 2 basis functions, 1 of them on the first molecule; the "
                                "molecules' own (a/results.txt, b/results.txt) have 1 and 2\n");
    // An orbital of another basis: right size, wrong norm.
    const qc::MonomerOrbitals other = monomer(Eigen::MatrixXd::Constant(1, 1, 1.1), 0, 0, "c/results.txt");
    o = capture([&] { qc::dimer_coupling(d, one, other, qc::Carrier::Hole); });
    EXPECT_EQ(o.out, kQcError + "403 : \nthe orbital of c/results.txt has norm 1.21000000 in the overlap of dimer/results.txt, "
                                "not 1: the two calculations differ in basis set or in the order or place of the atoms\n");
    EXPECT_EQ(o.status, 1);
}

TEST(QcProjection, SplittingTakesTheFrontierLevels)
{
    qc::DimerMatrices d;
    d.source = "dimer/results.txt";
    d.homo = 1;
    d.energies = Eigen::VectorXd{{-0.32, -0.28, 0.1, 0.3}};
    EXPECT_NEAR(qc::half_splitting(d, qc::Carrier::Hole), 0.02 * kEv, 1e-12);
    EXPECT_NEAR(qc::half_splitting(d, qc::Carrier::Electron), 0.1 * kEv, 1e-12);
    d.homo = 2;
    const auto o = capture([&] { qc::half_splitting(d, qc::Carrier::Electron); });
    EXPECT_EQ(o.out, kQcError + "402 : \ndimer/results.txt: the dimer has no two unoccupied orbitals\n");
}
