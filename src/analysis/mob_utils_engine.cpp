#include "mob_utils_engine.h"

#include <omp.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <random>

// The hot loops get a copy for each vector width; the loader picks the widest
// the processor has. Other compilers build the plain version.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define KELTA_VECTOR_CLONES __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define KELTA_VECTOR_CLONES
#endif

namespace mob_engine {

namespace {

constexpr int kPairsPerBlock = 312;  // the generator makes 624 outputs at a time
constexpr double kSentinel = 1e8;    // the scans' running minimum starts here
// A direction whose mean-curve slope is below this fraction of the largest
// diagonal slope is at rounding level for the moment form: it is projected.
constexpr double kRoundingLevel = 1e-6;
// Beyond this magnitude the products x_a * x_b lose the projection's result.
constexpr double kLargestMomentCoordinate = 1e150;

// Static contiguous partition of `total` items among nthreads threads.
// The first index and the count of a thread's share of total items.
std::pair<int, int> block_of(int total, int thread, int nthreads)
{
    const int q = total / nthreads, r = total % nthreads;
    return {thread * q + std::min(thread, r), q + (thread < r ? 1 : 0)};
}

// The exact double of a 32-bit value, by placing it in the mantissa of 2^52;
// unlike the plain conversion this vectorises without 64-bit integer support.
inline double exact_double(std::uint32_t v)
{
    return std::bit_cast<double>(0x4330000000000000ull | v) - 0x1p52;
}

KELTA_VECTOR_CLONES
void mt_refill(std::uint32_t* x, std::uint32_t* out)
{
    constexpr int kSize = 624, kShift = 397, kRest = kSize - kShift;
    constexpr std::uint32_t kUpper = 0x80000000u, kLower = 0x7fffffffu, kMatrix = 0x9908b0dfu;
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
        out[k] = z;
    }
}

// Trajectory indices from pairs of generator outputs: integer part of n * u.
KELTA_VECTOR_CLONES
void draw_indices(const std::uint32_t* pairs, int got, double n, int* idx)
{
    for (int i = 0; i < got; ++i) idx[i] = static_cast<int>(n * canonical53(pairs[2 * i], pairs[2 * i + 1]));
}

// Seed of one bootstrap thread: fixed by the caller, or one value from the device.
std::uint32_t thread_base(const std::vector<std::uint32_t>& fixed, int thread)
{
    if (!fixed.empty()) return fixed[static_cast<size_t>(thread) % fixed.size()];
    try {
        std::random_device device("default");
        return device();
    } catch (...) {
        // Nothing may leave a parallel region; without a device the clock will do.
        return static_cast<std::uint32_t>(std::chrono::steady_clock::now().time_since_epoch().count() + thread);
    }
}

}  // namespace

// ---------------------------------------------------------------- slopes

// The same accumulation and degeneracy test as LinearRegression, so that both
// decide alike: the slope is sum_t (n x_t - Sx) y_t / (n Sxx - Sx^2).
SlopeWeights::SlopeWeights(const double* time, int ntime)
    : fit_(Fit::too_few_points), weight_(static_cast<size_t>(std::max(ntime, 0)), 0.0)
{
    if (ntime < 3) return;
    double sx = 0.0, sxx = 0.0;
    for (int t = 0; t < ntime; ++t) {
        sx += time[t];
        sxx += time[t] * time[t];
    }
    const double d = ntime * sxx - sx * sx;
    if (!(std::fabs(d) > 1.11022302e-16)) {
        fit_ = Fit::degenerate_times;
        return;
    }
    fit_ = Fit::slope;
    for (int t = 0; t < ntime; ++t) weight_[t] = (ntime * time[t] - sx) / d;
}

double SlopeWeights::slope(const double* y) const
{
    double s = 0.0;
    if (fit_ == Fit::slope)
        for (size_t t = 0; t < weight_.size(); ++t) s += weight_[t] * y[t];
    return s;
}

void project_squares(const Table& x, const Table& y, const Table& z, int nsimu, int ntime, const Vec3& u,
                     const SlopeWeights& weights, std::vector<double>& mean, std::vector<double>& slopes)
{
    const std::vector<double>& w = weights.weight();
    mean.assign(static_cast<size_t>(ntime), 0.0);
    slopes.resize(static_cast<size_t>(nsimu));  // each one is written below
    for (int j = 0; j < nsimu; ++j) {
        const double *xj = x[j], *yj = y[j], *zj = z[j];
        double s = 0.0;
        for (int t = 0; t < ntime; ++t) {
            const double p = xj[t] * u[0] + yj[t] * u[1] + zj[t] * u[2];
            mean[t] += p * p;
            s += w[t] * (p * p);
        }
        slopes[j] = s;
    }
    for (double& m : mean) m /= nsimu;
}

