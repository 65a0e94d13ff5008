// Symmetry operations: parsing an operation string and expanding the
// asymmetric unit to the full cell (space group P1).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <sstream>

#include "fileio.h"

namespace {
// One shift into [0, 1), not a floor: -1.2 becomes -0.2.
double wrap_once(double v)
{
    if (v < 0.0) return v + 1.0;
    if (v >= 1.0) return v - 1.0;
    return v;
}

// The numeric form: twelve numbers, row by row, each row's translation last.
void parse_numeric_operation(const std::string& op, Mat3& R, Vec3& t)
{
    std::istringstream in(op);
    in.imbue(std::locale::classic());
    for (int k = 0; k < 3; ++k) {
        for (int j = 0; j < 3; ++j)
            if (!(in >> R[k][j])) return;
        if (!(in >> t[k])) return;
    }
}

// One component such as "-x+1/2" into row R[k] and t[k]. A number overwrites
// the translation rather than adding to it, and a fraction takes its numerator
// truncated to an integer.
void parse_component(const std::string& comp, Vec3& row, double& t)
{
    double sign = 1.0;
    bool divide = false;
    double numerator = 0.0;
    const char* p = comp.c_str();
    while (*p) {
        const char c = *p;
        if (c == '+' || c == '-') {
            sign = c == '+' ? 1.0 : -1.0;
        } else if (c == 'x' || c == 'X' || c == 'y' || c == 'Y' || c == 'z' || c == 'Z') {
            const int axis = (c == 'x' || c == 'X') ? 0 : (c == 'y' || c == 'Y') ? 1 : 2;
            row[axis] = sign;
        } else if (c == '/') {
            divide = true;
        } else if (c >= '1' && c <= '9') {
            char* end = nullptr;
            const double v = std::strtod(p, &end);
            if (divide) {
                t = sign * (numerator / v);
                divide = false;
            } else {
                t = v;
                numerator = std::trunc(v);  // an integer even when it is too large for one
            }
            p = end;
            continue;
        } else if (c == '0' || c == '.') {
            char* end = nullptr;
            const double v = std::strtod(p, &end);
            t = sign * v;
            p = end > p ? end : p + 1;  // a lone "." is no number
            continue;
        }
        ++p;
    }
}
}  // namespace

void FileIO::ParseTransformString(const std::string& op, Mat3& R, Vec3& t)
{
    R = {};
    t = {};
    const bool has_comma = op.find(',') != std::string::npos;
    const bool has_space = op.find(' ') != std::string::npos;
    if (!has_comma && has_space) {
        parse_numeric_operation(op, R, t);
    } else if (has_comma) {
        const std::string s = RemoveWhiteSpaceUnderscore(op);
        size_t start = 0;
        for (int k = 0; k < 3 && start <= s.size(); ++k) {
            size_t end = s.find(',', start);
            if (end == std::string::npos) end = s.size();
            parse_component(s.substr(start, end - start), R[k], t[k]);
            start = end + 1;
        }
    }
    // Neither comma nor space (a stray "loop_" taken as an operation): all zero.
    for (double& v : t) v = wrap_once(v);
}

namespace {
void print_operation(const std::string& op, const Mat3& R, const Vec3& t)
{
    std::cout << ">> operations: " << op << "\n" << "matrix:\n";
    for (int k = 0; k < 3; ++k) {
        for (int j = 0; j < 3; ++j) {
            std::cout.width(4);
            std::cout << R[k][j];
        }
        std::cout << "\n";
    }
    std::cout << "vector: " << t[0] << " " << t[1] << " " << t[2] << "\n";
    std::cout << "-------------------\n";
}

// Marks every later atom closer than 0.001 (fractional length, no metric) to an
// earlier unmarked one, through one shift of each component; returns the count.
int mark_overlaps(const std::vector<double>& x_s, int n, std::vector<char>& dup)
{
    int count = 0;
    for (int i = 0; i < n; ++i) {
        if (dup[i]) continue;
        for (int j = i + 1; j < n; ++j) {
            if (dup[j]) continue;
            double r2 = 0.0;
            for (int d = 0; d < 3; ++d) {
                double v = x_s[3 * j + d] - x_s[3 * i + d];
                if (v > 0.5)
                    v -= 1.0;
                else if (v < -0.5)
                    v += 1.0;
                r2 += v * v;
            }
            if (r2 < 1e-06) {
                dup[j] = 1;
                ++count;
            }
        }
    }
    return count;
}
}  // namespace

void FileIO::make_spacegroup_P1(int use_fractional)
{
    const int n0 = cif_natoms;
    const int n = n0 * static_cast<int>(symm_ops.size());
    std::vector<int> types(static_cast<size_t>(n));
    std::vector<double> radius(static_cast<size_t>(n)), x_s(3 * static_cast<size_t>(n)), x(3 * static_cast<size_t>(n));
    // The Cartesian mode transforms cif_x and leaves the fractional output (which
    // the overlap test reads) at zero; the reader always uses the fractional mode.
    const std::vector<double>& src = use_fractional ? cif_x_s : cif_x;
    std::vector<double>& dst = use_fractional ? x_s : x;

    for (size_t k = 0; k < symm_ops.size(); ++k) {
        Mat3 R;
        Vec3 t;
        ParseTransformString(symm_ops[k], R, t);
        if (flag_detail_print) print_operation(symm_ops[k], R, t);
        for (int i = 0; i < n0; ++i) {
            const size_t o = k * static_cast<size_t>(n0) + static_cast<size_t>(i);
            types[o] = cif_atypes[i];
            radius[o] = cif_nw_radius[i];
            const double* v = &src[3 * static_cast<size_t>(i)];
            for (int r = 0; r < 3; ++r)
                dst[3 * o + r] = wrap_once(R[r][0] * v[0] + R[r][1] * v[1] + R[r][2] * v[2] + t[r]);
        }
    }

    std::vector<char> dup(static_cast<size_t>(n), 0);
    const int overlapped = mark_overlaps(x_s, n, dup);
    if (overlapped > 0) {
        std::cout << "WARNING: Overlapped atoms detected and to be removed\n"
                  << "         Number of overlapped atoms is " << overlapped << "\n"
                  << "         Number of remaining atoms is " << n - overlapped << "\n";
    }
    cif_atypes.clear();
    cif_nw_radius.clear();
    cif_x_s.clear();
    cif_x.clear();
    for (int o = 0; o < n; ++o) {
        if (dup[o]) continue;
        cif_atypes.push_back(types[o]);
        cif_nw_radius.push_back(radius[o]);
        for (int r = 0; r < 3; ++r) {
            cif_x_s.push_back(x_s[3 * o + r]);
            cif_x.push_back(x[3 * o + r]);
        }
    }
    cif_natoms = n - overlapped;
}
