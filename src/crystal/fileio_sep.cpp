// Molecule separation: grouping the atoms of the P1 cell into bonded molecules
// under periodic boundaries, and making each molecule whole inside the cell.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <queue>
#include <string>

#include "fileio.h"
#include "fileio_errors.h"

using namespace fileio_error;

namespace {
constexpr double kNotFoundDist = 9999.99;

// Component-wise shift into [-0.5, 0.5] as if 1 were subtracted while a component
// is above 0.5 and added while it is below -0.5. Every such step is exact for the
// bounded coordinates a structure holds, so d - ceil(d - 0.5) is that very result,
// reached without a loop as long as the offset.
void minimum_image(Vec3& d)
{
    for (double& v : d) {
        if (v > 0.5) v -= std::ceil(v - 0.5);
        if (v < -0.5) v -= std::floor(v + 0.5);
    }
}

Vec3 difference(const double* x_s, int m, int k)
{
    return {x_s[3 * m] - x_s[3 * k], x_s[3 * m + 1] - x_s[3 * k + 1], x_s[3 * m + 2] - x_s[3 * k + 2]};
}

// Atom k moves to m - d: the image next to m.
void place_next_to(double* x_s, int m, int k, const Vec3& d)
{
    for (size_t c = 0; c < d.size(); ++c) x_s[3 * k + c] = x_s[3 * m + c] - d[c];
}

double cartesian_length(const Mat3& latt, const Vec3& d) { return get_magnitude(mat_vec_mul(latt, d)); }

// Grows one molecule from `seed`, each step adding the lowest-index unassigned
// atom bonded to any member, as searching again from the first atom at every
// step does (find_bond_atom, find_bond_atom_one), but testing each member against
// every atom only once: a cell costs O(N^2) tests instead of O(N^3). bonded(m, k)
// tests a member and an atom; join(m, k) adds k to the molecule, m being the
// first member that bonded it. Atoms join in the order the search would add them.
template <class Bonded, class Join>
std::vector<int> grow_molecule(int natoms, std::vector<char>& unassigned, int seed, Bonded bonded, Join join)
{
    std::vector<int> members = {seed}, partner(static_cast<size_t>(natoms), -1);
    unassigned[seed] = 0;
    std::priority_queue<int, std::vector<int>, std::greater<>> found;  // lowest index first
    for (size_t tested = 0;;) {
        for (; tested < members.size(); ++tested) {
            const int m = members[tested];
            for (int k = 0; k < natoms; ++k)
                if (unassigned[k] && partner[k] < 0 && bonded(m, k)) {
                    partner[k] = m;
                    found.push(k);
                }
        }
        if (found.empty()) return members;
        const int k = found.top();
        found.pop();
        join(partner[k], k);
        unassigned[k] = 0;
        members.push_back(k);
    }
}
}  // namespace

void FileIO::find_bond_atom(int natoms, const int* unassigned, int nmember, const int* members,
                            int* out_atom, int* out_member, double* out_dist) const
{
    *out_atom = -1;
    *out_member = -1;
    *out_dist = kNotFoundDist;
    for (int k = 0; k < natoms; ++k) {
        if (!unassigned[k]) continue;
        if (nmember == 0) {  // seed of a new molecule
            *out_atom = k;
            *out_member = 0;
            *out_dist = 0.0;
            return;
        }
        for (int p = 0; p < nmember; ++p) {
            const int m = members[p];
            if (m == k) continue;
            Vec3 d = difference(cif_x_s.data(), m, k);
            minimum_image(d);
            const double r = cartesian_length(latt, d);
            if ((cif_nw_radius[m] + cif_nw_radius[k]) * bond_dis_scale > r) {
                *out_atom = k;
                *out_member = m;
                *out_dist = r;
                return;
            }
        }
    }
}

