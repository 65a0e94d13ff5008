// Structure dispatch, symmetry operations, P1 expansion and whole molecules.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>

#include "test_support.h"

using namespace testsupport;

// Carbon atoms at the given fractional positions in a cube of the given edge.
static FileIO carbons(const std::vector<double>& x_s, const std::vector<std::string>& ops = {}, double edge = 10)
{
    FileIO f;
    const double cell[6] = {edge, edge, edge, 90, 90, 90};
    f.cell_cell6_to_latt3x3(cell, f.latt);
    f.symm_ops = ops;
    f.cif_natoms = static_cast<int>(x_s.size() / 3);
    f.cif_atypes.assign(x_s.size() / 3, 6);
    f.cif_nw_radius.assign(x_s.size() / 3, 0.77);
    f.cif_x_s = f.cif_x = x_s;
    return f;
}

TEST(FileIODispatch, MoleculeModeReadsTheFilesIntoTheGivenCell)
{
    FileIO f;
    f.mol_input_mode = f.mol_count = 1;
    f.mol_names = {fixture("mol/chiral2_chlorine.mol")};
    f.vec_a = {10, 0, 0};
    f.vec_b = {3, 12, 4};  // both 13 A long; b.c = 96, a.c = 40, a.b = 30
    f.vec_c = {4, 3, 12};
    EXPECT_EQ(capture([&] { f.read_crystal_strcuture_files(false, false); }).out,
              "WARNING: The Chiral Flag should be either 0 or 1. The value of 2 will be ignored.\n");
    const std::array<double, 6> cell = {10, 13, 13, std::acos(96.0 / 169) * 180 / M_PI, std::acos(40.0 / 130) * 180 / M_PI,
                                        std::acos(30.0 / 130) * 180 / M_PI};
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(f.cell_latt[k], cell[k], 1e-12);
    ASSERT_EQ(f.mol_atypes, (std::vector<std::vector<int>>{{17, 1, 1, 17, 6}}));  // Cl and CL
    // Carbon at (1, 10002, -197): 12 fb + 3 fc = 10002 and 4 fb + 12 fc = -197 give fb = 913.75, fc = -321; then fa.
    const double fractions[3] = {(1 - 3 * 913.75 + 4 * 321) / 10, 913.75, -321};
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(f.mol_x_s[0][12 + k], fractions[k], 1e-12);
    EXPECT_NEAR(f.mol_mass[0], 12.011 + 2 * 35.4527 + 2 * 1.00794, 1e-9);
    // C-Cl 1.77 A < (180 + 250) / 250 * 1.15; H-H 1.78 A > (80 + 80) / 250 * 1.15.
    EXPECT_EQ(f.mol_bonds[0], (std::multimap<int, int>{{1, 5}, {2, 5}, {3, 5}, {4, 5}}));
    // The side files the suite's other stages read (this tool never asks for them).
    const ScratchDir dir;
    capture([&] { f.read_crystal_strcuture_files(false, true); });
    EXPECT_EQ(read_file("kelta_files/mol1_bonds.dat"), "4\n  1   5  0  0\n  2   5  0  0\n  3   5  0  0\n  4   5  0  0\n");
    EXPECT_EQ(read_file("kelta_files/cellvec.dat"), "a =        10         0         0\nb =         3        12         4\nc =         4         3        12\n");
    for (const std::string file : {"cellvec.dat 1452", "mol1_bonds.dat 1437"}) {  // a directory in the file's place
        const std::string path = "kelta_files/" + file.substr(0, file.find(' '));
        std::filesystem::remove(path), std::filesystem::create_directory(path);
        const Outcome o = capture([&] { f.read_crystal_strcuture_files(false, true); });
        EXPECT_EQ(o.out.substr(o.out.find('\n') + 1) + std::to_string(o.status) + " " + o.err, "\nERROR  transport : fileio : line " + file.substr(file.find(' ') + 1) +
                                                                      " : \n-1 Failed to open output file " + path + "\n");
    }
}

