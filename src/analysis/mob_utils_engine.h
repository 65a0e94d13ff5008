// The bootstrap engine behind the mobility analyses.
//
// The least-squares slope is linear in the curve, so the slope of a resample's
// mean curve is the mean of the slopes of the trajectories it drew. Every
// trajectory's slope is therefore computed once, and a resample costs nsimu
// random draws and additions instead of nsimu whole curves and a fit. For the
// angle scans each trajectory's slope tensor S (slopes of x_a * x_b against time)
// is formed once: a direction u gives it the slope u^T S u.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "mmutil.h"

namespace mob_engine {

// How every fit on a time grid ends: too few points (LinearRegression prints its
// message and gives slope 0), all times equal (slope 0), or a proper slope.
enum class Fit { too_few_points, degenerate_times, slope };

// The least-squares slope of a curve y on the time grid: sum_t weight[t] * y[t].
class SlopeWeights {
public:
    SlopeWeights(const double* time, int ntime);
    Fit fit() const { return fit_; }
    int ntime() const { return static_cast<int>(weight_.size()); }
    // The slope of y; 0 when the grid allows no fit (no message).
    double slope(const double* y) const;
    const std::vector<double>& weight() const { return weight_; }  // [ntime]

private:
    Fit fit_;
    std::vector<double> weight_;
};

// The sequential bootstrap of the average and axis analyses: each of nsamp
// resamples draws slopes.size() trajectories with replacement from the
// process-wide generator (randUniform), and its mobility is factor times the mean
// of the drawn trajectories' slopes. Returns half the spread of the resample
// mobilities, the running minimum starting from the sentinel.
double sequential_bootstrap(const std::vector<double>& slopes, const SlopeWeights& weights, const double* time,
                            int nsamp, double factor, double sentinel);

// Symmetric 3x3 forms as their entries xx, yy, zz, xy, xz, yz.
using Form = std::array<double, 6>;
// Coefficients c with u^T S u = contract(c, S) for a symmetric S.
Form quadratic_form(const Vec3& u);
double contract(const Form& c, const Form& s);

// Half the spread of the values, the running minimum starting at `sentinel` and
// the maximum at -sentinel; values that are not numbers are passed over.
double half_spread(const std::vector<double>& values, double sentinel);

// The uniform deviate in [0, 1) made from two successive 32-bit generator
// outputs, 53 bits, as the standard canonical construction does.
double canonical53(std::uint32_t first, std::uint32_t second);

// The 32-bit Mersenne Twister with the standard MT19937 parameters and seeding,
// making its outputs 624 at a time so that the twist and the tempering vectorise.
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

// Per time point, the mean over trajectories of the squared projection of the
// positions on u; per trajectory, the slope of its squared projection. Done
// position by position, in trajectory order.
void project_squares(const Table& x, const Table& y, const Table& z, int nsimu, int ntime, const Vec3& u,
                     const SlopeWeights& weights, std::vector<double>& mean, std::vector<double>& slopes);

// The trajectories as the scans read them.
struct Tracks {
    const Table& x;  // [nsimu][ntime] positions, Angstrom
    const Table& y;
    const Table& z;
    const double* time;  // [ntime]
    int nsimu, ntime, nsamp;
    double factor;  // slope (Angstrom^2 per time unit) to cm^2/Vs
};

// The mobility and bootstrap error of any set of directions. Thread t of the
// bootstrap seeds one MT19937 per direction d with base(t) + d, base(t) drawn
// once per call from the random device, or seeds[t % size] when seeds are given.
class ScanEngine {
public:
    ScanEngine(const Tracks& tracks, const std::vector<std::uint32_t>& seeds);
    void treat(const std::vector<Vec3>& dirs, std::vector<double>& mob, std::vector<double>& err) const;
    // Each trajectory's slopes of x_a * x_b against time (zero when the grid allows no fit).
    const std::vector<Form>& slope_tensors() const { return slope_tensor_; }

private:
    // The mobility of the mean projected square along u.
    double moment_mobility(const Form& form) const;
    // Mobility along u by projecting every position; fills the trajectories'
    // slopes along u.
    double projected_mobility(const Vec3& u, std::vector<double>& slopes) const;
    // Resamples of one direction for this thread's block, into resample_mob.
    void draw_block(std::uint32_t seed, const std::vector<double>& slopes, int thread, int nthreads,
                    double* resample_mob) const;
    std::vector<std::uint32_t> thread_bases(int nthreads) const;

    const Tracks t_;
    std::vector<std::uint32_t> seeds_;
    SlopeWeights weights_;
    bool moments_ok_ = true;  // every position finite and small enough for products
    Form mean_slope_{};       // slope tensor of the mean curves, for the rounding test
    std::vector<Form> moment_;        // [ntime] mean of x_a * x_b over trajectories
    std::vector<Form> slope_tensor_;  // [nsimu] slopes of x_a * x_b against time
};

}  // namespace mob_engine
