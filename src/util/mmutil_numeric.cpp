// Least squares, quantiles, the bootstrap generator, sorting and 3x3 algebra.
#include "mmutil.h"

#include <Eigen/Eigenvalues>

#include <cmath>
#include <ctime>
#include <cstdlib>

// ---------------------------------------------------------------- regression

int LinearRegression(const double* x, const double* y, int n, double* a, double* b, double* s)
{
    if (n < 3) {
        std::fflush(stdout);
        std::fprintf(stderr, "Not enough data [%d] (at least n > 2)!\n", n);
        *a = *b = *s = 0.0;
        return -1;
    }
    double sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    for (int i = 0; i < n; ++i) {
        sx += x[i];
        sy += y[i];
        sxx += x[i] * x[i];
        syy += y[i] * y[i];
        sxy += x[i] * y[i];
    }
    const double d = n * sxx - sx * sx;
    if (!(std::fabs(d) > 1.11022302e-16)) {
        *a = *b = *s = 0.0;
        return 0;
    }
    *b = (n * sxy - sx * sy) / d;
    *a = (sy - *b * sx) / n;
    const double sxy2 = sxy - sx * sy / n;
    const double syy2 = syy - sy * sy / n;
    *s = std::sqrt((syy2 - *b * sxy2) / (n - 2));
    return 0;
}

double quantile_sorted(const std::vector<double>& v, double p)
{
    const double h = p * static_cast<double>(v.size() - 1);
    const size_t lo = static_cast<size_t>(h);
    return v[lo] + (h - static_cast<double>(lo)) * (v[lo + 1] - v[lo]);
}

double regression_slope(const double* x, const double* y, int n)
{
    double a, b, s;
    LinearRegression(x, y, n, &a, &b, &s);
    return b;
}

// ---------------------------------------------------------------- random numbers
// Two combined multiplicative congruential generators behind a shuffle table. The shuffle
// table is not initialised by a non-negative seed, so the first draws of the
// process run on the all-zero table; later seedings continue from the table the
// earlier draws left. That is how the bootstrap has always behaved.

namespace {
constexpr int64_t IM1 = 2147483563, IM2 = 2147483399, IMM1 = IM1 - 1;
constexpr int64_t IA1 = 40014, IA2 = 40692, IQ1 = 53668, IQ2 = 52774, IR1 = 12211, IR2 = 3791;
constexpr int NTAB = 32;
constexpr int64_t NDIV = 1 + IMM1 / NTAB;
constexpr double AM = 1.0 / IM1, RNMX = 1.0 - 1.2e-7;

struct Ran2State {
    int64_t idum = 1000;
    int64_t idum2 = 123456789;
    int64_t iy = 0;
    std::array<int64_t, NTAB> iv{};
};
Ran2State g_rng;  // the process-wide generator
}  // namespace

double ran2(int64_t* idum)
{
    int64_t k;
    if (*idum <= 0) {
        *idum = std::max<int64_t>(-*idum, 1);
        g_rng.idum2 = *idum;
        for (int j = NTAB + 7; j >= 0; --j) {
            k = *idum / IQ1;
            *idum = IA1 * (*idum - k * IQ1) - k * IR1;
            if (*idum < 0) *idum += IM1;
            if (j < NTAB) g_rng.iv[j] = *idum;
        }
        g_rng.iy = g_rng.iv[0];
    }
    k = *idum / IQ1;
    *idum = IA1 * (*idum - k * IQ1) - k * IR1;
    if (*idum < 0) *idum += IM1;
    k = g_rng.idum2 / IQ2;
    g_rng.idum2 = IA2 * (g_rng.idum2 - k * IQ2) - k * IR2;
    if (g_rng.idum2 < 0) g_rng.idum2 += IM2;
    const int64_t j = g_rng.iy / NDIV;
    g_rng.iy = g_rng.iv[j] - g_rng.idum2;
    g_rng.iv[j] = *idum;
    if (g_rng.iy < 1) g_rng.iy += IMM1;
    const double temp = AM * static_cast<double>(g_rng.iy);
    return temp > RNMX ? RNMX : temp;
}

void init_random_seed()
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    g_rng.idum = std::rand();
}

double randUniform() { return ran2(&g_rng.idum); }

void reset_random_state(int64_t seed)
{
    g_rng = Ran2State{};
    g_rng.idum = seed;
}

// ---------------------------------------------------------------- sorting

void quickSort_d(const double* keys, int* idx, int n)
{
    if (n > 1) q_sort2(keys, idx, 0, n - 1);
}

void q_sort2(const double* keys, int* idx, int left, int right)
{
    for (;;) {
        const double pivot = keys[idx[(left + right) / 2]];
        int i = left, j = right;
        while (i < j) {
            while (keys[idx[i]] < pivot) ++i;
            while (keys[idx[j]] > pivot) --j;
            if (j < i) break;
            std::swap(idx[i], idx[j]);
            ++i;
            --j;
        }
        if (j > left) q_sort2(keys, idx, left, j);
        if (i >= right) return;
        left = i;
    }
}

// ---------------------------------------------------------------- 3x3 helpers

namespace {
// The numbers the error header of the mmutil module prints ("line N").
constexpr int kLineOverlap = 593;   // invert's result would overwrite its input
constexpr int kLineSingular = 600;  // a matrix with no inverse
}  // namespace

void invert(const Mat3& m, Mat3& inv)
{
    if (&m == &inv) fatal("mmutil", kLineOverlap, -1, "invert - Result matrix overlaps input\n");
    const double det = determinant(m);
    if (std::fabs(det) < kSingularDeterminant) fatal("mmutil", kLineSingular, -1, "Determinant of matrix is zero.\n");
    Mat3 cof;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
            cof[i][j] = m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1];
        }
    const double r = 1.0 / det;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) inv[i][j] = cof[j][i] * r;
}

double determinant(const Mat3& m)
{
    double det = 0.0;
    det += m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]);
    det += m[0][1] * (m[1][2] * m[2][0] - m[1][0] * m[2][2]);
    det += m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    return det;
}

Vec3 mat_vec_mul(const Mat3& m, const Vec3& v)
{
    Vec3 out;
    for (size_t i = 0; i < out.size(); ++i) out[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return out;
}

void mat_vec_mul_all(const Mat3& m, const std::vector<double>& in, std::vector<double>& out)
{
    out.resize(in.size());
    for (size_t a = 0; a < in.size() / 3; ++a) set_vec3_at(out, a, mat_vec_mul(m, vec3_at(in, a)));
}

Vec3 vec3_at(const std::vector<double>& x, size_t i) { return {x[3 * i], x[3 * i + 1], x[3 * i + 2]}; }

void set_vec3_at(std::vector<double>& x, size_t i, const Vec3& v)
{
    for (size_t d = 0; d < v.size(); ++d) x[3 * i + d] = v[d];
}

void symmetric_eigen(const Mat3& m, Vec3& value, Mat3& axes)
{
    Eigen::Matrix3d a;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) a(i, j) = m[i][j];
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eig(a);
    for (int c = 0; c < 3; ++c) {
        value[c] = eig.eigenvalues()(2 - c);
        Eigen::Vector3d v = eig.eigenvectors().col(2 - c);
        Eigen::Index big = 0;
        v.cwiseAbs().maxCoeff(&big);
        if (v(big) < 0) v = -v;
        for (int r = 0; r < 3; ++r) axes[r][c] = v(r) == 0.0 ? 0.0 : v(r);  // no -0
    }
}
