// The demo's steps on a reduced number of trajectories: the crystal reads, the
// tracks generate, every analysis runs, and gnuplot (when installed) draws every
// picture without a message.
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
    const std::string log = read_file("demo.log");
    EXPECT_NE(log.find("*** Succsessfully done."), std::string::npos) << log;
    EXPECT_NE(read_file("run/mob_tensor.dat").find("principal_3"), std::string::npos);
    if (std::system("gnuplot --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "gnuplot is not installed";
    for (const char* png : {"mob_plane_xy", "mob_plane_xz", "mob_plane_yz", "mob_direction_all"})
        EXPECT_EQ(read_file(fs::path("run") / (std::string(png) + ".png")).rfind("\x89PNG\r\n\x1a\n", 0), 0u) << png;
}