// A bent chain of three carbons, 1.4 A along x then along y: the ends are 1.98 A
// apart, beyond the bond length of two carbons, so only when every coordinate of
// both atoms enters each distance are the bonds 1-2 and 2-3 exactly.
TEST(FileIOBonds, EveryCoordinateOfBothAtomsCounts)
{
    const ScratchDir dir;
    const std::string atom = "    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0\n";
    write_file("chain.mol", "bent chain\n\n\n  3  0  0  0  0  0  0  0  0  0999 V2000\n" + atom +
                                std::string(atom).replace(4, 6, "1.4000") + std::string(atom).replace(4, 6, "1.4000").replace(14, 6, "1.4000") + "M  END\n");
    FileIO f;
    f.mol_input_mode = f.mol_count = 1;
    f.mol_names = {"chain.mol"};
    f.vec_a = {10, 0, 0}, f.vec_b = {0, 10, 0}, f.vec_c = {0, 0, 10};
    capture([&] { f.read_crystal_strcuture_files(false, false); });
    EXPECT_EQ(f.mol_bonds.at(0), (std::multimap<int, int>{{1, 2}, {2, 3}}));
}

TEST(FileIOLookups, ElementsCellAndSeeds)
{
    FileIO f;
    char s[4] = "xxx";
    EXPECT_STREQ((f.find_element_name_from_index(17, s), s), "Cl");
    EXPECT_STREQ((f.find_element_name_from_index(6, s), s), "C");
    EXPECT_STREQ((f.find_element_name_from_mass(12.05, s), s), "C ");
    EXPECT_STREQ((f.find_element_name_from_mass(0.05, s), s), "A ");  // the dummy entry is never taken
    EXPECT_STREQ((f.find_element_name_from_mass(1.0, s), s), "H ");
    EXPECT_EQ(f.find_element_index_from_name("cl"), 17);
    EXPECT_EQ(f.find_element_index_from_name("C1"), -1);
    EXPECT_EQ(f.find_element_radius_from_name("X"), 9999.99);
    EXPECT_EQ(f.find_element_radius_from_index(0), 180 / 250.0);  // the blank entry is an element of the table
    EXPECT_EQ(f.find_element_radius_from_index_nw(17), 0.99);
    const double abc[3] = {1, 2, 3};
    f.set_cell_lattice(abc, 80, 90, 100);
    EXPECT_EQ(std::vector<double>(f.get_cell_latt(), f.get_cell_latt() + 6), (std::vector<double>{1, 2, 3, 80, 90, 100}));
    // A triclinic cell's inverse lattice, as the general inverse gives it.
    const double triclinic[6] = {5, 6, 7, 80, 95, 110};
    f.cell_cell6_to_latt3x3(triclinic, f.latt);
    Mat3 inverse{};
    invert(f.latt, inverse);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(f.latt_inv[i / 3][i % 3], inverse[i / 3][i % 3], 1e-15) << i;
    f.latt = {{{2, 0, 0}, {0, 4, 0}, {0, 0, 5}}}, f.latt_inv = {{{0.5, 0, 0}, {0, 0.25, 0}, {0, 0, 0.2}}};
    double x = 1, y = 2, z = 3;
    EXPECT_EQ((f.coord_f2c(x, y, z), Vec3{x, y, z}), Vec3({2, 8, 15}));
    EXPECT_EQ((f.coord_c2f(x, y, z), Vec3{x, y, z}), Vec3({1, 2, 3}));
}

TEST(SymmParse, RowsAndTranslations)
{
    const struct { const char* op; std::array<double, 3> row0; double t0; } cases[] = {
        {"y-x,y,z", {-1, 1, 0}, 0.0},
        {"x-1/2,y,z", {1, 0, 0}, 0.5},       // -0.5 wrapped once
        {"x+1/2+3/4,y,z", {1, 0, 0}, 0.75},  // a new number replaces the last
        {"1 0 0 0.5 0 1 0 0 0 0 1 0", {1, 0, 0}, 0.5},  // numeric form
        {"x+1/2Q,y,z", {1, 0, 0}, 0.5},  // characters it does not know are skipped
        {"x+1/9,y,z", {1, 0, 0}, 1.0 / 9},
        {".x,y,z", {1, 0, 0}, 0.0},  // a lone "." is no number, and only itself is passed over
    };
    for (const auto& c : cases) {
        Mat3 R;
        Vec3 t;
        FileIO::ParseTransformString(c.op, R, t);
        EXPECT_EQ(R[0], c.row0) << c.op;
        EXPECT_DOUBLE_EQ(t[0], c.t0) << c.op;
    }
}

