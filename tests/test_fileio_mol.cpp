// MDL molfile reader: defects of the counts and atom blocks, V3000 blocks, and
// the real V2000/V3000 files.
#include <filesystem>
#include <map>

#include "test_fileio_util.h"

using namespace fileio_test;

namespace {
Outcome read_mol(FileIO& f, const std::string& path) { return capture([&] { f.read_data_mol(path.c_str(), 0, false); }); }
}  // namespace

TEST(MolReader, CountsAndAtomBlockDefectsEndTheRunWithStatusOne)
{
    const struct {
        const char* file;
        const char* message;
    } cases[] = {
        {"short_counts.mol",
         "WARNING: Problems reading a MDL file\n         Cannot read atom and bond count\n"
         "         Expected standard 6 character atom and bond count\n"},
        {"atom_list.mol",
         "WARNING: Problems reading the Count line of an MDL file\n         There may be erroneous addition spaces or\n"
         "         the file may contains Atom Lists, which are ignored\n"},
        {"missing_atoms.mol",
         "WARNING: Problems reading a MDL file\n         Not enough atoms to match atom count (5) in counts line\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        FileIO f;
        expect_fatal(read_mol(f, fixture(std::string("mol/") + c.file)), 1, c.message);
    }
}

TEST(MolReader, V3000BlocksContinuationAndSkippedBlocks)
{
    FileIO f;
    const Outcome o = read_mol(f, fixture("mol/v3000_blocks.mol"));
    EXPECT_EQ(o.out,
              "WARNING: A molecule contains an R group which is not implemented!\n"
              "WARNING: SGROUP blocks are not currently implemented and their contents are ignored.\n"
              "WARNING: RGROUP and RLOGIC blocks are not currently implemented and their contents are ignored.\n");
    ASSERT_EQ(f.mol_natoms[0], 3);  // the R-group's own atom is not added
    EXPECT_EQ(f.mol_atypes[0], (std::vector<int>{8, 1, -1}));
    EXPECT_EQ(f.mol_x[0], (std::vector<double>{0, 0, 0, 0.96, 0, 0, -0.24, 0.93, 0}));
}

TEST(MolRealFiles, AtomCountsCompositionAndTheV2000V3000Pair)
{
    if (!std::filesystem::exists(shared_file("mol"))) GTEST_SKIP() << "shared data not present";
    const struct {
        const char* file;
        std::map<int, int> composition;  // atomic number -> count
    } cases[] = {
        {"naphthalene_v2000.mol", {{6, 10}, {1, 8}}},
        {"anthracene_v2000.mol", {{6, 14}, {1, 10}}},
        {"benzene_crlf_v2000.mol", {{6, 6}, {1, 6}}},
        {"rp6306_v2000.mol", {{6, 18}, {1, 20}, {7, 4}, {8, 2}}},
        {"rp6306_v3000.mol", {{6, 18}, {1, 20}, {7, 4}, {8, 2}}},
        {"propylpyridine_v3000.mol", {{6, 8}, {1, 11}, {7, 1}}},
    };
    std::vector<std::vector<double>> rp6306;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        FileIO f;
        ASSERT_EQ(read_mol(f, shared_file(std::string("mol/") + c.file)).status, INT_MIN);
        std::map<int, int> composition;
        for (const int z : f.mol_atypes[0]) ++composition[z];
        EXPECT_EQ(composition, c.composition);
        EXPECT_EQ(f.mol_x[0].size(), 3 * f.mol_atypes[0].size());
        if (std::string(c.file).starts_with("rp6306")) rp6306.push_back(f.mol_x[0]);
    }
    ASSERT_EQ(rp6306.size(), 2u);
    for (size_t i = 0; i < rp6306[0].size(); ++i) EXPECT_NEAR(rp6306[0][i], rp6306[1][i], 5e-5);
}
