// The input file reader: block syntax, comments, value kinds, checks and the
// order of the default layers.
#include <gtest/gtest.h>

#include <cstdlib>

#include "kelta_inp.h"
#include "test_support.h"

using testsupport::ScratchDir;
using testsupport::write_file;

namespace {

struct Config : KeltaInp {
    explicit Config(const std::string& text)
    {
        write_file("kelta.inp", text);
        read_kelta_inp("kelta.inp", false);
    }
};

struct Fatal {
    int status;
    std::string out;
};

Fatal read_fails(const std::string& text)
{
    write_file("kelta.inp", text);
    KeltaInp k;
    testing::internal::CaptureStdout();
    try {
        k.read_kelta_inp("kelta.inp", false);
    } catch (const RunExit& e) {
        return {e.status(), testing::internal::GetCapturedStdout()};
    }
    testing::internal::GetCapturedStdout();
    ADD_FAILURE() << "no fatal error for:\n" << text;
    return {};
}

class KeltaInpTest : public testing::Test {
protected:
    ScratchDir dir;
};

}  // namespace

TEST_F(KeltaInpTest, FileWithoutBlockKeepsEveryDefault)
{
    const Config c("nsimu = 5\n! nothing else\n");
    EXPECT_EQ(c.nsimu, 2000);
    EXPECT_EQ(c.tsimu, 1000.0);
    EXPECT_EQ(c.tsnap, 5.0);
    EXPECT_EQ(c.temp, 300.0);
    EXPECT_EQ(c.chargetype, "a");
    EXPECT_EQ(c.output_level, 2);
    EXPECT_EQ(c.lat_cutoff, 4.0);
    EXPECT_EQ(c.scell_n, (std::array<int, 3>{3, 3, 3}));
    EXPECT_EQ(c.bond_dis_scale, 1.15);
    EXPECT_EQ(c.vec_a, (Vec3{8.098, 0, 0}));
    EXPECT_EQ(c.vec_b, (Vec3{0, 5.953, 0}));
    EXPECT_EQ(c.vec_c, (Vec3{-4.888095, 0, 7.138882}));
    EXPECT_EQ(c.kelta_dat_file, "kelta-quantum.dat");
    EXPECT_TRUE(c.input_read);
    EXPECT_TRUE(c.unique_2mol_calc && c.unique_RE_calc);
}

TEST_F(KeltaInpTest, HeaderMatchesWholeTrimmedLineOnly)
{
    EXPECT_EQ(Config("&TRANSPORT\nnsimu = 7\n/\n").nsimu, 7);
    EXPECT_EQ(Config("  &Transport\t\nnsimu = 7\n/\n").nsimu, 7);
    // The inline comment is cut but the blanks before it stay: no block.
    EXPECT_EQ(Config("&transport   ! settings\nnsimu = 7\n/\n").nsimu, 2000);
    EXPECT_EQ(Config("&transport # x\nnsimu = 7\n/\n").nsimu, 2000);
    EXPECT_EQ(Config("&transport!x\nnsimu = 7\n/\n").nsimu, 7);
}

TEST_F(KeltaInpTest, CommentsAndKeyCase)
{
    EXPECT_EQ(Config("&transport\n  nsimu = 100   ! simulations\n/\n").nsimu, 100);
    EXPECT_EQ(Config("&transport\nnsimu=100#x\n/\n").nsimu, 100);
    EXPECT_EQ(Config("&transport\nNSIMU = 100\n# nsimu = 3\n! nsimu = 4\n/\n").nsimu, 100);
    // A line without '=' is skipped; a '/' line ends the block.
    EXPECT_EQ(Config("&transport\nnsimu 5\nnsimu = 6\n/\nnsimu = 9\n").nsimu, 6);
    // Several blocks: later values win. An unclosed block reads to the end.
    const Config c("&transport\nnsimu = 1\ntemp = 10\n/\n&transport\nnsimu = 2\n");
    EXPECT_EQ(c.nsimu, 2);
    EXPECT_EQ(c.temp, 10.0);
}

TEST_F(KeltaInpTest, ValueKinds)
{
    const Config c("&transport\n"
                   "tsimu = 1.5e3 ns\n"
                   "tsnap = 1.0d3\n"
                   "vector_a = 1.0 2.0\n"
                   "nei_scell = 2 1\n"
                   "super-cell = 2 2 2\n"
                   "homo_adjustment = 1 2\n"
                   "homo_adjustment = 1  2\n"
                   "chargetype = 'H'\n"
                   "mater_name = a\"b\n"
                   "ratetype = quantity\n"
                   "kelta_dat_file = \"x.dat\"\n"
                   "scratch = /scr/x\n"
                   "app_elec_F = 0 1e5 0\n"
                   "app_elec_F = 0 0 0\n"
                   "/\n");
    EXPECT_EQ(c.tsimu, 1500.0);
    EXPECT_EQ(c.tsnap, 1.0);
    EXPECT_EQ(c.vec_a, (Vec3{1.0, 2.0, 0.0}));  // third component keeps its default
    EXPECT_EQ(c.scell_n, (std::array<int, 3>{2, 1, 3}));
    EXPECT_EQ(c.super_cell, (std::array<int, 3>{2, 2, 2}));
    EXPECT_EQ(c.homo_adjustment, (std::vector<int>{1, 2, 1, 2}));
    EXPECT_EQ(c.chargetype, "H");
    EXPECT_EQ(c.mater_name, "ab");
    EXPECT_EQ(c.ratetype, "quantity");
    EXPECT_EQ(c.kelta_dat_file, "\"x.dat\"");  // plain text keeps quotes...
    EXPECT_EQ(c.job.scratch, " /scr/x");  // ...and scratch keeps even the leading blank
    EXPECT_TRUE(c.get_appE_flag());         // a later zero field does not clear it
    EXPECT_EQ(Config("&transport\nnsimu = abc\n/\n").nsimu, 0);
    EXPECT_EQ(Config("&transport\nsuper_cell = 4 4 4\n/\n").super_cell, (std::array<int, 3>{4, 4, 4}));
}

