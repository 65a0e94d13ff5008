#include "qc_projection.h"

#include <cmath>

#include "mmutil.h"
#include "qc_errors.h"

namespace qc {

using namespace qc_error;

namespace {

// How far a'S a may stray from 1 before the orbital is taken for one of another
// basis; SCF orbitals are orthonormal far more closely.
constexpr double kNormTolerance = 1e-5;
}  // namespace

Coupling project(const Eigen::MatrixXd& s, const Eigen::MatrixXd& f, const Eigen::VectorXd& a, const Eigen::VectorXd& b)
{
    const Eigen::Index na = a.size(), nb = b.size(), n = na + nb;
    if (na < 1 || nb < 1 || s.rows() != n || s.cols() != n || f.rows() != n || f.cols() != n)
        fatal(kModule, kLineSizes, 1,
              strprintf("projection: orbitals of %ld and %ld functions do not fit overlap %ld x %ld and Fock %ld x %ld matrices\n",
                        static_cast<long>(na), static_cast<long>(nb), static_cast<long>(s.rows()), static_cast<long>(s.cols()),
                        static_cast<long>(f.rows()), static_cast<long>(f.cols())));
    // a and b placed in the dimer's basis, zero on the other molecule's functions.
    Eigen::VectorXd pa = Eigen::VectorXd::Zero(n), pb = Eigen::VectorXd::Zero(n);
    pa.head(na) = a;
    pb.tail(nb) = b;

    const double j = pa.dot(f * pb), e_a = pa.dot(f * pa), e_b = pb.dot(f * pb), s_ab = pa.dot(s * pb);
    const double one_minus_s2 = 1 - s_ab * s_ab;
    if (!(one_minus_s2 > 0))
        fatal(kModule, kLineSizes, 1, strprintf("projection: the orbitals' overlap S_AB = %g is not below 1 in magnitude\n", s_ab));
    const double root = std::sqrt(one_minus_s2);
    Coupling c;
    c.s_ab = s_ab;
    c.j = j * kHartreeToEv;
    c.e_a = e_a * kHartreeToEv;
    c.e_b = e_b * kHartreeToEv;
    c.j_eff = (j - 0.5 * (e_a + e_b) * s_ab) / one_minus_s2 * kHartreeToEv;
    c.e_a_eff = ((e_a + e_b) - 2 * j * s_ab + (e_a - e_b) * root) / (2 * one_minus_s2) * kHartreeToEv;
    c.e_b_eff = ((e_a + e_b) - 2 * j * s_ab - (e_a - e_b) * root) / (2 * one_minus_s2) * kHartreeToEv;
    c.norm_a = pa.dot(s * pa);
    c.norm_b = pb.dot(s * pb);
    return c;
}

int frontier_index(const MonomerOrbitals& m, Carrier carrier, int offset)
{
    const int index = carrier == Carrier::Hole ? m.homo - offset : m.homo + 1 + offset;
    const int last = m.first + static_cast<int>(m.coefficients.cols()) - 1;
    if (offset < 0 || index < m.first || index > last)
        fatal(kModule, kLineOrbital, 1,
              strprintf("%s: %s%s%d is orbital %d, and the saved orbitals are %d to %d\n", m.source.c_str(),
                        carrier == Carrier::Hole ? "HOMO" : "LUMO", carrier == Carrier::Hole ? "-" : "+", offset, index + 1,
                        m.first + 1, last + 1));
    return index;
}

Eigen::VectorXd frontier_orbital(const MonomerOrbitals& m, Carrier carrier, int offset)
{
    return m.coefficients.col(frontier_index(m, carrier, offset) - m.first);
}

Coupling dimer_coupling(const DimerMatrices& d, const MonomerOrbitals& a, const MonomerOrbitals& b, Carrier carrier, int offset,
                        int offset_b)
{
    if (offset_b < 0) offset_b = offset;
    if (a.nbf != d.nbf_a || a.nbf + b.nbf != d.nbf)
        fatal(kModule, kLineSizes, 1,
              strprintf("%s has %d basis functions, %d of them on the first molecule; the molecules' own (%s, %s) have %d and %d\n",
                        d.source.c_str(), d.nbf, d.nbf_a, a.source.c_str(), b.source.c_str(), a.nbf, b.nbf));
    const Coupling c = project(d.overlap, d.fock, frontier_orbital(a, carrier, offset), frontier_orbital(b, carrier, offset_b));
    for (const auto& [norm, m] : {std::pair{c.norm_a, &a}, std::pair{c.norm_b, &b}})
        if (!(std::fabs(norm - 1) <= kNormTolerance))
            fatal(kModule, kLineNorm, 1,
                  strprintf("the orbital of %s has norm %.8f in the overlap of %s, not 1: the two calculations differ in basis set "
                            "or in the order or place of the atoms\n",
                            m->source.c_str(), norm, d.source.c_str()));
    return c;
}

double half_splitting(const DimerMatrices& d, Carrier carrier)
{
    const int lower = carrier == Carrier::Hole ? d.homo - 1 : d.homo + 1;
    if (lower < 0 || lower + 1 >= d.energies.size())
        fatal(kModule, kLineOrbital, 1, strprintf("%s: the dimer has no two %s orbitals\n", d.source.c_str(),
                                                  carrier == Carrier::Hole ? "occupied" : "unoccupied"));
    return 0.5 * (d.energies[lower + 1] - d.energies[lower]) * kHartreeToEv;
}

Reorganisation four_point(const ReorganisationEnergies& e)
{
    Reorganisation r;
    r.ion_relaxation = (e.ion_at_neutral - e.ion_at_ion) * kHartreeToEv;
    r.neutral_relaxation = (e.neutral_at_ion - e.neutral_at_neutral) * kHartreeToEv;
    r.lambda = r.ion_relaxation + r.neutral_relaxation;
    return r;
}

}  // namespace qc