// A resample that draws a slope that is no finite number has a mean curve with
// such a value, whose fit gives no number. When the time grid decides the fit
// alone, LinearRegression gives each resample its message and 0; the draws are
// made all the same, so that later bootstraps see the generator as always.
double sequential_bootstrap(const std::vector<double>& slopes, const SlopeWeights& weights, const double* time,
                            int nsamp, double factor, double sentinel)
{
    const int n = static_cast<int>(slopes.size());
    std::vector<double> mobs(static_cast<size_t>(nsamp));
    for (double& m : mobs) {
        double sum = 0.0;
        for (int draw = 0; draw < n; ++draw) sum += slopes[static_cast<size_t>(static_cast<double>(n) * randUniform())];
        if (weights.fit() == Fit::slope)
            m = std::isfinite(sum) ? factor * (sum / n) : std::numeric_limits<double>::quiet_NaN();
        else
            m = factor * regression_slope(time, time, weights.ntime());
    }
    return half_spread(mobs, sentinel);
}

Form quadratic_form(const Vec3& u)
{
    return {u[0] * u[0], u[1] * u[1], u[2] * u[2], 2.0 * u[0] * u[1], 2.0 * u[0] * u[2], 2.0 * u[1] * u[2]};
}

double contract(const Form& c, const Form& s)
{
    double v = 0.0;
    for (size_t i = 0; i < c.size(); ++i) v += c[i] * s[i];
    return v;
}

double half_spread(const std::vector<double>& values, double sentinel)
{
    double lo = sentinel, hi = -sentinel;
    for (const double v : values) {
        if (v < lo) lo = v;
        if (v > hi) hi = v;
    }
    return (hi - lo) * 0.5;
}

// ---------------------------------------------------------------- generator

// (first + second * 2^32) / 2^64, rounded once to double, kept below 1. The
// scaling by a power of two is exact, so it is a multiplication.
double canonical53(std::uint32_t first, std::uint32_t second)
{
    const double r = (exact_double(first) + exact_double(second) * 0x1p32) * 0x1p-64;
    return r < 1.0 ? r : 0x1.fffffffffffffp-1;
}

Mt19937Block::Mt19937Block(std::uint32_t seed)
{
    state_[0] = seed;
    for (std::uint32_t i = 1; i < kSize; ++i) state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
}

void Mt19937Block::refill()
{
    mt_refill(state_.data(), out_.data());
    next_ = 0;
}

// ---------------------------------------------------------------- the scans

ScanEngine::ScanEngine(const Tracks& tracks, const std::vector<std::uint32_t>& seeds)
    : t_(tracks), seeds_(seeds), weights_(tracks.time, tracks.ntime),
      moment_(static_cast<size_t>(std::max(tracks.ntime, 0)), Form{}),
      slope_tensor_(static_cast<size_t>(std::max(tracks.nsimu, 0)), Form{})
{
    const std::vector<double>& w = weights_.weight();
    for (int j = 0; j < t_.nsimu; ++j) {
        Form& slope = slope_tensor_[j];
        for (int t = 0; t < t_.ntime; ++t) {
            const double x = t_.x[j][t], y = t_.y[j][t], z = t_.z[j][t];
            if (!(std::fabs(x) <= kLargestMomentCoordinate && std::fabs(y) <= kLargestMomentCoordinate &&
                  std::fabs(z) <= kLargestMomentCoordinate))
                moments_ok_ = false;
            const Form p = {x * x, y * y, z * z, x * y, x * z, y * z};
            for (size_t i = 0; i < p.size(); ++i) {
                moment_[t][i] += p[i];
                slope[i] += w[t] * p[i];
            }
        }
        for (size_t i = 0; i < slope.size(); ++i) mean_slope_[i] += slope[i];
    }
    for (Form& m : moment_)
        for (double& v : m) v /= t_.nsimu;
}

double ScanEngine::moment_mobility(const Form& form) const
{
    std::vector<double> curve(moment_.size());
    for (size_t t = 0; t < curve.size(); ++t) curve[t] = contract(form, moment_[t]);
    return t_.factor * regression_slope(t_.time, curve.data(), t_.ntime);
}

double ScanEngine::projected_mobility(const Vec3& u, std::vector<double>& slopes) const
{
    std::vector<double> mean;
    project_squares(t_.x, t_.y, t_.z, t_.nsimu, t_.ntime, u, weights_, mean, slopes);
    return t_.factor * regression_slope(t_.time, mean.data(), t_.ntime);
}

