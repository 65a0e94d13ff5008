// Molecules of the real database files against what each file says it holds,
// and the XYZ files of molecules and dimers.
#include <cmath>
#include <sstream>

#include "fileio_molecules.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// Each atom has a bonded partner in its own molecule without any lattice image,
// so the molecule is whole; its centre lies in the cell.
void expect_whole(const crystal::Molecule& m, double scale)
{
    for (size_t i = 0; i < m.z.size() && m.z.size() > 1; ++i) {
        bool bonded = false;
        for (size_t j = 0; j < m.z.size() && !bonded; ++j) {
            double d2 = 0;
            for (int k = 0; k < 3; ++k) d2 += (m.cart[i][k] - m.cart[j][k]) * (m.cart[i][k] - m.cart[j][k]);
            bonded = j != i && std::sqrt(d2) < scale * (crystal::covalent_radius(m.z[i]) + crystal::covalent_radius(m.z[j]));
        }
        EXPECT_TRUE(bonded) << m.formula << " atom " << i;
    }
    for (const double c : m.centre_frac) {
        EXPECT_GE(c, 0.0);
        EXPECT_LT(c, 1.0);
    }
}

}  // namespace

// Every real file: the kinds of molecule and their counts, and the whole cell
// against Z formula units of _chemical_formula_sum.
TEST(CrystalShared, MoleculesAgreeWithFormulaAndZ)
{
    if (!std::filesystem::exists(shared_file("cif"))) GTEST_SKIP() << "shared data not present: " << shared_file("cif");
    const struct {
        const char* file;
        std::string molecules;  // the summary, or "" when refused
        int extra_h = 0;        // hydrogens of the cell beyond Z formula units
        std::string warning = {};  // a part of what is printed on standard error ("" for nothing)
        std::string refusal = {};
    } cases[] = {
        {"aldol_product_p21n.cif", "4 x C13H16O4"},
        // Every type '?': elements from the labels. No hydrogen was located: the cations lack their 8 each.
        {"bedtttf_dicyanamide_pcca_qtypes.cif", "8 x C10S8, 4 x C2N3", -64, "carbon but no hydrogen"},
        {"benzene_pbca.cif", "4 x C6H6"},
        // The methyl on two ring positions (0.587 / 0.413): the major one is kept.
        {"benzimidazolylphenol_p42n_disorder.cif", "8 x C15H14N2O2", 0, "group 1 of disorder assembly A"},
        // Orientational disorder of C60 written as 16 carbon sites with no occupancies or groups: the
        // overlapping balls cannot be told apart, so no single conformer can be built. Refused.
        {"c60_hydroquinone_r-3m.cif", "", 0, "the cell holds C540H72O18, but Z = 3",
         ": the atoms C105 and C119 (by y,x,-z) are 0.422 A apart (and 71 more such pairs), closer than 0.5 A: "
         "duplicate sites, or alternative sites of a disorder with no occupancies to choose one\n"},
        {"dimethylquinacridone_p21c_wrapped.cif", "2 x C22H16N2O2"},
        {"disulfide_cc_newtags.cif", "4 x C18H23NO3S3"},
        {"furan_tetracycle_p21a.cif", "4 x C17H17NO3"},
        {"isoalangidiol_acetate_p212121.cif", "4 x C32H54O3"},
        {"oxacalixarene_dcm_c2c.cif", "4 x C20H6F8N6O6, 8 x CH2Cl2"},
        {"paracetamol_p21n_symopid.cif", "4 x C8H9NO2"},  // no Z: derived from the formula below
        {"phenanthroline_binol_p-1.cif", "2 x C20H14O2, 2 x C12H8N2"},
        {"tetraazaarene_p-1.cif", "2 x C40H32N4"},
        {"tfa_phenylbithiophene_cmca.cif", "4 x C24H12F6O2S2"},
        {"tips_indenofluorene_p21c.cif", "2 x C42H52Si2"},
        // The hydroxyl H is written on three sites with no occupancies: all three are kept, so each
        // molecule has two hydrogens more than the formula, and the reader says so.
        {"tribenzylmethanol_pcab_crlf.cif", "8 x C22H24O", 16, "the cell holds C176H192O8, but Z = 8"},
    };
    for (const auto& c : cases) {
        const std::string path = shared_file(std::string("cif/") + c.file);
        SCOPED_TRACE(path);
        crystal::Crystal cr;
        crystal::Molecules m;
        const Outcome o = capture([&] {
            cr = crystal::read_cif_file(path);
            m = crystal::find_molecules(cr);
        });
        if (c.warning.empty())
            EXPECT_EQ(o.err, "");
        else
            EXPECT_NE(o.err.find(c.warning), std::string::npos) << o.err;
        if (!c.refusal.empty()) {
            EXPECT_EQ(o.status, -1);
            EXPECT_EQ(o.out.substr(o.out.rfind(" : \n") + 4), path + c.refusal);
            continue;
        }
        ASSERT_EQ(o.status, INT_MIN) << o.out;
        EXPECT_EQ(m.summary(), c.molecules);
        crystal::Composition cell(kNumElements, 0), formula;
        for (const crystal::Molecule& mol : m.list) {
            expect_whole(mol, 1.15);
            for (const int z : mol.z) ++cell[z];
        }
        ASSERT_TRUE(crystal::parse_formula(cr.formula_sum, formula)) << cr.formula_sum;
        int per_unit = 0, atoms = 0;
        for (size_t z = 0; z < cell.size(); ++z) per_unit += formula[z], atoms += cell[z];
        const int units = cr.formula_units > 0 ? cr.formula_units : (atoms - c.extra_h) / per_unit;
        for (int& n : formula) n *= units;
        formula[1] += c.extra_h;
        EXPECT_EQ(crystal::hill_formula(cell), crystal::hill_formula(formula));
    }
}

