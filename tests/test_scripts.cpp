// Plot scripts: their exact texts (the demo test runs them).
#include <gtest/gtest.h>

#include "mob_utils.h"
#include "test_support.h"

using namespace testsupport;

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
