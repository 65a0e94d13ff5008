// Plot scripts: their exact texts, and gnuplot and Python actually running them
// on scan output.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <tuple>

#include "mob_utils.h"
#include "test_scan_oracle.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// Expected texts at max = 2.5; a line per "\n".
const std::string kPolarEps =
    "reset\nset size 1.0,1.0\nset pointsize 1.0\nset tics nomirror\nset encoding iso_8859_1\n"
    "set term postscript eps enhanced color 20\nset output \"mob_plane_xz.eps\"\n\n"
    "set polar\nset grid polar\nset angles degrees\n\n"
    "set ylabel \"{/Symbol m} / cm^2/Vs\" offset 0,0\n\nset xrange [-3:3]\nset yrange [-3:3]\n\n"
    "plot \"mob_plane_xz.dat\" with lines lt 1 lw 3 t ''\n\nset size 1.0,1.0\n";
const std::string kSurfaceEps =
    "reset\nset size 1.0,1.0\nset pointsize 1.0\nset encoding iso_8859_1\n"
    "set term postscript eps enhanced color 20\n\nset ticslevel 0.0\nset view 40,56,0.98\n"
    "set angles degrees\nset mapping spherical\nset parametric\n\n"
    "set output \"mob_direction_all.eps\"\n\nunset key\nunset colorbox\n\n"
    "set xrange [-2.50:2.50]\nset yrange [-2.50:2.50]\nset zrange [-2.50:2.50]\n\n"
    "set pm3d depthorder\n\n# set view equal xyz\nset xtics 0,0.7 offset 0.0,-0.5\n"
    "set ytics 0,0.7 offset 0.0,-1.0\nset ztics 0,0.7\n\nset border 4095\n"
    "splot 'surf.dat' u 2:($1-90.0):3 with pm3d\n\n# set border 31\n"
    "# splot 'surf.dat' u 2:($1-90.0):3 with lines lw 3\n\n";
const std::string kPolarPy =
    "import numpy as np\nimport matplotlib.pyplot as plt\n\ntheta = []\nmobs  = []\n\n"
    "with open(\"mob_plane_yz.dat\", \"r\") as f:\n    lines = f.readlines()\n"
    "    for line in lines:\n        vars = line.split()\n"
    "        theta.append(float(vars[0]) / 180.0 * np.pi)\n        mobs.append(float(vars[1]))\n\n"
    "plt.figure(figsize=(8,6))\n\nplt.xlabel(\"\xce\xbc / cm^2/Vs\")\nplt.ylabel(\"\xce\xbc / "
    "cm^2/Vs\")\n\n"
    "plt.rcParams[\"font.size\"] = \"12\"\nplt.axes(polar = True)\n"
    "plt.plot(theta, mobs, lw=3, c='r')\n\nplt.show()\n\n";
const std::string kSurfacePy =
    "import numpy as np\nimport matplotlib.pyplot as plt\nfrom mpl_toolkits.mplot3d import "
    "Axes3D\n\n"
    "phi   = []\ntheta = []\nmobs  = []\n\n"
    "with open(\"mob_direction_all.dat\", \"r\") as f:\n    lines = f.readlines()\n"
    "    for line in lines:\n        if line.startswith(\"#\"):\n            continue\n"
    "        if len(line) < 2:\n            continue\n\n        vars = line.split()\n"
    "        phi.append(float(vars[0]) / 180.0 * np.pi)\n"
    "        theta.append(float(vars[1]) / 180.0 * np.pi)\n        mobs.append(float(vars[2]))\n\n"
    "x = mobs * np.cos(theta) * np.sin(phi)\ny = mobs * np.sin(theta) * np.sin(phi)\n"
    "z = mobs * np.cos(phi)\n\n# find number of columns\n"
    "ncols = len(np.where(np.array(phi)<=0)[0])\n\n# make the arrays to 2d grid\n"
    "X = np.reshape(x, (-1, ncols))\nY = np.reshape(y, (-1, ncols))\nZ = np.reshape(z, (-1, "
    "ncols))\n\n"
    "plt.rcParams[\"font.size\"] = \"14\"\nfig = plt.figure(figsize=(12,9))\n"
    "ax = fig.add_subplot(111, projection='3d')\n# ax.set_aspect('equal')\n"
    "ax.plot_surface(X, Y, Z, cmap='ocean')\n\n"
    "ax.set_xlim(-2.50, 2.50)\nax.set_ylim(-2.50, 2.50)\nax.set_zlim(-2.50, 2.50)\n\n"
    "for i in range(len(ax.get_xticklabels())):\n    if (ax.get_xticks()[i] < 0.0):\n"
    "        ax.get_xticklabels()[i-1].set_color('white')\n\n"
    "for i in range(len(ax.get_yticklabels())):\n    if (ax.get_yticks()[i] < 0.0):\n"
    "        ax.get_yticklabels()[i-1].set_color('white')\n\n"
    "for i in range(len(ax.get_zticklabels())):\n    if (ax.get_zticks()[i] < 0.0):\n"
    "        ax.get_zticklabels()[i-1].set_color('white')\n\nplt.show()\n\n";

std::vector<std::string> split_lines(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t b = 0, e; (e = text.find('\n', b)) != std::string::npos; b = e + 1)
        lines.push_back(text.substr(b, e - b));
    return lines;
}

// The expected text with some lines (0-based) replaced.
std::string with_lines(const std::string& text,
                       const std::vector<std::pair<int, std::string>>& swaps)
{
    std::vector<std::string> lines = split_lines(text);
    for (const auto& [i, l] : swaps) lines[i] = l;
    std::string out;
    for (const std::string& l : lines) out += l + "\n";
    return out;
}

