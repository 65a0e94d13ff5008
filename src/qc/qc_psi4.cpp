#include "qc_psi4.h"

#include <filesystem>
#include <system_error>

#include "mmutil.h"
#include "qc_errors.h"
#include "qc_matrix.h"
#include "qc_process.h"

namespace qc {

using namespace qc_error;

namespace {

// The largest basis a results file may describe (its matrices hold nbf^2 numbers).
constexpr int kMaxBasis = 100000;
// Overlap and Fock matrices are symmetric to rounding; more than this (relative
// to the largest entry) is another matrix.
constexpr double kSymmetryTolerance = 1e-8;

// Saves named blocks in the results file (format in qc_matrix.h): written under a
// temporary name and renamed, so a run that stops halfway leaves no results.
const char* const kSaver = R"(import os
import numpy as np

def kelta_save(path, blocks):
    part = path + '.part'
    with open(part, 'w') as out:
        for name, value in blocks:
            m = np.asarray(value, dtype=float)
            if m.ndim < 2:
                m = m.reshape(-1, 1)
            out.write('%s %d %d\n' % (name, m.shape[0], m.shape[1]))
            for row in m:
                out.write(' '.join(repr(float(x)) for x in row) + '\n')
    os.replace(part, path)
)";

std::string molecule_block(const std::string& name, const Geometry& atoms, int charge, int multiplicity)
{
    std::string s = "molecule " + name + " {\n" + strprintf("%d %d\n", charge, multiplicity);
    for (const Atom& a : atoms)
        s += strprintf("%-2s %16.10f %16.10f %16.10f\n", element_symbol(a.z).c_str(), a.x[0], a.x[1], a.x[2]);
    return s + "symmetry c1\nno_com\nno_reorient\nunits angstrom\n}\n\n";
}

const char* reference(int multiplicity) { return multiplicity == 1 ? "rks" : "uks"; }

std::string monomer_steps(const Calculation& c)
{
    return strprintf("set reference %s\n", reference(c.multiplicity)) +
           strprintf("e, wfn = energy('%s', molecule=monomer, return_wfn=True)\n", c.method.c_str()) +
           strprintf("nalpha = wfn.nalpha()\nnmo = wfn.nmo()\nfirst = max(0, nalpha - 1 - %d)\nlast = min(nmo - 1, nalpha + %d)\n",
                     c.frontier, c.frontier) +
           "kelta_save('" + Psi4Engine::kResults +
           "', [('energy', e), ('nbf', wfn.basisset().nbf()), ('nmo', nmo), ('nalpha', nalpha),\n"
           "    ('first_mo', first), ('orbital_energies', wfn.epsilon_a().to_array()),\n"
           "    ('coefficients', wfn.Ca().to_array()[:, first:last + 1])])\n";
}

std::string dimer_steps(const Calculation& c)
{
    return strprintf("set reference %s\n", reference(c.multiplicity)) +
           strprintf("e, wfn = energy('%s', molecule=dimer, return_wfn=True)\n", c.method.c_str()) +
           "aobasis = wfn.basisset()\n" +
           strprintf("nbf_a = sum(1 for i in range(aobasis.nbf()) if aobasis.function_to_center(i) < %d)\n", c.atoms_a) +
           "kelta_save('" + Psi4Engine::kResults +
           "', [('energy', e), ('nbf', aobasis.nbf()), ('nbf_a', nbf_a), ('nmo', wfn.nmo()),\n"
           "    ('nalpha', wfn.nalpha()), ('orbital_energies', wfn.epsilon_a().to_array()),\n"
           "    ('overlap', wfn.S().to_array()), ('fock', wfn.Fa().to_array())])\n";
}

// Both structures optimised, then each state at the other's geometry (psi4 keeps
// geometries in bohr).
std::string reorganisation_steps(const Calculation& c)
{
    const char* m = c.method.c_str();
    return strprintf("set reference %s\n", reference(c.multiplicity)) +
           strprintf("neutral_at_neutral = optimize('%s', molecule=neutral)\n", m) +
           "neutral_geometry = neutral.geometry().clone()\ncore.clean()\n\n"
           "set reference uks\n" +
           strprintf("ion_at_ion = optimize('%s', molecule=ion)\n", m) +
           "ion_geometry = ion.geometry().clone()\ncore.clean()\n\n"
           "ion_moved = ion.clone()\nion_moved.set_geometry(neutral_geometry)\nion_moved.update_geometry()\n" +
           strprintf("ion_at_neutral = energy('%s', molecule=ion_moved)\ncore.clean()\n\n", m) +
           strprintf("set reference %s\n", reference(c.multiplicity)) +
           "neutral_moved = neutral.clone()\nneutral_moved.set_geometry(ion_geometry)\nneutral_moved.update_geometry()\n" +
           strprintf("neutral_at_ion = energy('%s', molecule=neutral_moved)\n\n", m) +
           "kelta_save('" + Psi4Engine::kResults +
           "', [('neutral_at_neutral', neutral_at_neutral), ('ion_at_ion', ion_at_ion),\n"
           "    ('ion_at_neutral', ion_at_neutral), ('neutral_at_ion', neutral_at_ion),\n"
           "    ('neutral_geometry', neutral_geometry.to_array() * psi_bohr2angstroms),\n"
           "    ('ion_geometry', ion_geometry.to_array() * psi_bohr2angstroms)])\n";
}

[[noreturn]] void bad_results(const MatrixFile& f, const std::string& why)
{
    fatal(kModule, kLineResults, 1, f.path() + ": " + why + "\n");
}

// The orbital energies, which an SCF program gives in ascending order.
Eigen::VectorXd orbital_energies(const MatrixFile& f, int nmo)
{
    Eigen::VectorXd e = f.vector("orbital_energies", nmo);
    for (int i = 1; i < nmo; ++i)
        if (e[i] < e[i - 1]) bad_results(f, strprintf("orbital energies %d and %d are not in ascending order", i, i + 1));
    return e;
}

// nalpha as the input's molecule has it: a results file of another molecule, or of
// another charge, gives itself away here.
int occupied(const MatrixFile& f, const Geometry& atoms, int charge, int multiplicity, int nmo)
{
    const int nalpha = f.count("nalpha", 1, nmo);
    const int electrons = electron_count(atoms, charge);
    const int expected = alpha_count(electrons, multiplicity);
    if (nalpha != expected)
        bad_results(f, strprintf("nalpha = %d, but %zu atoms with %d electrons and multiplicity %d have %d alpha electrons", nalpha,
                                 atoms.size(), electrons, multiplicity, expected));
    return nalpha;
}

std::string results_path(const Job& job) { return (std::filesystem::path(job.dir) / Psi4Engine::kResults).string(); }
}  // namespace

