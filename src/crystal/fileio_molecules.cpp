// Molecules of the cell: close pairs found through a grid of bins (the lattice
// images included), the checks that refuse a cell that holds no sensible
// molecules, bonded atoms gathered and made whole, and the XYZ writers.
#include "fileio_molecules.h"

#include <algorithm>
#include <cmath>
#include <queue>
#include <tuple>

#include "fileio.h"
#include "fileio_raw.h"

namespace crystal {

namespace {

using Cell3 = std::array<int, 3>;

// Atom j moved by the lattice translation t lies d from atom i.
struct Contact {
    int i, j;
    Cell3 t;
    double d;
};

// A cell whose neighbour search would need more lattice images than this has
// lattice planes far closer than any bond: refused.
constexpr int kMaxImageBlocks = 4096;
constexpr int kMaxBins = 50;  // per axis

int floor_div(int a, int n) { return a >= 0 ? a / n : -((-a + n - 1) / n); }

bool positive(const Cell3& t)
{
    for (const int v : t)
        if (v != 0) return v > 0;
    return false;
}

Vec3 cross(const Vec3& u, const Vec3& v)
{
    return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

Vec3 column(const Mat3& m, int k) { return {m[0][k], m[1][k], m[2][k]}; }

// Every pair of atoms (and every atom with its own images) closer than
// reach(i, j), once each. Atoms are binned by their fractional coordinates,
// with bins at least `cutoff` wide between opposite faces, so that a pair
// closer than that lies in the same or in neighbouring bins.
template <class Reach>
std::vector<Contact> close_pairs(const Crystal& c, double cutoff, Reach reach)
{
    const double volume = std::fabs(determinant(c.latt));
    Cell3 bins{}, range{};
    int blocks = 1;
    for (int k = 0; k < 3; ++k) {
        const double spacing = volume / get_magnitude(cross(column(c.latt, (k + 1) % 3), column(c.latt, (k + 2) % 3)));
        bins[k] = static_cast<int>(std::clamp(std::floor(spacing / cutoff), 1.0, static_cast<double>(kMaxBins)));
        const double r = std::ceil(cutoff * bins[k] / spacing);
        if (!(r <= kMaxImageBlocks))
            refuse(kLineCell, strprintf("%s: lattice planes only %.3g A apart leave no room for molecules\n",
                                        c.source.c_str(), spacing));
        range[k] = std::max(1, static_cast<int>(r));
        blocks *= 2 * range[k] + 1;
        if (blocks > kMaxImageBlocks)
            refuse(kLineCell, strprintf("%s: lattice planes only %.3g A apart leave no room for molecules\n",
                                        c.source.c_str(), spacing));
    }
    const int n = static_cast<int>(c.atoms.size());
    std::vector<Cell3> bin_of(static_cast<size_t>(n));
    std::vector<std::vector<int>> members(static_cast<size_t>(bins[0] * bins[1] * bins[2]));
    const auto index = [&](const Cell3& b) { return (b[0] * bins[1] + b[1]) * bins[2] + b[2]; };
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < 3; ++k)
            bin_of[i][k] = std::min(bins[k] - 1, static_cast<int>(c.atoms[i].frac[k] * bins[k]));
        members[index(bin_of[i])].push_back(i);
    }
    std::vector<Contact> found;
    for (int i = 0; i < n; ++i) {
        Cell3 off;
        for (off[0] = -range[0]; off[0] <= range[0]; ++off[0])
            for (off[1] = -range[1]; off[1] <= range[1]; ++off[1])
                for (off[2] = -range[2]; off[2] <= range[2]; ++off[2]) {
                    Cell3 t, b;
                    for (int k = 0; k < 3; ++k) {
                        const int raw = bin_of[i][k] + off[k];
                        t[k] = floor_div(raw, bins[k]);
                        b[k] = raw - t[k] * bins[k];
                    }
                    for (const int j : members[index(b)]) {
                        if (j < i || (j == i && !positive(t))) continue;
                        Vec3 d;
                        for (int k = 0; k < 3; ++k) d[k] = c.atoms[j].frac[k] + t[k] - c.atoms[i].frac[k];
                        const double dist = get_magnitude(mat_vec_mul(c.latt, d));
                        if (dist < reach(i, j)) found.push_back({i, j, t, dist});
                    }
                }
    }
    std::sort(found.begin(), found.end(), [](const Contact& a, const Contact& b) {
        return std::tie(a.i, a.j, a.t) < std::tie(b.i, b.j, b.t);
    });
    return found;
}

std::string pair_name(const Crystal& c, const Contact& p)
{
    std::string j = c.atom_name(p.j);
    if (p.t != Cell3{0, 0, 0}) j += strprintf(" of the cell %+d %+d %+d", p.t[0], p.t[1], p.t[2]);
    return c.atom_name(p.i) + " and " + j;
}

// The first close pair, and how many others there are.
std::string pairs_text(const Crystal& c, const std::vector<Contact>& pairs)
{
    std::string s = pair_name(c, pairs[0]) + " are " + strprintf("%.3f", pairs[0].d) + " A apart";
    if (pairs.size() > 1) s += strprintf(" (and %zu more such pairs)", pairs.size() - 1);
    return s;
}

Molecule make_molecule(const Crystal& c, const std::vector<int>& atoms, const std::vector<Cell3>& shift)
{
    Molecule m;
    m.atoms = atoms;
    Composition counts(kNumElements, 0);
    Vec3 sum{};
    for (const int a : atoms) {
        const CellAtom& atom = c.atoms[a];
        Vec3 f;
        for (int k = 0; k < 3; ++k) f[k] = atom.frac[k] + shift[a][k];
        const double w = atomic_mass(atom.z);
        for (int k = 0; k < 3; ++k) sum[k] += w * f[k];
        m.mass += w;
        m.z.push_back(atom.z);
        m.frac.push_back(f);
        ++counts[atom.z];
    }
    // The whole molecule moves by lattice vectors until its centre is in the cell;
    // a centre on a face to rounding (a molecule on an inversion centre at the
    // origin) goes to the face at 0, whichever side the rounding put it.
    Vec3 move;
    for (int k = 0; k < 3; ++k) move[k] = std::floor(sum[k] / m.mass + kOnFace);
    for (Vec3& f : m.frac)
        for (int k = 0; k < 3; ++k) f[k] -= move[k];
    Vec3 centre{};
    for (size_t a = 0; a < atoms.size(); ++a)
        for (int k = 0; k < 3; ++k) centre[k] += atomic_mass(m.z[a]) * m.frac[a][k];
    for (int k = 0; k < 3; ++k) m.centre_frac[k] = centre[k] / m.mass;
    m.centre_cart = c.to_cartesian(m.centre_frac);
    for (const Vec3& f : m.frac) m.cart.push_back(c.to_cartesian(f));
    m.formula = hill_formula(counts);
    return m;
}

void sort_molecules(std::vector<Molecule>& list)
{
    const auto key = [](const Molecule& m) {
        std::array<long long, 3> k;
        for (int d = 0; d < 3; ++d) k[d] = std::llround(m.centre_frac[d] * 1e6);
        return k;
    };
    std::stable_sort(list.begin(), list.end(), [&](const Molecule& a, const Molecule& b) {
        if (a.atoms.size() != b.atoms.size()) return a.atoms.size() > b.atoms.size();
        if (a.formula != b.formula) return a.formula < b.formula;
        return key(a) < key(b);
    });
}

}  // namespace

