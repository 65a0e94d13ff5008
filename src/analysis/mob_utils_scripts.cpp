// Plot scripts written beside the angle-scan data files: gnuplot (EPS and PNG)
// and Python for the three plane fans and for the sphere of directions.
#include <string>

#include "mob_utils.h"
#include "mob_utils_errors.h"

using namespace mob_utils_error;

namespace {

const char* const kModule = "mob_utils";

// Where each writer reports a script file it cannot open.

const char* const kTermEps = "postscript eps enhanced color 20";
const char* const kTermPolarPng = "pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,1000";
const char* const kTermSurfacePng = "pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,800";

// Arguments: terminal, name, figure extension, R four times, name.
const char* const kPolarGnuplot =
    "reset\n"
    "set size 1.0,1.0\n"
    "set pointsize 1.0\n"
    "set tics nomirror\n"
    "set encoding iso_8859_1\n"
    "set term %s\n"
    "set output \"%s.%s\"\n"
    "\n"
    "set polar\n"
    "set grid polar\n"
    "set angles degrees\n"
    "\n"
    "set ylabel \"{/Symbol m} / cm^2/Vs\" offset 0,0\n"
    "\n"
    "set xrange [-%g:%g]\n"
    "set yrange [-%g:%g]\n"
    "\n"
    "plot \"%s.dat\" with lines lt 1 lw 3 t ''\n"
    "\n"
    "set size 1.0,1.0\n";

// Arguments: terminal, figure extension, M six times, T three times, name twice.
// The figure is always mob_direction_all.<ext>; only the data file follows the name.
const char* const kSurfaceGnuplot =
    "reset\n"
    "set size 1.0,1.0\n"
    "set pointsize 1.0\n"
    "set encoding iso_8859_1\n"
    "set term %s\n"
    "\n"
    "set ticslevel 0.0\n"
    "set view 40,56,0.98\n"
    "set angles degrees\n"
    "set mapping spherical\n"
    "set parametric\n"
    "\n"
    "set output \"mob_direction_all.%s\"\n"
    "\n"
    "unset key\n"
    "unset colorbox\n"
    "\n"
    "set xrange [-%.2f:%.2f]\n"
    "set yrange [-%.2f:%.2f]\n"
    "set zrange [-%.2f:%.2f]\n"
    "\n"
    "set pm3d depthorder\n"
    "\n"
    "# set view equal xyz\n"
    "set xtics 0,%.1g offset 0.0,-0.5\n"
    "set ytics 0,%.1g offset 0.0,-1.0\n"
    "set ztics 0,%.1g\n"
    "\n"
    "set border 4095\n"
    "splot '%s.dat' u 2:($1-90.0):3 with pm3d\n"
    "\n"
    "# set border 31\n"
    "# splot '%s.dat' u 2:($1-90.0):3 with lines lw 3\n"
    "\n";

// Argument: base name. "\xce\xbc" is the Greek small letter mu in UTF-8.
const char* const kPolarPython =
    "import numpy as np\n"
    "import matplotlib.pyplot as plt\n"
    "\n"
    "theta = []\n"
    "mobs  = []\n"
    "\n"
    "with open(\"%s.dat\", \"r\") as f:\n"
    "    lines = f.readlines()\n"
    "    for line in lines:\n"
    "        vars = line.split()\n"
    "        theta.append(float(vars[0]) / 180.0 * np.pi)\n"
    "        mobs.append(float(vars[1]))\n"
    "\n"
    "plt.figure(figsize=(8,6))\n"
    "\n"
    "plt.xlabel(\"\xce\xbc / cm^2/Vs\")\n"
    "plt.ylabel(\"\xce\xbc / cm^2/Vs\")\n"
    "\n"
    "plt.rcParams[\"font.size\"] = \"12\"\n"
    "plt.axes(polar = True)\n"
    "plt.plot(theta, mobs, lw=3, c='r')\n"
    "\n"
    "plt.show()\n"
    "\n";

// Arguments: base name, L six times.
const char* const kSurfacePython =
    "import numpy as np\n"
    "import matplotlib.pyplot as plt\n"
    "from mpl_toolkits.mplot3d import Axes3D\n"
    "\n"
    "phi   = []\n"
    "theta = []\n"
    "mobs  = []\n"
    "\n"
    "with open(\"%s.dat\", \"r\") as f:\n"
    "    lines = f.readlines()\n"
    "    for line in lines:\n"
    "        if line.startswith(\"#\"):\n"
    "            continue\n"
    "        if len(line) < 2:\n"
    "            continue\n"
    "\n"
    "        vars = line.split()\n"
    "        phi.append(float(vars[0]) / 180.0 * np.pi)\n"
    "        theta.append(float(vars[1]) / 180.0 * np.pi)\n"
    "        mobs.append(float(vars[2]))\n"
    "\n"
    "x = mobs * np.cos(theta) * np.sin(phi)\n"
    "y = mobs * np.sin(theta) * np.sin(phi)\n"
    "z = mobs * np.cos(phi)\n"
    "\n"
    "# find number of columns\n"
    "ncols = len(np.where(np.array(phi)<=0)[0])\n"
    "\n"
    "# make the arrays to 2d grid\n"
    "X = np.reshape(x, (-1, ncols))\n"
    "Y = np.reshape(y, (-1, ncols))\n"
    "Z = np.reshape(z, (-1, ncols))\n"
    "\n"
    "plt.rcParams[\"font.size\"] = \"14\"\n"
    "fig = plt.figure(figsize=(12,9))\n"
    "ax = fig.add_subplot(111, projection='3d')\n"
    "# ax.set_aspect('equal')\n"
    "ax.plot_surface(X, Y, Z, cmap='ocean')\n"
    "\n"
    "ax.set_xlim(-%.2f, %.2f)\n"
    "ax.set_ylim(-%.2f, %.2f)\n"
    "ax.set_zlim(-%.2f, %.2f)\n"
    "\n"
    "for i in range(len(ax.get_xticklabels())):\n"
    "    if (ax.get_xticks()[i] < 0.0):\n"
    "        ax.get_xticklabels()[i-1].set_color('white')\n"
    "\n"
    "for i in range(len(ax.get_yticklabels())):\n"
    "    if (ax.get_yticks()[i] < 0.0):\n"
    "        ax.get_yticklabels()[i-1].set_color('white')\n"
    "\n"
    "for i in range(len(ax.get_zticklabels())):\n"
    "    if (ax.get_zticks()[i] < 0.0):\n"
    "        ax.get_zticklabels()[i-1].set_color('white')\n"
    "\n"
    "plt.show()\n"
    "\n";

// One gnuplot output flavour: script suffix, terminal, figure extension and the
// line reported when the script cannot be opened.
struct GnuplotFlavour {
    const char* suffix;
    const char* term;
    const char* ext;
    int line;
};

const GnuplotFlavour kPolarEps{".gnu", kTermEps, "eps", kLinePolarEps};
const GnuplotFlavour kPolarPng{".gnu-png", kTermPolarPng, "png", kLinePolarPng};
const GnuplotFlavour kSurfaceEps{".gnu", kTermEps, "eps", kLineSurfaceEps};
const GnuplotFlavour kSurfacePng{".gnu-png", kTermSurfacePng, "png", kLineSurfacePng};

void write_polar_gnuplot(const char* name, double max, const GnuplotFlavour& fl)
{
    OutputFile f(std::string(name) + fl.suffix, kModule, fl.line);
    const double r = 1.2 * max;
    f.print(kPolarGnuplot, fl.term, name, fl.ext, r, r, r, r, name);
    f.commit();
}

void write_surface_gnuplot(const char* name, double max, const GnuplotFlavour& fl)
{
    OutputFile f(std::string(name) + fl.suffix, kModule, fl.line);
    const double m = max, tic = 0.25 * (1.1 * max);
    f.print(kSurfaceGnuplot, fl.term, fl.ext, m, m, m, m, m, m, tic, tic, tic, name, name);
    f.commit();
}

}  // namespace

void Mobutils::write_gnuplot_eps_script(const char* name, double max) const
{
    write_polar_gnuplot(name, max, kPolarEps);
}

void Mobutils::write_gnuplot_png_script(const char* name, double max) const
{
    write_polar_gnuplot(name, max, kPolarPng);
}

void Mobutils::write_gnuplot_eps_script_3D(const char* name, double max) const
{
    write_surface_gnuplot(name, max, kSurfaceEps);
}

void Mobutils::write_gnuplot_png_script_3D(const char* name, double max) const
{
    write_surface_gnuplot(name, max, kSurfacePng);
}

// The polar plot takes its range from the data; max is not used.
void Mobutils::write_pyplot_script(const char* name, double /*max*/) const
{
    OutputFile f(name, kModule, kLinePolarPy);
    f.print(kPolarPython, remove_filename_extension(name).c_str());
    f.commit();
}

void Mobutils::write_pyplot_script_3D(const char* name, double max) const
{
    OutputFile f(name, kModule, kLineSurfacePy);
    const double l = max;
    f.print(kSurfacePython, remove_filename_extension(name).c_str(), l, l, l, l, l, l);
    f.commit();
}
