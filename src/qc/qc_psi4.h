// The psi4 engine. Its inputs keep every geometry as given (symmetry c1, no_com,
// no_reorient, Angstrom), run one SCF (or, for the reorganisation energy, two
// optimisations and two single points, with core.clean() between them) and save
// their numbers with Python in the results file (qc_matrix.h) under these blocks:
//
//   monomer         energy, nbf, nmo, nalpha, first_mo, orbital_energies (nmo x 1),
//                   coefficients (nbf x k: orbitals first_mo .. first_mo + k - 1, the
//                   frontier orbitals HOMO - n .. LUMO + n as far as they exist)
//   dimer           energy, nbf, nbf_a (functions on the first molecule's atoms), nmo,
//                   nalpha, orbital_energies, overlap and fock (nbf x nbf)
//   reorganisation  neutral_at_neutral, ion_at_ion, ion_at_neutral, neutral_at_ion
//                   (hartree), neutral_geometry and ion_geometry (atoms x 3, Angstrom)
//
// The ion is computed with an unrestricted reference (uks), the neutral molecule
// with rks when it is a singlet (uks otherwise); orbitals are the alpha ones.
#pragma once

#include <string>

#include "qc_engine.h"

namespace qc {

class Psi4Engine final : public Engine {
public:
    // The files of a job's directory.
    static constexpr const char* kInput = "psi4.in";
    static constexpr const char* kOutput = "psi4.out";
    static constexpr const char* kConsole = "psi4.log";  // the program's standard output and error
    static constexpr const char* kResults = "results.txt";
    // How many lines of the output a failed run reports.
    static constexpr int kTailLines = 30;

    // `executable`: the program's name (looked up in PATH) or path.
    explicit Psi4Engine(std::string executable = "psi4") : executable_(std::move(executable)) {}

    const char* name() const override { return "psi4"; }
    void write_input(const Job& job) const override;
    // psi4 -n THREADS psi4.in psi4.out in the job's directory, with PSI_SCRATCH set
    // to the calculation's scratch directory (created when missing).
    RunResult run(const Job& job) const override;
    MonomerOrbitals read_monomer(const Job& job) const override;
    DimerMatrices read_dimer(const Job& job) const override;
    ReorganisationEnergies read_reorganisation(const Job& job) const override;

    // The input write_input writes, for a calculation check_calculation accepts.
    static std::string input_text(const Calculation& calc);

private:
    std::string executable_;
};

}  // namespace qc
