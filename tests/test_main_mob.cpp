// The command line and whole runs of the built tool in scratch working directories.
#include <gtest/gtest.h>

#include "test_support.h"

using namespace testsupport;

namespace {

const std::string kStars(67, '*');

std::string help_text(const std::string& prog)
{
    return kStars + "\n" + "*   KELTA Transport Calculation Utility, Version 2026.11 (r1)     *\n" +
           "*   Carrier mobility from kinetic Monte Carlo trajectories        *\n" + kStars + "\n" +
           "Calculate mobility properties with data in track directory\n\n"
           "Usage: " + prog + " [opts]\n"
           "      -config kelta.inp   : set config file, default to 'kelta.inp'\n"
           "      -trackdir track     : set track directory, default to 'track'\n"
           "      -timeunit [PS | NS] : can only be 'PS' or 'NS'\n"
           "      -deltaa num         : set grid angle delta, default to 10.0\n"
           "                            can also use 'delta.inp' to set angle delta\n"
           "      -moball             : trigger mob all calculation\n"
           "      -binfo              : enable screen output\n\n"
           "e.g.: " + prog + "\n"
           "      " + prog + " -config kelta.inp\n"
           "      " + prog + " -deltaa 10.0\n"
           "      " + prog + " -trackdir track\n"
           "      " + prog + " -config kelta.inp -trackdir track\n\n";
}

// Two dimers in an orthorhombic cell, 12 random-walk trajectories of 21 points.
void make_workdir(const std::filesystem::path& dir, int output_level = 0)
{
    write_file(dir / "m1.mol", dimer_mol(0, 0, 0));
    write_file(dir / "m2.mol", dimer_mol(3, 3, 3));
    write_file(dir / "charge.inp", "e\n");
    write_file(dir / "kelta.inp", "&transport\n molecule = 2 m1.mol m2.mol\n"
                                  " vector_a = 6 0 0\n vector_b = 0 6 0\n vector_c = 0 0 6\n"
                                  " nsimu = 12\n tsimu = 20\n tsnap = 1\n output_level = " +
                                      std::to_string(output_level) + "\n/\n");
    write_random_tracks(dir, 12, 21, 1.0);
}

const char* const kPlainRun =
    "*** Perform Mobility Calculation...\nReading input file charge.inp...\nReading track data...\n"
    "Treating mob_average...\nTreating mob_direction...\n*** Succsessfully done.\n";

class MainMob : public testing::Test {
protected:
    ScratchDir dir;
};

}  // namespace

TEST_F(MainMob, HelpEndsTheRunWhereverItStands)
{
    const RunResult r = run_tool(dir.path(), {"-binfo", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, help_text("kelta_mob"));
    EXPECT_EQ(r.err, "");
    // Options match by their leading characters; earlier options print first.
    const RunResult p = run_tool(dir.path(), {"-trackdirX", "out", "-timeunit", "PSEC", "--helpme", "-config", "x"});
    EXPECT_EQ(p.status, 0);
    EXPECT_EQ(p.out, " trackdir is 'out'\n timeunit is 'PSEC'\n" + help_text("kelta_mob"));
}

TEST_F(MainMob, OptionFailuresEndWithStatusZero)
{
    RunResult r = run_tool(dir.path(), {"-config", "missing.inp", "-h"});
    EXPECT_EQ(r.out, "ERROR: kelta_mob input config file missing.inp not found!\n");
    EXPECT_EQ(r.status, 0);
    r = run_tool(dir.path(), {"-timeunit", "ps"});
    EXPECT_EQ(r.out, " Unknown time unit string, can only be 'PS' or 'NS'\n");
    EXPECT_EQ(r.status, 0);
    // A value option given last has no value: a message and status 1.
    r = run_tool(dir.path(), {"-moball", "-deltaa"});
    EXPECT_EQ(r.out, "ERROR: kelta_mob option -deltaa needs a value\n");
    EXPECT_EQ(r.status, 1);
}

TEST_F(MainMob, PlainRunWritesTheResultFiles)
{
    make_workdir(dir.path());
    write_file(dir.path() / "other.inp", read_file(dir.path() / "kelta.inp"));
    const RunResult r = run_tool(dir.path(), {"foo", "-x", "-config", "other.inp", "-trackdir", "out"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.out, std::string("  kelta_mob input config file is other.inp\n trackdir is 'out'\n") + kPlainRun);
    EXPECT_EQ(r.err, "");
    for (const char* f : {"mob.dat", "mob_a.dat", "mob_b.dat", "mob_c.dat"})
        EXPECT_EQ(read_lines(dir.path() / f).size(), 1u) << f;
    EXPECT_EQ(read_file(dir.path() / "mob_b.dat").rfind("mob_b / dev [cm**2/Vs]: ", 0), 0u);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "aver_track.dat"));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "mob_plane_xy.dat"));
}

TEST_F(MainMob, VerboseRunPrintsEveryStep)
{
    make_workdir(dir.path(), 4);
    const RunResult r = run_tool(dir.path(), {"-binfo", "-timeunit", "PS"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    const char* const steps[] = {
        " timeunit is 'PS'\n*** Perform Mobility Calculation...\nReading config file \"kelta.inp\"... \n",
        "Reading molecular file \"m1.mol\"... ",
        "\n**** KELTA Build Neighbor List ****\n  Neighbor rcutoff distance: 4\n  Neighbor search cell (-/+): 3 3 3\n",
        "**** End of KELTA Build Neighbor List ****\n\n",
        "  nsimu = 12\n  tsimu = 20 ps\n  tsnap = 1 ps\n  tstep = 1 ps\n  ntime = 20\n"
        "Reading input file charge.inp...\n  MC chargetype = e\nReading track data...\n  nsimu = 12\n  ntime = 20\n",
        "Treating mob_average...\n  temp  = 300\n  nsimu = 12\n  nsamp = 100\n  ntime = 20\ndone.\n",
        "Treating mob_direction...\n  temp = 300\ndone.\n*** Succsessfully done.\n",
    };
    size_t at = 0;
    for (const char* s : steps) {
        const size_t found = r.out.find(s, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order:\n" << s << "\nin:\n" << r.out;
        at = found;
    }
    for (const char* f : {"aver_track.dat", "aver_track_a.dat", "aver_track_b.dat", "aver_track_c.dat"})
        EXPECT_EQ(read_lines(dir.path() / f).size(), 20u) << f;
}

TEST_F(MainMob, FailuresInsideTheRunReportTheirModule)
{
    make_workdir(dir.path());
    write_file(dir.path() / "kelta.inp", "&transport\nnsimu = 2\n/\n");
    RunResult r = run_tool(dir.path(), {});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out.rfind("*** Perform Mobility Calculation...\n\nERROR  transport : fileio : line ", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("No input molecule data is available. (-1)\n"), std::string::npos) << r.out;

    make_workdir(dir.path());
    std::filesystem::remove(dir.path() / "track/track_0007.dat");
    r = run_tool(dir.path(), {});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.err, "Failed to open input file track/track_0007.dat\n");

    make_workdir(dir.path());
    std::filesystem::remove(dir.path() / "charge.inp");
    r = run_tool(dir.path(), {});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.err, "Failed to open input file charge.inp\n");
}