TEST_F(KeltaInpTest, MoleculeListAndAppendBlocks)
{
    const Config c("&qc_inp_append\nline one\n  /\n/ end\n"
                   "&transport\nmolecule = 2  a.mol   b.mol\nratetype = Marcus-Levich\n/\n"
                   "&gaussian.append\nsecond\n");
    EXPECT_EQ(c.mol_input_mode, 1);
    EXPECT_EQ(c.mol_count, 2);
    EXPECT_EQ(c.mol_names, (std::vector<std::string>{"a.mol", "b.mol"}));
    EXPECT_EQ(c.qc_inp_append, "line one\n  /\nsecond\n");
    EXPECT_EQ(c.kelta_dat_file, "kelta-Marcus-Levich.dat");
}

TEST_F(KeltaInpTest, LongPhysicalLinesAreReadIn1023CharacterPieces)
{
    // The second piece of an over-long comment line is a line of its own.
    const std::string longc = "!" + std::string(1022, 'x') + "nsimu = 7\n";
    EXPECT_EQ(Config("&transport\n" + longc + "/\n").nsimu, 7);
}

TEST_F(KeltaInpTest, EnvironmentSitsBetweenDefaultsAndFile)
{
    setenv("KELTA_QC_NODES", "abc", 1);
    setenv("KELTA_JOB_SCHED", "slurm", 1);
    setenv("KELTA_MODULE_QC", "qc/1", 1);
    const Config env("");
    EXPECT_EQ(env.job.qc_nodes, 0);
    EXPECT_EQ(env.job.sched_type, "slurm");
    EXPECT_TRUE(env.job.module_qc_given);
    const Config file("&transport\nsched_type = lsf\nnodelist = n1,n2\n/\n");
    EXPECT_EQ(file.job.sched_type, "lsf");
    EXPECT_EQ(file.job.nodelist, "n1 n2");
    unsetenv("KELTA_QC_NODES");
    unsetenv("KELTA_JOB_SCHED");
    unsetenv("KELTA_MODULE_QC");
    EXPECT_EQ(Config("").job.qc_nodes, 1);
}

TEST_F(KeltaInpTest, EngineAndExecutableMustAgree)
{
    const Config orca("&transport\ncompute_engine = 2\n/\n");
    EXPECT_EQ(orca.job.qc_exe, "fullpath/orca");
    const Fatal f = read_fails("&transport\ncompute_engine = 3\n/\n");
    EXPECT_EQ(f.status, 1);
    EXPECT_EQ(f.out, "\nERROR  transport : kelta_inp : line 560 : \nIncomptiable settings:\n"
                     "  The compute_engine = 3, while qc_exe is set to g09\n"
                     "  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n");
}

TEST_F(KeltaInpTest, BadValuesEndTheRunWithStatusOne)
{
    Fatal f = read_fails("&transport\nchargetype = x\n/\n");
    EXPECT_EQ(f.status, 1);
    EXPECT_EQ(f.out, "\nERROR  transport : kelta_inp : line 390 : \nThe current chargetype in kelta.inp is 'x', \n"
                     "while the supported chargetype's are: 'e', 'h', 'a'\n");
    f = read_fails("&transport\nevc_type = zmat\n/\n");
    EXPECT_EQ(f.status, 1);
    EXPECT_NE(f.out.find("while the supported evc_type's are: 'cart', 'int'\n"), std::string::npos);
    f = read_fails("&transport\nratetype = mar\n/\n");
    EXPECT_EQ(f.status, 1);
    EXPECT_NE(f.out.find("The current ratetype in kelta.inp is 'mar', \nwhile the supported ratetype's are: marcus, quantum\n"),
              std::string::npos);
    f = read_fails("&transport\nmolecule = 3 a.mol\n/\n");
    EXPECT_EQ(f.status, 1);
}

TEST_F(KeltaInpTest, UnknownKeyAndMissingFileEndTheRunWithStatusMinusOne)
{
    const Fatal f = read_fails("&transport\n  Foo Bar = 1\n/\n");
    EXPECT_EQ(f.status, -1);
    EXPECT_EQ(f.out, "\nERROR  transport : kelta_inp : line 460 : \n\nUnknown parameter \"Foo Bar\" in file kelta.inp!!!\n\n");

    KeltaInp k;
    testing::internal::CaptureStdout();
    try {
        k.read_kelta_inp("missing.inp", false);
        ADD_FAILURE() << "no error";
    } catch (const RunExit& e) {
        EXPECT_EQ(e.status(), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nERROR  transport : kelta_inp : line 120 : \nFailed to open input file: missing.inp\n");
}
