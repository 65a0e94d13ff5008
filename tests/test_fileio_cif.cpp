// CIF reader: hand-written files with one quirk each, then the real database
// files through the whole crystal path.
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "test_fileio_util.h"

using namespace fileio_test;

namespace {
FileIO read_cif(const std::string& name)
{
    FileIO f;
    const Outcome o = capture([&] { f.read_data_cif(fixture("cif/" + name).c_str(), false); });
    EXPECT_EQ(o.status, INT_MIN) << o.out << o.err;
    return f;
}
}  // namespace

TEST(CifReader, TagValues)
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
}

TEST(CifReader, OperationLists)
{
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
    FileIO f;
    EXPECT_EQ(load_crystal(f, fixture("cif/two_atom_loops.cif")).status, INT_MIN);
    EXPECT_EQ(f.cif_labels, (std::vector<std::string>{"O1", "H1", "H2"}));
    EXPECT_EQ(f.cif_fy[2], "0.19");
    EXPECT_EQ(f.mol_natoms, std::vector<int>{3});

    const FileIO s = read_cif("element_symbols.cif");  // C, c, Cu, O2-
    EXPECT_EQ(s.cif_atypes, (std::vector<int>{6, 6, 29, -1}));
    EXPECT_EQ(s.cif_nw_radius, (std::vector<double>{0.77, 0.77, 1.17, 9999.99}));
    EXPECT_EQ(s.cifmol_natoms, std::vector<int>{4});  // the unknown atom bonds to all
}

TEST(CifReader, ShortRowsEndTheRun)
{
    const std::pair<const char*, const char*> cases[] = {
        {"short_row.cif", "C2 C 0.2 0.2\nAt least 5"},
        {"tag_after_rows.cif", "_cell_length_c 5.0\nAt least 5"},
        {"row_short_of_last_column.cif", "C2 C 1 Uiso 0.2 0.2\nAt least 7"},
        {"bond_loop_columns.cif", "1.09 C1 H1\nAt least 4"},
    };
    for (const auto& [file, text] : cases) {
        FileIO f;
        expect_fatal(capture([&] { f.read_data_cif(fixture(std::string("cif/") + file).c_str(), false); }), -1,
                     std::string("Not enough columns: ") + text + " columns are expected!\n");
    }
}

TEST(CifReader, CrlfMoleculeAcrossTheCellFaceIsMadeWhole)
{
    FileIO f;
    const Outcome o = capture([&] {
        f.read_data_cif(fixture("cif/h2_across_face_crlf.cif").c_str(), true);
        f.mol_input_mode = 2;
        f.read_crystal_strcuture_files(true, false);
    });
    ASSERT_EQ(o.status, INT_MIN) << o.out;
    EXPECT_NE(o.out.find("  natoms_cif = 2\n  First atom: H1 H 0.980 0.5 0.5\n  ...\n"), std::string::npos);
    EXPECT_NE(o.out.find("  molecule 1 COM =  1.012500  0.500000  0.500000\n"
                         "  molecule 1 COM =  0.012500  0.500000  0.500000 (wrapped)\n"),
              std::string::npos)
        << o.out;
    ASSERT_EQ(f.mol_count, 1);  // the aniso rows added nothing
    EXPECT_NEAR(f.mol_x_s[0][0], -0.02, 1e-12);
    EXPECT_NEAR(f.mol_x[0][3] - f.mol_x[0][0], 0.65, 1e-9);
}

// ---------------------------------------------------------------- real files

