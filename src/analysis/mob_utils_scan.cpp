// Angle-resolved mobility: fans of directions in the xy, xz and yz planes, and a
// grid over the whole sphere. Each fan and the sphere go to the bootstrap engine
// as one list of directions; the files are written from its results.
#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <iostream>
#include <limits>
#include <string>

#include "mob_utils.h"
#include "mob_utils_errors.h"
#include "mob_utils_engine.h"

using namespace mob_utils_error;

namespace {

const char* const kModule = "mob_utils";

const char* const kPlaneTitle = "Treating mob_plane_xy_xz_yz...";
const char* const kSphereTitle = "Treating mob_direction_all...";
const char* const kPlaneTooSmall = "deltaa too small, mob_xy_xz_yz() canceled!\n";
const char* const kSphereTooSmall = "deltaa too small, mb-direction-all canceled!\n";

const char* const kPlaneRow = "%6.0f %12.4e %12.4e\n";
const char* const kSphereHeader = "#  phai  thet          mob        error [cm**2/Vs]\n";
const char* const kSphereRow = "%6.0f %6.0f %12.4e %12.4e\n";
const char* const kSphereData = "mob_direction_all";
const char* const kSphereScript = "mob_direction_all.py";

constexpr double kMinStep = 1e-6;
// A step so small that a scan would compute more directions than this (hours
// of work) ends the run instead.
constexpr double kMaxDirections = 1e6;
const char* const kTooManyDirections =
    "deltaa = %g would give %.0f directions, more than the %.0f a scan may compute; use a larger step\n";

struct Plane {
    const char* name;  // data file and scripts share it
    int open_line;     // reported when the data file cannot be opened
    Vec3 (*dir)(double c, double s);
};

const std::array<Plane, 3> kPlanes = {{
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
}};

// Unit vector for polar angle phai (from +z) and azimuth thet (from +x towards +y).
Vec3 sphere_direction(double sin_phai, double cos_phai, double thet)
{
    const double t = units::radians(thet);
    return {sin_phai * std::cos(t), sin_phai * std::sin(t), cos_phai};
}

// Integer part of range / step + 0.5. A step that is not a number gives the most
// negative int, so the scans then compute nothing.
int last_angle_index(double range, double step)
{
    const double v = range / step + 0.5;
    constexpr double kLow = std::numeric_limits<int>::min(), kHigh = -kLow;  // exact doubles
    if (!(v >= kLow && v < kHigh)) return INT_MIN;
    return static_cast<int>(v);
}

// What both scans do first: the title, the "delta.inp" override of the step,
// its information line, and the end of the run (status 0) for a step too small.
void begin_scan(const char* title, double& step, bool binfo, int too_small_line, const char* too_small)
{
    std::printf("%s\n", title);
    std::fflush(stdout);
    read_first_number("delta.inp", step);
    if (binfo) std::cout << "  deltaa = " << step << "\n";
    if (step < kMinStep) fatal(kModule, too_small_line, 0, too_small);
}

void check_direction_count(double count, double step, int line)
{
    if (count > kMaxDirections) fatal(kModule, line, 1, strprintf(kTooManyDirections, step, count, kMaxDirections));
}

mob_engine::ScanEngine engine_for(const Mobutils& m, const RandomSeeds& seeds)
{
    const double factor = m.mobility_per_slope();
    return mob_engine::ScanEngine(
        {m.track_x, m.track_y, m.track_z, m.track_time.data(), std::max(m.nsimu, 0), m.ntime, m.nsamp, factor},
        seeds.scan);
}

}  // namespace

void ScanExtremes::consider(const ScanPoint& p)
{
    if (std::isnan(p.value.mob)) return;
    if (!found || p.value.mob > largest.value.mob) largest = p;
    if (!found || p.value.mob < smallest.value.mob) smallest = p;
    found = true;
}

