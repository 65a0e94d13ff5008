// Text, file and numeric helpers shared by every module, plus the one fatal path.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;  // row-major: m[row][col]

// ---------------------------------------------------------------- ending a run
// Every way out of a run before its end throws this; main() catches it once and
// returns the status (-1 reaches the shell as 255).
class RunExit : public std::exception {
public:
    explicit RunExit(int status) : status_(status) {}
    int status() const { return status_; }
    const char* what() const noexcept override { return "kelta_mob run ended early"; }

private:
    int status_;
};

// Ends the run without a message (help text, rejected options, cancelled scans).
[[noreturn]] void end_run(int status);

// Prints "\nERROR  transport : <module> : line <line> : \n" on standard output,
// then out_text on standard output and err_text on standard error, and ends the
// run with the given status.
[[noreturn]] void fatal(const char* module, int line, int status, const std::string& out_text,
                        const std::string& err_text = {});

// The same without the header, for the messages that stand alone.
[[noreturn]] void fatal_plain(int status, const std::string& out_text, const std::string& err_text = {});

// The common failure of every file open: header, then "Failed to open input file "
// and the name on standard error, status -1 (also used for files being written).
[[noreturn]] void fatal_open(const char* module, int line, const std::string& name);

// printf into a std::string.
std::string strprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// ---------------------------------------------------------------- files
struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// fopen wrapper; a null File when the file cannot be opened, or when it is to be
// read and is no regular file.
File open_file(const std::string& name, const char* mode);
bool is_regular_file(const std::string& name);

// Reads one line as fgets would with a buffer of `size` bytes; false at end of file.
bool read_line(std::FILE* f, std::string& line, int size);

bool file_exists(const char* name);

// Whether all of `text` is one decimal integer that a long holds; then v is it.
bool parse_long(const std::string& text, long& v);

// The last component of argv[0], for messages; `fallback` when there is none.
std::string program_name(const char* argv0, const char* fallback);
int create_directory(const char* path);

// ---------------------------------------------------------------- checked output
// A stream whose every write is checked: the first failure is kept with the
// system's error number, and close() reports it, or the failure of the flush and
// the close themselves. Takes ownership of f, which may be null.
class CheckedStream {
public:
    explicit CheckedStream(std::FILE* f = nullptr) : f_(f) {}
    ~CheckedStream();
    CheckedStream(const CheckedStream&) = delete;
    CheckedStream& operator=(const CheckedStream&) = delete;

    void print(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void vprint(const char* fmt, std::va_list ap);
    void write(std::string_view text);
    // Flushes and closes; the system's reason for the first failure ("No space
    // left on device"), or an empty string when everything was written.
    std::string close();

private:
    void failed(int err);
    std::FILE* f_;
    int error_ = 0;  // errno of the first failed write
};

// An output file. It is written under a temporary name beside its final one
// (".NAME.PID.tmp" in the same directory) and renamed over NAME only when every
// write, the flush and the close succeeded: a full disk or an interrupted run
// never leaves a cut file, and an earlier complete version of NAME stays until
// the new one is whole. SIGINT and SIGTERM remove the temporary files of the
// moment before the process ends.
class OutputFile {
public:
    // Creates the temporary file; open() tells whether that worked. NAME being
    // there as something other than a regular file it may replace (a directory,
    // a read-only file) counts as a failed open.
    explicit OutputFile(std::string name);
    // The same for the run: a failed open ends it with the error header (module,
    // line), then open_message and NAME on standard error, status -1; commit()
    // reports under the same module and line.
    OutputFile(std::string name, const char* module, int line,
               const char* open_message = "Failed to open input file ");
    ~OutputFile();  // not finished (the run ended early): the temporary file goes
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool open() const { return open_error_ == 0; }
    std::string open_reason() const;
    void print(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void write(std::string_view text) { out_.write(text); }
    // Closes and renames; an empty string, or the reason the file could not be
    // completed (its temporary file is then removed). Safe inside threads.
    std::string finish();
    // finish() for the run: a failure ends it with the error header and "Failed
    // to write output file NAME: <reason>" on standard error, status -1.
    void commit();
    const std::string& name() const { return name_; }

private:
    std::FILE* create();  // the temporary file, or null with open_error_ set
    std::string name_, temp_;
    const char* module_ = "mmutil";
    int line_ = 0;
    int slot_ = -1;       // entry in the list the signal handler clears (-1: none)
    int open_error_ = 0;  // errno of a failed open
    CheckedStream out_;
    bool finished_ = false;
};

// The temporary name an OutputFile writes NAME under.
std::string temporary_name(const std::string& name);

// ---------------------------------------------------------------- text
std::string& trim(std::string& s);
std::string& sg_triml(std::string& s);
std::string& sg_trimr(std::string& s);
std::string& sg_trim(std::string& s);
void c_trim(char* s);
bool iequals(const std::string& a, const std::string& b);
bool my_strcasestr(const char* a, const char* b, int n);
bool tokenize(std::vector<std::string>& out, const char* str, const char* delims);
std::string RemoveWhiteSpaceUnderscore(const std::string& s);
std::string remove_filename_extension(const std::string& s);

// ---------------------------------------------------------------- numbers
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
// missing file or a line that is no number leaves it as it is.
void read_first_number(const char* name, double& value);

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
// m . x for every x, y, z triple of a flat array; out takes in's size.
void mat_vec_mul_all(const Mat3& m, const std::vector<double>& in, std::vector<double>& out);
// Atom i of a flat x, y, z array, and back.
Vec3 vec3_at(const std::vector<double>& x, size_t i);
void set_vec3_at(std::vector<double>& x, size_t i, const Vec3& v);

// Degrees to radians with the rounded pi the whole tool uses.
constexpr double kPi = 3.1415926535898;
