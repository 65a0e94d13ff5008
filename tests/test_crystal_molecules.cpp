// Molecules of the real database files against what each file says it holds,
// and kelta_kmc on each of them; the XYZ files of molecules and dimers.
#include <cmath>
#include <cstdio>
#include <regex>
#include <sstream>

#include "fileio.h"
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
        EXPECT_GE(c, -crystal::kOnFace);
        EXPECT_LT(c, 1.0 - crystal::kOnFace);
    }
}

// kelta_kmc -pairs on the crystal at `path` (its message of refusal when it
// refuses), then, with every NA of the couplings filled, a short simulation.
Outcome pairs_and_run(const std::string& path, std::string& pairs_out)
{
    const ScratchDir dir;
    write_file("kelta.inp", "&transport\n  crystal = " + path + "\n  ratetype = marcus\n  nsimu = 4\n  tsimu = 1.0\n"
                            "  tsnap = 0.25\n/\n");
    write_file("charge.inp", "h\n");
    const Outcome pairs = run_kmc({"-pairs"});
    pairs_out = pairs.out;
    if (pairs.status != 0) return pairs;
    std::istringstream in(read_file("kelta-marcus.dat"));
    std::string filled;
    for (std::string line; std::getline(in, line);) {
        if (line == "lambda_meV = NA") line = "lambda_meV = 200";
        if (line[0] != '#' && line.size() > 2 && line.substr(line.size() - 2) == "NA") line.replace(line.size() - 2, 2, "10");
        filled += line + "\n";
    }
    write_file("kelta-marcus.dat", filled);
    const Outcome run = run_kmc({"-timeunit", "PS"});
    EXPECT_TRUE(std::filesystem::exists("track/track_0004.dat")) << path;
    return run;
}

}  // namespace

