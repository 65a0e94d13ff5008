// Angle-resolved mobility: fans of directions in the xy, xz and yz planes, and a
// grid over the whole sphere, each direction with a parallel bootstrap error.
//
// How the bootstrap is made cheap: the least-squares slope is linear in the
// curve, so the slope of a resample's mean curve is the mean of the slopes of the
// trajectories it drew. Each trajectory's slope tensor S (slopes of x_a * x_b
// against time) is computed once per scan; a direction u then gives every
// trajectory the slope u^T S u, and a resample costs nsimu draws and additions
// instead of nsimu rows of ntime additions. The mobility column is still the fit
// of the mean projected square; that curve is u^T M(t) u, with M(t) the second
// moments of the positions over all trajectories, also formed once per scan.
#include <omp.h>

#include <algorithm>
#include <array>
#include <bit>
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
constexpr double kSentinel = 1e8;    // running minimum starts here, maximum at its negative
constexpr int kPairsPerBlock = 312;  // the generator makes 624 outputs at a time

struct Plane {
    const char* name;  // data file and scripts share it
    int open_line;     // reported when the data file cannot be opened
    Vec3 (*dir)(double c, double s);
};

const Plane kPlanes[3] = {
    {"mob_plane_xy", 1023,
     [](double c, double s) {
         return Vec3{c, s, 0.0};
     }},
    {"mob_plane_xz", 1080,
     [](double c, double s) {
         return Vec3{c, 0.0, s};
     }},
    {"mob_plane_yz", 1138,
     [](double c, double s) {
         return Vec3{0.0, c, s};
     }},
};

double radians(double degrees)
{
    return degrees * kPi / 180.0;
}

// Symmetric 3x3 forms as their entries xx, yy, zz, xy, xz, yz.
using Form = std::array<double, 6>;

Form products(double x, double y, double z)
{
    return {x * x, y * y, z * z, x * y, x * z, y * z};
}

// Coefficients c with u^T S u = contract(c, S) for a symmetric S.
Form quadratic_form(const Vec3& u)
{
    return {u[0] * u[0],       u[1] * u[1],       u[2] * u[2],
            2.0 * u[0] * u[1], 2.0 * u[0] * u[2], 2.0 * u[1] * u[2]};
}

// A not-a-number entry spoils the sum even where its coefficient is 0, as the
// projection of a position with such a coordinate does.
double contract(const Form& c, const Form& s)
{
    return c[0] * s[0] + c[1] * s[1] + c[2] * s[2] + c[3] * s[3] + c[4] * s[4] + c[5] * s[5];
}

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

// What both scans do first: the title, the "delta.inp" override of the step,
// its information line, and the end of the run (status 0) for a step too small.
void begin_scan(const char* title, double& step, bool binfo, int too_small_line,
                const char* too_small)
{
    std::printf("%s\n", title);
    std::fflush(stdout);
    read_first_number("delta.inp", step);
    if (binfo) std::cout << "  deltaa = " << step << "\n";
    if (step < kMinStep) fatal(kModule, too_small_line, 0, too_small);
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

// Static contiguous partition of `total` items among nthreads threads.
void block_of(int total, int thread, int nthreads, int& first, int& count)
{
    const int q = total / nthreads, r = total % nthreads;
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
    ScanWorkScope(Mobutils& m, const RandomSeeds& seeds) : m_(m) { m_.prepare_scan_work(seeds); }
    ~ScanWorkScope() { m_.release_scan_work(); }
    ScanWorkScope(const ScanWorkScope&) = delete;
    ScanWorkScope& operator=(const ScanWorkScope&) = delete;

private:
    Mobutils& m_;
};

// The exact double of a 32-bit value, by placing it in the mantissa of 2^52;
// unlike the plain conversion this vectorises without 64-bit integer support.
double exact_double(std::uint32_t v)
{
    return std::bit_cast<double>(0x4330000000000000ull | v) - 0x1p52;
}

}  // namespace

// (first + second * 2^32) / 2^64, rounded once to double, kept below 1. The
// scaling by a power of two is exact, so it is a multiplication.
double Mobutils::canonical53(std::uint32_t first, std::uint32_t second)
{
    const double r = (exact_double(first) + exact_double(second) * 0x1p32) * 0x1p-64;
    return r >= 1.0 ? 0x1.fffffffffffffp-1 : r;
}

Mobutils::Mt19937Block::Mt19937Block(std::uint32_t seed)
{
    state_[0] = seed;
    for (std::uint32_t i = 1; i < kSize; ++i)
        state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
}