TEST(CrystalXyz, MoleculeAndDimerFiles)
{
    ScratchDir dir;
    crystal::Crystal c;
    crystal::Molecules m;
    ASSERT_EQ(capture([&] {
                  c = crystal::read_cif_file(fixture("crystal/benzene_ops.cif"));
                  m = crystal::find_molecules(c);
              }).status,
              INT_MIN);
    crystal::write_xyz("one.xyz", m.list[0], "benzene\nmolecule 1");
    crystal::write_dimer_xyz("two.xyz", c, m.list[0], m.list[1], {1, 0, -1}, "pair 1-2 (1 0 -1)");
    const auto atoms_of = [](const std::string& file, std::string& comment) {
        std::istringstream in(read_file(file));
        int n = 0;
        in >> n;
        std::getline(in, comment);
        std::getline(in, comment);
        std::vector<std::pair<std::string, Vec3>> atoms;
        std::string el;
        Vec3 x;
        while (in >> el >> x[0] >> x[1] >> x[2]) atoms.push_back({el, x});
        EXPECT_EQ(atoms.size(), static_cast<size_t>(n)) << file;
        return atoms;
    };
    std::string comment;
    const auto one = atoms_of("one.xyz", comment);
    EXPECT_EQ(comment, "benzene molecule 1");  // one line whatever the comment holds
    ASSERT_EQ(one.size(), 12u);
    EXPECT_EQ(one[0].first, "C");
    const auto two = atoms_of("two.xyz", comment);
    EXPECT_EQ(comment, "pair 1-2 (1 0 -1)");
    ASSERT_EQ(two.size(), 24u);
    const Vec3 shift = c.to_cartesian({1, 0, -1});
    for (size_t i = 0; i < 12; ++i)
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(two[i].second[k], m.list[0].cart[i][k], 1e-7);
            EXPECT_NEAR(two[12 + i].second[k], m.list[1].cart[i][k] + shift[k], 1e-7);
        }
    // A file that cannot be written ends the run; nothing is left half written.
    std::filesystem::create_directory("taken.xyz");
    const Outcome o = capture([&] { crystal::write_xyz("taken.xyz", m.list[0], ""); });
    EXPECT_EQ(o.status, -1);
    EXPECT_EQ(o.err, "Failed to open output file taken.xyz\n");
}