Molecules find_molecules(const Crystal& c, double bond_dis_scale)
{
    if (c.atoms.empty()) refuse(kLineNoMolecule, c.source + ": the cell holds no atom, so no molecule\n");
    double largest = 0.0;
    for (const CellAtom& a : c.atoms) largest = std::max(largest, covalent_radius(a.z));
    const double factor = std::max(bond_dis_scale, kFusedFraction);
    const auto radii = [&](int i, int j) { return covalent_radius(c.atoms[i].z) + covalent_radius(c.atoms[j].z); };
    const std::vector<Contact> contacts =
        close_pairs(c, std::max(2.0 * largest * factor, kDuplicateDistance),
                    [&](int i, int j) { return std::max(factor * radii(i, j), kDuplicateDistance); });

    std::vector<Contact> duplicates;
    for (const Contact& p : contacts)
        if (p.d < kDuplicateDistance) duplicates.push_back(p);
    if (!duplicates.empty())
        refuse(kLineDuplicate, c.source + ": the atoms " + pairs_text(c, duplicates) +
                                   strprintf(", closer than %g A: duplicate sites, or alternative sites of a disorder "
                                             "with no occupancies to choose one\n",
                                             kDuplicateDistance));

    // Bonds, both ways; atom j of bond (i, j, t) sits at frac_j + t beside atom i.
    const int n = static_cast<int>(c.atoms.size());
    std::vector<std::vector<std::pair<int, Cell3>>> bonded(static_cast<size_t>(n));
    for (const Contact& p : contacts) {
        if (!(p.d < bond_dis_scale * radii(p.i, p.j))) continue;
        bonded[p.i].push_back({p.j, p.t});
        bonded[p.j].push_back({p.i, {-p.t[0], -p.t[1], -p.t[2]}});
    }

    // Molecules grow from their lowest atom; each atom's lattice shift puts it
    // beside the atom that reached it. A second path to an atom with another
    // shift means the bonds run on through the crystal.
    std::vector<int> molecule_of(static_cast<size_t>(n), -1);
    std::vector<Cell3> shift(static_cast<size_t>(n));
    std::vector<std::vector<int>> groups;
    for (int seed = 0; seed < n; ++seed) {
        if (molecule_of[seed] >= 0) continue;
        const int id = static_cast<int>(groups.size());
        groups.emplace_back();
        molecule_of[seed] = id;
        shift[seed] = {0, 0, 0};
        std::queue<int> todo;
        todo.push(seed);
        while (!todo.empty()) {
            const int i = todo.front();
            todo.pop();
            groups.back().push_back(i);
            for (const auto& [j, t] : bonded[i]) {
                const Cell3 s = {shift[i][0] + t[0], shift[i][1] + t[1], shift[i][2] + t[2]};
                if (molecule_of[j] < 0) {
                    molecule_of[j] = id;
                    shift[j] = s;
                    todo.push(j);
                } else if (shift[j] != s) {
                    refuse(kLineNetwork,
                           c.source + ": the bonds of " + c.atom_name(i) + " and " + c.atom_name(j) +
                               " close a path through neighbouring cells: the atoms make a chain or network through "
                               "the crystal, not separate molecules" +
                               strprintf(" (bond_dis_scale %g)\n", bond_dis_scale));
                }
            }
        }
        std::sort(groups.back().begin(), groups.back().end());
    }

    std::vector<Contact> fused;
    for (const Contact& p : contacts)
        if (molecule_of[p.i] != molecule_of[p.j] && p.d < kFusedFraction * radii(p.i, p.j)) fused.push_back(p);
    if (!fused.empty())
        refuse(kLineFused, c.source + ": the atoms " + pairs_text(c, fused) +
                               strprintf(" in two molecules, closer than %g times their covalent radii: a fused or "
                                         "mis-typed structure (bond_dis_scale %g)\n",
                                         kFusedFraction, bond_dis_scale));

    Molecules result;
    for (const std::vector<int>& g : groups) result.list.push_back(make_molecule(c, g, shift));
    sort_molecules(result.list);
    for (const Molecule& m : result.list) {
        if (result.kinds.empty() || result.kinds.back().first != m.formula)
            result.kinds.push_back({m.formula, 0});
        ++result.kinds.back().second;
    }
    return result;
}