void expect_file_lines(const char* file, const std::string& expected)
{
    const std::vector<std::string> got = split_lines(read_file(file)), want = split_lines(expected);
    ASSERT_EQ(read_file(file).back(), '\n') << file;
    ASSERT_EQ(got.size(), want.size()) << file;
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_EQ(got[i], want[i]) << file << " line " << i + 1;
}

int run(const std::string& command)
{
    return WEXITSTATUS(std::system((command + " >run.log 2>&1").c_str()));
}

class ScriptRun : public testing::Test {
protected:
    ScratchDir dir;
    Mobutils m;
    void SetUp() override
    {
        scanoracle::fill_random_walks(m, 10, 8, 1);
        m.set_track_timeunit(1e-15);  // mobilities of a few cm^2/Vs: "%.2f" ranges above 0
        m.set_angle_delta(30.0);
        testing::internal::CaptureStdout();
        m.mob_plane_xy_xz_yz();
        m.mob_direction_all();
        testing::internal::GetCapturedStdout();
    }
};

}  // namespace

TEST(ScriptText, ExactTextsAtMaxZeroAndTwoAndAHalf)
{
    ScratchDir dir;
    const Mobutils m;
    m.write_gnuplot_eps_script("mob_plane_xz", 2.5);
    expect_file_lines("mob_plane_xz.gnu", kPolarEps);
    m.write_gnuplot_png_script("mob_plane_xz", 0.0);
    expect_file_lines(
        "mob_plane_xz.gnu-png",
        with_lines(kPolarEps,
                   {{5, "set term pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,1000"},
                    {6, "set output \"mob_plane_xz.png\""},
                    {14, "set xrange [-0:0]"},
                    {15, "set yrange [-0:0]"}}));
    m.write_gnuplot_eps_script_3D("surf", 2.5);  // the figure name stays fixed
    expect_file_lines("surf.gnu", kSurfaceEps);
    m.write_gnuplot_png_script_3D("surf", 0.0);
    expect_file_lines(
        "surf.gnu-png",
        with_lines(kSurfaceEps,
                   {{4, "set term pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,800"},
                    {12, "set output \"mob_direction_all.png\""},
                    {17, "set xrange [-0.00:0.00]"},
                    {18, "set yrange [-0.00:0.00]"},
                    {19, "set zrange [-0.00:0.00]"},
                    {24, "set xtics 0,0 offset 0.0,-0.5"},
                    {25, "set ytics 0,0 offset 0.0,-1.0"},
                    {26, "set ztics 0,0"}}));
    m.write_pyplot_script("mob_plane_yz.py", 2.5);
    expect_file_lines("mob_plane_yz.py", kPolarPy);
    m.write_pyplot_script_3D("mob_direction_all.py", 2.5);
    expect_file_lines("mob_direction_all.py",
                      kSurfacePy);  // max 0: see ScanFiles.NanStepWritesEmptyResults
}

TEST(ScriptText, UnwritableScriptEndsTheRun)
{
    ScratchDir dir;
    const Mobutils m;
    using Writer = void (Mobutils::*)(const char*, double) const;
    const std::tuple<Writer, const char*, const char*, int> writers[] = {
        {&Mobutils::write_gnuplot_eps_script, "p", "p.gnu", 1319},
        {&Mobutils::write_gnuplot_png_script, "p", "p.gnu-png", 1360},
        {&Mobutils::write_gnuplot_eps_script_3D, "s", "s.gnu", 1424},
        {&Mobutils::write_gnuplot_png_script_3D, "s", "s.gnu-png", 1479},
        {&Mobutils::write_pyplot_script, "p.py", "p.py", 1534},
        {&Mobutils::write_pyplot_script_3D, "s.py", "s.py", 1580}};
    for (const auto& [write, name, file, line] : writers) {
        std::filesystem::create_directory(file);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_THROW((m.*write)(name, 1.0), RunExit);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "\nERROR  transport : mob_utils : line " + std::to_string(line) + " : \n");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  std::string("Failed to open input file ") + file + "\n");
    }
}

TEST_F(ScriptRun, GnuplotDrawsEveryFigure)
{
    if (run("gnuplot --version") != 0) GTEST_SKIP() << "gnuplot is not installed";
    for (const char* base : {"mob_plane_xy", "mob_plane_xz", "mob_plane_yz", "mob_direction_all"}) {
        const std::string b = base;
        ASSERT_EQ(run("gnuplot " + b + ".gnu"), 0) << read_file("run.log");
        ASSERT_EQ(run("gnuplot " + b + ".gnu-png"), 0) << read_file("run.log");
        EXPECT_EQ(read_file(b + ".eps").rfind("%!PS-Adobe", 0), 0u) << b;
        EXPECT_EQ(read_file(b + ".png").rfind("\x89PNG\r\n\x1a\n", 0), 0u) << b;
    }
}

TEST_F(ScriptRun, PythonScriptsRunHeadless)
{
    if (run("/usr/bin/python3 -c 'import matplotlib, numpy'") != 0)
        GTEST_SKIP() << "python3 with matplotlib and numpy is not installed";
    for (const char* py :
         {"mob_plane_xy.py", "mob_plane_xz.py", "mob_plane_yz.py", "mob_direction_all.py"})
        EXPECT_EQ(run(std::string("MPLBACKEND=Agg /usr/bin/python3 ") + py), 0)
            << py << read_file("run.log");
}
