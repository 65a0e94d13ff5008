// The built tool as its own process: exit statuses as the shell sees them, and
// two runs of one working directory. (Everything a run prints and writes is
// checked in-process by the recorded working directories of test_cases.cpp.)
#include <gtest/gtest.h>

#include <regex>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

const fs::path kCase = fs::path(KELTA_TEST_DATA) / "cases/mol_oblique_scans/in";

// The text of files the run wrote, with the bootstrap error columns (the last
// number of a mob*.dat line, of a plane or sphere row) blanked.
std::string results_without_errors(const fs::path& dir)
{
    static const std::regex error_column(R"([ \t]+\S+\n)");
    std::string all = read_file(dir / "aver_track_b.dat") + read_file(dir / "mob_direction_all.gnu");
    for (const char* f : {"mob.dat", "mob_a.dat", "mob_c.dat", "mob_plane_yz.dat", "mob_direction_all.dat"})
        all += std::regex_replace(read_file(dir / f), error_column, " *\n");
    return all;
}

}  // namespace

TEST(Process, StatusesReachTheShell)
{
    const ScratchDir dir;
    Outcome r = run_tool(dir.path(), {"-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\nUsage: kelta_mob [opts]\n"), std::string::npos);  // the name without its path
    r = run_tool(dir.path(), {});
    EXPECT_EQ(r.status, 255);  // -1: no kelta.inp
    EXPECT_EQ(r.out, "*** Perform Mobility Calculation...\n\nERROR  transport : kelta_inp : line 120 : \n"
                     "Failed to open input file: kelta.inp\n");
}

// Only the bootstrap error columns depend on the clock and the random device.
TEST(Process, TwoRunsDifferOnlyInTheErrorColumns)
{
    const ScratchDir dirs[2];
    std::string results[2];
    for (int i = 0; i < 2; ++i) {
        fs::copy(kCase, dirs[i].path(), fs::copy_options::recursive);
        const Outcome r = run_tool(dirs[i].path(), {"-deltaa", "30"});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        results[i] = results_without_errors(dirs[i].path());
    }
    EXPECT_EQ(results[0], results[1]);
    EXPECT_NE(read_file(dirs[0].path() / "mob_direction_all.dat"), read_file(dirs[1].path() / "mob_direction_all.dat"));
}