void Mobutils::Mt19937Block::refill()
{
    constexpr int kShift = 397, kRest = kSize - kShift;
    constexpr std::uint32_t kUpper = 0x80000000u, kLower = 0x7fffffffu, kMatrix = 0x9908b0dfu;
    std::uint32_t* const x = state_.data();
    const auto twist = [](std::uint32_t hi, std::uint32_t lo, std::uint32_t far) {
        const std::uint32_t y = (hi & kUpper) | (lo & kLower);
        return far ^ (y >> 1) ^ ((0u - (y & 1u)) & kMatrix);
    };
    for (int k = 0; k < kRest; ++k) x[k] = twist(x[k], x[k + 1], x[k + kShift]);
    for (int k = kRest; k < kSize - 1; ++k) x[k] = twist(x[k], x[k + 1], x[k - kRest]);
    x[kSize - 1] = twist(x[kSize - 1], x[0], x[kShift - 1]);
    for (int k = 0; k < kSize; ++k) {
        std::uint32_t z = x[k];
        z ^= z >> 11;
        z ^= (z << 7) & 0x9d2c5680u;
        z ^= (z << 15) & 0xefc60000u;
        z ^= z >> 18;
        out_[k] = z;
    }
    next_ = 0;
}

// ---------------------------------------------------------------- working state

void Mobutils::prepare_scan_work(const RandomSeeds& seeds)
{
    const int n = std::max(nsimu, 0), nt = std::max(ntime, 0);
    ScanWork& w = scan_work;
    w.factor = 1e-16 / ((0.0001724 * temp) * get_track_timeunit());
    w.seeds = seeds.scan;
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
    fill_tensors();
}

void Mobutils::release_scan_work()
{
    scan_work = ScanWork{};
}

// Second moments of every time point over all trajectories and, when the
// resamples need them, every trajectory's slope tensor. The slope of a curve y
// against time is sum_t weight[t] * y[t].
void Mobutils::fill_tensors()
{
    const int n = std::max(nsimu, 0), nt = std::max(ntime, 0);
    ScanWork& w = scan_work;
    const bool slopes = w.fit == ResampleFit::mean_of_slopes;
    std::vector<double> weight(static_cast<size_t>(nt), 0.0);
    if (slopes) {
        double mean_t = 0.0, spread = 0.0;
        for (int t = 0; t < nt; ++t) mean_t += track_time[t];
        mean_t /= nt;
        for (int t = 0; t < nt; ++t) {
            weight[t] = track_time[t] - mean_t;
            spread += weight[t] * weight[t];
        }
        for (double& v : weight) v /= spread;
    }
    w.moment.assign(static_cast<size_t>(nt), {});
    w.slope_tensor.assign(slopes ? static_cast<size_t>(n) : 0u, {});
    for (int j = 0; j < n; ++j) {
        Form slope{};
        for (int t = 0; t < nt; ++t) {
            const Form p = products(track_x[j][t], track_y[j][t], track_z[j][t]);
            for (int i = 0; i < 6; ++i) {
                w.moment[t][i] += p[i];
                slope[i] += weight[t] * p[i];
            }
        }
        if (slopes) w.slope_tensor[j] = slope;
    }
    for (Form& m : w.moment)
        for (double& v : m) v /= n;
}

void Mobutils::fill_direction_slopes(const Form& form)
{
    const std::vector<Form>& s = scan_work.slope_tensor;
    for (size_t j = 0; j < s.size(); ++j) scan_work.dir_slope[j] = contract(form, s[j]);
}

// ---------------------------------------------------------------- one direction

// When the time grid decides every fit alone (too few points: a message and 0;
// degenerate times: 0) the resample mobilities need no draws.
void Mobutils::resample_without_draws()
{
    ScanWork& w = scan_work;
    for (double& m : w.resample_mob)
        m = w.factor * regression_slope(track_time.data(), track_time.data(), ntime);
}

