// The crystal reader of the hopping simulation: elements from types and labels,
// formulas, symmetry from every source, disorder, special positions, and the
// refusals of what cannot be read.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "fileio.h"
#include "fileio_molecules.h"
#include "test_support.h"

using namespace testsupport;

namespace {

std::string crystal_file(const std::string& name) { return fixture("crystal/" + name); }

// The message after the error header.
std::string refusal(const Outcome& o) { return o.out.substr(o.out.rfind(" : \n") + 4); }

// Reads text as the file `name` and makes its molecules; the outcome and the molecules.
Outcome read_text(const std::string& text, crystal::Molecules* molecules = nullptr, double scale = 1.15)
{
    return capture([&] {
        const crystal::Crystal c = crystal::read_cif_text(text, "t.cif");
        const crystal::Molecules m = crystal::find_molecules(c, scale);
        if (molecules) *molecules = m;
    });
}

crystal::Molecules molecules_of_file(const std::string& path, Outcome* outcome = nullptr)
{
    crystal::Molecules m;
    const Outcome o = capture([&] { m = crystal::find_molecules(crystal::read_cif_file(path)); });
    EXPECT_EQ(o.status, INT_MIN) << path << "\n" << o.out;
    if (outcome) *outcome = o;
    return m;
}

}  // namespace

TEST(CrystalElements, TypesAndLabels)
{
    using crystal::element_from_label;
    using crystal::element_from_type;
    const struct {
        const char* text;
        int z;
    } labels[] = {
        {"C(10)", 6}, {"C10A", 6}, {"H8A", 1},  {"H(O1)", 1}, {"HO1", 1},   {"O", 8},    {"N0", 7},
        {"Cl1", 17},  {"CL1", 17}, {"Br2", 35}, {"BR2", 35},  {"Si1", 14},  {"SI1", 14}, {"Se1", 34},
        {"CA1", 6},   {"Ca1", 20}, {"Hb", 1},   {"D1", 1},    {"DUM1", 0},  {"c12", 6},  {"1C", 0},
        {"Q1", 0},    {"", 0},
    };
    for (const auto& l : labels) EXPECT_EQ(element_from_label(l.text), l.z) << l.text;
    const struct {
        const char* text;
        int z;
    } types[] = {{"C", 6}, {"Cl", 17}, {"CL", 17}, {"O2-", 8}, {"Fe3+", 26}, {"D", 1}, {"Du", 0}, {"?", 0}, {"Q", 0}};
    for (const auto& t : types) EXPECT_EQ(element_from_type(t.text), t.z) << t.text;
}

TEST(CrystalFormula, HillOrderAndFormulaSums)
{
    crystal::Composition counts;
    ASSERT_TRUE(crystal::parse_formula("C12 H8 N2, C20 H14 O2", counts));
    EXPECT_EQ(crystal::hill_formula(counts), "C32H22N2O2");
    ASSERT_TRUE(crystal::parse_formula("C H2 Cl2", counts));
    EXPECT_EQ(crystal::hill_formula(counts), "CH2Cl2");
    ASSERT_TRUE(crystal::parse_formula("H3N", counts));  // no carbon: alphabetical, H among the others
    EXPECT_EQ(crystal::hill_formula(counts), "H3N");
    ASSERT_TRUE(crystal::parse_formula("Cl Na", counts));
    EXPECT_EQ(crystal::hill_formula(counts), "ClNa");
    EXPECT_FALSE(crystal::parse_formula("C6 H6 O0.5", counts));
    EXPECT_FALSE(crystal::parse_formula("?", counts));
}

