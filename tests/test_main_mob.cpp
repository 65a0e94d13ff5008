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

TEST(Process, HelpNamesTheToolWithoutItsPath)
{
    const ScratchDir dir;
    const Outcome r = run_tool(dir.path(), {"-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\nUsage: kelta_mob [opts]\n"), std::string::npos);
}

// Track tables of 0.8 GB under a 0.4 GB address-space limit: a message, and -1 reaches the shell as 255.
TEST(Process, TablesBeyondTheAddressSpace)
{
    if (std::getenv("ASAN_OPTIONS") || std::getenv("TSAN_OPTIONS")) GTEST_SKIP() << "the sanitizers reserve more than the limit";
    const ScratchDir dir;
    fs::copy(kCase, dir.path(), fs::copy_options::recursive);
    std::string inp = read_file(dir.path() / "kelta.inp");
    write_file(dir.path() / "kelta.inp", inp.insert(inp.rfind('/'), " nsimu = 10000\n tsimu = 2500\n"));
    const Outcome r = run_tool(dir.path(), {}, "ulimit -v 400000; OMP_NUM_THREADS=2");
    EXPECT_EQ(std::to_string(r.status) + " " + r.err, "255 kelta_mob: out of memory for the requested arrays\n");
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
