#include "qc_stage.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "fileio.h"
#include "mmutil.h"
#include "qc_errors.h"
#include "qc_projection.h"
#include "qc_psi4.h"
#include "transport.h"

namespace qc {

using namespace qc_error;
namespace fs = std::filesystem;

namespace {

// psi4 is engine 4; 1 to 3 name programs this stage does not drive yet.
constexpr int kPsi4Engine = 4;
const char* const kEngineNames[] = {"", "Gaussian", "ORCA", "Q-Chem"};
// The marker of a finished calculation; it holds the input that ran.
const char* const kMarker = "finished";
// How far (Angstrom) an atom of a class file may lie from its molecule's file
// moved by the translation of the first atom: the files' rounding.
constexpr double kSameGeometry = 2e-3;
// Orbitals saved below the HOMO and above the LUMO, at least.
constexpr int kFrontier = 3;

const double kNan = std::numeric_limits<double>::quiet_NaN();

[[noreturn]] void bad_geometry(const std::string& file, int line, const std::string& why)
{
    fatal(kModule, kLineGeometry, 1, strprintf("%s line %d: ", file.c_str(), line) + why + "\n");
}

std::string lower(std::string s)
{
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

int atomic_number(const std::string& symbol)
{
    for (int z = 1; z < kNumElements; ++z)
        if (lower(element_symbol(z)) == lower(symbol)) return z;
    return 0;
}

std::string read_text(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

const char* carrier_orbital(Carrier c) { return c == Carrier::Hole ? "HOMO" : "LUMO"; }

}  // namespace

Xyz read_xyz(const std::string& file)
{
    std::ifstream in;
    if (is_regular_file(file)) in.open(file);
    if (!in.is_open())
        fatal(kModule, kLineGeometry, 1,
              "the geometry " + file + " cannot be read (kelta_kmc -pairs writes dimers/ beside the couplings file)\n",
              "Failed to open input file " + file + "\n");
    Xyz x;
    x.file = file;
    std::string line;
    long count = 0;
    if (!std::getline(in, line) || !parse_long(trim(line), count) || count < 1 || count > 100000)
        bad_geometry(file, 1, "the first line is no atom count: " + line);
    if (!std::getline(in, x.comment)) bad_geometry(file, 2, "no comment line");
    for (long k = 0; k < count; ++k) {
        const int lineno = static_cast<int>(k) + 3;
        if (!std::getline(in, line)) bad_geometry(file, lineno, strprintf("the file ends after %ld of its %ld atoms", k, count));
        std::istringstream s(line);
        std::string el, extra;
        Atom a;
        if (!(s >> el >> a.x[0] >> a.x[1] >> a.x[2]) || (s >> extra)) bad_geometry(file, lineno, "not an atom line (El x y z): " + line);
        a.z = atomic_number(el);
        if (a.z == 0) bad_geometry(file, lineno, "no element " + el);
        x.atoms.push_back(a);
    }
    return x;
}

void split_method_basis(const std::string& text, const std::string& method, std::string& m, std::string& b)
{
    std::istringstream s(text);
    std::vector<std::string> w;
    for (std::string word; s >> word;) w.push_back(word);
    m = method;
    b = text;
    if (w.size() == 2) {
        m = w[0];
        b = w[1];
    } else if (w.size() == 1) {
        b = w[0];
    }
}

StageSettings stage_settings(const Transport& t)
{
    const int engine = t.get_compute_engine();
    if (engine != kPsi4Engine)
        fatal(kModule, kLineEngine, 1,
              strprintf("compute_engine = %d%s: kelta_qc runs psi4 only (compute_engine = 4); %s\n", engine,
                        engine >= 1 && engine <= 3 ? (std::string(" (") + kEngineNames[engine] + ")").c_str() : "",
                        "Gaussian (1), ORCA (2) and Q-Chem (3) are not supported yet"));
    StageSettings s;
    const char letter = t.charge.empty() ? '?' : t.charge[0];
    if (letter != 'h' && letter != 'e')
        fatal(kModule, kLineCarrier, 1,
              strprintf("charge.inp names the carrier '%s': the couplings need a hole (h) or an electron (e)\n", t.charge.c_str()));
    s.carrier = letter == 'h' ? Carrier::Hole : Carrier::Electron;
    split_method_basis(t.qc_basis, t.qc_method, s.method, s.basis);
    split_method_basis(t.qc_basis_re, t.qc_method, s.method_re, s.basis_re);
    s.memory_mb = t.qc_memory;
    s.threads = t.job.qc_ppn;
    std::string scratch = t.job.scratch;
    s.scratch = trim(scratch);
    s.extra = t.qc_inp_append;
    s.homo_adjustment = t.homo_adjustment;
    s.lumo_adjustment = t.lumo_adjustment;
    s.monomers_once = t.HL_unique_mol != 0;
    s.re_per_kind = t.RE_unique_mol != 0;
    s.site_energies = t.lat_site_energy != 0;
    s.exe = t.job.qc_exe;
    return s;
}

int frontier_offset(const StageSettings& s, int mol)
{
    const std::vector<int>& adj = s.carrier == Carrier::Hole ? s.homo_adjustment : s.lumo_adjustment;
    if (adj.empty()) return 0;
    if (adj.size() == 1) return adj[0];
    return mol < static_cast<int>(adj.size()) ? adj[static_cast<size_t>(mol)] : 0;
}

std::string formula(const Geometry& atoms)
{
    std::map<int, int> count;
    for (const Atom& a : atoms) ++count[a.z];
    std::string f;
    const auto put = [&](int z) {
        if (!count.count(z)) return;
        f += element_symbol(z) + (count[z] > 1 ? std::to_string(count[z]) : "");
        count.erase(z);
    };
    if (count.count(6)) {
        put(6);
        put(1);
    }
    std::map<std::string, int> rest;
    for (const auto& [z, n] : count) rest[element_symbol(z)] = z;
    for (const auto& [sym, z] : rest) put(z);
    return f;
}

namespace {

Calculation base_calculation(const StageSettings& s, CalcKind kind, const Geometry& atoms, int frontier)
{
    Calculation c;
    c.kind = kind;
    c.atoms = atoms;
    c.carrier = s.carrier;
    c.method = kind == CalcKind::Reorganisation ? s.method_re : s.method;
    c.basis = kind == CalcKind::Reorganisation ? s.basis_re : s.basis;
    c.memory_mb = s.memory_mb;
    c.threads = s.threads;
    c.frontier = frontier;
    c.scratch = s.scratch;
    c.extra = s.extra;
    return c;
}

// Whether `part` is `whole` moved by one translation (same elements in the same order).
bool translated(const Geometry& part, const Geometry& whole)
{
    if (part.size() != whole.size()) return false;
    Vec3 shift{};
    for (int k = 0; k < 3; ++k) shift[k] = part[0].x[k] - whole[0].x[k];
    for (size_t i = 0; i < part.size(); ++i) {
        if (part[i].z != whole[i].z) return false;
        for (int k = 0; k < 3; ++k)
            if (!(std::fabs(part[i].x[k] - whole[i].x[k] - shift[k]) <= kSameGeometry)) return false;
    }
    return true;
}

}  // namespace

Plan make_plan(const StageSettings& s, const CouplingsText& couplings)
{
    Plan p;
    p.couplings_file = couplings.file;
    p.dimers_dir = (fs::path(couplings.file).parent_path() / "dimers").string();
    const auto in_dimers = [&](const std::string& name) { return (fs::path(p.dimers_dir) / name).string(); };
    int frontier = kFrontier;
    for (const int a : s.carrier == Carrier::Hole ? s.homo_adjustment : s.lumo_adjustment) frontier = std::max(frontier, a);

    // The molecules of the cell: molecule_1.xyz, molecule_2.xyz, ... as far as they go.
    std::vector<Xyz> mols;
    while (is_regular_file(in_dimers(strprintf("molecule_%zu.xyz", mols.size() + 1))))
        mols.push_back(read_xyz(in_dimers(strprintf("molecule_%zu.xyz", mols.size() + 1))));
    if (mols.empty()) read_xyz(in_dimers("molecule_1.xyz"));  // the refusal of a missing file
    p.molecules = static_cast<int>(mols.size());
    for (const Xyz& m : mols) p.formulas.push_back(formula(m.atoms));

    for (int m = 0; m < p.molecules; ++m) {
        if (!s.monomers_once) break;
        PlannedCalculation c;
        c.name = strprintf("HL/molecule_%d", m + 1);
        c.what = strprintf("molecule %d (%s)", m + 1, p.formulas[static_cast<size_t>(m)].c_str());
        c.job = {c.name, base_calculation(s, CalcKind::MonomerOrbitals, mols[static_cast<size_t>(m)].atoms, frontier)};
        p.monomer.push_back(static_cast<int>(p.calcs.size()));
        p.calcs.push_back(c);
    }
    for (const ClassRow& row : couplings.rows) {
        const std::string file = in_dimers(strprintf("class_%03d.xyz", row.cls));
        const Xyz x = read_xyz(file);
        for (const int m : {row.mol_i, row.mol_j})
            if (m > p.molecules)
                fatal(kModule, kLineDimer, 1,
                      strprintf("class %d of %s pairs molecule %d, and %s holds molecule_1.xyz to molecule_%d.xyz\n", row.cls,
                                couplings.file.c_str(), m, p.dimers_dir.c_str(), p.molecules));
        const Geometry& a = mols[static_cast<size_t>(row.mol_i - 1)].atoms;
        const Geometry& b = mols[static_cast<size_t>(row.mol_j - 1)].atoms;
        const Geometry first(x.atoms.begin(), x.atoms.begin() + static_cast<long>(std::min(a.size(), x.atoms.size())));
        const Geometry second(x.atoms.begin() + static_cast<long>(first.size()), x.atoms.end());
        if (!translated(first, a) || !translated(second, b))
            fatal(kModule, kLineDimer, 1,
                  strprintf("%s is not molecule %d followed by molecule %d (each its dimers/molecule_N.xyz moved by a lattice "
                            "translation, atoms in the same order), as class %d of %s says\n",
                            file.c_str(), row.mol_i, row.mol_j, row.cls, couplings.file.c_str()));
        PlannedClass pc;
        pc.row = row;
        pc.atoms_a = static_cast<int>(a.size());
        const std::string where = strprintf("molecules %d and %d in cell %d %d %d", row.mol_i, row.mol_j, row.cell[0], row.cell[1], row.cell[2]);
        if (s.monomers_once) {
            pc.monomer_a = p.monomer[static_cast<size_t>(row.mol_i - 1)];
            pc.monomer_b = p.monomer[static_cast<size_t>(row.mol_j - 1)];
        } else {
            for (const int half : {0, 1}) {
                PlannedCalculation c;
                c.name = strprintf("HL/class_%03d_mol_%c", row.cls, half == 0 ? 'a' : 'b');
                c.what = strprintf("class %d, molecule %d", row.cls, half == 0 ? row.mol_i : row.mol_j);
                c.job = {c.name, base_calculation(s, CalcKind::MonomerOrbitals, half == 0 ? first : second, frontier)};
                (half == 0 ? pc.monomer_a : pc.monomer_b) = static_cast<int>(p.calcs.size());
                p.calcs.push_back(c);
            }
        }
        PlannedCalculation c;
        c.name = strprintf("HL/class_%03d", row.cls);
        c.what = strprintf("class %d: %s", row.cls, where.c_str());
        c.job = {c.name, base_calculation(s, CalcKind::DimerMatrices, x.atoms, frontier)};
        c.job.calc.atoms_a = pc.atoms_a;
        pc.dimer = static_cast<int>(p.calcs.size());
        p.calcs.push_back(c);
        p.classes.push_back(pc);
    }
    // One reorganisation energy per kind of molecule (by formula), or per molecule.
    for (int m = 0; m < p.molecules; ++m) {
        const std::string& f = p.formulas[static_cast<size_t>(m)];
        auto kind = std::find_if(p.kinds.begin(), p.kinds.end(), [&](const Kind& k) { return k.formula == f; });
        if (kind != p.kinds.end() && s.re_per_kind) {
            kind->molecules.push_back(m);
            continue;
        }
        Kind k{f, {m}, static_cast<int>(p.calcs.size())};
        PlannedCalculation c;
        c.name = strprintf("RE/molecule_%d", m + 1);
        c.what = strprintf("reorganisation energy of %s (molecule %d)", f.c_str(), m + 1);
        c.step = Step::Reorganisation;
        c.job = {c.name, base_calculation(s, CalcKind::Reorganisation, mols[static_cast<size_t>(m)].atoms, frontier)};
        p.calcs.push_back(c);
        p.kinds.push_back(k);
    }
    for (const PlannedCalculation& c : p.calcs) check_calculation(c.job.calc);
    return p;
}

bool finished(const PlannedCalculation& c)
{
    const fs::path marker = fs::path(c.job.dir) / kMarker;
    return is_regular_file(marker.string()) && read_text(marker) == Psi4Engine::input_text(c.job.calc);
}

bool prepare(const Engine& e, const PlannedCalculation& c)
{
    if (finished(c)) return false;
    std::error_code ec;
    fs::remove(fs::path(c.job.dir) / kMarker, ec);
    e.write_input(c.job);
    return true;
}

Outcome run_calculation(const Engine& e, const PlannedCalculation& c)
{
    Outcome o;
    if (finished(c)) {
        o.ok = o.before = true;
        return o;
    }
    const fs::path input = fs::path(c.job.dir) / Psi4Engine::kInput;
    if (!is_regular_file(input.string()) || read_text(input) != Psi4Engine::input_text(c.job.calc)) {
        o.error = "its input " + input.string() + " is missing or was written for other settings (do_transport_prepare = 1 writes it)";
        return o;
    }
    const auto start = std::chrono::steady_clock::now();
    const RunResult r = e.run(c.job);
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!r.ok) {
        o.error = r.error;
        o.tail = r.output_tail;
        return o;
    }
    // The results must read back before the calculation counts as finished.
    try {
        switch (c.job.calc.kind) {
        case CalcKind::MonomerOrbitals: e.read_monomer(c.job); break;
        case CalcKind::DimerMatrices: e.read_dimer(c.job); break;
        case CalcKind::Reorganisation: e.read_reorganisation(c.job); break;
        }
    } catch (const RunExit&) {
        o.error = "its results do not read back (above)";
        return o;
    }
    OutputFile marker((fs::path(c.job.dir) / kMarker).string());
    marker.write(Psi4Engine::input_text(c.job.calc));
    const std::string why = marker.open() ? marker.finish() : marker.open_reason();
    if (!why.empty()) {
        o.error = "the marker " + marker.name() + " cannot be written: " + why;
        return o;
    }
    o.ok = true;
    return o;
}

Collected collect(const Engine& e, const StageSettings& s, const Plan& p, bool couplings, bool lambda)
{
    Collected out;
    const auto unfinished = [&](int calc) {
        return finished(p.calcs[static_cast<size_t>(calc)]) ? std::string() : p.calcs[static_cast<size_t>(calc)].name;
    };
    std::map<int, MonomerOrbitals> orbitals;
    const auto monomer = [&](int calc) -> const MonomerOrbitals& {
        if (!orbitals.count(calc)) orbitals[calc] = e.read_monomer(p.calcs[static_cast<size_t>(calc)].job);
        return orbitals[calc];
    };
    out.V_meV.assign(p.classes.size(), kNan);
    out.coupling.resize(p.classes.size());
    if (couplings) {
        for (size_t k = 0; k < p.classes.size(); ++k) {
            const PlannedClass& c = p.classes[k];
            std::string missing;
            for (const int calc : {c.monomer_a, c.monomer_b, c.dimer})
                if (const std::string u = unfinished(calc); !u.empty()) missing += (missing.empty() ? "" : ", ") + u;
            if (!missing.empty()) {
                out.missing.push_back(strprintf("class %d (%s not finished)", c.row.cls, missing.c_str()));
                continue;
            }
            const DimerMatrices d = e.read_dimer(p.calcs[static_cast<size_t>(c.dimer)].job);
            out.coupling[k] = dimer_coupling(d, monomer(c.monomer_a), monomer(c.monomer_b), s.carrier,
                                             frontier_offset(s, c.row.mol_i - 1), frontier_offset(s, c.row.mol_j - 1));
            out.V_meV[k] = std::fabs(out.coupling[k].j_eff) * 1000.0;
        }
    }
    if (couplings && s.site_energies && s.monomers_once) {
        // The carrier's energy on each molecule: -E(HOMO) for a hole, E(LUMO) for an
        // electron, from the molecule's own calculation, relative to the cell's mean.
        std::vector<double> e_site;
        bool all = true;
        for (int m = 0; m < p.molecules && all; ++m) {
            const int calc = p.monomer[static_cast<size_t>(m)];
            if (!unfinished(calc).empty()) {
                all = false;
                break;
            }
            const MonomerOrbitals& mo = monomer(calc);
            const double energy = mo.energies[frontier_index(mo, s.carrier, frontier_offset(s, m))] * kHartreeToEv;
            e_site.push_back(s.carrier == Carrier::Hole ? -energy : energy);
        }
        if (all && !e_site.empty()) {
            double mean = 0;
            for (const double v : e_site) mean += v / static_cast<double>(e_site.size());
            for (const double v : e_site) out.site_meV.push_back((v - mean) * 1000.0);
        } else {
            out.missing.push_back("the site energies (a molecule's calculation not finished)");
        }
    }
    out.lambda.resize(p.kinds.size());
    out.lambda_meV = kNan;
    if (lambda) {
        double sum = 0;
        int n = 0;
        for (size_t k = 0; k < p.kinds.size(); ++k) {
            const Kind& kind = p.kinds[k];
            out.lambda[k].lambda = kNan;
            if (const std::string u = unfinished(kind.calc); !u.empty()) {
                out.missing.push_back("the reorganisation energy of " + kind.formula + " (" + u + " not finished)");
                continue;
            }
            out.lambda[k] = four_point(e.read_reorganisation(p.calcs[static_cast<size_t>(kind.calc)].job));
            sum += out.lambda[k].lambda * 1000.0 * static_cast<double>(kind.molecules.size());
            n += static_cast<int>(kind.molecules.size());
        }
        if (n == p.molecules && n > 0) out.lambda_meV = sum / n;
    }
    return out;
}

Filling filling(const StageSettings& s, const Plan& p, const Collected& c, bool couplings, bool lambda)
{
    Filling f;
    f.V_meV = c.V_meV;
    f.lambda_meV = c.lambda_meV;
    f.site_meV = c.site_meV;
    const char* ion = s.carrier == Carrier::Hole ? "cation" : "anion";
    if (couplings)
        f.comments.push_back(strprintf("# kelta_qc (psi4): V_meV = |J_eff| of the %s%s by projection on the dimer at %s/%s", carrier_orbital(s.carrier),
                                       s.homo_adjustment.empty() && s.lumo_adjustment.empty() ? "s" : "s (with the adjustments of kelta.inp)",
                                       s.method.c_str(), s.basis.c_str()));
    if (lambda) {
        f.comments.push_back(strprintf("# kelta_qc (psi4): lambda_meV four-point at %s/%s, %s and neutral each optimised%s",
                                       s.method_re.c_str(), s.basis_re.c_str(), ion,
                                       p.kinds.size() > 1 ? ", the mean over the cell's molecules" : ""));
        for (size_t k = 0; k < p.kinds.size(); ++k)
            if (std::isfinite(c.lambda[k].lambda))
                f.comments.push_back(strprintf("# kelta_qc (psi4): lambda of %s = %.1f meV = %.1f (%s relaxation) + %.1f (neutral relaxation)",
                                               p.kinds[k].formula.c_str(), c.lambda[k].lambda * 1000.0,
                                               c.lambda[k].ion_relaxation * 1000.0, ion, c.lambda[k].neutral_relaxation * 1000.0));
    }
    if (!c.site_meV.empty())
        f.comments.push_back(strprintf("# kelta_qc (psi4): site_meV from the molecules' own %s energies, relative to their mean",
                                       carrier_orbital(s.carrier)));
    return f;
}

}  // namespace qc
