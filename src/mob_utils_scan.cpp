// Angle-resolved mobility: fans of directions in the xy, xz and yz planes, and a
// grid over the whole sphere, each direction with a parallel bootstrap error.
//
// How the bootstrap is made cheap: the least-squares slope is linear in the
// curve, so the slope of a resample's mean curve is the mean of the slopes of the
// trajectories it drew. Each trajectory's slope tensor S (slopes of x_a * x_b
// against time) is computed once per scan; a direction u then gives every
// trajectory the slope u^T S u, and a resample costs nsimu draws and additions
// instead of nsimu rows of ntime additions. The mobility column itself is the fit
// of the mean projected square, formed and fitted as it always was.
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <iostream>
#include <random>
#include <string>

#include "mob_utils.h"

namespace {

const char* const kModule = "mob_utils";

const char* const kPlaneTitle = "Treating mob_plane_xy_xz_yz...";
const char* const kSphereTitle = "Treating mob_direction_all...";
const char* const kPlaneTooSmall = "deltaa too small, mob_xy_xz_yz() canceled!\n";
const char* const kSphereTooSmall = "deltaa too small, mb-direction-all canceled!\n";
constexpr int kLinePlaneTooSmall = 992;
constexpr int kLineSphereTooSmall = 700;
constexpr int kLineSphereFile = 725;

const char* const kPlaneRow = "%6.0f %12.4e %12.4e\n";
const char* const kSphereHeader = "#  phai  thet          mob        error [cm**2/Vs]\n";
const char* const kSphereRow = "%6.0f %6.0f %12.4e %12.4e\n";
const char* const kSphereData = "mob_direction_all";
const char* const kSphereScript = "mob_direction_all.py";

constexpr double kMinStep = 1e-6;
constexpr double kSentinel = 1e8;  // running minimum starts here, maximum at its negative

struct Plane {
    const char* name;  // data file and scripts share it
    int open_line;     // reported when the data file cannot be opened
    Vec3 (*dir)(double c, double s);
};

const Plane kPlanes[3] = {
    {"mob_plane_xy", 1023, [](double c, double s) { return Vec3{c, s, 0.0}; }},
    {"mob_plane_xz", 1080, [](double c, double s) { return Vec3{c, 0.0, s}; }},
    {"mob_plane_yz", 1138, [](double c, double s) { return Vec3{0.0, c, s}; }},
};

double radians(double degrees) { return degrees * kPi / 180.0; }

// Unit vector for polar angle phai (from +z) and azimuth thet (from +x towards +y).
Vec3 sphere_direction(double sin_phai, double cos_phai, double thet)
{
    const double t = radians(thet);
    return {sin_phai * std::cos(t), sin_phai * std::sin(t), cos_phai};
}

// Integer part of range / step + 0.5. A step that is not a number gives the most
// negative int, so the scans then compute nothing.
int last_angle_index(double range, double step)
{
    const double v = range / step + 0.5;
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT_MIN;
    return static_cast<int>(v);
}

void print_title(const char* title)
{
    std::printf("%s\n", title);
    std::fflush(stdout);
}

// "delta.inp" replaces the angle step when it exists and starts with a number.
void read_delta_override(double& step)
{
    const File f = open_file("delta.inp", "rt");
    if (!f) return;
    std::string line;
    if (read_line(f.get(), line, 128)) std::sscanf(line.c_str(), "%lf", &step);
}

double fitted_slope(const std::vector<double>& time, const double* curve, int ntime)
{
    double a, b, s;
    LinearRegression(time.data(), curve, ntime, &a, &b, &s);
    return b;
}

// Seed of one bootstrap thread: fixed by the caller, or one value from the device.
std::uint32_t thread_seed(const std::vector<std::uint32_t>& fixed, int thread)
{
    if (!fixed.empty()) return fixed[static_cast<size_t>(thread) % fixed.size()];
    try {
        std::random_device device("default");
        return device();
    } catch (...) {
        // Nothing may leave the parallel region; without a device the clock will do.
        return static_cast<std::uint32_t>(
            std::chrono::steady_clock::now().time_since_epoch().count() + thread);
    }
}

// Static contiguous partition of nsamp samples among nthreads threads.
void sample_block(int nsamp, int thread, int nthreads, int& first, int& count)
{
    const int q = nsamp / nthreads, r = nsamp % nthreads;
    if (thread < r) {
        count = q + 1;
        first = thread * (q + 1);
    } else {
        count = q;
        first = r + thread * q;
    }
}

// Releases the scan's working storage however the scan ends.
class ScanWorkScope {
public:
    explicit ScanWorkScope(Mobutils& m) : m_(m) { m_.prepare_scan_work(); }
    ~ScanWorkScope() { m_.release_scan_work(); }
    ScanWorkScope(const ScanWorkScope&) = delete;
    ScanWorkScope& operator=(const ScanWorkScope&) = delete;

private:
    Mobutils& m_;
};

}  // namespace

