// Element lookups, cell conversions and the structure dispatch.
#include <cmath>

#include "test_fileio_util.h"
#include "test_support.h"

using namespace fileio_test;

TEST(FileIOElements, LookupsAndTheDummyEntry)
{
    const FileIO f;
    EXPECT_EQ(f.find_element_index_from_name("C1"), -1);  // "1" matches no second character
    EXPECT_DOUBLE_EQ(f.find_element_radius_from_name("X"), 9999.99);
    // An unknown index (-1, or past the table) reads the dummy entry, but bonds
    // like an unknown symbol does in separation.
    EXPECT_DOUBLE_EQ(f.find_element_mass_from_index(-1), 0.0);
    EXPECT_DOUBLE_EQ(f.find_element_radius_from_index(-1), 9999.99);
    EXPECT_DOUBLE_EQ(f.find_element_radius_from_index_nw(kNumElements), 99999.99);
    char s[3];
    f.find_element_name_from_index(6, s);
    EXPECT_STREQ(s, "C");
    f.find_element_name_from_mass(0.05, s);  // the dummy entry is never matched
    EXPECT_STREQ(s, "A ");
}

TEST(FileIOCell, HexagonalLattice)
{
    FileIO f;
    const double hex[6] = {4, 5, 7, 90, 90, 120};
    f.cell_cell6_to_latt3x3(hex, f.latt);
    EXPECT_NEAR(f.latt[0][1], -2.5, 1e-12);
    EXPECT_NEAR(f.latt[1][1], 2.5 * std::sqrt(3.0), 1e-12);
    EXPECT_NEAR(f.latt_inv[0][1] * f.latt[1][1] + f.latt_inv[0][0] * f.latt[0][1], 0, 1e-15);
}

namespace {
// Molecule mode with an orthogonal 10 x 12 x 15 cell.
FileIO molecule_mode(const std::vector<std::string>& files)
{
    FileIO f;
    f.mol_input_mode = 1;
    f.mol_count = static_cast<int>(files.size());
    for (const std::string& name : files) f.mol_names.push_back(fixture("mol/" + name));
    f.vec_a = {10, 0, 0};
    f.vec_b = {0, 12, 0};
    f.vec_c = {0, 0, 15};
    return f;
}
}  // namespace

TEST(FileIODispatch, MissingInputEndsTheRun)
{
    FileIO f;
    f.mol_input_mode = -1;
    expect_fatal(capture([&] { f.read_crystal_strcuture_files(false, false); }), -1,
                 "No input molecule data is available. (-1)\n");
    const Outcome cif = capture([&] { f.read_data_cif("no/such.cif", false); });
    EXPECT_EQ(cif.status, -1);
    EXPECT_EQ(cif.err, "Failed to open input file \"no/such.cif\"\n");
    EXPECT_EQ(capture([&] { f.read_data_mol("no/such.mol", 0, false); }).err,
              "Failed to open input file \"no/such.mol\"\n");
}

TEST(FileIODispatch, MoleculeModeCellAndFractions)
{
    FileIO empty = molecule_mode({});
    empty.read_crystal_strcuture_files(false, false);
    EXPECT_TRUE(empty.mol_natoms.empty());
    const std::array<double, 6> expected = {10, 12, 15, 90, 90, 90};
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(empty.cell_latt[k], expected[k], 1e-12);

    FileIO f = molecule_mode({"chiral2_chlorine.mol"});
    EXPECT_EQ(capture([&] { f.read_crystal_strcuture_files(false, false); }).out,
              "WARNING: The Chiral Flag should be either 0 or 1. The value of 2 will be ignored.\n");
    ASSERT_EQ(f.mol_atypes, (std::vector<std::vector<int>>{{6, 17, 17, 1, 1}}));  // Cl and CL
    EXPECT_NEAR(f.mol_x_s[0][0], 0.1, 1e-15);
    EXPECT_NEAR(f.mol_x_s[0][1], 2.0 / 12, 1e-15);
    EXPECT_NEAR(f.mol_x_s[0][2], 0.2, 1e-15);
    EXPECT_EQ(f.mol_ids, std::vector<int>{1});
    EXPECT_NEAR(f.mol_mass[0], 12.011 + 2 * 35.4527 + 2 * 1.00794, 1e-9);
    EXPECT_NEAR(f.mol_com[0], 10 * f.mol_com_s[0], 1e-12);
    // C-Cl (1.77 A) and C-H bonds; Cl-Cl and H-H pairs are too far apart.
    const std::multimap<int, int> bonds = {{1, 2}, {1, 3}, {1, 4}, {1, 5}};
    EXPECT_EQ(f.mol_bonds[0], bonds);
}

TEST(FileIODispatch, SearchRangeScalesRowsAndSideFilesAreWritten)
{
    testsupport::ScratchDir dir;
    FileIO f = molecule_mode({});
    f.vec_b = {3, 12, 0};
    f.scell_n = {2, 1, 1};
    f.output_dir = "side";
    f.read_crystal_strcuture_files(false, true);
    EXPECT_DOUBLE_EQ(f.scell_latt[0][1], 6);  // x component of b doubled
    EXPECT_DOUBLE_EQ(f.scell_latt[1][1], 12);
    EXPECT_EQ(testsupport::read_file("side/cellvec.dat"),
              "a =        10         0         0\nb =         3        12         0\nc =         0         0        15\n");
}
