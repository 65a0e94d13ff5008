// Plot scripts: their exact texts, and gnuplot and Python running them on scan output.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>

#include "mob_utils.h"
#include "test_scan_oracle.h"
#include "test_support.h"

using namespace testsupport;

namespace {

int run(const std::string& command)
{
    return WEXITSTATUS(std::system((command + " >run.log 2>&1").c_str()));
}

}  // namespace

// The six writers at max = 2.5 (R = 3 prints "[-3:3]", T = 0.6875 prints "0.7")
// and at max = 0, compared with texts checked line by line against the plot
// documentation; the surface figure keeps its name whatever name is passed.
TEST(ScriptText, ExactTextsAtMaxZeroAndTwoAndAHalf)
{
    ScratchDir dir;
    const Mobutils m;
    m.write_gnuplot_eps_script("mob_plane_xz", 2.5);
    m.write_gnuplot_png_script("mob_plane_xz", 0.0);
    m.write_gnuplot_eps_script_3D("surf", 2.5);
    m.write_gnuplot_png_script_3D("surf", 0.0);
    m.write_pyplot_script("mob_plane_yz.py", 2.5);
    m.write_pyplot_script_3D("mob_direction_all.py", 2.5);
    m.write_pyplot_script_3D("zero.py", 0.0);
    for (const char* f : {"mob_plane_xz.gnu", "mob_plane_xz.gnu-png", "surf.gnu", "surf.gnu-png",
                          "mob_plane_yz.py", "mob_direction_all.py", "zero.py"})
        expect_recorded(std::string(KELTA_TEST_DATA) + "/scripts/" + f + ".txt", read_file(f));
}

TEST(ScriptRun, GnuplotAndPythonDrawEveryFigure)
{
    ScratchDir dir;
    Mobutils m;
    scanoracle::fill_random_walks(m, 10, 8, 1);
    m.set_track_timeunit(1e-15);  // mobilities of a few cm^2/Vs: "%.2f" ranges above 0
    m.set_angle_delta(30.0);
    m.mob_plane_xy_xz_yz();
    m.mob_direction_all();
    const bool gnuplot = run("gnuplot --version") == 0,
               python = run("/usr/bin/python3 -c 'import matplotlib, numpy'") == 0;
    for (const std::string b :
         {"mob_plane_xy", "mob_plane_xz", "mob_plane_yz", "mob_direction_all"}) {
        if (gnuplot) {
            EXPECT_EQ(run("gnuplot " + b + ".gnu && gnuplot " + b + ".gnu-png"), 0)
                << b << read_file("run.log");
            EXPECT_EQ(read_file(b + ".eps").rfind("%!PS-Adobe", 0), 0u) << b;
            EXPECT_EQ(read_file(b + ".png").rfind("\x89PNG\r\n\x1a\n", 0), 0u) << b;
        }
        if (python) {
            EXPECT_EQ(run("MPLBACKEND=Agg /usr/bin/python3 " + b + ".py"), 0)
                << b << read_file("run.log");
        }
    }
    if (!gnuplot || !python) GTEST_SKIP() << "no gnuplot, or no python3 matplotlib";
}
