// The hopping simulation's route from a CIF file to the per-molecule arrays of
// FileIO: the crystal reader (fileio_gemmi) gives the cell's atoms, and
// find_molecules their whole molecules with their checks. Also the formulas of
// the molecules, for both routes.
#include "fileio.h"
#include "fileio_molecules.h"

void FileIO::read_cif_molecules()
{
    const crystal::Crystal c = crystal::read_cif_file(cif_filename);
    const crystal::Molecules found = crystal::find_molecules(c, bond_dis_scale);
    cell_latt = c.cell;
    latt = c.latt;
    mol_count = static_cast<int>(found.list.size());
    resize_mol_slots(mol_count);
    mol_names.resize(static_cast<size_t>(mol_count));
    for (int m = 0; m < mol_count; ++m) {
        const crystal::Molecule& mol = found.list[static_cast<size_t>(m)];
        mol_names[m] = "mol" + std::to_string(m + 1) + ".mol";
        mol_natoms[m] = static_cast<int>(mol.z.size());
        mol_atypes[m] = mol.z;
        mol_x_s[m].resize(3 * mol.z.size());
        mol_x[m].resize(3 * mol.z.size());
        for (size_t a = 0; a < mol.z.size(); ++a) {
            set_vec3_at(mol_x_s[m], a, mol.frac[a]);
            set_vec3_at(mol_x[m], a, mol.cart[a]);
        }
    }
    get_cif_lattice_vectors(vec_a.data(), vec_b.data(), vec_c.data());
}

std::string FileIO::mol_formula(int m) const
{
    crystal::Composition counts(kNumElements, 0);
    for (const int z : mol_atypes[static_cast<size_t>(m)])
        if (z > 0 && z < kNumElements) ++counts[static_cast<size_t>(z)];
    return crystal::hill_formula(counts);
}

std::string FileIO::mol_kinds() const
{
    std::vector<std::pair<std::string, int>> kinds;
    for (int m = 0; m < mol_count; ++m) {
        const std::string f = mol_formula(m);
        auto at = kinds.begin();
        while (at != kinds.end() && at->first != f) ++at;
        if (at == kinds.end()) kinds.push_back({f, 1});
        else ++at->second;
    }
    std::string s;
    for (const auto& [formula, count] : kinds) s += (s.empty() ? "" : ", ") + std::to_string(count) + " x " + formula;
    return s;
}
