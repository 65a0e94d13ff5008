// From the engines' numbers to the couplings file's: the effective transfer
// integral of a pair by projecting the dimer's Fock and overlap matrices on the
// monomers' frontier orbitals, and the four-point reorganisation energy.
#pragma once

#include <Eigen/Dense>

#include "qc_engine.h"

namespace qc {

// The pair's two orbitals a (on A) and b (on B) in the dimer's matrices, energies
// in eV. With J = a'Fb, e_A = a'Fa, e_B = b'Fb and S_AB = a'Sb:
//   J_eff = (J - (e_A + e_B) S_AB / 2) / (1 - S_AB^2)
// and the site energies of the Loewdin-orthogonalised pair
//   e_A,eff = [(e_A + e_B) - 2 J S_AB + (e_A - e_B) sqrt(1 - S_AB^2)] / (2 (1 - S_AB^2)),
//   e_B,eff the same with the sign of the last term turned.
// The sign of J and J_eff follows the arbitrary phases of the orbitals.
struct Coupling {
    double j = 0;
    double e_a = 0, e_b = 0;
    double s_ab = 0;
    double j_eff = 0;
    double e_a_eff = 0, e_b_eff = 0;
    // a'S a and b'S b: 1 when the orbitals belong to the dimer's basis.
    double norm_a = 0, norm_b = 0;
};

// s and f (hartree) in the dimer's basis, molecule A's a.size() functions first,
// then B's b.size(). Ends the run when the sizes do not add up or |S_AB| is not
// below 1.
Coupling project(const Eigen::MatrixXd& s, const Eigen::MatrixXd& f, const Eigen::VectorXd& a, const Eigen::VectorXd& b);

// The MO index of HOMO - offset (holes) or LUMO + offset (electrons), and its
// coefficients; ends the run when that orbital was not saved.
int frontier_index(const MonomerOrbitals& m, Carrier carrier, int offset);
Eigen::VectorXd frontier_orbital(const MonomerOrbitals& m, Carrier carrier, int offset);

// The coupling of the dimer's molecules A and B through their frontier orbitals:
// HOMO - offset or LUMO + offset of A, and of B the same or, when offset_b is 0
// or more, HOMO - offset_b or LUMO + offset_b.
// Ends the run when the bases do not fit together: A's basis not the dimer's
// first nbf_a functions, the two not adding up to the dimer's, or an orbital not
// normalised in the dimer's overlap (another basis set or atom order).
Coupling dimer_coupling(const DimerMatrices& d, const MonomerOrbitals& a, const MonomerOrbitals& b, Carrier carrier,
                        int offset = 0, int offset_b = -1);

// Half the gap between the dimer's two highest occupied (holes) or two lowest
// unoccupied (electrons) orbitals, eV: |J_eff| of a symmetric pair, nearly.
double half_splitting(const DimerMatrices& d, Carrier carrier);

// The four-point reorganisation energy, eV:
//   ion_relaxation     = E_ion(neutral geometry) - E_ion(ion geometry)
//   neutral_relaxation = E_0(ion geometry) - E_0(neutral geometry)
//   lambda             = their sum
struct Reorganisation {
    double ion_relaxation = 0, neutral_relaxation = 0, lambda = 0;
};
Reorganisation four_point(const ReorganisationEnergies& e);

}  // namespace qc