void Mobutils::mob_plane_xy_xz_yz(const RandomSeeds& seeds)
{
    begin_scan(kPlaneTitle, angle_delta, flag_binfo, kLinePlaneTooSmall, kPlaneTooSmall);
    const double step = angle_delta;
    const int last = last_angle_index(360.0, step);
    check_direction_count(3.0 * (last + 1.0), step, kLinePlaneTooMany);
    const mob_engine::ScanEngine engine = engine_for(*this, seeds);
    for (size_t p = 0; p < kPlanes.size(); ++p) {
        const Plane& plane = kPlanes[p];
        const std::string data = std::string(plane.name) + ".dat";
        double max = 0.0;
        {
            OutputFile f(data, kModule, plane.open_line);
            std::vector<Vec3> dirs;
            for (int i = 0; i <= last; ++i) {
                const double rad = units::radians(i * step);
                dirs.push_back(plane.dir(std::cos(rad), std::sin(rad)));
            }
            std::vector<double> mob, err;
            engine.treat(dirs, mob, err);
            for (size_t i = 0; i < dirs.size(); ++i) {
                f.print(kPlaneRow, static_cast<double>(i) * step, mob[i], err[i]);
                max = std::max(max, mob[i]);  // a direction that is not a number leaves it
                result_planes[p].consider({{mob[i], err[i]}, 0.0, static_cast<double>(i) * step, dirs[i]});
            }
            f.commit();
        }
        write_gnuplot_eps_script(plane.name, max);
        write_gnuplot_png_script(plane.name, max);
        write_pyplot_script((std::string(plane.name) + ".py").c_str(), max);
    }
    if (flag_binfo) std::cout << "done.\n";
}

// The sphere grid: row i has polar angle i * step, column j azimuth j * step.
// A pole row (the last, then the first) is one direction, computed for azimuth
// 0, whose mobility and error stand in every column; the last row is printed
// at 180 degrees whatever i * step is.
void Mobutils::mob_direction_all(const RandomSeeds& seeds)
{
    begin_scan(kSphereTitle, angle_delta, flag_binfo, kLineSphereTooSmall, kSphereTooSmall);
    const double step = angle_delta;
    const int last_phai = last_angle_index(180.0, step);
    const int last_thet = last_angle_index(360.0, step);
    check_direction_count(std::max(0.0, last_phai + 1.0) * (last_thet + 1.0), step, kLineSphereTooMany);
    const mob_engine::ScanEngine engine = engine_for(*this, seeds);
    const std::string data = std::string(kSphereData) + ".dat";
    double max = 0.0;
    {
        OutputFile f(data, kModule, kLineSphereFile);
        f.write(kSphereHeader);
        std::vector<Vec3> dirs;
        for (int i = 0; i <= last_phai; ++i) {
            const bool pole = i == last_phai || i == 0;
            const double rad = units::radians(i == last_phai ? 180.0 : i * step);
            for (int j = 0; j <= (pole ? 0 : last_thet); ++j)
                dirs.push_back(sphere_direction(std::sin(rad), std::cos(rad), j * step));
        }
        std::vector<double> mob, err;
        engine.treat(dirs, mob, err);
        size_t d = 0;
        for (int i = 0; i <= last_phai; ++i) {
            const bool pole = i == last_phai || i == 0;
            const double phai = i == last_phai ? 180.0 : i * step;
            for (int j = 0; j <= last_thet; ++j) {
                const size_t k = pole ? d : d + static_cast<size_t>(j);
                f.print(kSphereRow, phai, j * step, mob[k], err[k]);
                max = std::max(max, mob[k]);
                if (!pole || j == 0) result_sphere.consider({{mob[k], err[k]}, phai, j * step, dirs[k]});
            }
            d += pole ? 1 : static_cast<size_t>(last_thet) + 1;
            f.write("\n");
        }
        f.commit();
    }
    write_gnuplot_eps_script_3D(kSphereData, max);
    write_gnuplot_png_script_3D(kSphereData, max);
    write_pyplot_script_3D(kSphereScript, max);
    if (flag_binfo) std::cout << "done.\n";
}
