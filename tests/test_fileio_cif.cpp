// CIF reader: hand-written files with one quirk each, then whole cells through
// the crystal path.
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "test_fileio_util.h"

using namespace fileio_test;

static FileIO read_cif(const std::string& name)
{
    FileIO f;
    const Outcome o = capture([&] { f.read_data_cif(fixture("cif/" + name).c_str(), false); });
    EXPECT_EQ(o.status, INT_MIN) << o.out << o.err;
    return f;
}

TEST(CifReader, TagValuesAndOperationLists)
{
    const FileIO f = read_cif("cell_uncertainty.cif");  // "10.123(4)" reads as 10.123
    EXPECT_EQ(f.identifier, "uncertain");
    EXPECT_EQ(f.cell_latt, (std::array<double, 6>{10.123, 11.5, 12, 90, 90, 90}));
    EXPECT_DOUBLE_EQ(f.cif_x_s[2], 0.3);
    const FileIO t = read_cif("text_field.cif");  // the ';' field quotes a cell and a loop
    EXPECT_DOUBLE_EQ(t.cell_latt[0], 10.0);
    EXPECT_EQ(t.symm_ops, std::vector<std::string>{"x,y,z"});
    const FileIO n = read_cif("name_common.cif");  // replaces the DATA_ block name
    EXPECT_EQ(n.identifier, "'tiny thing'");
    EXPECT_EQ(n.spacegroup_number, 14);
    EXPECT_EQ(n.spacegroup_name, "'P 1 21/c 1'");

    const std::vector<std::string> ops = {"x,y,z", "-x,y+1/2,-z+1/2", "-x,-y,-z"};
    EXPECT_EQ(read_cif("ops_with_id.cif").symm_ops, ops);
    EXPECT_EQ(read_cif("ops_without_id.cif").symm_ops, ops);
    // The line ending the list is read next: "loop_" is taken as one more (zero)
    // operation and its atom loop is never entered; a cell tag is still read.
    const FileIO loop = read_cif("ops_then_loop.cif");
    EXPECT_EQ(loop.symm_ops, (std::vector<std::string>{"x,y,z", "-x,-y,-z", "loop_"}));
    EXPECT_EQ(loop.cif_natoms, 0);
    const FileIO cell = read_cif("ops_then_cell.cif");
    EXPECT_DOUBLE_EQ(cell.cell_latt[0], 7.5);
    EXPECT_EQ(cell.cif_natoms, 1);
}

TEST(CifReader, AtomSiteLoops)
{
    EXPECT_EQ(read_cif("no_type_symbol.cif").cif_natoms, 0);
    // Rows end right at "loop_", which opens a second loop with its own column order.
    EXPECT_EQ(read_cif("two_atom_loops.cif").cif_labels, (std::vector<std::string>{"O1", "H1", "H2"}));
    const FileIO s = read_cif("element_symbols.cif");  // C, c, Cu, O2-
    EXPECT_EQ(s.cif_atypes, (std::vector<int>{6, 6, 29, -1}));
    EXPECT_EQ(s.cif_nw_radius, (std::vector<double>{0.77, 0.77, 1.17, 9999.99}));
    EXPECT_EQ(s.cifmol_natoms, std::vector<int>{4});  // the unknown atom bonds to all

}

TEST(CifCrystal, MoleculesAreWholeAndCentredInTheCell)
{
    if (!std::filesystem::exists(shared_file("cif"))) GTEST_SKIP() << "shared data not present";
    // Most database files put "loop_" right after the operations, so their atom loop is never entered; bedtttf
    // and disulfide read atoms from a later loop and keep that zero operation (all atoms on the origin, merged).
    const struct {
        std::string path;
        size_t ops, rows;            // operations as listed (plus the zero one); atom-site rows
        std::vector<int> molecules;  // atoms per molecule, sorted
        std::string fatal = {};      // message the run ends with (status -1), if any
    } cases[] = {
        {fixture("cif/two_atom_loops.cif"), 1, 3, {3}},
        {fixture("cif/h2_across_face_crlf.cif"), 1, 2, {2}},  // split by a face; the aniso rows add nothing
        {shared_file("cif/bedtttf_dicyanamide_pcca_qtypes.cif"), 9, 21, {165}},  // all types '?': one molecule
        {shared_file("cif/c60_hydroquinone_r-3m.cif"), 37, 0, {}},
        {shared_file("cif/dimethylquinacridone_p21c_wrapped.cif"), 4, 0, {},
         "Not enough columns: O1 0.3115(3) 0.73650(10)\nAt least 5 columns are expected!\n"},
        {shared_file("cif/disulfide_cc_newtags.cif"), 5, 48, {1, 48, 48, 48, 48}},
        {shared_file("cif/furan_tetracycle_p21a.cif"), 4, 38, {38, 38, 38, 38}},
        {shared_file("cif/isoalangidiol_acetate_p212121.cif"), 4, 89, {89, 89, 89, 89}},
        {shared_file("cif/paracetamol_p21n_symopid.cif"), 0, 0, {}},  // _space_group_symop_id is no id column
        {shared_file("cif/phenanthroline_binol_p-1.cif"), 2, 58, {22, 22, 36, 36}},
        {shared_file("cif/tfa_phenylbithiophene_cmca.cif"), 19, 0, {}},
        {shared_file("cif/tribenzylmethanol_pcab_crlf.cif"), 8, 47, std::vector<int>(8, 47)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        FileIO f;
        const Outcome o = load_crystal(f, c.path);
        EXPECT_EQ(f.symm_ops.size(), c.ops);
        EXPECT_EQ(f.cif_labels.size(), c.rows);
        if (c.fatal.empty()) ASSERT_EQ(o.status, INT_MIN) << o.out;
        else expect_fatal(o, -1, c.fatal);
        std::vector<int> sizes = f.mol_natoms;
        std::sort(sizes.begin(), sizes.end());
        EXPECT_EQ(sizes, c.molecules);
        // Each atom is bonded to another of its molecule without periodic images; the centre is in the cell.
        for (int m = 0; m < f.mol_count; ++m) {
            const std::vector<double>& x = f.mol_x[m];
            const auto r = [&](int i) { return f.find_element_radius_from_index(f.mol_atypes[m][i]); };
            for (int i = 0, n = f.mol_natoms[m]; i < n && n > 1; ++i) {
                bool bonded = false;
                for (int j = 0; j < n && !bonded; ++j)
                    bonded = j != i && std::hypot(x[3 * j] - x[3 * i], x[3 * j + 1] - x[3 * i + 1],
                                                  x[3 * j + 2] - x[3 * i + 2]) < f.bond_dis_scale * (r(i) + r(j));
                EXPECT_TRUE(bonded) << "molecule " << m << " atom " << i;
            }
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(f.mol_com_s[3 * m + k], 0.5, 0.5 + 5.96046448e-08);
        }
    }
}
