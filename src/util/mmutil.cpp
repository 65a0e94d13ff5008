#include "mmutil.h"

#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <algorithm>
#include <utility>

// ---------------------------------------------------------------- ending a run

void end_run(int status)
{
    throw RunExit(status);
}

void fatal(const char* module, int line, int status, const std::string& out_text,
           const std::string& err_text)
{
    std::printf("\nERROR  transport : %s : line %i : \n", module, line);
    fatal_plain(status, out_text, err_text);
}

void fatal_plain(int status, const std::string& out_text, const std::string& err_text)
{
    std::fputs(out_text.c_str(), stdout);
    std::fflush(stdout);
    if (!err_text.empty()) {
        std::fputs(err_text.c_str(), stderr);
        std::fflush(stderr);
    }
    throw RunExit(status);
}

void fatal_open(const char* module, int line, const std::string& name)
{
    fatal(module, line, -1, "", "Failed to open input file " + name + "\n");
}

std::string strprintf(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    std::string s(static_cast<size_t>(std::vsnprintf(nullptr, 0, fmt, ap)), '\0');
    va_end(ap);
    std::vsnprintf(s.data(), s.size() + 1, fmt, again);  // the terminator goes to s[size()]
    va_end(again);
    return s;
}

// ---------------------------------------------------------------- files

File open_file(const std::string& name, const char* mode)
{
    // An input that is no regular file (a directory, a pipe, /dev/zero) counts as
    // one that cannot be opened: reading it would fail or never end.
    if (mode[0] == 'r' && !is_regular_file(name)) return File();
    // "t" is a no-op on POSIX but the modes are kept as the tool documents them.
    return File(std::fopen(name.c_str(), mode));
}

bool is_regular_file(const std::string& name)
{
    struct stat st {};
    return stat(name.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool read_line(std::FILE* f, std::string& line, int size)
{
    std::vector<char> buf(static_cast<size_t>(size));
    if (!std::fgets(buf.data(), size, f)) return false;
    line.assign(buf.data());
    return true;
}

bool parse_long(const std::string& text, long& v)
{
    char* end = nullptr;
    errno = 0;
    v = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' && errno != ERANGE;
}

std::string program_name(const char* argv0, const char* fallback)
{
    const std::string s = argv0 ? argv0 : fallback;
    const size_t cut = s.find_last_of("/\\");
    return cut == std::string::npos ? s : s.substr(cut + 1);
}

bool file_exists(const char* name)
{
    if (!name) return false;
    return static_cast<bool>(open_file(name, "r"));
}

int create_directory(const char* path)
{
    struct stat st {};
    if (stat(path, &st) != 0) return mkdir(path, 0750);
    return 0;
}

// ---------------------------------------------------------------- text

namespace {
bool is_one_of(char c, const char* set)
{
    for (; *set; ++set)
        if (c == *set) return true;
    return false;
}

std::string& strip(std::string& s, const char* left, const char* right)
{
    s.erase(0, std::min(s.find_first_not_of(left), s.size()));
    s.erase(s.find_last_not_of(right) + 1);  // npos + 1 is 0: nothing is left
    return s;
}

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
}  // namespace

std::string& trim(std::string& s) { return strip(s, " \t", " \t\r\n"); }
std::string& sg_triml(std::string& s) { return strip(s, "\t \"'", ""); }
std::string& sg_trimr(std::string& s) { return strip(s, "", "\t\n\r \"'"); }

std::string& sg_trim(std::string& s)
{
    sg_triml(s);
    sg_trimr(s);
    std::erase(s, ' ');
    return s;
}

void c_trim(char* s)
{
    if (!s) return;
    const size_t b = std::strspn(s, " \t");
    size_t n = std::strlen(s + b);
    std::memmove(s, s + b, n + 1);
    // The right-hand pass never removes the first character, so "\n" stays "\n".
    while (n > 1 && is_one_of(s[n - 1], " \t\r\n")) s[--n] = '\0';
}

bool iequals(const std::string& a, const std::string& b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (upper(a[i]) != upper(b[i])) return false;
    return true;
}

bool my_strcasestr(const char* a, const char* b, int n)
{
    for (int k = 0; k < n; ++k) {
        if (lower(a[k]) != lower(b[k])) return false;
        if (a[k] == '\0') return true;  // both strings ended together
    }
    return true;
}

bool tokenize(std::vector<std::string>& out, const char* str, const char* delims)
{
    out.clear();
    if (!str || !delims) return false;
    std::string cur;
    for (const char* p = str; *p; ++p) {
        if (is_one_of(*p, delims)) {
            if (!cur.empty()) out.push_back(std::exchange(cur, {}));
        } else {
            cur += *p;
        }
    }
    if (!cur.empty()) out.push_back(std::move(cur));
    return true;
}

std::string RemoveWhiteSpaceUnderscore(const std::string& s)
{
    std::string r;
    for (char c : s)
        if (c != ' ' && c != '_') r += c;
    return r;
}

std::string remove_filename_extension(const std::string& s)
{
    const size_t dot = s.rfind('.');
    return dot == std::string::npos ? s : s.substr(0, dot);
}

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

void read_first_number(const char* name, double& value)
{
    const File f = open_file(name, "rt");
    if (!f) return;
    char line[128];
    if (std::fgets(line, sizeof line, f.get())) std::sscanf(line, "%lf", &value);
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

void invert(const Mat3& m, Mat3& inv)
{
    if (&m == &inv) fatal("mmutil", 593, -1, "invert - Result matrix overlaps input\n");
    const double det = determinant(m);
    if (std::fabs(det) < kSingularDeterminant) fatal("mmutil", 600, -1, "Determinant of matrix is zero.\n");
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
