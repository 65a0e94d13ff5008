// The MSD picture (with -tensor): the trajectory-averaged mean-square
// displacement along each principal axis and of the full displacement against
// time, each with its 95% band over the tensor's resamples of the trajectories,
// the local exponent d ln MSD / d ln t, and the straight-line fits behind the
// mobility; mob_msd.dat and the scripts that draw it.
#include <Eigen/Dense>

#include <algorithm>
#include <cmath>

#include "mob_utils.h"
#include "mob_utils_errors.h"
#include "mob_utils_engine.h"

using namespace mob_utils_error;

namespace {

const char* const kModule = "mob_utils";
const char* const kMsdData = "mob_msd.dat";

// At most this many time points go to the file: enough for the picture, and the
// bands cost resamples x trajectories x rows.
constexpr int kMostRows = 200;
constexpr int kCurves = 4;  // the three principal axes, then the full displacement

const char* const kDataHead =
    "# mean-square displacement against time, averaged over the trajectories, with the 95%% band (2.5%% and\n"
    "# 97.5%% quantiles) over the %zu resamples of the trajectories that mob_tensor.dat uses; time in %s,\n"
    "# MSD in Angstrom^2. Along the principal axes of mob_tensor.dat (Cartesian unit vectors):\n"
    "#   axis_1 %9.6f %9.6f %9.6f\n#   axis_2 %9.6f %9.6f %9.6f\n#   axis_3 %9.6f %9.6f %9.6f\n"
    "# and of the full displacement r2 (that of mob.dat). The local exponent alpha = d ln MSD / d ln t, from\n"
    "# the rows at t / 1.5 and t x 1.5, is 1 for diffusion, 2 for ballistic motion. Straight lines fitted to the\n"
    "# full displacement's MSD (intercept, Angstrom^2; slope, Angstrom^2 per %s):\n"
    "# fit_all         %14.6e %14.6e\n# fit_first_half  %14.6e %14.6e\n# fit_second_half %14.6e %14.6e\n"
    "#            t          msd_1          low_1         high_1          msd_2          low_2         high_2"
    "          msd_3          low_3         high_3         msd_r2         low_r2        high_r2       alpha_r2"
    "        alpha_1        alpha_2        alpha_3\n";

// Arguments: terminal, figure extension, time unit twice, the three fits.
const char* const kMsdGnuplot =
    "reset\n"
    "set encoding iso_8859_1\n"
    "set term %s\n"
    "set output \"mob_msd.%s\"\n"
    "set multiplot layout 2,1\n"
    "set key top left\n"
    "set style fill transparent solid 0.25 noborder\n"
    "set xlabel \"t / %s\"\n"
    "set ylabel \"MSD / {\\305}^2\"\n"
    "plot \"mob_msd.dat\" u 1:12:13 w filledcurves lc rgb \"#1f77b4\" notitle, \\\n"
    "     \"\" u 1:11 w l lw 3 lc rgb \"#1f77b4\" t \"|r|^2\", \\\n"
    "     \"\" u 1:3:4 w filledcurves lc rgb \"#d62728\" notitle, \"\" u 1:2 w l lw 2 lc rgb \"#d62728\" t \"axis 1\", \\\n"
    "     \"\" u 1:6:7 w filledcurves lc rgb \"#2ca02c\" notitle, \"\" u 1:5 w l lw 2 lc rgb \"#2ca02c\" t \"axis 2\", \\\n"
    "     \"\" u 1:9:10 w filledcurves lc rgb \"#9467bd\" notitle, \"\" u 1:8 w l lw 2 lc rgb \"#9467bd\" t \"axis 3\", \\\n"
    "     %.10g + %.10g * x w l lw 2 lc rgb \"black\" t \"fit\", \\\n"
    "     %.10g + %.10g * x w l lw 2 dt 2 lc rgb \"black\" t \"fit, first half\", \\\n"
    "     %.10g + %.10g * x w l lw 2 dt 3 lc rgb \"black\" t \"fit, second half\"\n"
    "set logscale x\n"
    "set xlabel \"t / %s\"\n"
    "set ylabel \"d ln MSD / d ln t\"\n"
    "set yrange [0:2.5]\n"
    "plot \"mob_msd.dat\" u 1:14 w lp lw 3 lc rgb \"#1f77b4\" t \"|r|^2\", \\\n"
    "     \"\" u 1:15 w l lw 2 lc rgb \"#d62728\" t \"axis 1\", \"\" u 1:16 w l lw 2 lc rgb \"#2ca02c\" t \"axis 2\", \\\n"
    "     \"\" u 1:17 w l lw 2 lc rgb \"#9467bd\" t \"axis 3\", 1 w l lw 2 dt 2 lc rgb \"black\" t \"diffusive\"\n"
    "unset multiplot\n";
const char* const kTermEps = "postscript eps enhanced color 20 size 7,9";
const char* const kTermPng = "pngcairo enhanced font \"Helvetica-Bold,14\" size 1200,1400";

// Arguments: the three fits, the time unit twice. "\xc3\x85" is the letter A
// with ring above in UTF-8.
const char* const kMsdPython =
    "import numpy as np\n"
    "import matplotlib.pyplot as plt\n"
    "\n"
    "d = np.loadtxt(\"mob_msd.dat\", ndmin=2)\n"
    "t = d[:, 0]\n"
    "fig, (top, bottom) = plt.subplots(2, 1, figsize=(8, 10))\n"
    "for col, name, colour in ((10, \"|r|^2\", \"C0\"), (1, \"axis 1\", \"C3\"), (4, \"axis 2\", \"C2\"), (7, \"axis 3\", \"C4\")):\n"
    "    top.fill_between(t, d[:, col + 1], d[:, col + 2], color=colour, alpha=0.25)\n"
    "    top.plot(t, d[:, col], color=colour, lw=2, label=name)\n"
    "for (a, b), style, name in (((%.10g, %.10g), \"-\", \"fit\"), ((%.10g, %.10g), \"--\", \"fit, first half\"),\n"
    "                            ((%.10g, %.10g), \":\", \"fit, second half\")):\n"
    "    top.plot(t, a + b * t, \"k\" + style, label=name)\n"
    "top.set_xlabel(\"t / %s\")\n"
    "top.set_ylabel(\"MSD / \xc3\x85^2\")\n"
    "top.legend()\n"
    "for col, name, colour in ((13, \"|r|^2\", \"C0\"), (14, \"axis 1\", \"C3\"), (15, \"axis 2\", \"C2\"), (16, \"axis 3\", \"C4\")):\n"
    "    bottom.semilogx(t[t > 0], d[t > 0, col], color=colour, lw=2, label=name)\n"
    "bottom.axhline(1.0, color=\"k\", ls=\"--\", label=\"diffusive\")\n"
    "bottom.set_ylim(0, 2.5)\n"
    "bottom.set_xlabel(\"t / %s\")\n"
    "bottom.set_ylabel(\"d ln MSD / d ln t\")\n"
    "bottom.legend()\n"
    "plt.tight_layout()\n"
    "plt.show()\n";

struct Line {
    double intercept = 0, slope = 0;
};

// The least-squares line through time points [first, last) of y; zeros where
// the times allow no fit.
Line fit(const std::vector<double>& time, const std::vector<double>& y, int first, int last)
{
    const mob_engine::SlopeWeights w(time.data() + first, last - first);
    Line l;
    if (w.fit() != mob_engine::Fit::slope) return l;
    l.slope = w.slope(y.data() + first);
    double t = 0, v = 0;
    for (int k = first; k < last; ++k) t += time[k], v += y[k];
    l.intercept = (v - l.slope * t) / (last - first);
    return l;
}

// d ln y / d ln t at row k, from the rows nearest to t / kLogWindow and
// t x kLogWindow (at least the neighbours), so that late times, where
// neighbouring rows are close in ln t, are not all noise; not a number where
// the window leaves the rows or a value is not positive.
constexpr double kLogWindow = 1.5;

double local_exponent(const std::vector<double>& t, const std::vector<double>& y, size_t k)
{
    if (k == 0) return NAN;
    const size_t lo = std::min(k - 1, static_cast<size_t>(static_cast<double>(k) / kLogWindow));
    const size_t hi = std::max(k + 1, static_cast<size_t>(std::ceil(static_cast<double>(k) * kLogWindow)));
    if (hi >= t.size() || !(t[lo] > 0 && y[lo] > 0 && y[hi] > 0)) return NAN;
    return (std::log(y[hi]) - std::log(y[lo])) / (std::log(t[hi]) - std::log(t[lo]));
}

// "%14.6e", and "nan" for every value that is not a number, whatever its sign.
std::string number(double v)
{
    return std::isnan(v) ? "           nan" : strprintf("%14.6e", v);
}

}  // namespace