// (first + second * 2^32) / 2^64, rounded once to double, kept below 1.
double Mobutils::canonical53(std::uint32_t first, std::uint32_t second)
{
    const double r = (static_cast<double>(first) + static_cast<double>(second) * 4294967296.0) /
                     18446744073709551616.0;
    return r >= 1.0 ? 0x1.fffffffffffffp-1 : r;
}

// ---------------------------------------------------------------- working state

void Mobutils::prepare_scan_work()
{
    const int n = std::max(nsimu, 0), nt = std::max(ntime, 0);
    ScanWork& w = scan_work;
    w.factor = 1e-16 / ((0.0001724 * temp) * get_track_timeunit());
    if (ntime < 3) {
        w.fit = ResampleFit::too_few_points;
    } else {
        // LinearRegression fits the constant curve 1 with intercept exactly 1,
        // unless it finds the time grid degenerate: then every slope is 0.
        const std::vector<double> ones(static_cast<size_t>(ntime), 1.0);
        double a, b, s;
        LinearRegression(track_time.data(), ones.data(), ntime, &a, &b, &s);
        w.fit = a == 1.0 ? ResampleFit::mean_of_slopes : ResampleFit::degenerate_times;
    }
    w.mean.assign(static_cast<size_t>(nt), 0.0);
    w.resample_mob.assign(static_cast<size_t>(std::max(nsamp, 0)), 0.0);
    w.dir_slope.assign(static_cast<size_t>(n), 0.0);
    if (w.fit == ResampleFit::mean_of_slopes) fill_slope_tensor();
}

void Mobutils::release_scan_work() { scan_work = ScanWork{}; }

// Slope of a curve y against time as sum_t weight[t] * y[t].
void Mobutils::fill_slope_tensor()
{
    const int n = std::max(nsimu, 0), nt = ntime;
    double mean_t = 0.0;
    for (int t = 0; t < nt; ++t) mean_t += track_time[t];
    mean_t /= nt;
    std::vector<double> weight(static_cast<size_t>(nt));
    double spread = 0.0;
    for (int t = 0; t < nt; ++t) {
        weight[t] = track_time[t] - mean_t;
        spread += weight[t] * weight[t];
    }
    for (double& v : weight) v /= spread;

    scan_work.slope_tensor.assign(static_cast<size_t>(n), {});
    for (int j = 0; j < n; ++j) {
        const double *x = track_x[j], *y = track_y[j], *z = track_z[j];
        double xx = 0, yy = 0, zz = 0, xy = 0, xz = 0, yz = 0;
        for (int t = 0; t < nt; ++t) {
            const double wx = weight[t] * x[t], wy = weight[t] * y[t], wz = weight[t] * z[t];
            xx += wx * x[t];
            yy += wy * y[t];
            zz += wz * z[t];
            xy += wx * y[t];
            xz += wx * z[t];
            yz += wy * z[t];
        }
        scan_work.slope_tensor[j] = {xx, yy, zz, xy, xz, yz};
    }
}

void Mobutils::fill_direction_slopes(const Vec3& u)
{
    const double c[6] = {u[0] * u[0],       u[1] * u[1],       u[2] * u[2],
                         2.0 * u[0] * u[1], 2.0 * u[0] * u[2], 2.0 * u[1] * u[2]};
    const std::vector<std::array<double, 6>>& s = scan_work.slope_tensor;
    for (size_t j = 0; j < s.size(); ++j) {
        const std::array<double, 6>& sj = s[j];
        scan_work.dir_slope[j] = c[0] * sj[0] + c[1] * sj[1] + c[2] * sj[2] + c[3] * sj[3] +
                                 c[4] * sj[4] + c[5] * sj[5];
    }
}

// ---------------------------------------------------------------- one direction

// Fills resample_mob: nsamp resamples of nsimu trajectories drawn with replacement.
void Mobutils::bootstrap_resamples()
{
    ScanWork& w = scan_work;
    const int ns = static_cast<int>(w.resample_mob.size());
    if (w.fit != ResampleFit::mean_of_slopes) {
        // The fit ignores the curve here: it reports too few points or gives 0.
        for (int k = 0; k < ns; ++k)
            w.resample_mob[k] = w.factor * fitted_slope(track_time, track_time.data(), ntime);
        return;
    }
    const int n = static_cast<int>(w.dir_slope.size());
    const double nd = static_cast<double>(n), factor = w.factor;
    const double* const slope = w.dir_slope.data();
    double* const out = w.resample_mob.data();
    const std::vector<std::uint32_t>& seeds = scan_seeds;

#pragma omp parallel default(none) shared(ns, n, nd, factor, slope, out, seeds)
    {
        const int me = omp_get_thread_num();
        std::mt19937 gen(thread_seed(seeds, me));
        int first = 0, count = 0;
        sample_block(ns, me, omp_get_num_threads(), first, count);
        for (int k = first; k < first + count; ++k) {
            double sum = 0.0;
            for (int d = 0; d < n; ++d) {
                const std::uint32_t lo = static_cast<std::uint32_t>(gen());
                const std::uint32_t hi = static_cast<std::uint32_t>(gen());
                sum += slope[static_cast<int>(nd * canonical53(lo, hi))];
            }
            out[k] = factor * (sum / n);
        }
    }
}