// Each resample is the mean slope of nsimu trajectories drawn with replacement.
// A resample that draws a slope that is no finite number has a mean curve with
// such a value, whose fit gives no number.
void ScanEngine::draw_block(std::uint32_t seed, const std::vector<double>& slopes, int thread, int nthreads,
                            double* resample_mob) const
{
    const int n = static_cast<int>(slopes.size());
    const double* const slope = slopes.data();
    Mt19937Block gen(seed);
    const auto [first, count] = block_of(t_.nsamp, thread, nthreads);
    std::array<int, kPairsPerBlock> idx;
    for (int k = first; k < first + count; ++k) {
        double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;  // four chains of additions side by side
        for (int left = n, got = 0; left > 0; left -= got) {
            const std::uint32_t* pairs = gen.pairs(left, got);
            draw_indices(pairs, got, n, idx.data());
            int i = 0;
            for (; i + 4 <= got; i += 4) {
                s0 += slope[idx[i]];
                s1 += slope[idx[i + 1]];
                s2 += slope[idx[i + 2]];
                s3 += slope[idx[i + 3]];
            }
            for (; i < got; ++i) s0 += slope[idx[i]];
        }
        const double sum = (s0 + s1) + (s2 + s3);
        resample_mob[k] = std::isfinite(sum) ? t_.factor * (sum / n) : std::numeric_limits<double>::quiet_NaN();
    }
}

// The directions run in one parallel region; each thread works out every
// direction's trajectory slopes itself, so no thread waits for another. Where
// the moment form is unreliable (rounding level, or positions too large or not
// finite) a direction is projected position by position, as the literal
// procedure does, and bootstrapped on its own.
void ScanEngine::treat(const std::vector<Vec3>& dirs, std::vector<double>& mob, std::vector<double>& err) const
{
    const size_t nd = dirs.size(), ns = static_cast<size_t>(t_.nsamp);
    mob.assign(nd, 0.0);
    err.assign(nd, 0.0);
    std::vector<double> resample(nd * ns);  // every entry is written before it is read
    if (weights_.fit() != Fit::slope) {
        // The time grid decides every fit alone: no draws are needed. Each fit
        // still says why it cannot fit, as many times as the literal procedure.
        std::vector<double> unused;
        for (size_t d = 0; d < nd; ++d) {
            for (size_t k = 0; k < ns; ++k)
                resample[d * ns + k] = t_.factor * regression_slope(t_.time, t_.time, t_.ntime);
            mob[d] = moments_ok_ ? moment_mobility(quadratic_form(dirs[d])) : projected_mobility(dirs[d], unused);
            err[d] = half_spread({resample.begin() + d * ns, resample.begin() + (d + 1) * ns}, kSentinel);
        }
        return;
    }
    const double largest = std::max({mean_slope_[0], mean_slope_[1], mean_slope_[2]});
    // Each thread's slopes along a direction, allocated here: an allocation that
    // failed inside the parallel region could not be reported.
    std::vector<std::vector<double>> thread_slopes(static_cast<size_t>(omp_get_max_threads()),
                                                   std::vector<double>(slope_tensor_.size()));
    std::vector<char> projected(nd, 1);
    for (size_t d = 0; d < nd && moments_ok_; ++d) {
        const Form form = quadratic_form(dirs[d]);
        mob[d] = moment_mobility(form);
        projected[d] = !(contract(form, mean_slope_) > kRoundingLevel * largest);
    }
#pragma omp parallel
    {
        const int thread = omp_get_thread_num(), nthreads = omp_get_num_threads();
        const std::uint32_t base = thread_base(seeds_, thread);
        std::vector<double>& slopes = thread_slopes[static_cast<size_t>(thread)];
        for (size_t d = 0; d < nd; ++d) {
            if (projected[d]) continue;
            const Form form = quadratic_form(dirs[d]);
            for (size_t j = 0; j < slopes.size(); ++j) slopes[j] = contract(form, slope_tensor_[j]);
            draw_block(base + static_cast<std::uint32_t>(d), slopes, thread, nthreads, &resample[d * ns]);
        }
    }
    std::vector<double> slopes;
    for (size_t d = 0; d < nd; ++d) {
        if (!projected[d]) continue;
        mob[d] = projected_mobility(dirs[d], slopes);
#pragma omp parallel
        draw_block(thread_base(seeds_, omp_get_thread_num()) + static_cast<std::uint32_t>(d), slopes,
                   omp_get_thread_num(), omp_get_num_threads(), &resample[d * ns]);
    }
    for (size_t d = 0; d < nd; ++d)
        err[d] = half_spread({resample.begin() + d * ns, resample.begin() + (d + 1) * ns}, kSentinel);
}

}  // namespace mob_engine
