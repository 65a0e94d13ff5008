// The demo's steps on a reduced number of trajectories: the crystal reads, the
// tracks generate, every analysis runs, and gnuplot and matplotlib (when
// installed) draw every picture from the scripts without a message.
#include <gtest/gtest.h>

#include <cstdlib>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

TEST(Demo, RunsAndDrawsEveryPicture)
{
    const ScratchDir dir;
    const std::string build = fs::path(KELTA_MOB_EXE).parent_path().string();
    const int status = std::system(("'" KELTA_DEMO_SCRIPT "' '" + build + "' run 200 > demo.log 2> demo.err").c_str());
    ASSERT_EQ(status, 0) << read_file("demo.log") << read_file("demo.err");
    EXPECT_EQ(read_file("demo.err"), "");  // gnuplot says nothing when it draws
    EXPECT_NE(read_file("demo.log").find("*** Succsessfully done."), std::string::npos) << read_file("demo.log");
    EXPECT_NE(read_file("run/mob_tensor.dat").find("principal_3"), std::string::npos);
    // The EPS scripts and the Python scripts too, where gnuplot and matplotlib are.
    const bool gnuplot = std::system("gnuplot --version > /dev/null 2>&1") == 0;
    const bool python = std::system("/usr/bin/python3 -c 'import matplotlib, numpy' > /dev/null 2>&1") == 0;
    for (const std::string b : {"mob_plane_xy", "mob_plane_xz", "mob_plane_yz", "mob_direction_all", "mob_msd"}) {
        if (gnuplot) {
            EXPECT_EQ(read_file("run/" + b + ".png").rfind("\x89PNG\r\n\x1a\n", 0), 0u) << b;
            EXPECT_EQ(std::system(("cd run && gnuplot " + b + ".gnu > ../plot.log 2>&1").c_str()), 0) << read_file("plot.log");
            EXPECT_EQ(read_file("run/" + b + ".eps").rfind("%!PS-Adobe", 0), 0u) << b;
        }
        if (python) { EXPECT_EQ(std::system(("cd run && MPLBACKEND=Agg /usr/bin/python3 " + b + ".py > ../plot.log 2>&1").c_str()), 0) << read_file("plot.log"); }
    }
    if (!gnuplot || !python) GTEST_SKIP() << "gnuplot or Debian's python3 with matplotlib is not installed";
}
