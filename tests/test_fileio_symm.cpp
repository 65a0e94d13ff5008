// Symmetry operation strings and the expansion of an asymmetric unit to P1.
#include "test_fileio_util.h"

using namespace fileio_test;

namespace {
// Carbon atoms at the given fractional positions in a 10 A cube.
FileIO cell_with(const std::vector<double>& x_s, const std::vector<std::string>& ops)
{
    FileIO f;
    const double cell[6] = {10, 10, 10, 90, 90, 90};
    f.cell_cell6_to_latt3x3(cell, f.latt);
    f.symm_ops = ops;
    f.cif_natoms = static_cast<int>(x_s.size() / 3);
    f.cif_atypes.assign(x_s.size() / 3, 6);
    f.cif_nw_radius.assign(x_s.size() / 3, 0.77);
    f.cif_x_s = f.cif_x = x_s;
    return f;
}
}  // namespace

TEST(SymmParse, RowsAndTranslations)
{
    const struct {
        const char* op;
        std::array<double, 3> row0;
        double t0;
    } cases[] = {
        {"-x+1/2,y,z", {-1, 0, 0}, 0.5},
        {"y-x,y,z", {-1, 1, 0}, 0.0},
        {"x+0.25,y,z", {1, 0, 0}, 0.25},
        {"x-1/2,y,z", {1, 0, 0}, 0.5},       // -0.5 wrapped once
        {"x+1/2+1/4,y,z", {1, 0, 0}, 0.25},  // a new number replaces the last
        {"1 0 0 0.5 0 1 0 0 0 0 1 0", {1, 0, 0}, 0.5},  // numeric form
        {"loop_", {0, 0, 0}, 0.0},                       // neither comma nor space
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.op);
        double R[3][3], t[3];
        FileIO::ParseTransformString(c.op, R, t);
        EXPECT_EQ((std::array<double, 3>{R[0][0], R[0][1], R[0][2]}), c.row0);
        EXPECT_DOUBLE_EQ(t[0], c.t0);
    }
}

TEST(SymmExpand, IdentityWrapsEachCoordinateOnce)
{
    FileIO f = cell_with({-0.2, 1.3, -1.2}, {"x,y,z"});
    f.make_spacegroup_P1(3);
    ASSERT_EQ(f.cif_natoms, 1);
    EXPECT_NEAR(f.cif_x_s[0], 0.8, 1e-15);
    EXPECT_NEAR(f.cif_x_s[1], 0.3, 1e-15);
    EXPECT_NEAR(f.cif_x_s[2], -0.2, 1e-15);

    FileIO none = cell_with({0.1, 0.1, 0.1}, {});
    none.make_spacegroup_P1(3);
    EXPECT_EQ(none.cif_natoms, 0);
}

TEST(SymmExpand, OperationMajorOrderAndOverlapRemoval)
{
    FileIO f = cell_with({0, 0, 0, 0.1, 0.2, 0.3}, {"x,y,z", "-x,-y,-z"});
    const Outcome o = capture([&] { f.make_spacegroup_P1(3); });
    EXPECT_EQ(o.out,
              "WARNING: Overlapped atoms detected and to be removed\n"
              "         Number of overlapped atoms is 1\n"
              "         Number of remaining atoms is 3\n");
    EXPECT_EQ(f.cif_natoms, 3);
    EXPECT_EQ(f.cif_x_s, (std::vector<double>{0, 0, 0, 0.1, 0.2, 0.3, 0.9, 0.8, 0.7}));
    EXPECT_EQ(f.cif_atypes.size(), 3u);

    // 0.0005 apart and 0 vs 0.9999 (through the face) merge; 0.002 apart is kept.
    FileIO g = cell_with({0.5, 0.5, 0.5, 0.5005, 0.5, 0.5, 0.502, 0.5, 0.5, 0, 0.1, 0.1, 0.9999, 0.1, 0.1},
                         {"x,y,z"});
    capture([&] { g.make_spacegroup_P1(3); });
    EXPECT_EQ(g.cif_x_s, (std::vector<double>{0.5, 0.5, 0.5, 0.502, 0.5, 0.5, 0, 0.1, 0.1}));
}
