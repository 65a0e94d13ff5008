// src/analysis: the mobility analysis, kelta_mob. The Mobutils class (the top of
// the class chain): track reading, the average and axis mobility, the angle scans,
// the tensor, the MSD picture, the plot scripts and the run summary, over
// mob_utils_*.cpp; mob_utils_engine holds the bootstrap engine. It links the
// model and never the hopping simulation.
#pragma once

#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "transport.h"

// The release of the suite, as the banner prints it (13 characters).
inline constexpr char kReleaseLabel[] = "2026.11 (r1) ";

// Parses up to five numbers of a track line as sscanf with "%lf%lf%lf%lf%lf"
// would into v, stopping at the first field that is no number (later fields
// keep their values). Returns whether every value took the quick path: one
// rounded operation, as every number the hopping code writes does.
bool parse_track_line(const char* line, std::array<double, 5>& v);

// Where the bootstrap resamples take their randomness from. A run leaves both
// empty: the average and axis bootstraps seed ran2 from the clock, and every scan
// thread seeds its generator from the random device. Tests fix them to get
// repeatable error columns.
struct RandomSeeds {
    std::optional<std::int64_t> ran2;  // ran2 restarts from this seed for every bootstrap
    std::vector<std::uint32_t> scan;   // scan thread t seeds direction d with scan[t % size] + d
};

// What reading one track file found; readin_track_data turns it into messages.
struct TrackFileReport {
    bool opened = false;
    int read_error = 0;          // errno of a read that failed
    int rows = 0;                // data lines read, at most ntime
    int bad_line = 0;            // first line with a value that is not a finite number
    int overflow_line = 0;       // first line with a finite value whose square overflows
    double overflow_value = 0;
    int off_grid_line = 0;       // first file only: first line whose time is off k x tsnap
    double off_grid_time = 0;
    double header_unit = 0;      // seconds of the time unit the header names ("t,ns", "t,ps"); 0: none
};

// A mobility and its error (half the spread of the bootstrap resamples), cm^2/(V s);
// not numbers until an analysis sets them.
struct MobValue {
    double mob = std::numeric_limits<double>::quiet_NaN();
    double dev = std::numeric_limits<double>::quiet_NaN();
};

// One direction of an angle scan: its mobility, its angles in degrees (polar from
// +z and azimuth from +x for the sphere; the angle from the plane's first axis,
// as azimuth, for a plane) and its unit vector.
struct ScanPoint {
    MobValue value;
    double polar = 0, azimuth = 0;
    Vec3 dir{};
};

// The largest and the smallest mobility of a scan; directions whose mobility is
// not a number take no part.
struct ScanExtremes {
    bool found = false;
    ScanPoint largest, smallest;
    void consider(const ScanPoint& p);
};

// Standard deviation, 2.5% and 97.5% quantiles and half-range of resample values.
struct Spread {
    double se, low, high, half_range;
};

// What mob_tensor.dat reports.
struct TensorReport {
    Mat3 mu;                      // cm^2/(V s), Cartesian
    Vec3 principal;               // largest first
    Mat3 axes;                    // columns: the principal axes
    std::array<Vec3, 2> along;    // along a, b, c; along a*, b*, c*
    std::array<double, 7> value;  // average, principal 1..3, first half, second half, their difference
    std::array<Spread, 7> spread;
    bool halves;                  // enough time points to compare the halves
    // The average mobility from the first nsimu/8, nsimu/4, nsimu/2 and all
    // trajectories, with its standard error (standard deviation of the
    // trajectories' mobilities over the root of their number).
    struct Subset {
        int trajectories;
        double mob, se;
    };
    std::vector<Subset> convergence;
    std::string linearity_verdict, convergence_verdict;
};

class Mobutils : public Transport {
public:
    Mobutils();

    // ------------------------------------------------ run sequence (main)
    void set_flag_binfo(bool flag) { flag_binfo = flag; }
    void set_angle_delta(double delta) { angle_delta = delta; }
    void set_flag_tensor(bool flag) { flag_tensor = flag; }
    void set_flag_json(bool flag) { flag_json = flag; }
    void init();
    void readin_track_data();
    void output_mob_data(int mob_all, const RandomSeeds& seeds = {});

    // ------------------------------------------------ analyses (output_mob_data)
    void mob_average(const RandomSeeds& seeds = {});
    void mob_direction_a_b_c(const RandomSeeds& seeds = {});
    void mob_plane_xy_xz_yz(const RandomSeeds& seeds = {});
    void mob_direction_all(const RandomSeeds& seeds = {});
    void mob_tensor(const RandomSeeds& seeds = {});  // with -tensor: mob_tensor.dat and the MSD picture
    void write_summary() const;                      // with -json: mob_summary.json
    // mob_msd.dat and its scripts, with bands over the tensor's resamples `picks`.
    void write_msd(const TensorReport& r, const std::vector<std::vector<int>>& picks) const;

    // ------------------------------------------------ plot scripts (the scans)
    void write_gnuplot_eps_script(const char* name, double max) const;
    void write_gnuplot_png_script(const char* name, double max) const;
    void write_pyplot_script(const char* name, double max) const;
    void write_gnuplot_eps_script_3D(const char* name, double max) const;
    void write_gnuplot_png_script_3D(const char* name, double max) const;
    void write_pyplot_script_3D(const char* name, double max) const;

    // ------------------------------------------------ analysis state: set by main and
    // readin_track_data, read by every analysis
    bool track_loaded = false;
    bool flag_binfo = false;
    bool flag_tensor = false;  // -tensor: write the mobility tensor
    bool flag_json = false;    // -json: write the run summary
    std::vector<double> track_time;  // [ntime] time grid of the first track file
    Table track_x, track_y, track_z;  // [nsimu][ntime] carrier position, Angstrom
    Table track_r2;                   // [nsimu][ntime] squared displacement, Angstrom^2
    int nsamp = 100;                  // bootstrap resamples
    double angle_delta = 10.0;        // degrees; delta.inp may replace it

    // ------------------------------------------------ results: written by the analyses, read
    // by the run summary
    MobValue result_average;
    std::array<MobValue, 3> result_axes;        // along a, b, c
    std::array<ScanExtremes, 3> result_planes;  // xy, xz, yz
    ScanExtremes result_sphere;
    std::optional<TensorReport> result_tensor;

    // ------------------------------------------------ track reading (readin_track_data, tests)
    // Reads trajectory j's rows from an open track file with a buffer `block`.
    TrackFileReport read_track(std::FILE* f, std::vector<char>& block, int j);
    // Ends the run on a file that could not be opened or read, and warns once for
    // each kind of doubtful content.
    void report_track_files(const std::vector<TrackFileReport>& report);
    // Warns when the carriers' mean displacement at the last time point stands out
    // of their spread: a drift, which the mean-square displacement counts as motion.
    void check_drift();
};