std::string Psi4Engine::input_text(const Calculation& c)
{
    static const char* const kinds[] = {"monomer orbitals", "dimer matrices", "reorganisation energy"};
    std::string s = std::string("# psi4 input of kelta_qc: ") + kinds[static_cast<int>(c.kind)] + "\n" +
                    strprintf("memory %d mb\n\n", c.memory_mb);
    switch (c.kind) {
    case CalcKind::MonomerOrbitals:
        s += molecule_block("monomer", c.atoms, c.charge, c.multiplicity);
        break;
    case CalcKind::DimerMatrices:
        s += strprintf("# atoms 1 to %d are the first molecule, %d to %zu the second\n", c.atoms_a, c.atoms_a + 1, c.atoms.size());
        s += molecule_block("dimer", c.atoms, c.charge, c.multiplicity);
        break;
    case CalcKind::Reorganisation:
        s += molecule_block("neutral", c.atoms, c.charge, c.multiplicity);
        s += molecule_block("ion", c.atoms, c.charge + (c.carrier == Carrier::Hole ? 1 : -1), c.ion_multiplicity);
        break;
    }
    s += "set basis " + c.basis + "\n";
    if (!c.extra.empty()) s += c.extra + (c.extra.back() == '\n' ? "" : "\n");
    s += "\n" + std::string(kSaver) + "\n";
    switch (c.kind) {
    case CalcKind::MonomerOrbitals: return s + monomer_steps(c);
    case CalcKind::DimerMatrices: return s + dimer_steps(c);
    case CalcKind::Reorganisation: return s + reorganisation_steps(c);
    }
    return s;
}

