// Mobility analysis: track files, average and axis mobility, the angle scans
// and their plot scripts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "transport.h"

// Parses up to five numbers of a track line as "%lf%lf%lf%lf%lf" would into v,
// stopping at the first field that is no number (later fields keep their values).
void parse_track_line(const char* line, double* v);

// Where the bootstrap resamples take their randomness from. A run leaves both
// empty: the average and axis bootstraps seed ran2 from the clock, and every scan
// thread seeds its generator from the random device. Tests fix them to get
// repeatable error columns.
struct RandomSeeds {
    std::optional<std::int64_t> ran2;  // ran2 restarts from this seed for every bootstrap
    std::vector<std::uint32_t> scan;   // scan thread t seeds its generator with scan[t % size]
};

class Mobutils : public Transport {
public:
    Mobutils();

    void set_flag_binfo(bool flag) { flag_binfo = flag; }
    void set_angle_delta(double delta) { angle_delta = delta; }
    void init();
    void readin_track_data();
    void output_mob_data(int mob_all, const RandomSeeds& seeds = {});

    // ------------------------------------------------ analyses
    void mob_average(const RandomSeeds& seeds = {});
    void mob_direction_a_b_c(const RandomSeeds& seeds = {});
    void mob_plane_xy_xz_yz(const RandomSeeds& seeds = {});
    void mob_direction_all(const RandomSeeds& seeds = {});
    // Mobility and bootstrap error along the unit vector dir; the plane version also
    // writes the line for angle. Both need prepare_scan_work() first.
    void mob_treat_plane_1pt(std::FILE* out, double angle, const Vec3& dir, double& mob,
                             double& err);
    void mob_treat_1pt(const Vec3& dir, double& mob, double& err);

    // ------------------------------------------------ plot scripts
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
    std::vector<double> track_time;  // [ntime] time grid of the first track file
    Table track_x, track_y, track_z;  // [nsimu][ntime] carrier position, Angstrom
    Table track_r2;                   // [nsimu][ntime] squared displacement, Angstrom^2
    int nsamp = 100;                  // bootstrap resamples
    double angle_delta = 10.0;        // degrees; delta.inp may replace it

private:
    // -- scan internals (begin)
public:
    // The scans set up and free this state themselves; tests call these around
    // mob_treat_1pt.
    void prepare_scan_work(const RandomSeeds& seeds = {});
    void release_scan_work();
    // The uniform deviate in [0, 1) the bootstrap forms from two successive 32-bit
    // generator outputs, 53 bits, as the standard canonical construction does.
    static double canonical53(std::uint32_t first, std::uint32_t second);
    // The bootstrap threads' generator: the 32-bit Mersenne Twister with the
    // standard MT19937 parameters and seeding, making its outputs 624 at a time
    // so that the twist and the tempering vectorise.
    class Mt19937Block {
    public:
        explicit Mt19937Block(std::uint32_t seed);
        // The next `got` pairs of successive outputs, 1 <= got <= wanted.
        const std::uint32_t* pairs(int wanted, int& got)
        {
            if (next_ == kSize) refill();
            const int left = (kSize - next_) / 2;
            got = wanted < left ? wanted : left;
            const std::uint32_t* p = out_.data() + next_;
            next_ += 2 * got;
            return p;
        }

    private:
        static constexpr int kSize = 624;
        void refill();
        std::array<std::uint32_t, kSize> state_{}, out_{};
        int next_ = kSize;
    };

private:
    // How the fit of a resample's mean curve ends for this time grid.
    enum class ResampleFit { too_few_points, degenerate_times, mean_of_slopes };
    using Form = std::array<double, 6>;  // symmetric 3x3: xx, yy, zz, xy, xz, yz
    struct ScanWork {
        double factor = 0;  // slope (Angstrom^2 per time unit) to cm^2/Vs
        std::vector<std::uint32_t> seeds;  // fixed thread seeds, or empty
        ResampleFit fit = ResampleFit::too_few_points;
        // Per time point, the mean over trajectories of x_a * x_b: the mean
        // projected square along u is u^T M u.
        std::vector<Form> moment;  // [ntime]
        // Per trajectory, the slopes of x_a * x_b against time: the slope of its
        // projected square along u is u^T S u.
        std::vector<Form> slope_tensor;    // [nsimu], only when resamples are drawn
        std::vector<double> dir_slope;     // [nsimu] for the current direction
        std::vector<double> mean;          // [ntime] mean projected square
        std::vector<double> resample_mob;  // [nsamp]
    };
    ScanWork scan_work;
    void fill_tensors();
    void fill_direction_slopes(const Form& form);
    void resample_without_draws();
    void draw_resamples(int thread, int nthreads);
    double write_sphere_row(std::FILE* out, int i, int last_phai, int last_thet, double step);
    // -- scan internals (end)
};