// Mobility from the mean over all trajectories of the projected square.
double Mobutils::fit_mean_curve(const Vec3& u)
{
    const int n = std::max(nsimu, 0), nt = std::max(ntime, 0);
    double* const mean = scan_work.mean.data();
    std::fill(mean, mean + nt, 0.0);
    for (int j = 0; j < n; ++j) {
        const double *x = track_x[j], *y = track_y[j], *z = track_z[j];
#pragma omp simd
        for (int t = 0; t < nt; ++t) {
            const double p = x[t] * u[0] + y[t] * u[1] + z[t] * u[2];
            mean[t] += p * p;
        }
    }
    for (int t = 0; t < nt; ++t) mean[t] /= n;
    return scan_work.factor * fitted_slope(track_time, mean, ntime);
}

void Mobutils::mob_treat_1pt(const Vec3& dir, double& mob, double& err)
{
    if (scan_work.fit == ResampleFit::mean_of_slopes) fill_direction_slopes(dir);
    bootstrap_resamples();
    double lo = kSentinel, hi = -kSentinel;
    for (const double m : scan_work.resample_mob) {
        if (m < lo) lo = m;
        if (m > hi) hi = m;
    }
    mob = fit_mean_curve(dir);
    err = (hi - lo) * 0.5;
}

void Mobutils::mob_treat_plane_1pt(std::FILE* out, double angle, const Vec3& dir, double& mob,
                                   double& err)
{
    mob_treat_1pt(dir, mob, err);
    std::fprintf(out, kPlaneRow, angle, mob, err);
}

// ---------------------------------------------------------------- the scans

void Mobutils::mob_plane_xy_xz_yz()
{
    print_title(kPlaneTitle);
    read_delta_override(angle_delta);
    if (flag_binfo) std::cout << "  deltaa = " << angle_delta << "\n";
    if (angle_delta < kMinStep) fatal(kModule, kLinePlaneTooSmall, 0, kPlaneTooSmall);

    const ScanWorkScope scope(*this);
    const double step = angle_delta;
    const int last = last_angle_index(360.0, step);
    for (const Plane& plane : kPlanes) {
        const std::string data = std::string(plane.name) + ".dat";
        double max = 0.0;
        {
            const File f = open_file(data, "wt");
            if (!f) fatal_open(kModule, plane.open_line, data);
            for (int i = 0; i <= last; ++i) {
                const double angle = i * step, rad = radians(angle);
                double mob, err;
                mob_treat_plane_1pt(f.get(), angle, plane.dir(std::cos(rad), std::sin(rad)), mob,
                                    err);
                if (mob > max) max = mob;
            }
        }
        write_gnuplot_eps_script(plane.name, max);
        write_gnuplot_png_script(plane.name, max);
        write_pyplot_script((std::string(plane.name) + ".py").c_str(), max);
    }
    if (flag_binfo) std::cout << "done.\n";
}

void Mobutils::mob_direction_all()
{
    print_title(kSphereTitle);
    read_delta_override(angle_delta);
    if (flag_binfo) std::cout << "  deltaa = " << angle_delta << "\n";
    if (angle_delta < kMinStep) fatal(kModule, kLineSphereTooSmall, 0, kSphereTooSmall);

    const ScanWorkScope scope(*this);
    const double step = angle_delta;
    const std::string data = std::string(kSphereData) + ".dat";
    double max = 0.0;
    {
        const File f = open_file(data, "wt");
        if (!f) fatal_open(kModule, kLineSphereFile, data);
        std::fputs(kSphereHeader, f.get());
        const int last_phai = last_angle_index(180.0, step);
        const int last_thet = last_angle_index(360.0, step);
        for (int i = 0; i <= last_phai; ++i) {
            double mob, err;
            if (i == last_phai || i == 0) {
                // A pole: one direction for the whole row, computed for thet 0.
                const double phai = i == last_phai ? 180.0 : 0.0, rad = radians(phai);
                mob_treat_1pt(sphere_direction(std::sin(rad), std::cos(rad), 0.0), mob, err);
                if (mob > max) max = mob;
                for (int j = 0; j <= last_thet; ++j)
                    std::fprintf(f.get(), kSphereRow, phai, j * step, mob, err);
            } else {
                const double phai = i * step, rad = radians(phai);
                const double sin_phai = std::sin(rad), cos_phai = std::cos(rad);
                for (int j = 0; j <= last_thet; ++j) {
                    const double thet = j * step;
                    mob_treat_1pt(sphere_direction(sin_phai, cos_phai, thet), mob, err);
                    std::fprintf(f.get(), kSphereRow, phai, thet, mob, err);
                    if (mob > max) max = mob;
                }
            }
            std::fputs("\n", f.get());
        }
    }
    write_gnuplot_eps_script_3D(kSphereData, max);
    write_gnuplot_png_script_3D(kSphereData, max);
    write_pyplot_script_3D(kSphereScript, max);
    if (flag_binfo) std::cout << "done.\n";
}
