// The scripts that draw the series: gnuplot (EPS and PNG) and matplotlib, as the
// mobility analysis writes them for its pictures. The fitted numbers are written
// into the legends, so the scripts read nothing but their data file.
#include <cmath>

#include "hopping_series.h"
#include "hopping_errors.h"

using namespace hopping_error;

namespace series {

namespace {

const char* const kModule = "transport";

const char* const kTermEps = "postscript eps enhanced color 20 size 7,9";
const char* const kTermPng = "pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,1400";

const char* const kColours[] = {"#d62728", "#2ca02c", "#9467bd", "black"};  // mu_1, mu_2, mu_3, the average
const char* const kPythonColours[] = {"C3", "C2", "C4", "k"};

void write_script(const std::string& name, int line, const std::string& text)
{
    OutputFile f(name, kModule, line);
    f.write(text);
    f.commit();
}

// Curve c's name: "mu_1 along b(0.0)" in gnuplot's enhanced text (\265 is the
// micro sign of its iso_8859_1 encoding) or in matplotlib's mathtext.
std::string gnuplot_name(const std::array<std::string, 4>& axes, int c)
{
    return c == 3 ? "average" : strprintf("\\265_%d along %s", c + 1, axes[c].c_str());
}
std::string python_name(const std::array<std::string, 4>& axes, int c)
{
    return c == 3 ? "average" : strprintf("$\\\\mu_%d$ along %s", c + 1, axes[c].c_str());
}

// Tics of the log temperature axis from `low` to `high` K (a log axis within a
// decade has none of its own): multiples of the roundest step that gives at
// least four, joined by `separator` between `quote`s.
std::string temperature_tics(double low, double high, const char* quote = "")
{
    double step = std::pow(10.0, std::floor(std::log10(high - low)) + 1);
    for (int k = 0; k < 12 && std::floor(high / step) - std::ceil(low / step) < 3; ++k)
        step /= k % 3 == 1 ? 2.5 : 2;  // 1, 0.5, 0.2, 0.1, 0.05, ...
    std::string tics;
    for (double t = std::ceil(low / step) * step; t <= high * (1 + 1e-12); t += step)
        tics += strprintf("%s%s%g%s", tics.empty() ? "" : ", ", quote, t, quote);
    return tics;
}

std::string temperature_gnuplot(const char* term, const char* ext, const std::array<std::string, 4>& axes,
                                const std::array<Fit, 4>& fits, bool simulated, double low, double high)
{
    // The key goes where the curves are low: on the left of a mobility that rises
    // with T, on the right of one that falls; the Arrhenius panel is mirrored.
    const bool rising = fits[3].n < 0;
    std::string s = strprintf("reset\nset encoding iso_8859_1\nset term %s\nset output \"me_temp.%s\"\n"
                              "set multiplot layout 2,1\nset key %s\nset offsets 0, 0, graph 0.3, 0\n"
                              "set logscale xy\nset xrange [%g:%g]\nset xtics (%s)\n"
                              "set xlabel \"T / K\"\nset ylabel \"\\265 / cm^2 V^{-1} s^{-1}\"\n"
                              "set title \"mobility against temperature, fitted to \\265 = A T^{-n}%s\"\n",
                              term, ext, rising ? "top left" : "top right", low / 1.02, high * 1.02,
                              temperature_tics(low, high).c_str(),
                              simulated ? " (points: the simulation)" : "");
    // Both panels: the exact curves, then the simulation's points with their error bars.
    const auto panel = [&](const char* x, bool arrhenius) {
        std::string p = "plot ";
        for (int c = 0; c < 4; ++c) {
            const std::string y = arrhenius ? strprintf("(log($%d))", c + 2) : strprintf("%d", c + 2);
            p += strprintf("%s\"%s\" u %s:%s w l lw 3 %slc rgb \"%s\" t \"%s: ", c ? ", \\\n     " : "",
                           c ? "" : "me_temp.dat", x, y.c_str(), c == 3 ? "dt 2 " : "", kColours[c],
                           gnuplot_name(axes, c).c_str());
            p += arrhenius ? strprintf("E_a = %.1f meV\"", fits[c].ea_meV) : strprintf("n = %.2f\"", fits[c].n);
        }
        for (int c = 0; simulated && c < 4; ++c) {
            const int col = 8 + 2 * c;
            const std::string y = arrhenius ? strprintf("(log($%d)):($%d/$%d)", col, col + 1, col)
                                            : strprintf("%d:%d", col, col + 1);
            p += strprintf(", \\\n     \"\" u %s:%s w yerrorbars pt %d ps 1.5 lw 2 lc rgb \"%s\" notitle", x, y.c_str(),
                           c == 3 ? 6 : 7, kColours[c]);
        }
        return p + "\n";
    };
    s += panel("1", false);
    s += strprintf("unset logscale\nset autoscale x\nset xtics autofreq\nset offsets graph 0.03, graph 0.03, graph 0.3, 0\n"
                   "set key %s\nset xlabel \"1000 K / T\"\n"
                   "set ylabel \"ln (\\265 / cm^2 V^{-1} s^{-1})\"\n"
                   "set title \"Arrhenius plot, fitted to \\265 = A exp(-E_a / k_B T)\"\n",
                   rising ? "top right" : "top left");
    s += panel("(1000/$1)", true);
    return s + "unset multiplot\n";
}

std::string temperature_python(const std::array<std::string, 4>& axes, const std::array<Fit, 4>& fits, bool simulated,
                               double low, double high)
{
    std::string s = "import numpy as np\nimport matplotlib.pyplot as plt\nfrom matplotlib.ticker import NullFormatter\n\n"
                    "d = np.loadtxt(\"me_temp.dat\", usecols=range(15), ndmin=2)\n"
                    "T = d[:, 0]\n"
                    "fig, (top, bottom) = plt.subplots(2, 1, figsize=(8, 10))\n"
                    "# column of the exact curve, colour, line style, name, fitted n and Ea (meV)\n"
                    "curves = (\n";
    for (int c = 0; c < 4; ++c)
        s += strprintf("    (%d, \"%s\", \"%s\", \"%s\", %.6g, %.6g),\n", c + 1, kPythonColours[c], c == 3 ? "--" : "-",
                       python_name(axes, c).c_str(), fits[c].n, fits[c].ea_meV);
    s += ")\n"
         "for col, colour, style, name, n, ea in curves:\n"
         "    top.loglog(T, d[:, col], color=colour, ls=style, lw=2, label=\"%s: n = %.2f\" % (name, n))\n"
         "    bottom.plot(1000 / T, np.log(d[:, col]), color=colour, ls=style, lw=2,\n"
         "                label=\"%s: $E_a$ = %.1f meV\" % (name, ea))\n"
         "    # the simulation's value and standard error, where it ran\n"
         "    sim, se = d[:, 2 * col + 5], d[:, 2 * col + 6]\n"
         "    ok = np.isfinite(sim)\n"
         "    if ok.any():\n"
         "        marker = \"o\" if col < 4 else \"s\"\n"
         "        top.errorbar(T[ok], sim[ok], yerr=se[ok], fmt=marker, color=colour, ms=5, capsize=3)\n"
         "        bottom.errorbar(1000 / T[ok], np.log(sim[ok]), yerr=se[ok] / sim[ok], fmt=marker, color=colour,\n"
         "                        ms=5, capsize=3)\n";
    s += strprintf("top.set_title(r\"mobility against temperature, fitted to $\\mu = A\\,T^{-n}$%s\")\n",
                   simulated ? " (points: the simulation)" : "");
    s += strprintf("top.set_xticks([%s], [%s])\n", temperature_tics(low, high).c_str(), temperature_tics(low, high, "\"").c_str());
    s += "top.xaxis.set_minor_formatter(NullFormatter())\n"
         "top.set_xlabel(\"T / K\")\n"
         "top.set_ylabel(r\"$\\mu$ / cm$^2$ V$^{-1}$ s$^{-1}$\")\n"
         "top.legend(fontsize=9)\n"
         "bottom.set_title(r\"Arrhenius plot, fitted to $\\mu = A \\exp(-E_a / k_B T)$\")\n"
         "bottom.set_xlabel(\"1000 K / T\")\n"
         "bottom.set_ylabel(r\"ln($\\mu$ / cm$^2$ V$^{-1}$ s$^{-1}$)\")\n"
         "bottom.legend(fontsize=9)\n"
         "plt.tight_layout()\n"
         "plt.show()\n";
    return s;
}

// Arguments: terminal, figure extension, temperature, the zero-field mobility
// (cm^2/(V s)) for the velocity's line (F in V/m: mu F / 100 cm/s), and again.
const char* const kFieldGnuplot =
    "reset\n"
    "set encoding iso_8859_1\n"
    "set term %s\n"
    "set output \"me_field.%s\"\n"
    "set multiplot layout 2,1\n"
    "set key top left\n"
    "set logscale xy\n"
    "set format x \"10^{%%L}\"\n"
    "set format y \"10^{%%L}\"\n"
    "set xlabel \"F / V m^{-1}\"\n"
    "set ylabel \"|v_F| / cm s^{-1}\"\n"
    "set title \"drift velocity along the field, T = %g K\"\n"
    "plot \"me_field.dat\" u 1:(abs($2)) w lp pt 7 lw 3 lc rgb \"#1f77b4\" t \"exact drift\", \\\n"
    "     %.10g * x / 100 w l lw 2 dt 2 lc rgb \"black\" t \"\\265_0 F (the zero-field mobility)\"\n"
    "unset logscale y\n"
    "set format y \"%%g\"\n"
    "set key bottom left\n"
    "set ylabel \"|v.F| / F^2 / cm^2 V^{-1} s^{-1}\"\n"
    "set title \"drift mobility against the field\"\n"
    "plot \"me_field.dat\" u 1:(abs($6)) w lp pt 7 lw 3 lc rgb \"#1f77b4\" t \"drift mobility\", \\\n"
    "     %.10g w l lw 2 dt 2 lc rgb \"black\" t \"\\265_0 = e D_{FF} / k_B T\"\n"
    "unset multiplot\n";

// Arguments: the zero-field mobility, the temperature.
const char* const kFieldPython =
    "import numpy as np\n"
    "import matplotlib.pyplot as plt\n"
    "\n"
    "d = np.loadtxt(\"me_field.dat\", ndmin=2)\n"
    "F = d[:, 0]\n"
    "mu0 = %.10g\n"
    "fig, (top, bottom) = plt.subplots(2, 1, figsize=(8, 10))\n"
    "top.loglog(F, np.abs(d[:, 1]), \"o-\", color=\"C0\", lw=2, label=\"exact drift\")\n"
    "top.loglog(F, mu0 * F / 100, \"k--\", label=r\"$\\mu_0 F$ (the zero-field mobility)\")\n"
    "top.set_title(\"drift velocity along the field, T = %g K\")\n"
    "top.set_xlabel(r\"F / V m$^{-1}$\")\n"
    "top.set_ylabel(r\"$|v_F|$ / cm s$^{-1}$\")\n"
    "top.legend()\n"
    "bottom.semilogx(F, np.abs(d[:, 5]), \"o-\", color=\"C0\", lw=2, label=\"drift mobility\")\n"
    "bottom.axhline(mu0, color=\"k\", ls=\"--\", label=r\"$\\mu_0 = e D_{FF} / k_B T$\")\n"
    "bottom.set_title(\"drift mobility against the field\")\n"
    "bottom.set_xlabel(r\"F / V m$^{-1}$\")\n"
    "bottom.set_ylabel(r\"$|v \\cdot F| / F^2$ / cm$^2$ V$^{-1}$ s$^{-1}$\")\n"
    "bottom.legend()\n"
    "plt.tight_layout()\n"
    "plt.show()\n";

}  // namespace

void write_temperature_scripts(const std::array<std::string, 4>& axes, const std::array<Fit, 4>& fits, bool simulated,
                               double low, double high)
{
    write_script("me_temp.gnu", kLineTemperatureScripts,
                 temperature_gnuplot(kTermEps, "eps", axes, fits, simulated, low, high));
    write_script("me_temp.gnu-png", kLineTemperatureScripts,
                 temperature_gnuplot(kTermPng, "png", axes, fits, simulated, low, high));
    write_script("me_temp.py", kLineTemperatureScripts, temperature_python(axes, fits, simulated, low, high));
}

void write_field_scripts(const FieldSeries& s)
{
    for (const auto& [name, term, ext] : {std::tuple{"me_field.gnu", kTermEps, "eps"}, std::tuple{"me_field.gnu-png", kTermPng, "png"}})
        write_script(name, kLineFieldScripts, strprintf(kFieldGnuplot, term, ext, s.temperature, s.zero_field, s.zero_field));
    write_script("me_field.py", kLineFieldScripts, strprintf(kFieldPython, s.zero_field, s.temperature));
}

}  // namespace series