// Every real file: the kinds of molecule and their counts, and the whole cell
// against Z formula units of _chemical_formula_sum; kelta_kmc prints the same
// kinds, finds the classes of pairs and runs.
TEST(CrystalShared, MoleculesAgreeWithFormulaAndZ)
{
    if (!std::filesystem::exists(shared_file("cif"))) GTEST_SKIP() << "shared data not present: " << shared_file("cif");
    const struct {
        const char* file;
        std::string molecules;  // the summary, or "" when refused
        int extra_h = 0;        // hydrogens of the cell beyond Z formula units
        std::string warning = {};  // a part of what is printed on standard error ("" for nothing)
        std::string refusal = {};
        int classes = 0;  // of kelta_kmc -pairs at the default cut-off
    } cases[] = {
        {"aldol_product_p21n.cif", "4 x C13H16O4", 0, "", "", 9},
        // Every type '?': elements from the labels. No hydrogen was located: the cations lack their 8 each.
        {"bedtttf_dicyanamide_pcca_qtypes.cif", "8 x C10S8, 4 x C2N3", -64, "carbon but no hydrogen", "", 10},
        {"benzene_pbca.cif", "4 x C6H6", 0, "", "", 3},
        // The methyl on two ring positions (0.587 / 0.413): the major one is kept.
        {"benzimidazolylphenol_p42n_disorder.cif", "8 x C15H14N2O2", 0, "group 1 of disorder assembly A", "", 10},
        // Orientational disorder of C60 written as 16 carbon sites with no occupancies or groups: the
        // overlapping balls cannot be told apart, so no single conformer can be built. Refused.
        {"c60_hydroquinone_r-3m.cif", "", 0, "the cell holds C540H72O18, but Z = 3",
         ": the atoms C105 and C119 (by y,x,-z) are 0.422 A apart (and 71 more such pairs), closer than 0.5 A: "
         "duplicate sites, or alternative sites of a disorder with no occupancies to choose one\n"},
        {"dimethylquinacridone_p21c_wrapped.cif", "2 x C22H16N2O2", 0, "", "", 5},
        {"disulfide_cc_newtags.cif", "4 x C18H23NO3S3", 0, "", "", 8},
        {"furan_tetracycle_p21a.cif", "4 x C17H17NO3", 0, "", "", 11},
        {"isoalangidiol_acetate_p212121.cif", "4 x C32H54O3", 0, "", "", 7},
        // A solvate: the solvent is a kind of its own, and a site of the network.
        {"oxacalixarene_dcm_c2c.cif", "4 x C20H6F8N6O6, 8 x CH2Cl2", 0, "", "", 12},
        {"paracetamol_p21n_symopid.cif", "4 x C8H9NO2", 0, "", "", 10},  // no Z: derived from the formula below
        {"phenanthroline_binol_p-1.cif", "2 x C20H14O2, 2 x C12H8N2", 0, "", "", 16},
        {"tetraazaarene_p-1.cif", "2 x C40H32N4", 0, "", "", 13},
        {"tfa_phenylbithiophene_cmca.cif", "4 x C24H12F6O2S2", 0, "", "", 5},
        {"tips_indenofluorene_p21c.cif", "2 x C42H52Si2", 0, "", "", 5},
        // The hydroxyl H is written on three sites with no occupancies: all three are kept, so each
        // molecule has two hydrogens more than the formula, and the reader says so.
        {"tribenzylmethanol_pcab_crlf.cif", "8 x C22H24O", 16, "the cell holds C176H192O8, but Z = 8", "", 8},
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
        std::string pairs_out;
        const Outcome kmc = pairs_and_run(path, pairs_out);
        if (!c.refusal.empty()) {
            // The simulation refuses it as the reader does, before anything is computed.
            for (const Outcome& r : {o, kmc}) {
                EXPECT_EQ(r.status, -1);
                EXPECT_EQ(r.out.substr(r.out.rfind(" : \n") + 4), path + c.refusal);
            }
            continue;
        }
        EXPECT_EQ(kmc.status, 0) << pairs_out << kmc.out << kmc.err;
        EXPECT_NE(pairs_out.find("  molecules in the cell: " + c.molecules + "\n"), std::string::npos) << pairs_out;
        EXPECT_NE(pairs_out.find(strprintf(" in %d classes of equivalent pairs", c.classes)), std::string::npos) << pairs_out;
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

// The geometries of kelta_kmc -pairs, for a CIF and for MOL files: the exact
// layout the quantum-chemistry stage reads, each class file's first molecule
// line for line its molecule file, the second its molecule file moved by the
// class's lattice translation.
TEST(CrystalXyz, MoleculeAndClassFilesOfPairs)
{
    // "%-2s %14.8f %14.8f %14.8f": 47 characters for coordinates below 1e4 A.
    const std::regex atom_line(R"([A-Z][a-z ]( {1,13}-?\d+\.\d{8}){3})");
    const auto atom = [&](const std::string& line) { return line.size() == 47 && std::regex_match(line, atom_line); };
    for (const char* route : {"kmc_base", "kmc_mol_pairs"}) {
        SCOPED_TRACE(route);
        const ScratchDir dir;
        std::filesystem::copy(fixture(std::string("cases/") + route + "/in"), dir.path());
        std::filesystem::remove("kelta-marcus.dat");
        const Outcome o = run_kmc({"-pairs"});
        ASSERT_EQ(o.status, 0) << o.out << o.err;
        const auto lines_of = [](const std::string& file) {
            std::vector<std::string> lines;
            std::istringstream in(read_file(file));
            for (std::string l; std::getline(in, l);) lines.push_back(l);
            return lines;
        };
        const auto cell_vector = [&](int k) {
            Vec3 v;
            std::istringstream in(read_file("kelta.inp").substr(read_file("kelta.inp").find("vector_" + std::string(1, "abc"[k]))));
            std::string key, eq;
            in >> key >> eq >> v[0] >> v[1] >> v[2];
            return v;
        };
        // The MOL case gives the cell vectors; the CIF case's a lies along x, b in the xy plane.
        const bool mol = std::string(route) == "kmc_mol_pairs";
        std::array<Vec3, 3> latt;
        if (mol) {
            for (int k = 0; k < 3; ++k) latt[k] = cell_vector(k);
        } else {
            FileIO f;
            const double cell[6] = {8.098, 5.953, 8.652, 90, 124.4, 90};
            Mat3 L;
            f.cell_cell6_to_latt3x3(cell, L);
            for (int k = 0; k < 3; ++k) latt[k] = {L[0][k], L[1][k], L[2][k]};
        }
        std::vector<std::vector<std::string>> molecules;
        for (int m = 1; std::filesystem::exists(strprintf("dimers/molecule_%d.xyz", m)); ++m) {
            molecules.push_back(lines_of(strprintf("dimers/molecule_%d.xyz", m)));
            const std::vector<std::string>& x = molecules.back();
            ASSERT_GT(x.size(), 2u);
            EXPECT_EQ(std::stoul(x[0]), x.size() - 2);
            EXPECT_EQ(x[1], strprintf("molecule %d of the cell: %s", m, mol ? (m == 1 ? "CH2O" : "H2O") : "C10H8"));
            for (size_t a = 2; a < x.size(); ++a) EXPECT_TRUE(atom(x[a])) << x[a];
        }
        ASSERT_EQ(molecules.size(), 2u);
        int classes = 0;
        for (int k = 1; std::filesystem::exists(strprintf("dimers/class_%03d.xyz", k)); ++k, ++classes) {
            const std::vector<std::string> x = lines_of(strprintf("dimers/class_%03d.xyz", k));
            int i = 0, j = 0;
            std::array<int, 3> n{};
            ASSERT_EQ(std::sscanf(x[1].c_str(), "class %*d: molecule %d and molecule %d in cell %d %d %d", &i, &j, &n[0],
                                  &n[1], &n[2]),
                      5)
                << x[1];
            EXPECT_EQ(x[1], strprintf("class %d: molecule %d and molecule %d in cell %d %d %d", k, i, j, n[0], n[1], n[2]));
            const std::vector<std::string>& first = molecules.at(i - 1);
            const std::vector<std::string>& second = molecules.at(j - 1);
            ASSERT_EQ(x.size(), first.size() + second.size() - 2);
            EXPECT_EQ(std::stoul(x[0]), x.size() - 2);
            for (size_t a = 2; a < first.size(); ++a) EXPECT_EQ(x[a], first[a]);
            for (size_t a = 2; a < second.size(); ++a) {
                const std::string& line = x[first.size() + a - 2];
                EXPECT_TRUE(atom(line)) << line;
                EXPECT_EQ(line.substr(0, 2), second[a].substr(0, 2));
                std::istringstream got(line.substr(2)), alone(second[a].substr(2));
                for (int c = 0; c < 3; ++c) {
                    double g = 0, m = 0;
                    got >> g;
                    alone >> m;
                    const double t = n[0] * latt[0][c] + n[1] * latt[1][c] + n[2] * latt[2][c];
                    EXPECT_NEAR(g, m + t, 1.1e-8) << line;
                }
            }
        }
        EXPECT_NE(o.out.find(strprintf("in %d classes", classes)), std::string::npos) << o.out;
    }
    // A file that cannot be written ends the run.
    const ScratchDir dir;
    std::filesystem::copy(fixture("cases/kmc_base/in"), dir.path());
    std::filesystem::remove("kelta-marcus.dat");
    std::filesystem::create_directories("dimers/molecule_1.xyz");
    const Outcome o = run_kmc({"-pairs"});
    EXPECT_EQ(o.status, -1);
    EXPECT_EQ(o.err, "Failed to open output file dimers/molecule_1.xyz\n");
}