// The same crystal written six ways: operations listed (with an id column, as
// CRLF too), only the symbol, the Hall symbol or the number, atoms before the
// cell with decimal translations, elements from labels.
namespace {

// The crystal of benzene_ops.cif written in another way: a file of the
// fixtures, or "CRLF" (its lines ended by CR LF) or "number" (the symmetry from
// the space-group number alone).
std::string benzene_written(const std::string& how)
{
    if (how == "CRLF") {
        std::string crlf;
        for (const char ch : read_file(crystal_file("benzene_ops.cif"))) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
        return crlf;
    }
    std::string text = read_file(crystal_file(how == "number" ? "benzene_symbol.cif" : how));
    if (how == "number") text.replace(text.find("_symmetry_space_group_name_H-M 'P 21/c'"), 39, "_space_group_IT_number 14");
    return text;
}

// What kelta_kmc -pairs makes of a CIF text: the class lines of the couplings
// file, and the atoms of each molecule file, sorted (the atom order follows the
// order of the sites).
struct PairsMade {
    int status = 0;
    std::vector<std::string> classes;
    std::vector<std::vector<std::pair<std::string, Vec3>>> molecules;
};

PairsMade kmc_pairs(const std::string& cif)
{
    const ScratchDir dir;
    write_file("c.cif", cif);
    write_file("kelta.inp", "&transport\n  crystal = c.cif\n  ratetype = marcus\n/\n");
    write_file("charge.inp", "h\n");
    PairsMade made;
    made.status = run_kmc({"-pairs"}).status;
    if (made.status != 0) return made;
    std::istringstream couplings(read_file("kelta-marcus.dat"));
    for (std::string line; std::getline(couplings, line);)
        if (line[0] != '#') made.classes.push_back(line);
    for (int m = 1; std::filesystem::exists(strprintf("dimers/molecule_%d.xyz", m)); ++m) {
        std::istringstream in(read_file(strprintf("dimers/molecule_%d.xyz", m)));
        std::string skip;
        std::getline(in, skip);
        std::getline(in, skip);
        std::vector<std::pair<std::string, Vec3>> atoms;
        std::string el;
        for (Vec3 x; in >> el >> x[0] >> x[1] >> x[2];) atoms.push_back({el, x});
        std::sort(atoms.begin(), atoms.end());
        made.molecules.push_back(atoms);
    }
    return made;
}

class SameCrystal : public testing::TestWithParam<std::string> {};

}  // namespace