TEST(SymmExpand, OperationMajorOrderWrapOnceAndOverlapRemoval)
{
    FileIO f = carbons({0, 0, 0, 0.1, 0.2, 0.3, -0.2, 1.3, -1.2}, {"x,y,z", "-x,-y,-z"});
    EXPECT_EQ(capture([&] { f.make_spacegroup_P1(3); }).out,
              "WARNING: Overlapped atoms detected and to be removed\n         Number of overlapped atoms is 1\n"
              "         Number of remaining atoms is 5\n");
    // Each coordinate is wrapped once only: -1.2 becomes -0.2, and its inverse -1.3 becomes -0.3.
    const std::vector<double> p1 = {0, 0, 0, 0.1, 0.2, 0.3, 0.8, 0.3, -0.2, 0.9, 0.8, 0.7, 0.2, -0.3, 0.2};
    ASSERT_EQ(f.cif_x_s.size(), p1.size());
    for (size_t i = 0; i < p1.size(); ++i) EXPECT_NEAR(f.cif_x_s[i], p1[i], 1e-15) << i;
    EXPECT_EQ(f.cif_atypes.size(), static_cast<size_t>(f.cif_natoms));

    // 0.0005 apart and 0 vs 0.9999 (through the face) merge; 0.0011 apart is kept.
    FileIO g = carbons({0.5, 0.5, 0.5, 0.5005, 0.5, 0.5, 0.5011, 0.5, 0.5, 0, 0.1, 0.1, 0.9999, 0.1, 0.1}, {"x,y,z"});
    capture([&] { g.make_spacegroup_P1(3); });
    EXPECT_EQ(g.cif_x_s, (std::vector<double>{0.5, 0.5, 0.5, 0.5011, 0.5, 0.5, 0, 0.1, 0.1}));
    // The detail print, which the expansion makes when asked.
    FileIO h = carbons({0.5, 0.5, 0.5}, {"-y,x+1/2,z"});
    h.flag_detail_print = true;
    EXPECT_EQ(capture([&] { h.make_spacegroup_P1(3); }).out, ">> operations: -y,x+1/2,z\nmatrix:\n   0  -1   0\n"
                                                            "   1   0   0\n   0   0   1\nvector: 0 0.5 0\n-------------------\n");
}

// Two carbons bond when closer than (0.77 + 0.77) * 1.15 = 1.771 A. In a 4 A cube,
// x = 0.1 and 0.75 are 2.6 A apart, but 1.4 A through the face: the minimum image
// shifts the difference by whole cells, as often as needed (coordinates are
// wrapped once only, so they may lie a cell or more outside). Made whole, the
// second atom moves next to the first (0.1 - 0.35 = -0.25), and a centre below 0
// moves the molecule by +1 (to 0.75).
TEST(Separ, MinimumImageAcrossFaces)
{
    const struct { double x2; bool bonded; double whole; } cases[] = {{0.75, true, 0.75}, {-0.55, true, 0.45}, {1.75, true, 0.75}, {-1.2, true, 0.8},
                 {2.45, true, 0.45}, {0.6, false, 0}, {-0.4, false, 0}};  // 0.5 apart: 2 A
    for (const auto& c : cases) {
        FileIO f = carbons({0.1, 0.5, 0.5, c.x2, 0.5, 0.5}, {}, 4.0);
        capture([&] { f.separate_cif_molecules(false); });
        EXPECT_EQ(f.cifmol_natoms, (c.bonded ? std::vector<int>{2} : std::vector<int>{1, 1})) << c.x2;
        if (!c.bonded) continue;
        std::vector<double> x = f.cif_x_s;
        const int carbon[2] = {6, 6};
        capture([&] { f.make_whole_molecule(1, 2, carbon, x.data(), false); });
        EXPECT_NEAR(x[3], c.whole, 1e-12) << c.x2;
        EXPECT_LT(std::fabs(x[3] - x[0]), 0.5) << c.x2;  // the atoms side by side
    }
    // Exactly the bond length apart (a quarter of an edge of 4 x 1.771 A): no bond,
    // in the search and in the straightforward loop.
    FileIO tie = carbons({0.5, 0.5, 0.5, 0.75, 0.5, 0.5}, {}, 4 * (0.77 + 0.77) * 1.15);
    capture([&] { tie.separate_cif_molecules(false); });
    EXPECT_EQ(tie.cifmol_natoms, (std::vector<int>{1, 1}));
    int k, m, seed[1] = {0}, left[2] = {0, 1};
    double r, radius[2] = {0.77, 0.77};
    tie.find_bond_atom_one(2, tie.cif_x_s.data(), radius, left, 1, seed, &k, &m, &r);
    EXPECT_EQ(std::tuple(k, m, r), std::tuple(-1, -1, 9999.99));
    tie.find_bond_atom(2, left, 1, seed, &k, &m, &r);
    EXPECT_EQ(std::tuple(k, m, r), std::tuple(-1, -1, 9999.99));
    tie.find_bond_atom(2, left, 0, seed, &k, &m, &r);  // no member yet: the first atom left opens the molecule
    EXPECT_EQ(std::tuple(k, m, r), std::tuple(1, 0, 0.0));
    tie.find_bond_atom_one(2, tie.cif_x_s.data(), radius, left, 0, seed, &k, &m, &r);
    EXPECT_EQ(std::tuple(k, m, r), std::tuple(1, 0, 0.0));
    // A centre outside the cell by no more than 2^-24 stays where it is.
    for (const double x0 : {1.0000000596046448, -5.96046448e-08}) {
        FileIO f = carbons({});
        double x[3] = {x0, 0.5, 0.5};
        const int carbon[1] = {6};
        f.make_whole_molecule(1, 1, carbon, x, false);
        EXPECT_EQ(x[0], x0);
    }
}

