// Carrier set-up and the neighbour list on hand-built cells.
#include <gtest/gtest.h>

#include "test_support.h"
#include "transport.h"

using namespace testsupport;

namespace {

// Molecules of one carbon atom each at the given fractional positions.
struct Cell : Transport {
    Cell(double edge, const std::vector<Vec3>& atoms, double cutoff, int range)
    {
        latt = Mat3{{{edge, 0, 0}, {0, edge, 0}, {0, 0, edge}}};
        mol_count = static_cast<int>(atoms.size());
        for (const Vec3& a : atoms)
            mol_natoms.push_back(1), mol_atypes.push_back({6}), mol_x_s.push_back({a[0], a[1], a[2]});
        lat_cutoff = cutoff;
        scell_n = {range, range, range};
        mol_mass.resize(atoms.size()), mol_com.resize(3 * atoms.size()), mol_com_s.resize(3 * atoms.size());
        fill_mass_and_centres();
    }
    void build() { capture([&] { build_neighbor_list(false); }); }
    std::vector<std::array<int, 4>> list(int i) const
    {
        std::vector<std::array<int, 4>> out;
        for (int k = 0; k < num_neighbors[i]; ++k)
            out.push_back({neighbor_ids[i][k], neighbor_cell_a[i][k], neighbor_cell_b[i][k], neighbor_cell_c[i][k]});
        return out;
    }
};

}  // namespace

TEST(Neighbours, ImagesCutoffRangeAndOrder)
{
    Cell one(5.0, {{0.1, 0.1, 0.1}}, 5.5, 1);  // one molecule: only its six face images
    one.build();
    ASSERT_EQ(one.num_neighbors[0], 6);
    for (const auto& n : one.list(0)) EXPECT_EQ(n[0] * 10 + std::abs(n[1]) + std::abs(n[2]) + std::abs(n[3]), 1);
    EXPECT_EQ(one.pair_id[0], (std::vector<int>{1, 2, 3, 4, 5, 6}));
    // Room for the later stages of the suite: NNEIMAX entries per molecule, a vector per molecule.
    EXPECT_EQ((std::vector<size_t>{one.neighbor_flag[0].size(), one.neighbor_rsq[0].size(), one.neighbor_vec[0].size(),
                                   one.mol_vec.size(), one.uc_mol_index.size(), one.nei_mol_index.size()}),
              (std::vector<size_t>{300, 300, 300, 1, 1, 1}));
    using List = std::vector<std::array<int, 4>>;
    const struct {
        double edge;
        std::vector<Vec3> atoms;
        double cutoff;
        int range;
        List expected;
    } cases[] = {
        {16.0, {{0, 0, 0}, {0.25, 0, 0}}, 4.0, 1, {}},  // exactly 4 A apart: not in range
        {16.0, {{0, 0, 0}, {0.25, 0, 0}}, 4.001, 1, {{1, 0, 0, 0}}},
        {10.0, {{0.05, 0, 0}, {0.9, 0, 0}}, 2.0, 0, {}},  // the image at -a is outside range 0
        {10.0, {{0.05, 0, 0}, {0.9, 0, 0}}, 9.0, 1, {{1, -1, 0, 0}, {1, 0, 0, 0}}},  // 1.5 and 8.5 A
        // Found in the order of the molecule index, listed by distance.
        {20.0, {{0, 0, 0}, {0.2, 0, 0}, {0, 0.25, 0}, {0, 0, 0.1}}, 6.0, 0, {{3, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 0}}},
    };
    for (const auto& c : cases) {
        Cell cell(c.edge, c.atoms, c.cutoff, c.range);
        cell.build();
        EXPECT_EQ(cell.list(0), c.expected) << "edge " << c.edge << " cutoff " << c.cutoff << " range " << c.range;
        EXPECT_EQ(cell.mol_com.back(), c.atoms.back()[2] * c.edge);  // the last molecule's Cartesian centre, z
    }
}

// The list holds NNEIMAX - 1 neighbours at most: the run ends when the count
// reaches it (the message itself is the recorded run nneimax_reached).
TEST(Neighbours, TooManyNeighboursEndTheRun)
{
    Cell c(3.0, {{0, 0, 0}}, 3.5, 1);  // the six face images
    c.NNEIMAX = 7;
    c.build();
    c.NNEIMAX = 6;
    testing::internal::CaptureStderr();
    EXPECT_THROW(c.build_neighbor_list(false), RunExit);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Need to boost NNEIMAX (NumNeigh=6)\n");
}

// (The carrier letter of charge.inp is seen in the recorded runs charge_*.)
TEST(Carrier, ElectronCounts)
{
    Cell c(5.0, {{0, 0, 0}}, 1.0, 0);
    c.mol_atypes[0] = {6, 1, 8, -1}, c.mol_natoms[0] = 4;  // an unknown element brings no electrons
    c.calc_homo();
    EXPECT_EQ(c.homo, (std::vector<int>{7}));  // 15 electrons round down
}
