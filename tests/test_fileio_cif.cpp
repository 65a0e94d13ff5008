// CIF reader: hand-written files with one quirk each, then whole cells through
// the crystal path.
#include <algorithm>
#include <cmath>

#include "test_support.h"

using namespace testsupport;

// Each quirk of the reader is a recorded run with -binfo (tests/data/cases/cifq_*),
// which prints what was read; the space-group number is the one value it does not.
TEST(CifReader, SpaceGroupNumber)
{
    FileIO f;
    ASSERT_EQ(capture([&] { f.read_data_cif(fixture("cif/name_common.cif").c_str(), false); }).status, INT_MIN);
    EXPECT_EQ(f.spacegroup_number, 14);
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
        std::string fatal = {};      // message after the error header that ends the run (status -1)
    } cases[] = {
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
        const Outcome o = capture([&] {
            f.read_data_cif(c.path.c_str(), false);
            f.mol_input_mode = 2;
            f.read_crystal_strcuture_files(false, false);
        });
        EXPECT_EQ(f.symm_ops.size(), c.ops);
        EXPECT_EQ(f.cif_labels.size(), c.rows);
        EXPECT_EQ(o.status, c.fatal.empty() ? INT_MIN : -1);
        if (!c.fatal.empty()) {
            EXPECT_EQ(o.out.substr(o.out.rfind(" : \n") + 4), c.fatal) << o.out;
        }
        std::vector<int> sizes = f.mol_natoms;
        std::sort(sizes.begin(), sizes.end());
        EXPECT_EQ(sizes, c.molecules);
        if (f.mol_count > 0) { EXPECT_EQ(f.mol_names.back(), "mol" + std::to_string(f.mol_count) + ".mol"); }
        // Each atom is bonded to another of its molecule without periodic images; the centre is in the cell.
        for (int m = 0; m < f.mol_count; ++m) {
            const std::vector<double>& x = f.mol_x[m];
            ASSERT_EQ(x.size(), 3u * f.mol_natoms[m]);
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