// The molecule searches against the straightforward loops that search again from
// the first atom at every step (find_bond_atom, find_bond_atom_one), on random
// cells of 60 carbons whose chains cross the faces.
TEST(Separ, SameMoleculesAsSearchingFromTheFirstAtom)
{
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> u(-0.2, 1.2);
    std::vector<int> sizes;
    for (int cell = 0; cell < 20; ++cell) {
        std::vector<double> x;
        for (int i = 0; i < 180; ++i) x.push_back(u(gen));
        FileIO f = carbons(x, {}, 8.0);
        f.cif_nw_radius.assign(60, 180 / 250.0);  // the radius of whole molecules: every one can be made whole
        f.separate_cif_molecules(false);
        std::vector<int> unassigned(60, 1), members, natoms, atoms;
        for (int k = 0, m, closed = 0; closed < 60;) {
            double r;
            f.find_bond_atom(60, unassigned.data(), static_cast<int>(members.size()), members.data(), &k, &m, &r);
            if (k >= 0) {
                members.push_back(k);
                unassigned[k] = 0;
                continue;
            }
            natoms.push_back(static_cast<int>(members.size()));
            atoms.insert(atoms.end(), members.begin(), members.end());
            closed += static_cast<int>(members.size());
            members.clear();
        }
        ASSERT_EQ(f.cifmol_natoms, natoms);
        ASSERT_EQ(f.cifmol_atoms, atoms);
        // The first molecule made whole both ways: the same positions, up to the
        // whole-cell move of its centre.
        const int n = natoms[0];
        sizes.push_back(n);
        std::vector<double> fast, slow;
        for (int a = 0; a < n; ++a)
            for (int c = 0; c < 3; ++c) fast.push_back(x[3 * atoms[a] + c]);
        slow = fast;
        const std::vector<int> carbon(static_cast<size_t>(n), 6);
        const std::vector<double> radius(static_cast<size_t>(n), 180 / 250.0);
        capture([&] { f.make_whole_molecule(1, n, carbon.data(), fast.data(), false); });
        std::vector<int> left(static_cast<size_t>(n), 1), grown;
        for (int step = 0, k, m; step < n; ++step) {
            double r;
            f.find_bond_atom_one(n, slow.data(), radius.data(), left.data(), static_cast<int>(grown.size()), grown.data(), &k, &m, &r);
            ASSERT_GE(k, 0);
            grown.push_back(k);
            left[k] = 0;
        }
        for (int i = 3; i < 3 * n; ++i) EXPECT_NEAR(fast[i] - fast[i % 3], slow[i] - slow[i % 3], 1e-12) << cell << " " << i;
    }
    EXPECT_GT(*std::max_element(sizes.begin(), sizes.end()), 10);  // chains long enough to cross faces
}
