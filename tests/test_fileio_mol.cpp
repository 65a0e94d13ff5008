// MDL molfile reader: V3000 blocks and the real files.
#include <map>

#include "test_support.h"

using namespace testsupport;

static Outcome read_mol(FileIO& f, const std::string& path) { return capture([&] { f.read_data_mol(path.c_str(), 0, false); }); }

// (Defects that end the run are recorded working directories: mol_* under tests/data/cases.)
TEST(MolReader, V3000BlocksAreSkipped)
{
    FileIO f;
    EXPECT_EQ(read_mol(f, fixture("mol/v3000_blocks.mol")).out,
              "WARNING: A molecule contains an R group which is not implemented!\n"
              "WARNING: SGROUP blocks are not currently implemented and their contents are ignored.\n"
              "WARNING: RGROUP and RLOGIC blocks are not currently implemented and their contents are ignored.\n");
    ASSERT_EQ(f.mol_natoms[0], 3);  // the R-group's own atom is not added; "-" continues a line; M END ends the reading
    EXPECT_EQ(f.mol_atypes[0], (std::vector<int>{8, 1, -1}));
    EXPECT_EQ(f.mol_x[0], (std::vector<double>{0, 0, 0, 0.96, 0.5, 0.25, -0.24, 0.93, 0}));
}

TEST(MolRealFiles, CompositionAndTheV2000V3000Pair)
{
    if (!std::filesystem::exists(shared_file("mol"))) GTEST_SKIP() << "shared data not present";
    const std::pair<std::string, std::map<int, int>> cases[] = {  // atomic number -> count
        {"benzene_crlf_v2000.mol", {{6, 6}, {1, 6}}},
        {"propylpyridine_v3000.mol", {{6, 8}, {1, 11}, {7, 1}}},
        {"rp6306_v2000.mol", {{6, 18}, {1, 20}, {7, 4}, {8, 2}}},
        {"rp6306_v3000.mol", {{6, 18}, {1, 20}, {7, 4}, {8, 2}}},  // the same coordinates as the V2000 file
    };
    std::vector<std::vector<double>> x;
    for (const auto& [file, composition] : cases) {
        SCOPED_TRACE(file);
        FileIO f;
        ASSERT_EQ(read_mol(f, shared_file("mol/" + file)).status, INT_MIN);
        std::map<int, int> found;
        for (const int z : f.mol_atypes[0]) ++found[z];
        EXPECT_EQ(found, composition);
        ASSERT_EQ(f.mol_x[0].size(), 3 * f.mol_atypes[0].size());
        x.push_back(f.mol_x[0]);
    }
    for (size_t i = 0; i < x[2].size(); ++i) EXPECT_NEAR(x[2][i], x[3][i], 5e-5);
}