// The crystal reader and kelta_kmc give the same molecules and the same classes
// of pairs whatever way the file is written.
TEST_P(SameCrystal, GivesTheSameMoleculesAndClasses)
{
    const crystal::Molecules base = molecules_of_file(crystal_file("benzene_ops.cif"));
    ASSERT_EQ(base.summary(), "2 x C6H6");
    crystal::Molecules m;
    ASSERT_EQ(read_text(benzene_written(GetParam()), &m).status, INT_MIN);
    EXPECT_EQ(m.summary(), base.summary());
    ASSERT_EQ(m.list.size(), base.list.size());
    for (size_t i = 0; i < m.list.size(); ++i) {
        EXPECT_EQ(m.list[i].formula, base.list[i].formula);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(m.list[i].centre_frac[k], base.list[i].centre_frac[k], 1e-6);
    }
    const PairsMade want = kmc_pairs(read_file(crystal_file("benzene_ops.cif"))), got = kmc_pairs(benzene_written(GetParam()));
    ASSERT_EQ(want.status, 0);
    ASSERT_EQ(got.status, 0);
    EXPECT_EQ(want.classes.size(), 7u);  // lambda, carrier, five classes
    EXPECT_EQ(got.classes, want.classes);
    ASSERT_EQ(got.molecules.size(), want.molecules.size());
    for (size_t i = 0; i < got.molecules.size(); ++i) {
        ASSERT_EQ(got.molecules[i].size(), want.molecules[i].size());
        for (size_t a = 0; a < got.molecules[i].size(); ++a) {
            EXPECT_EQ(got.molecules[i][a].first, want.molecules[i][a].first);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(got.molecules[i][a].second[k], want.molecules[i][a].second[k], 1e-6);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(CrystalReader, SameCrystal,
                         testing::Values("benzene_symbol.cif", "benzene_hall.cif", "benzene_atoms_first.cif",
                                         "benzene_labels.cif", "CRLF", "number"),
                         [](const testing::TestParamInfo<std::string>& p) { return p.param.substr(0, p.param.find('.')); });

TEST(CrystalReader, CellLaidOutAsTheAnalysisReaderDoes)
{
    for (const char* name : {"benzene_ops.cif", "qtypes_labels.cif"}) {
        SCOPED_TRACE(name);
        crystal::Crystal c;
        ASSERT_EQ(capture([&] { c = crystal::read_cif_file(crystal_file(name)); }).status, INT_MIN);
        FileIO f;
        capture([&] { f.read_data_cif(crystal_file(name).c_str(), false); });
        EXPECT_EQ(c.latt, f.latt);
        // a along x, b in the xy plane, and the angles between the columns those of the file.
        EXPECT_EQ(c.latt[1][0], 0.0);
        EXPECT_EQ(c.latt[2][0], 0.0);
        EXPECT_EQ(c.latt[2][1], 0.0);
        const auto angle = [&](int u, int v) {
            double dot = 0, nu = 0, nv = 0;
            for (int k = 0; k < 3; ++k) {
                dot += c.latt[k][u] * c.latt[k][v];
                nu += c.latt[k][u] * c.latt[k][u];
                nv += c.latt[k][v] * c.latt[k][v];
            }
            return std::acos(dot / std::sqrt(nu * nv)) * 180.0 / M_PI;
        };
        EXPECT_NEAR(angle(1, 2), c.cell[3], 1e-9);
        EXPECT_NEAR(angle(0, 2), c.cell[4], 1e-9);
        EXPECT_NEAR(angle(0, 1), c.cell[5], 1e-9);
        for (const crystal::CellAtom& a : c.atoms) {
            const Vec3 x = mat_vec_mul(f.latt, a.frac);
            for (int k = 0; k < 3; ++k) EXPECT_EQ(a.cart[k], x[k]);
        }
    }
}

TEST(CrystalReader, QuestionMarkTypesTakeTheElementFromTheLabel)
{
    Outcome o;
    const crystal::Molecules m = molecules_of_file(crystal_file("qtypes_labels.cif"), &o);
    EXPECT_EQ(m.summary(), "2 x CH2BrCl");
    EXPECT_EQ(o.err, "");  // the formula sum agrees, and there are hydrogens
}

TEST(CrystalReader, DisorderKeepsTheMajorGroupOfEachAssembly)
{
    const std::string path = crystal_file("disorder_groups.cif");
    Outcome o;
    const crystal::Molecules m = molecules_of_file(path, &o);
    EXPECT_EQ(m.summary(), "2 x CH2BrCl, 2 x Cl");
    EXPECT_EQ(o.err, "WARNING: " + path +
                         ": disordered sites: group 1 of disorder assembly A (mean occupancy 0.7) kept, Br2 and Cl2 "
                         "dropped; group 2 of disorder assembly B (mean occupancy 0.6) kept, Cl3 dropped\n");
    // The chloride kept is Cl4, and the molecule's halogens are those of group 1.
    crystal::Crystal c;
    capture([&] { c = crystal::read_cif_file(path); });
    std::vector<std::string> labels;
    for (const crystal::CellAtom& a : c.atoms)
        if (a.op == 0) labels.push_back(a.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"C1", "Cl1", "Br1", "H1A", "H1B", "Cl4"}));
}

TEST(CrystalReader, SitesOnSpecialPositionsAreMerged)
{
    const std::string path = crystal_file("sites_on_symmetry_elements.cif");
    crystal::Crystal c;
    crystal::Molecules m;
    const Outcome o = capture([&] {
        c = crystal::read_cif_file(path);
        m = crystal::find_molecules(c);
    });
    ASSERT_EQ(o.status, INT_MIN) << o.out;
    EXPECT_EQ(c.atoms.size(), 4u);  // the carbon on the centre once, the chloride beside one once
    EXPECT_EQ(m.summary(), "1 x CO2, 1 x Cl");
    EXPECT_EQ(o.err, "WARNING: " + path +
                         ": the site Cl1 lies within 0.5 A of a symmetry image of itself but not on it: taken as "
                         "disordered across a special position, one image kept\n"
                         "WARNING: " + path + ": the structure has carbon but no hydrogen atoms: its molecules lack "
                         "their hydrogens\n");
}

TEST(CrystalReader, Refusals)
{
    const std::string cell = "_cell_length_a 6\n_cell_length_b 6\n_cell_length_c 6\n";
    const std::string atoms = "loop_\n_atom_site_label\n_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\n"
                              "C1 0.1 0.2 0.3\n";
    const struct {
        std::string text, message;
    } cases[] = {
        {"data_x\n" + cell + atoms, "t.cif: no symmetry: the file lists no operations and gives no Hall symbol, "
                                    "space-group symbol or number\n"},
        {"data_x\n" + cell + "_symmetry_space_group_name_H-M 'P 7'\n_space_group_IT_number 231\n" + atoms,
         "t.cif: no symmetry: no operations are listed, and neither the space-group symbol 'P 7' (not known) nor the "
         "space-group number '231' (not 1 to 230) gives any\n"},
        {"data_x\n" + cell + "loop_\n_symmetry_equiv_pos_as_xyz\nx,y,z\n'x+0.3,y,z'\n" + atoms,
         "t.cif: the symmetry operation 'x+0.3,y,z' (_symmetry_equiv_pos_as_xyz) cannot be used: the translation 0.3 is "
         "no multiple of 1/24\n"},
        {"data_x\n" + cell + "loop_\n_symmetry_equiv_pos_as_xyz\n'x,x,z'\n" + atoms,
         "t.cif: the symmetry operation 'x,x,z' (_symmetry_equiv_pos_as_xyz) cannot be used: it does not map the "
         "lattice onto itself\n"},
        {"data_x\n" + cell + "_cell_angle_beta 180\n_symmetry_space_group_name_H-M 'P 1'\n" + atoms,
         "t.cif: _cell_angle_beta = 180 is not an angle between 0 and 180 degrees\n"},
        {"data_x\n_cell_length_a 6\n_symmetry_space_group_name_H-M 'P 1'\n" + atoms, "t.cif: _cell_length_b is missing\n"},
        {"data_x\n" + cell + "_symmetry_space_group_name_H-M 'P 1'\n", "t.cif: no data block has atom sites (_atom_site_fract_x)\n"},
        {"data_x\n" + cell + "_symmetry_space_group_name_H-M 'P 1'\nloop_\n_atom_site_label\n_atom_site_fract_x\n"
                             "_atom_site_fract_y\n_atom_site_fract_z\n",
         "t.cif: the cell holds no atom, so no molecule\n"},
        {"data_x\n" + cell + "_symmetry_space_group_name_H-M 'P 1'\nloop_\n_atom_site_label\n_atom_site_type_symbol\n"
                             "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\nQ1 ? 0.1 0.2 0.3\nC1 C ? 0 0\n",
         "t.cif: site C1: the fractional coordinate ? is not a number of magnitude at most 1000\n"},
        {"data_x\n" + cell + "_symmetry_space_group_name_H-M 'P 1'\nloop_\n_atom_site_label\n_atom_site_type_symbol\n"
                             "_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\nQ1 ? 0.1 0.2 0.3\nX2 Xx 0 0 0\n",
         "t.cif: no element can be told for the sites Q1 and X2 (type Xx) from their types or labels\n"},
        // Two carbons 1.0 A apart stay two molecules with bonds at half the radii, and are too close for that.
        {"data_x\n_cell_length_a 10\n_cell_length_b 10\n_cell_length_c 10\n_symmetry_space_group_name_H-M 'P 1'\n"
         "loop_\n_atom_site_label\n_atom_site_fract_x\n_atom_site_fract_y\n_atom_site_fract_z\nC1 0.5 0.5 0.5\n"
         "C2 0.6 0.5 0.5\n",
         "t.cif: the atoms C1 and C2 are 1.000 A apart in two molecules, closer than 0.75 times their covalent radii: "
         "a fused or mis-typed structure (bond_dis_scale 0.5)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Outcome o = read_text(c.text, nullptr, 0.5);
        EXPECT_EQ(o.status, -1);
        EXPECT_EQ(refusal(o), c.message);
    }
    // gemmi's own message follows ours for text that is no CIF.
    const Outcome o = read_text("data_x\nloop_\n_a\n_b\n1 2 3\n");
    EXPECT_EQ(o.status, -1);
    EXPECT_EQ(refusal(o).rfind("t.cif: not a CIF file that can be read: ", 0), 0u) << o.out;
}

TEST(CrystalReader, RefusedStructures)
{
    const std::string dup = crystal_file("duplicate_sites.cif"), chain = crystal_file("fused_chain.cif");
    const struct {
        std::string path, message;
    } cases[] = {
        {dup, dup + ": the atoms O1 and O1' are 0.200 A apart, closer than 0.5 A: duplicate sites, or alternative "
                    "sites of a disorder with no occupancies to choose one\n"},
        {chain, chain + ": the bonds of C1 and C2 close a path through neighbouring cells: the atoms make a chain or "
                        "network through the crystal, not separate molecules (bond_dis_scale 1.15)\n"},
        {crystal_file("missing.cif"), ""},
    };
    for (const auto& c : cases) {
        const Outcome o = capture([&] { crystal::find_molecules(crystal::read_cif_file(c.path)); });
        EXPECT_EQ(o.status, -1);
        EXPECT_EQ(refusal(o), c.message);
    }
    EXPECT_EQ(capture([&] { crystal::read_cif_file(crystal_file("missing.cif")); }).err,
              "Failed to open input file " + crystal_file("missing.cif") + "\n");
}
