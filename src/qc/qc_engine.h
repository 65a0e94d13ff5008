// Quantum chemistry behind the couplings file: the calculations that give a pair of
// molecules its transfer integral and a molecule its reorganisation energy. An
// Engine stands for one quantum-chemistry program: it writes the program's input
// for a Job (a Calculation in a working directory), runs the program there and
// reads back what the input saved, with checks of every shape and size, into the
// value types below (MonomerOrbitals, DimerMatrices, ReorganisationEnergies).
// qc_psi4 is the engine for psi4; qc_matrix reads the text files the inputs save;
// qc_projection turns the dimer's matrices and the monomers' orbitals into the
// effective transfer integral, and the four energies into lambda; qc_process runs
// a program and keeps its console. Energies are in hartree inside and in eV in the
// results of qc_projection.
#pragma once

#include <Eigen/Dense>

#include <string>
#include <vector>

#include "mmutil.h"

namespace qc {

// The engines count energies in hartree, the rest of the suite in eV.
inline constexpr double kHartreeToEv = units::kHartree;

// The module name of this folder's fatal errors.
inline constexpr const char* kModule = "qc";

// An atom of a geometry: atomic number and Cartesian position in Angstrom.
struct Atom {
    int z = 0;
    Vec3 x{};
};
using Geometry = std::vector<Atom>;

// Holes move through the highest occupied orbitals, electrons through the lowest
// unoccupied ones; the ion of the reorganisation energy is the cation for holes
// and the anion for electrons.
enum class Carrier { Hole, Electron };

enum class CalcKind {
    MonomerOrbitals,  // SCF of one molecule: its frontier orbitals
    DimerMatrices,    // SCF of a pair: overlap and Fock matrices in the pair's basis
    Reorganisation,   // neutral and ion optimised, each then at the other's geometry
};

struct Calculation {
    CalcKind kind = CalcKind::MonomerOrbitals;
    // The molecule, or for a dimer molecule A's atoms followed by molecule B's.
    Geometry atoms;
    int atoms_a = 0;  // dimer: how many of `atoms` are molecule A's
    // Charge and spin multiplicity of the molecule (the neutral one for the
    // reorganisation energy).
    int charge = 0;
    int multiplicity = 1;
    // Reorganisation: which ion (charge + 1 for holes, - 1 for electrons) and its
    // multiplicity.
    Carrier carrier = Carrier::Hole;
    int ion_multiplicity = 2;
    std::string method = "b3lyp";
    std::string basis = "6-31g*";
    int memory_mb = 1000;
    int threads = 1;
    // Monomer: how many orbitals below the HOMO and above the LUMO are saved
    // besides those two, for couplings through HOMO-n or LUMO+n.
    int frontier = 3;
    // The program's scratch directory; empty: "scratch" in the job's directory.
    std::string scratch;
    // Input text of the caller's own (options of the program), placed after the
    // settings this tool writes and before the first calculation, so it can
    // override them.
    std::string extra;
};

struct Job {
    std::string dir;  // working directory: input, output, console and saved results
    Calculation calc;
};

// How a run of the program ended.
struct RunResult {
    bool ok = false;
    std::string error;        // why it failed: status, signal, or the program not starting
    std::string output_tail;  // the last lines of the program's output file, on failure
};

// The frontier orbitals of one molecule, MO indices from 0 in energy order.
struct MonomerOrbitals {
    std::string source;  // the results file they were read from
    int nbf = 0;         // basis functions
    int nmo = 0;         // molecular orbitals (fewer than nbf when the basis is near-dependent)
    int homo = 0;        // index of the highest occupied (alpha) orbital
    int first = 0;       // index of the first saved coefficient column
    Eigen::VectorXd energies;      // every orbital, hartree
    Eigen::MatrixXd coefficients;  // nbf x saved: orbitals first, first + 1, ...
};

// The matrices of a pair in its atomic-orbital basis, molecule A's functions first.
struct DimerMatrices {
    std::string source;
    int nbf = 0;
    int nbf_a = 0;  // functions on molecule A's atoms
    int homo = 0;
    Eigen::MatrixXd overlap;   // S, nbf x nbf
    Eigen::MatrixXd fock;      // F (alpha), nbf x nbf, hartree
    Eigen::VectorXd energies;  // the pair's orbital energies, hartree
};

// The four energies of the four-point scheme (hartree) and both optimised geometries.
struct ReorganisationEnergies {
    std::string source;
    double neutral_at_neutral = 0;  // E_0 at the neutral's geometry
    double neutral_at_ion = 0;      // E_0 at the ion's geometry
    double ion_at_ion = 0;          // E_ion at the ion's geometry
    double ion_at_neutral = 0;      // E_ion at the neutral's geometry
    Geometry neutral_geometry, ion_geometry;
};

// One quantum-chemistry program. write_input and the readers end the run (the one
// fatal path) on a calculation they cannot describe or a results file that is not
// what the input saves; run never does: a program that fails is a RunResult.
class Engine {
public:
    virtual ~Engine() = default;
    virtual const char* name() const = 0;
    // Writes the input into job.dir (created when missing) and removes results of
    // an earlier run there.
    virtual void write_input(const Job& job) const = 0;
    virtual RunResult run(const Job& job) const = 0;
    virtual MonomerOrbitals read_monomer(const Job& job) const = 0;
    virtual DimerMatrices read_dimer(const Job& job) const = 0;
    virtual ReorganisationEnergies read_reorganisation(const Job& job) const = 0;
};

// The electrons of the atoms less the charge.
int electron_count(const Geometry& atoms, int charge);
// How many alpha electrons a molecule with these electrons and multiplicity has;
// -1 when the two do not go together (parity, or more unpaired than electrons).
int alpha_count(int electrons, int multiplicity);
// The element symbol of an atomic number the element table knows ("C", "Cl");
// empty for any other number.
std::string element_symbol(int z);

// Ends the run when the calculation cannot be written as an input: no atoms, an
// unknown element, a coordinate that is not finite, a dimer split that leaves a
// molecule empty, a charge and multiplicity that do not fit the electrons, or
// method, basis, memory or threads that are not usable.
void check_calculation(const Calculation& calc);

}  // namespace qc