namespace {
struct RealCif {
    const char* file;
    size_t ops;    // as listed, plus the zero operation where "loop_" follows
    size_t rows;   // atom-site rows read
    int status;    // INT_MIN: no fatal error
    std::string message;
    std::vector<int> molecules;  // atoms per molecule, sorted
};

// Most database files put "loop_" right after the operations, so their atom
// loop is never entered. bedtttf and disulfide read atoms from a later loop and
// keep the stray zero operation (all atoms on the origin, merged into one).
const RealCif kReal[] = {
    {"aldol_product_p21n.cif", 5, 0, INT_MIN, "", {}},
    // Every type symbol is '?': the unknown atoms bond to everything, one molecule.
    {"bedtttf_dicyanamide_pcca_qtypes.cif", 9, 21, INT_MIN, "", {165}},
    {"benzene_pbca.cif", 9, 0, INT_MIN, "", {}},
    {"benzimidazolylphenol_p42n_disorder.cif", 9, 0, INT_MIN, "", {}},
    {"c60_hydroquinone_r-3m.cif", 37, 0, INT_MIN, "", {}},
    {"dimethylquinacridone_p21c_wrapped.cif", 4, 0, -1,
     "Not enough columns: O1 0.3115(3) 0.73650(10)\nAt least 5 columns are expected!\n", {}},
    {"disulfide_cc_newtags.cif", 5, 48, INT_MIN, "", {1, 48, 48, 48, 48}},
    {"furan_tetracycle_p21a.cif", 4, 38, INT_MIN, "", {38, 38, 38, 38}},
    {"isoalangidiol_acetate_p212121.cif", 4, 89, INT_MIN, "", {89, 89, 89, 89}},
    {"oxacalixarene_dcm_c2c.cif", 9, 0, INT_MIN, "", {}},
    // Its id column is headed _space_group_symop_id, not read as one: the loop is skipped.
    {"paracetamol_p21n_symopid.cif", 0, 0, INT_MIN, "", {}},
    {"phenanthroline_binol_p-1.cif", 2, 58, INT_MIN, "", {22, 22, 36, 36}},
    {"tetraazaarene_p-1.cif", 3, 0, INT_MIN, "", {}},
    {"tfa_phenylbithiophene_cmca.cif", 19, 0, INT_MIN, "", {}},
    {"tips_indenofluorene_p21c.cif", 5, 0, INT_MIN, "", {}},
    {"tribenzylmethanol_pcab_crlf.cif", 8, 47, INT_MIN, "", std::vector<int>(8, 47)},
};

// Each atom lies within bond distance of another atom of its molecule, without
// periodic images, and the centre of mass is in the cell.
void expect_whole_and_in_cell(const FileIO& f, int m)
{
    const std::vector<double>& x = f.mol_x[m];
    for (int i = 0, n = f.mol_natoms[m]; i < n && n > 1; ++i) {
        bool bonded = false;
        for (int j = 0; j < n; ++j) {
            const double cut = (f.find_element_radius_from_index(f.mol_atypes[m][i]) +
                                f.find_element_radius_from_index(f.mol_atypes[m][j])) * f.bond_dis_scale;
            const double d = std::hypot(x[3 * j] - x[3 * i], x[3 * j + 1] - x[3 * i + 1], x[3 * j + 2] - x[3 * i + 2]);
            bonded = bonded || (j != i && d < cut);
        }
        EXPECT_TRUE(bonded) << "molecule " << m << " atom " << i;
    }
    for (int k = 0; k < 3; ++k) {
        EXPECT_GE(f.mol_com_s[3 * m + k], -5.96046448e-08);
        EXPECT_LE(f.mol_com_s[3 * m + k], 1.0000000596046448);
    }
}
}  // namespace

TEST(CifRealFiles, CrystalPathGivesTheDescribedResult)
{
    if (!std::filesystem::exists(shared_file("cif"))) GTEST_SKIP() << "shared data not present";
    for (const RealCif& c : kReal) {
        SCOPED_TRACE(c.file);
        FileIO f;
        const Outcome o = load_crystal(f, shared_file(std::string("cif/") + c.file));
        EXPECT_EQ(f.symm_ops.size(), c.ops);
        EXPECT_EQ(f.cif_labels.size(), c.rows);
        if (c.status != INT_MIN) {
            expect_fatal(o, c.status, c.message);
            continue;
        }
        ASSERT_EQ(o.status, INT_MIN) << o.out;
        std::vector<int> sizes = f.mol_natoms;
        std::sort(sizes.begin(), sizes.end());
        EXPECT_EQ(sizes, c.molecules);
        for (int m = 0; m < f.mol_count; ++m) expect_whole_and_in_cell(f, m);
    }
}
