// Numbers: 3-vectors and 3x3 matrices, the row-major table of the analyses,
// least squares, quantiles, the process-wide bootstrap generator, sorting.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;  // row-major: m[row][col]

// Allocates without value-initialising, so that a vector of doubles can be sized
// without touching its memory (the threads that fill it touch it first).
template <class T>
struct UninitializedAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = UninitializedAllocator<U>;
    };
    template <class U>
    void construct(U* p) noexcept
    {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args)
    {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// Row-major table of doubles: nrows rows of ncols entries.
class Table {
public:
    Table() = default;
    Table(int rows, int cols) { resize(rows, cols); }
    // rows x cols zeros.
    void resize(int rows, int cols)
    {
        allocate(rows, cols);
        std::fill(v_.begin(), v_.end(), 0.0);
    }
    // rows x cols entries of no particular value, for a caller that sets them all.
    void allocate(int rows, int cols)
    {
        nrows_ = rows;
        ncols_ = cols;
        v_ = decltype(v_)();  // the old rows go first: never copied, never held beside the new ones
        v_.resize(static_cast<size_t>(rows) * static_cast<size_t>(cols));
    }
    double* operator[](int r) { return v_.data() + static_cast<size_t>(r) * ncols_; }
    const double* operator[](int r) const { return v_.data() + static_cast<size_t>(r) * ncols_; }
    int rows() const { return nrows_; }
    int cols() const { return ncols_; }

private:
    int nrows_ = 0, ncols_ = 0;
    std::vector<double, UninitializedAllocator<double>> v_;
};

int LinearRegression(const double* x, const double* y, int n, double* intercept, double* slope,
                     double* stderr_out);
// The p-quantile (0 <= p < 1) of sorted values, interpolated between the order
// statistics; two values at least.
double quantile_sorted(const std::vector<double>& v, double p);

// The least-squares slope alone (LinearRegression's messages and zero rules).
double regression_slope(const double* x, const double* y, int n);

// The override files (temp.inp, delta.inp): when the file opens, a number read
// with "%lf" from its first line (at most 127 characters) replaces `value`; a
// missing file or a line that is no number leaves it as it is. Returns what the
// file held: absent (it did not open), no number (or no line at all), or a number.
enum class FirstNumber { absent, no_number, read };
FirstNumber read_first_number(const char* name, double& value, std::string* first_line = nullptr);

// Process-wide bootstrap generator (the only global state of the program).
void init_random_seed();
double randUniform();
double ran2(int64_t* idum);
// Restores the generator's start-of-process state and sets the seed; for tests.
void reset_random_state(int64_t seed);

void quickSort_d(const double* keys, int* idx, int n);
void q_sort2(const double* keys, int* idx, int left, int right);

// invert refuses a matrix whose determinant is smaller than this in magnitude.
constexpr double kSingularDeterminant = 1e-30;
void invert(const Mat3& m, Mat3& inv);
// The determinant by the first row's cofactors, as invert computes it.
double determinant(const Mat3& m);
inline double squared_length(const Vec3& v) { return v[0] * v[0] + v[1] * v[1] + v[2] * v[2]; }
inline double get_magnitude(const Vec3& v) { return std::sqrt(squared_length(v)); }
Vec3 mat_vec_mul(const Mat3& m, const Vec3& v);
// The eigenvalues of a symmetric matrix, largest first, and their unit axes (the
// columns of `axes`), each turned so that its largest component is positive:
// every principal axis either program prints follows this one rule.
void symmetric_eigen(const Mat3& m, Vec3& value, Mat3& axes);
// m . x for every x, y, z triple of a flat array; out takes in's size.
void mat_vec_mul_all(const Mat3& m, const std::vector<double>& in, std::vector<double>& out);
// Atom i of a flat x, y, z array, and back.
Vec3 vec3_at(const std::vector<double>& x, size_t i);
void set_vec3_at(std::vector<double>& x, size_t i, const Vec3& v);