// Each curve c and resample s: the mean over the drawn trajectories of their
// curves, a product of the resamples' draw counts (resamples x trajectories)
// with the trajectories' curves (trajectories x rows).
void Mobutils::write_msd(const TensorReport& r, const std::vector<std::vector<int>>& picks) const
{
    const int n = std::max(nsimu, 0), stride = std::max(1, (ntime + kMostRows - 1) / kMostRows);
    std::vector<int> row;  // the time points written
    for (int t = 0; t < ntime; t += stride) row.push_back(t);
    const int m = static_cast<int>(row.size());
    const int resamples = static_cast<int>(picks.size());
    Eigen::MatrixXd counts = Eigen::MatrixXd::Zero(resamples, n);
    for (int s = 0; s < resamples; ++s)
        for (const int j : picks[s]) counts(s, j) += 1.0 / n;

    std::array<std::vector<double>, kCurves> mean, low, high, alpha;
    Eigen::MatrixXd y(n, m);
    for (int c = 0; c < kCurves; ++c) {
        const Vec3 e = c < 3 ? Vec3{r.axes[0][c], r.axes[1][c], r.axes[2][c]} : Vec3{};
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < m; ++k) {
                const int t = row[k];
                const double p = track_x[j][t] * e[0] + track_y[j][t] * e[1] + track_z[j][t] * e[2];
                y(j, k) = c < 3 ? p * p : track_r2[j][t];
            }
        const Eigen::MatrixXd boot = counts * y;  // resamples x rows
        for (int k = 0; k < m; ++k) {
            double all = 0.0;  // in trajectory order, as every other mean of the tool
            for (int j = 0; j < n; ++j) all += y(j, k);
            mean[c].push_back(all / n);
            std::vector<double> v(boot.col(k).data(), boot.col(k).data() + resamples);
            std::sort(v.begin(), v.end());
            low[c].push_back(resamples > 1 ? quantile_sorted(v, 0.025) : NAN);
            high[c].push_back(resamples > 1 ? quantile_sorted(v, 0.975) : NAN);
        }
    }
    std::vector<double> t(row.size());
    for (int k = 0; k < m; ++k) t[k] = track_time[row[k]];
    for (int c = 0; c < kCurves; ++c)
        for (int k = 0; k < m; ++k) alpha[c].push_back(local_exponent(t, mean[c], static_cast<size_t>(k)));

    // The fits of mob.dat's curve over every time point, and over each half.
    std::vector<double> r2(static_cast<size_t>(ntime), 0.0);
    for (int j = 0; j < n; ++j)
        for (int k = 0; k < ntime; ++k) r2[k] += track_r2[j][k] / n;
    const int half = ntime / 2;
    const std::array<Line, 3> lines = {fit(track_time, r2, 0, ntime), fit(track_time, r2, 0, half),
                                       fit(track_time, r2, half, ntime)};
    const char* const unit = get_track_timeunit() == 1e-12 ? "ps" : "ns";

    OutputFile f(kMsdData, kModule, kLineMsdData);
    f.print(kDataHead, picks.size(), unit, r.axes[0][0], r.axes[1][0], r.axes[2][0], r.axes[0][1], r.axes[1][1],
            r.axes[2][1], r.axes[0][2], r.axes[1][2], r.axes[2][2], unit, lines[0].intercept, lines[0].slope,
            lines[1].intercept, lines[1].slope, lines[2].intercept, lines[2].slope);
    for (int k = 0; k < m; ++k) {
        std::vector<double> values = {t[k]};
        for (int c : {0, 1, 2, 3}) values.insert(values.end(), {mean[c][k], low[c][k], high[c][k]});
        for (int c : {3, 0, 1, 2}) values.push_back(alpha[c][k]);
        for (size_t v = 0; v < values.size(); ++v) {
            f.write(number(values[v]));
            f.write(v + 1 < values.size() ? " " : "\n");
        }
    }
    f.commit();

    const auto gnuplot = [&](const char* name, int line, const char* term, const char* ext) {
        OutputFile g(name, kModule, line);
        g.print(kMsdGnuplot, term, ext, unit, lines[0].intercept, lines[0].slope, lines[1].intercept, lines[1].slope,
                lines[2].intercept, lines[2].slope, unit);
        g.commit();
    };
    gnuplot("mob_msd.gnu", kLineMsdEps, kTermEps, "eps");
    gnuplot("mob_msd.gnu-png", kLineMsdPng, kTermPng, "png");
    OutputFile py("mob_msd.py", kModule, kLineMsdPy);
    py.print(kMsdPython, lines[0].intercept, lines[0].slope, lines[1].intercept, lines[1].slope, lines[2].intercept,
             lines[2].slope, unit, unit);
    py.commit();
}