void FileIO::separate_cif_molecules(bool binfo)
{
    cifmol_natoms.clear();
    cifmol_atoms.clear();
    std::vector<char> unassigned(static_cast<size_t>(std::max(cif_natoms, 0)), true);
    const auto bonded = [this](int m, int k) {
        Vec3 d = difference(cif_x_s.data(), m, k);
        minimum_image(d);
        return (cif_nw_radius[m] + cif_nw_radius[k]) * bond_dis_scale > cartesian_length(latt, d);
    };
    // Molecules in the order of their lowest-index atom.
    for (int seed = 0; seed < cif_natoms; ++seed) {
        if (!unassigned[seed]) continue;
        const std::vector<int> members = grow_molecule(cif_natoms, unassigned, seed, bonded, [](int, int) {});
        cifmol_natoms.push_back(static_cast<int>(members.size()));
        cifmol_atoms.insert(cifmol_atoms.end(), members.begin(), members.end());
    }
    if (binfo) {
        std::printf("  Unit cell nmols  = %d\n  Unit cell natoms =", static_cast<int>(cifmol_natoms.size()));
        for (const int n : cifmol_natoms) std::printf(" %d", n);
        std::printf("\n");
    }
}

void FileIO::find_bond_atom_one(int natoms, double* x_s, const double* radius, const int* unassigned,
                                int nmember, const int* members, int* out_atom, int* out_member,
                                double* out_dist) const
{
    *out_atom = -1;
    *out_member = -1;
    *out_dist = kNotFoundDist;
    for (int k = 0; k < natoms; ++k) {
        if (!unassigned[k]) continue;
        if (nmember == 0) {
            *out_atom = k;
            *out_member = 0;
            *out_dist = 0.0;
            return;
        }
        for (int p = 0; p < nmember; ++p) {
            const int m = members[p];
            if (m == k) continue;
            const double cutoff = (radius[m] + radius[k]) * bond_dis_scale;
            Vec3 d = difference(x_s, m, k);
            double r = cartesian_length(latt, d);
            if (r >= cutoff) {
                minimum_image(d);
                r = cartesian_length(latt, d);
                if (r >= cutoff) continue;
                place_next_to(x_s, m, k, d);
            }
            *out_atom = k;
            *out_member = m;
            *out_dist = r;
            return;
        }
    }
}

namespace {
// The COM is moved back into the cell only when it is outside by more than
// single-precision error, so a molecule sitting on a cell face stays put.
constexpr double kComHigh = 1.0000000596046448;
constexpr double kComLow = -5.96046448e-08;
}  // namespace

void FileIO::make_whole_molecule(int mol_number, int natoms, const int* atypes, double* x_s, bool binfo)
{
    const size_t n = static_cast<size_t>(std::max(natoms, 0));
    std::vector<double> radius(n);
    for (size_t i = 0; i < n; ++i) radius[i] = find_element_radius_from_index(atypes[i]);
    std::vector<char> unassigned(n, true);
    // Bonded as the atoms lie, or else through a cell face; then the atom moves
    // to the image next to its partner.
    const auto image = [&](int m, int k, Vec3& d) {
        d = difference(x_s, m, k);
        const double cutoff = (radius[m] + radius[k]) * bond_dis_scale;
        if (cartesian_length(latt, d) < cutoff) return 0;
        minimum_image(d);
        return cartesian_length(latt, d) < cutoff ? 1 : -1;
    };
    const auto bonded = [&](int m, int k) {
        Vec3 d;
        return image(m, k, d) >= 0;
    };
    const auto join = [&](int m, int k) {
        Vec3 d;
        if (image(m, k, d) == 1) place_next_to(x_s, m, k, d);
    };
    const std::vector<int> members = n ? grow_molecule(natoms, unassigned, 0, bonded, join) : std::vector<int>{};
    if (members.size() < n) {
        fatal("fileio", kLineNotBonded, 1,
              "Not all atoms are bonded in the molecule!\nnat_bonded = " + std::to_string(members.size()) +
                  ", natoms = " + std::to_string(natoms) + "\n");
    }

    Vec3 com;
    centre_of_mass(natoms, atypes, x_s, com);
    if (binfo) std::printf("  molecule %d COM = %9.6f %9.6f %9.6f\n", mol_number, com[0], com[1], com[2]);
    bool shifted = false;
    for (size_t c = 0; c < com.size(); ++c) {
        const double shift = com[c] > kComHigh ? -1.0 : com[c] < kComLow ? 1.0 : 0.0;
        if (shift == 0.0) continue;
        shifted = true;
        for (size_t i = 0; i < n; ++i) x_s[3 * i + c] += shift;
    }
    if (shifted) {
        centre_of_mass(natoms, atypes, x_s, com);
        if (binfo)
            std::printf("  molecule %d COM = %9.6f %9.6f %9.6f (wrapped)\n", mol_number, com[0], com[1],
                        com[2]);
    }
}
