// The quantum-chemistry stage between the classes of pairs and the hopping
// simulation: from the geometries kelta_kmc -pairs writes beside the couplings
// file (dimers/molecule_N.xyz, dimers/class_NNN.xyz) it plans one calculation per
// molecule of the cell, one per class dimer and one reorganisation calculation
// per kind of molecule, runs them (or leaves them to a job array), and turns
// their results into the couplings file's V_meV, lambda_meV and site energies.
//
// A lattice translation moves a molecule's orbitals rigidly with its atoms, so
// the orbitals of molecule N computed once serve every dimer it belongs to: the
// stage checks that each class file's two halves are its molecules' files moved
// by a translation each. Every calculation has its own directory under HL/ or
// RE/; a marker there (holding the input it ran) is written once its results
// have been read back, and a calculation with its marker is never run again.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "qc_couplings.h"
#include "qc_engine.h"
#include "qc_projection.h"

class Transport;

namespace qc {

// A geometry file: atom count, comment, then "El x y z" in Angstrom.
struct Xyz {
    std::string file, comment;
    Geometry atoms;
};
// Ends the run (module qc) when the file is missing or breaks the format.
Xyz read_xyz(const std::string& file);

// What the input file, charge.inp and the two-word bases give the stage.
struct StageSettings {
    Carrier carrier = Carrier::Hole;
    std::string method, basis;        // the couplings' calculations
    std::string method_re, basis_re;  // the reorganisation energy
    int memory_mb = 4096, threads = 1;
    std::string scratch, extra;
    std::vector<int> homo_adjustment, lumo_adjustment;  // per molecule of the cell; one entry: all
    bool monomers_once = true;  // HL_unique_mol: each molecule of the cell computed once
    bool re_per_kind = true;    // RE_unique_mol: one reorganisation per kind of molecule
    bool site_energies = false; // lat_site_energy
    std::string exe = "psi4";
};
// Reads them from the run's input (after read_kelta_inp and read_charge_inp);
// ends the run for an engine other than psi4 and a carrier other than e or h.
StageSettings stage_settings(const Transport& t);
// "b3lyp STO-3g" is method and basis; a single word is the basis of `method`.
void split_method_basis(const std::string& text, const std::string& method, std::string& m, std::string& b);
// HOMO - n (holes) or LUMO + n (electrons): n of molecule `mol` (from 0).
int frontier_offset(const StageSettings& s, int mol);

enum class Step { Couplings, Reorganisation };

struct PlannedCalculation {
    std::string name;     // its directory, relative to the working directory: HL/molecule_1
    std::string what;     // what it is, for the progress lines
    Step step = Step::Couplings;
    Job job;
};

struct PlannedClass {
    ClassRow row;
    int dimer = 0;               // index into Plan::calcs
    int monomer_a = 0, monomer_b = 0;
    int atoms_a = 0;
};

struct Kind {
    std::string formula;
    std::vector<int> molecules;  // from 0
    int calc = 0;                // its reorganisation calculation
};

struct Plan {
    std::string couplings_file, dimers_dir;
    int molecules = 0;
    std::vector<std::string> formulas;  // [molecules]
    std::vector<int> monomer;           // [molecules] its calculation
    std::vector<PlannedClass> classes;
    std::vector<Kind> kinds;            // the reorganisation calculations
    std::vector<PlannedCalculation> calcs;
};

// The calculations for the couplings file's classes, from dimers/ beside it.
Plan make_plan(const StageSettings& s, const CouplingsText& couplings);

// The formula of a geometry, carbon and hydrogen first ("C10H8").
std::string formula(const Geometry& atoms);

// Whether the calculation has its marker for exactly the input it would write now.
bool finished(const PlannedCalculation& c);
// Writes the input unless the calculation is finished; true when it wrote one.
bool prepare(const Engine& e, const PlannedCalculation& c);

struct Outcome {
    bool ok = false, before = false;  // before: finished in an earlier run
    double seconds = 0;
    std::string error, tail;
};
// Runs the calculation unless it is finished, reads its results back and writes
// the marker; never ends the run: a failure is an Outcome with the reason and
// the last lines of the program's output.
Outcome run_calculation(const Engine& e, const PlannedCalculation& c);

// The numbers the finished calculations give; a class or kind whose
// calculations have not finished is named in `missing`.
struct Collected {
    std::vector<double> V_meV;  // [classes] |J_eff|; nan when missing
    std::vector<Coupling> coupling;
    std::vector<Reorganisation> lambda;  // [kinds], eV; lambda nan when missing
    double lambda_meV = 0;               // mean over the cell's molecules
    std::vector<double> site_meV;        // [molecules] when asked for
    std::vector<std::string> missing;
};
Collected collect(const Engine& e, const StageSettings& s, const Plan& p, bool couplings, bool lambda);

// The filling of the couplings file from what was collected.
Filling filling(const StageSettings& s, const Plan& p, const Collected& c, bool couplings, bool lambda);

// The job array: one task per calculation in `tasks` (indices into the plan, run
// as `kelta_qc -task K`), then kelta_qc -collect once they have all ended,
// whatever their status (it names those that failed). Written as qc_job.sh for
// sched_type (slurm, pbs, lsf or local); returns its name.
std::string write_qc_job(const Transport& t, const Plan& p, const std::vector<int>& tasks, const std::string& config);

}  // namespace qc
