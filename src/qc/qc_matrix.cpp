#include "qc_matrix.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "mmutil.h"
#include "qc_errors.h"
#include "qc_engine.h"

namespace qc {

using namespace qc_error;

namespace {

constexpr long kMaxDimension = 100000;

std::vector<std::string> words(const std::string& line)
{
    std::vector<std::string> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
        const size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
        if (i > start) out.push_back(line.substr(start, i - start));
    }
    return out;
}

bool is_word(const std::string& s)
{
    if (s.empty()) return false;
    for (const char c : s)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
    return true;
}

bool parse_number(const std::string& text, double& v)
{
    errno = 0;
    char* end = nullptr;
    v = std::strtod(text.c_str(), &end);
    // Underflow to a denormal or zero is a number; overflow is not.
    return end == text.c_str() + text.size() && std::isfinite(v);
}

std::string shape_text(int rows, int cols)
{
    return (rows < 0 ? std::string("any") : std::to_string(rows)) + " x " + (cols < 0 ? std::string("any") : std::to_string(cols));
}
}  // namespace

MatrixFile::MatrixFile(std::string path) : path_(std::move(path))
{
    std::ifstream in;
    if (is_regular_file(path_)) in.open(path_);
    if (!in.is_open()) fatal(kModule, kLineResultsOpen, 1, "results file " + path_ + " cannot be read\n");
    const auto bad = [&](int line, const std::string& why) {
        fatal(kModule, kLineResultsFormat, 1, strprintf("%s line %d: ", path_.c_str(), line) + why + "\n");
    };
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        const std::vector<std::string> head = words(line);
        if (head.size() != 3 || !is_word(head[0])) bad(number, "'" + line + "' is no block header (NAME ROWS COLS)");
        const std::string& name = head[0];
        long rows = 0, cols = 0;
        if (!parse_long(head[1], rows) || !parse_long(head[2], cols) || rows < 1 || cols < 1 || rows > kMaxDimension ||
            cols > kMaxDimension)
            bad(number, strprintf("block %s: '%s %s' are no dimensions (two whole numbers from 1 to %ld)", name.c_str(),
                                  head[1].c_str(), head[2].c_str(), kMaxDimension));
        if (has(name)) bad(number, "a second block " + name);
        // The numbers are gathered as they are read, so a header that promises more
        // than the file holds costs no more memory than the file.
        std::vector<double> values;
        for (long r = 0; r < rows; ++r) {
            if (!std::getline(in, line))
                fatal(kModule, kLineResultsFormat, 1,
                      strprintf("%s: block %s ends after %ld of its %ld rows\n", path_.c_str(), name.c_str(), r, rows));
            ++number;
            const std::vector<std::string> row = words(line);
            if (static_cast<long>(row.size()) != cols)
                bad(number, strprintf("block %s, row %ld: %ld numbers expected, %zu found", name.c_str(), r + 1, cols, row.size()));
            for (const std::string& w : row) {
                double v = 0;
                if (!parse_number(w, v))
                    bad(number, strprintf("block %s, row %ld: '%s' is no finite number", name.c_str(), r + 1, w.c_str()));
                values.push_back(v);
            }
        }
        blocks_[name] = Eigen::Map<const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>(
            values.data(), rows, cols);
    }
    if (in.bad()) fatal(kModule, kLineResultsOpen, 1, "results file " + path_ + " cannot be read\n");
}

const Eigen::MatrixXd& MatrixFile::block(const std::string& name) const
{
    const auto it = blocks_.find(name);
    if (it == blocks_.end()) fatal(kModule, kLineResultsContent, 1, path_ + ": no block " + name + "\n");
    return it->second;
}

Eigen::MatrixXd MatrixFile::matrix(const std::string& name, int rows, int cols) const
{
    const Eigen::MatrixXd& m = block(name);
    if ((rows >= 0 && m.rows() != rows) || (cols >= 0 && m.cols() != cols))
        fatal(kModule, kLineResultsContent, 1,
              strprintf("%s: block %s is %s, expected %s\n", path_.c_str(), name.c_str(),
                        shape_text(static_cast<int>(m.rows()), static_cast<int>(m.cols())).c_str(),
                        shape_text(rows, cols).c_str()));
    return m;
}

Eigen::MatrixXd MatrixFile::symmetric(const std::string& name, int n, double tolerance) const
{
    const Eigen::MatrixXd& m = block(name);
    if (m.rows() != m.cols())
        fatal(kModule, kLineResultsContent, 1,
              strprintf("%s: block %s is %ld x %ld, not square\n", path_.c_str(), name.c_str(), static_cast<long>(m.rows()),
                        static_cast<long>(m.cols())));
    matrix(name, n, n);
    const double limit = tolerance * std::max(1.0, m.cwiseAbs().maxCoeff());
    Eigen::Index i = 0, j = 0;
    const double worst = (m - m.transpose()).cwiseAbs().maxCoeff(&i, &j);
    if (worst > limit)
        fatal(kModule, kLineResultsContent, 1,
              strprintf("%s: block %s is not symmetric: entries (%ld, %ld) and (%ld, %ld) differ by %.3g\n", path_.c_str(),
                        name.c_str(), static_cast<long>(i + 1), static_cast<long>(j + 1), static_cast<long>(j + 1),
                        static_cast<long>(i + 1), worst));
    return m;
}

Eigen::VectorXd MatrixFile::vector(const std::string& name, int n) const { return matrix(name, n, 1).col(0); }

double MatrixFile::scalar(const std::string& name) const { return matrix(name, 1, 1)(0, 0); }

int MatrixFile::count(const std::string& name, int lo, int hi) const
{
    const double v = scalar(name);
    if (!(v >= lo && v <= hi && v == std::floor(v)))
        fatal(kModule, kLineResultsContent, 1,
              strprintf("%s: block %s = %.17g is no whole number from %d to %d\n", path_.c_str(), name.c_str(), v, lo, hi));
    return static_cast<int>(v);
}

}  // namespace qc