std::string Molecules::summary() const
{
    std::string s;
    for (const auto& [formula, count] : kinds) s += (s.empty() ? "" : ", ") + std::to_string(count) + " x " + formula;
    return s;
}

// ---------------------------------------------------------------- XYZ files

namespace {
void write_atoms(OutputFile& f, const Molecule& m, const Vec3& move)
{
    for (size_t a = 0; a < m.z.size(); ++a) {
        const std::string el = element_symbol(m.z[a]);  // "X" for an element outside the table
        f.print("%-2s %14.8f %14.8f %14.8f\n", el.empty() ? "X" : el.c_str(), m.cart[a][0] + move[0],
                m.cart[a][1] + move[1], m.cart[a][2] + move[2]);
    }
}

// The comment is one line of the file, whatever it holds.
std::string one_line(std::string s)
{
    std::replace(s.begin(), s.end(), '\n', ' ');
    std::replace(s.begin(), s.end(), '\r', ' ');
    return s;
}
}  // namespace

void write_xyz(const std::string& path, const Molecule& molecule, const std::string& comment)
{
    OutputFile f(path, "crystal", kLineXyz, "Failed to open output file ");
    f.print("%zu\n%s\n", molecule.z.size(), one_line(comment).c_str());
    write_atoms(f, molecule, {0, 0, 0});
    f.commit();
}

void write_dimer_xyz(const std::string& path, const Crystal& crystal, const Molecule& first, const Molecule& second,
                     const std::array<int, 3>& cell, const std::string& comment)
{
    OutputFile f(path, "crystal", kLineXyz, "Failed to open output file ");
    f.print("%zu\n%s\n", first.z.size() + second.z.size(), one_line(comment).c_str());
    write_atoms(f, first, {0, 0, 0});
    write_atoms(f, second, crystal.to_cartesian({double(cell[0]), double(cell[1]), double(cell[2])}));
    f.commit();
}

}  // namespace crystal
