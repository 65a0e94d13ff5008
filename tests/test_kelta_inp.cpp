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
    EXPECT_EQ(c.scell_n, (std::array<int, 3>{3, 3, 3}));
    EXPECT_EQ(c.vec_c, (Vec3{-4.888095, 0, 7.138882}));
    EXPECT_EQ(c.kelta_dat_file, "kelta-quantum.dat");
    EXPECT_TRUE(c.input_read && c.unique_2mol_calc && c.unique_RE_calc);
}

TEST_F(KeltaInpTest, HeadersCommentsAndBlocks)
{
    const std::pair<std::string, int> cases[] = {
        {"&TRANSPORT\nnsimu = 7\n/\n", 7},
        {"  &Transport\t\nnsimu = 7\n/\n", 7},
        {"&transport!x\nnsimu = 7\n/\n", 7},
        // The inline comment is cut but the blanks before it stay: no block.
        {"&transport   ! settings\nnsimu = 7\n/\n", 2000},
        {"&transport # x\nnsimu = 7\n/\n", 2000},
        {"&transport\n  nsimu = 100   ! simulations\n/\n", 100},
        {"&transport\nnsimu=100#x\n# nsimu = 3\n! nsimu = 4\n/\n", 100},
        {"&transport\nNSIMU = 100\n/\n", 100},
        {"&transport\nnsimu 5\nnsimu = 6\n/\nnsimu = 9\n", 6},  // no '=': skipped
        {"&transport\nnsimu = 1\n/\n&transport\nnsimu = 2\n", 2},  // unclosed, later wins
        // The second 1023-character piece of an over-long comment is a line of its own.
        {"&transport\n!" + std::string(1022, 'x') + "nsimu = 7\n/\n", 7},
    };
    for (const auto& [text, nsimu] : cases) EXPECT_EQ(Config(text).nsimu, nsimu) << text;
}

TEST_F(KeltaInpTest, ValueKinds)
{
    const Config c("&qc_inp_append\nline one\n  /\n/ end\n"
                   "&transport\n"
                   "tsimu = 1.5e3 ns\ntsnap = 1.0d3\nnsimu = abc\n"
                   "vector_a = 1.0 2.0\nnei_scell = 2 1\nsuper-cell = 2 2 2\n"
                   "homo_adjustment = 1 2\nhomo_adjustment = 1  2\n"
                   "chargetype = 'H'\nmater_name = a\"b\nratetype = quantity\n"
                   "kelta_dat_file = \"x.dat\"\nscratch = /scr/x\n"
                   "app_elec_F = 0 1e5 0\napp_elec_F = 0 0 0\n"
                   "molecule = 2  a.mol   b.mol\n"
                   "/\n&gaussian.append\nsecond\n");
    EXPECT_EQ(c.tsimu, 1500.0);
    EXPECT_EQ(c.tsnap, 1.0);
    EXPECT_EQ(c.nsimu, 0);
    EXPECT_EQ(c.vec_a, (Vec3{1.0, 2.0, 0.0}));  // third component keeps its default
    EXPECT_EQ(c.scell_n, (std::array<int, 3>{2, 1, 3}));
    EXPECT_EQ(c.super_cell, (std::array<int, 3>{2, 2, 2}));
    EXPECT_EQ(c.homo_adjustment, (std::vector<int>{1, 2, 1, 2}));
    EXPECT_EQ(c.chargetype, "H");
    EXPECT_EQ(c.mater_name, "ab");
    EXPECT_EQ(c.ratetype, "quantity");
    EXPECT_EQ(c.kelta_dat_file, "\"x.dat\"");  // plain text keeps quotes...
    EXPECT_EQ(c.job.scratch, " /scr/x");       // ...and scratch the leading blank
    EXPECT_TRUE(c.get_appE_flag());            // a later zero field does not clear it
    EXPECT_EQ(c.mol_input_mode, 1);
    EXPECT_EQ(c.mol_names, (std::vector<std::string>{"a.mol", "b.mol"}));
    EXPECT_EQ(c.qc_inp_append, "line one\n  /\nsecond\n");
}

TEST_F(KeltaInpTest, EnvironmentSitsBetweenDefaultsAndFile)
{
    setenv("KELTA_QC_NODES", "abc", 1);
    setenv("KELTA_JOB_SCHED", "slurm", 1);
    const Config env("");
    EXPECT_EQ(env.job.qc_nodes, 0);
    EXPECT_EQ(env.job.sched_type, "slurm");
    const Config file("&transport\nsched_type = lsf\nnodelist = n1,n2\ncompute_engine = 2\n/\n");
    EXPECT_EQ(file.job.sched_type, "lsf");
    EXPECT_EQ(file.job.nodelist, "n1 n2");
    EXPECT_EQ(file.job.qc_exe, "fullpath/orca");
    unsetenv("KELTA_QC_NODES");
    unsetenv("KELTA_JOB_SCHED");
    EXPECT_EQ(Config("").job.qc_nodes, 1);
}

TEST_F(KeltaInpTest, BadInputEndsTheRunWithItsMessage)
{
    const std::string h = "\nERROR  transport : kelta_inp : line ";
    const struct {
        const char* text;
        int status;
        std::string out;
    } cases[] = {
        {"&transport\nchargetype = x\n/\n", 1,
         h + "390 : \nThe current chargetype in kelta.inp is 'x', \nwhile the supported chargetype's are: 'e', 'h', 'a'\n"},
        {"&transport\nevc_type = zmat\n/\n", 1,
         h + "390 : \nThe current evc_type in kelta.inp is 'zmat', \nwhile the supported evc_type's are: 'cart', 'int'\n"},
        {"&transport\nratetype = mar\n/\n", 1,
         h + "390 : \nThe current ratetype in kelta.inp is 'mar', \nwhile the supported ratetype's are: marcus, quantum\n"},
        {"&transport\ncompute_engine = 3\n/\n", 1,
         h + "560 : \nIncomptiable settings:\n  The compute_engine = 3, while qc_exe is set to g09\n"
             "  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n"},
        {"&transport\nmolecule = 3 a.mol\n/\n", 1,
         h + "470 : \nKeyword molecule announces 3 file name(s) but gives 1: ' 3 a.mol'\n"},
        {"&transport\n  Foo Bar = 1\n/\n", -1, h + "460 : \n\nUnknown parameter \"Foo Bar\" in file kelta.inp!!!\n\n"},
        {nullptr, -1, h + "120 : \nFailed to open input file: kelta.inp\n"},
    };
    for (const auto& c : cases) {
        std::filesystem::remove("kelta.inp");
        if (c.text) write_file("kelta.inp", c.text);
        KeltaInp k;
        testing::internal::CaptureStdout();
        try {
            k.read_kelta_inp("kelta.inp", false);
            ADD_FAILURE() << "no error for " << c.text;
        } catch (const RunExit& e) {
            EXPECT_EQ(e.status(), c.status);
        }
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
    }
}