// The resamples of one bootstrap thread: its contiguous block of samples, each
// the mean slope of nsimu trajectories drawn with replacement.
void Mobutils::draw_resamples(int thread, int nthreads)
{
    ScanWork& w = scan_work;
    const int n = static_cast<int>(w.dir_slope.size());
    const double nd = static_cast<double>(n);
    const double* const slope = w.dir_slope.data();
    Mt19937Block gen(thread_seed(w.seeds, thread));
    int first = 0, count = 0;
    block_of(static_cast<int>(w.resample_mob.size()), thread, nthreads, first, count);
    std::array<int, kPairsPerBlock> idx;
    for (int k = first; k < first + count; ++k) {
        double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;  // four chains of additions side by side
        for (int left = n, got = 0; left > 0; left -= got) {
            const std::uint32_t* p = gen.pairs(left, got);
            for (int i = 0; i < got; ++i)
                idx[i] = static_cast<int>(nd * canonical53(p[2 * i], p[2 * i + 1]));
            int i = 0;
            for (; i + 4 <= got; i += 4) {
                s0 += slope[idx[i]];
                s1 += slope[idx[i + 1]];
                s2 += slope[idx[i + 2]];
                s3 += slope[idx[i + 3]];
            }
            for (; i < got; ++i) s0 += slope[idx[i]];
        }
        w.resample_mob[k] = w.factor * (((s0 + s1) + (s2 + s3)) / n);
    }
}

// The bootstrap runs in one parallel region per direction. The mean projected
// square of time point t is u^T M(t) u, M(t) the mean second moment.
void Mobutils::mob_treat_1pt(const Vec3& dir, double& mob, double& err)
{
    ScanWork& w = scan_work;
    const Form form = quadratic_form(dir);
    if (w.fit == ResampleFit::mean_of_slopes) {
        fill_direction_slopes(form);
#pragma omp parallel
        draw_resamples(omp_get_thread_num(), omp_get_num_threads());
    } else {
        resample_without_draws();
    }
    double lo = kSentinel, hi = -kSentinel;
    for (const double m : w.resample_mob) {
        if (m < lo) lo = m;
        if (m > hi) hi = m;
    }
    for (size_t t = 0; t < w.mean.size(); ++t) w.mean[t] = contract(form, w.moment[t]);
    mob = w.factor * regression_slope(track_time.data(), w.mean.data(), ntime);
    err = (hi - lo) * 0.5;
}

void Mobutils::mob_treat_plane_1pt(std::FILE* out, double angle, const Vec3& dir, double& mob,
                                   double& err)
{
    mob_treat_1pt(dir, mob, err);
    std::fprintf(out, kPlaneRow, angle, mob, err);
}

// ---------------------------------------------------------------- the scans

void Mobutils::mob_plane_xy_xz_yz(const RandomSeeds& seeds)
{
    begin_scan(kPlaneTitle, angle_delta, flag_binfo, kLinePlaneTooSmall, kPlaneTooSmall);

    const ScanWorkScope scope(*this, seeds);
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

// One row of the sphere grid; returns the largest mobility of the row (0 if none).
double Mobutils::write_sphere_row(std::FILE* out, int i, int last_phai, int last_thet,
                                  double step)
{
    double mob, err, max = 0.0;
    if (i == last_phai || i == 0) {
        // A pole: one direction for the whole row, computed for thet 0.
        const double phai = i == last_phai ? 180.0 : 0.0, rad = radians(phai);
        mob_treat_1pt(sphere_direction(std::sin(rad), std::cos(rad), 0.0), mob, err);
        if (mob > max) max = mob;
        for (int j = 0; j <= last_thet; ++j)
            std::fprintf(out, kSphereRow, phai, j * step, mob, err);
    } else {
        const double phai = i * step, rad = radians(phai);
        const double sin_phai = std::sin(rad), cos_phai = std::cos(rad);
        for (int j = 0; j <= last_thet; ++j) {
            const double thet = j * step;
            mob_treat_1pt(sphere_direction(sin_phai, cos_phai, thet), mob, err);
            std::fprintf(out, kSphereRow, phai, thet, mob, err);
            if (mob > max) max = mob;
        }
    }
    std::fputs("\n", out);
    return max;
}

void Mobutils::mob_direction_all(const RandomSeeds& seeds)
{
    begin_scan(kSphereTitle, angle_delta, flag_binfo, kLineSphereTooSmall, kSphereTooSmall);

    const ScanWorkScope scope(*this, seeds);
    const double step = angle_delta;
    const std::string data = std::string(kSphereData) + ".dat";
    double max = 0.0;
    {
        const File f = open_file(data, "wt");
        if (!f) fatal_open(kModule, kLineSphereFile, data);
        std::fputs(kSphereHeader, f.get());
        const int last_phai = last_angle_index(180.0, step);
        const int last_thet = last_angle_index(360.0, step);
        for (int i = 0; i <= last_phai; ++i)
            max = std::max(max, write_sphere_row(f.get(), i, last_phai, last_thet, step));
    }
    write_gnuplot_eps_script_3D(kSphereData, max);
    write_gnuplot_png_script_3D(kSphereData, max);
    write_pyplot_script_3D(kSphereScript, max);
    if (flag_binfo) std::cout << "done.\n";
}