void Psi4Engine::write_input(const Job& job) const
{
    check_calculation(job.calc);
    std::error_code ec;
    std::filesystem::create_directories(job.dir, ec);
    if (ec) fatal(kModule, kLineDirectory, -1, "", "Failed to create directory " + job.dir + ": " + ec.message() + "\n");
    std::filesystem::remove(results_path(job), ec);
    OutputFile input((std::filesystem::path(job.dir) / kInput).string(), kModule, kLineInput, "Failed to create input file ");
    input.write(input_text(job.calc));
    input.commit();
}

RunResult Psi4Engine::run(const Job& job) const
{
    RunResult r;
    std::error_code ec;
    if (!std::filesystem::is_directory(job.dir, ec)) {
        r.error = "no job directory " + job.dir;
        return r;
    }
    const std::filesystem::path scratch =
        std::filesystem::absolute(job.calc.scratch.empty() ? std::filesystem::path(job.dir) / "scratch" : std::filesystem::path(job.calc.scratch), ec);
    if (!ec) std::filesystem::create_directories(scratch, ec);
    if (ec) {
        r.error = "cannot create the scratch directory " + scratch.string() + ": " + ec.message();
        return r;
    }
    const ProcessResult p = run_program({executable_, "-n", std::to_string(job.calc.threads), kInput, kOutput}, job.dir,
                                        {{"PSI_SCRATCH", scratch.string()}}, kConsole);
    r.ok = p.started && p.status == 0;
    if (r.ok) return r;
    r.error = p.error;
    if (p.started) {
        const std::filesystem::path dir(job.dir);
        r.error += " (output " + (dir / kOutput).string() + ", console " + (dir / kConsole).string() + ")";
        r.output_tail = last_lines((dir / kOutput).string(), kTailLines);
        if (r.output_tail.empty()) r.output_tail = last_lines((dir / kConsole).string(), kTailLines);
    }
    return r;
}

MonomerOrbitals Psi4Engine::read_monomer(const Job& job) const
{
    const Calculation& c = job.calc;
    const MatrixFile f(results_path(job));
    MonomerOrbitals m;
    m.source = f.path();
    m.nbf = f.count("nbf", 1, kMaxBasis);
    m.nmo = f.count("nmo", 1, m.nbf);
    m.homo = occupied(f, c.atoms, c.charge, c.multiplicity, m.nmo) - 1;
    m.energies = orbital_energies(f, m.nmo);
    m.first = f.count("first_mo", 0, m.homo);
    m.coefficients = f.matrix("coefficients", m.nbf, -1);
    if (m.first + m.coefficients.cols() > m.nmo)
        bad_results(f, strprintf("%ld coefficient columns from orbital %d run past the %d orbitals",
                                 static_cast<long>(m.coefficients.cols()), m.first + 1, m.nmo));
    return m;
}

DimerMatrices Psi4Engine::read_dimer(const Job& job) const
{
    const Calculation& c = job.calc;
    const MatrixFile f(results_path(job));
    DimerMatrices d;
    d.source = f.path();
    d.nbf = f.count("nbf", 2, kMaxBasis);
    d.nbf_a = f.count("nbf_a", 1, d.nbf - 1);
    const int nmo = f.count("nmo", 1, d.nbf);
    d.homo = occupied(f, c.atoms, c.charge, c.multiplicity, nmo) - 1;
    d.energies = orbital_energies(f, nmo);
    d.overlap = f.symmetric("overlap", d.nbf, kSymmetryTolerance);
    d.fock = f.symmetric("fock", d.nbf, kSymmetryTolerance);
    return d;
}

ReorganisationEnergies Psi4Engine::read_reorganisation(const Job& job) const
{
    const MatrixFile f(results_path(job));
    ReorganisationEnergies r;
    r.source = f.path();
    r.neutral_at_neutral = f.scalar("neutral_at_neutral");
    r.neutral_at_ion = f.scalar("neutral_at_ion");
    r.ion_at_ion = f.scalar("ion_at_ion");
    r.ion_at_neutral = f.scalar("ion_at_neutral");
    const int n = static_cast<int>(job.calc.atoms.size());
    const auto geometry = [&](const char* name) {
        const Eigen::MatrixXd x = f.matrix(name, n, 3);
        Geometry g = job.calc.atoms;
        for (int i = 0; i < n; ++i) g[i].x = {x(i, 0), x(i, 1), x(i, 2)};
        return g;
    };
    r.neutral_geometry = geometry("neutral_geometry");
    r.ion_geometry = geometry("ion_geometry");
    return r;
}

}  // namespace qc
