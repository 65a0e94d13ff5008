// Plot scripts: their exact texts, and gnuplot and Python actually running them
// on scan output.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>

#include "mob_utils.h"
#include "test_scan_oracle.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// Expected texts at max = 2.5.
const std::string kPolarEps =
    "reset\nset size 1.0,1.0\nset pointsize 1.0\nset tics nomirror\nset encoding iso_8859_1\n"
    "set term postscript eps enhanced color 20\nset output \"mob_plane_xz.eps\"\n\nset polar\n"
    "set grid polar\nset angles degrees\n\nset ylabel \"{/Symbol m} / cm^2/Vs\" offset 0,0\n\n"
    "set xrange [-3:3]\nset yrange [-3:3]\n\nplot \"mob_plane_xz.dat\" with lines lt 1 lw 3 t ''\n"
    "\nset size 1.0,1.0\n";
const std::string kSurfaceEps =
    "reset\nset size 1.0,1.0\nset pointsize 1.0\nset encoding iso_8859_1\n"
    "set term postscript eps enhanced color 20\n\nset ticslevel 0.0\nset view 40,56,0.98\n"
    "set angles degrees\nset mapping spherical\nset parametric\n\n"
    "set output \"mob_direction_all.eps\"\n\nunset key\nunset colorbox\n\nset xrange [-2.50:2.50]\n"
    "set yrange [-2.50:2.50]\nset zrange [-2.50:2.50]\n\nset pm3d depthorder\n\n"
    "# set view equal xyz\nset xtics 0,0.7 offset 0.0,-0.5\nset ytics 0,0.7 offset 0.0,-1.0\n"
    "set ztics 0,0.7\n\nset border 4095\nsplot 'surf.dat' u 2:($1-90.0):3 with pm3d\n\n"
    "# set border 31\n# splot 'surf.dat' u 2:($1-90.0):3 with lines lw 3\n\n";
const std::string kPolarPy =
    "import numpy as np\nimport matplotlib.pyplot as plt\n\ntheta = []\nmobs  = []\n\n"
    "with open(\"mob_plane_yz.dat\", \"r\") as f:\n    lines = f.readlines()\n"
    "    for line in lines:\n        vars = line.split()\n        theta.append(float(vars[0]) / "
    "180.0 * np.pi)\n        mobs.append(float(vars[1]))\n\nplt.figure(figsize=(8,6))\n\n"
    "plt.xlabel(\"\xce\xbc / cm^2/Vs\")\nplt.ylabel(\"\xce\xbc / cm^2/Vs\")\n\n"
    "plt.rcParams[\"font.size\"] = \"12\"\nplt.axes(polar = True)\n"
    "plt.plot(theta, mobs, lw=3, c='r')\n\nplt.show()\n\n";
const std::string kSurfacePy =
    "import numpy as np\nimport matplotlib.pyplot as plt\nfrom mpl_toolkits.mplot3d import Axes3D\n"
    "\nphi   = []\ntheta = []\nmobs  = []\n\nwith open(\"mob_direction_all.dat\", \"r\") as f:\n"
    "    lines = f.readlines()\n    for line in lines:\n        if line.startswith(\"#\"):\n"
    "            continue\n        if len(line) < 2:\n            continue\n\n"
    "        vars = line.split()\n        phi.append(float(vars[0]) / 180.0 * np.pi)\n"
    "        theta.append(float(vars[1]) / 180.0 * np.pi)\n        mobs.append(float(vars[2]))\n\n"
    "x = mobs * np.cos(theta) * np.sin(phi)\ny = mobs * np.sin(theta) * np.sin(phi)\n"
    "z = mobs * np.cos(phi)\n\n# find number of columns\nncols = "
    "len(np.where(np.array(phi)<=0)[0])\n\n# make the arrays to 2d grid\n"
    "X = np.reshape(x, (-1, ncols))\nY = np.reshape(y, (-1, ncols))\n"
    "Z = np.reshape(z, (-1, ncols))\n\nplt.rcParams[\"font.size\"] = \"14\"\n"
    "fig = plt.figure(figsize=(12,9))\nax = fig.add_subplot(111, projection='3d')\n"
    "# ax.set_aspect('equal')\nax.plot_surface(X, Y, Z, cmap='ocean')\n\nax.set_xlim(-2.50, 2.50)\n"
    "ax.set_ylim(-2.50, 2.50)\nax.set_zlim(-2.50, 2.50)\n\nfor i in "
    "range(len(ax.get_xticklabels())):\n    if (ax.get_xticks()[i] < 0.0):\n"
    "        ax.get_xticklabels()[i-1].set_color('white')\n\nfor i in "
    "range(len(ax.get_yticklabels())):\n    if (ax.get_yticks()[i] < 0.0):\n"
    "        ax.get_yticklabels()[i-1].set_color('white')\n\nfor i in "
    "range(len(ax.get_zticklabels())):\n    if (ax.get_zticks()[i] < 0.0):\n"
    "        ax.get_zticklabels()[i-1].set_color('white')\n\nplt.show()\n\n";

// The text with every `from` replaced by `to`.
std::string subst(std::string s, const std::vector<std::pair<std::string, std::string>>& subs)
{
    for (const auto& [from, to] : subs)
        for (size_t p = 0; (p = s.find(from, p)) != s.npos; p += to.size())
            s.replace(p, from.size(), to);
    return s;
}

int run(const std::string& command)
{
    return WEXITSTATUS(std::system((command + " >run.log 2>&1").c_str()));
}

}  // namespace

TEST(ScriptText, ExactTextsAtMaxZeroAndTwoAndAHalf)
{
    ScratchDir dir;
    const Mobutils m;
    m.write_gnuplot_eps_script("mob_plane_xz", 2.5);
    m.write_gnuplot_png_script("mob_plane_xz", 0.0);
    m.write_gnuplot_eps_script_3D("surf", 2.5);  // the figure name stays fixed
    m.write_gnuplot_png_script_3D("surf", 0.0);
    m.write_pyplot_script("mob_plane_yz.py", 2.5);
    m.write_pyplot_script_3D("mob_direction_all.py", 2.5);
    m.write_pyplot_script_3D("zero.py", 0.0);
    const std::string eps = "postscript eps enhanced color 20",
                      png = "pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,";
    const std::pair<const char*, std::string> expected[] = {
        {"mob_plane_xz.gnu", kPolarEps},
        {"mob_plane_xz.gnu-png",
         subst(kPolarEps, {{eps, png + "1000"}, {".eps", ".png"}, {"[-3:3]", "[-0:0]"}})},
        {"surf.gnu", kSurfaceEps},
        {"surf.gnu-png", subst(kSurfaceEps, {{eps, png + "800"}, {".eps", ".png"},
                                             {"2.50", "0.00"}, {"0,0.7", "0,0"}})},
        {"mob_plane_yz.py", kPolarPy},
        {"mob_direction_all.py", kSurfacePy},
        {"zero.py", subst(kSurfacePy, {{"mob_direction_all", "zero"}, {"2.50", "0.00"}})}};
    for (const auto& [file, text] : expected) EXPECT_EQ(read_file(file), text) << file;
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
