// Grouping the cell's atoms into molecules and making each one whole.
#include "test_fileio_util.h"

using namespace fileio_test;

namespace {
// Atoms of the given elements at fractional positions in a cubic cell.
FileIO atoms_in_cube(double edge, const std::vector<int>& types, const std::vector<double>& x_s)
{
    FileIO f;
    const double cell[6] = {edge, edge, edge, 90, 90, 90};
    f.cell_cell6_to_latt3x3(cell, f.latt);
    f.cif_natoms = static_cast<int>(types.size());
    f.cif_atypes = types;
    for (const int t : types) f.cif_nw_radius.push_back(f.find_element_radius_from_index_nw(t));
    f.cif_x_s = x_s;
    return f;
}

// Two H2 molecules, each split by a cell face (x and z), listed interleaved.
const std::vector<double> kTwoH2 = {0.97, 0.5, 0.5, 0.2, 0.2, 0.98, 0.03, 0.5, 0.5, 0.2, 0.2, 0.03};
}  // namespace

TEST(SeparMolecules, MinimumImageJoinsAtomsAcrossFaces)
{
    FileIO f = atoms_in_cube(10, {1, 1, 1, 1}, kTwoH2);
    const Outcome o = capture([&] { f.separate_cif_molecules(true); });
    EXPECT_EQ(o.out, "  Unit cell nmols  = 2\n  Unit cell natoms = 2 2\n");
    EXPECT_EQ(f.cifmol_natoms, (std::vector<int>{2, 2}));
    EXPECT_EQ(f.cifmol_atoms, (std::vector<int>{0, 2, 1, 3}));

    f.bond_dis_scale = 0;  // nothing bonds: every atom is a molecule
    f.separate_cif_molecules(false);
    EXPECT_EQ(f.cifmol_natoms, (std::vector<int>{1, 1, 1, 1}));
}

TEST(SeparWhole, SplitMoleculeIsJoinedAndWrapped)
{
    FileIO f = atoms_in_cube(10, {1, 1}, {});
    std::vector<double> x = {0.97, 0.5, 0.5, 0.03, 0.5, 0.5};  // 0.6 A apart through the face
    const int types[2] = {1, 1};
    const Outcome o = capture([&] { f.make_whole_molecule(3, 2, types, x.data(), true); });
    EXPECT_EQ(o.out,
              "  molecule 3 COM =  1.000000  0.500000  0.500000\n");  // on the face: not moved
    EXPECT_NEAR(x[3], 1.03, 1e-12);

    std::vector<double> far = {1.2, 0.5, 0.5, 1.25, 0.5, 0.5};
    const Outcome w = capture([&] { f.make_whole_molecule(4, 2, types, far.data(), true); });
    EXPECT_EQ(w.out,
              "  molecule 4 COM =  1.225000  0.500000  0.500000\n"
              "  molecule 4 COM =  0.225000  0.500000  0.500000 (wrapped)\n");
    EXPECT_NEAR(far[0], 0.2, 1e-12);
}

TEST(SeparWhole, UnbondedAtomsAndUnknownElements)
{
    FileIO f = atoms_in_cube(10, {}, {});
    std::vector<double> x = {0.1, 0.1, 0.1, 0.2, 0.1, 0.1, 0.5, 0.5, 0.5};
    const int carbon[3] = {6, 6, 6};
    expect_fatal(capture([&] { f.make_whole_molecule(1, 3, carbon, x.data(), false); }), 1,
                 "Not all atoms are bonded in the molecule!\nnat_bonded = 2, natoms = 3\n");

    // Unknown atoms bond with the dummy entry's radius (0.72 A) and weigh nothing,
    // so the centre is the plain mean.
    const int unknown[2] = {-1, -1};
    f.make_whole_molecule(1, 2, unknown, x.data(), false);
    double com[3];
    EXPECT_DOUBLE_EQ(f.centre_of_mass(2, unknown, x.data(), com), 0.0);
    EXPECT_DOUBLE_EQ(com[0], 0.15);
}
