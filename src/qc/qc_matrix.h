// The results file an engine's input saves its numbers in, and its reader.
//
// The file is a sequence of named blocks of numbers. Each block is a header line
//
//     NAME ROWS COLS
//
// (NAME a word of letters, digits and underscores; ROWS and COLS whole numbers
// from 1 to 100000), followed by ROWS lines of COLS numbers separated by blanks.
// Numbers are written with every digit needed to read them back exactly (17
// significant digits); a number that is not finite is refused. A vector is a
// column (ROWS x 1), a count or an energy a 1 x 1 block. Nothing else may stand
// in the file: no blank lines, no comments. An example, a 2 x 2 overlap matrix
// and a count:
//
//     overlap 2 2
//     1.0 0.25
//     0.25 1.0
//     nbf 1 1
//     2
#pragma once

#include <Eigen/Dense>

#include <map>
#include <string>

namespace qc {

class MatrixFile {
public:
    // Reads every block of the file; a file that cannot be read or breaks the
    // format above ends the run with a message naming the file, line and block.
    explicit MatrixFile(std::string path);

    const std::string& path() const { return path_; }
    bool has(const std::string& name) const { return blocks_.count(name) > 0; }

    // The block as it is; a missing block ends the run, as do the shape checks of
    // the accessors below (a size of -1 takes any size).
    const Eigen::MatrixXd& block(const std::string& name) const;
    Eigen::MatrixXd matrix(const std::string& name, int rows, int cols) const;
    // A square matrix of n x n, equal to its transpose within `tolerance` times
    // its largest entry (and at least `tolerance`).
    Eigen::MatrixXd symmetric(const std::string& name, int n, double tolerance) const;
    // A column of n numbers.
    Eigen::VectorXd vector(const std::string& name, int n) const;
    double scalar(const std::string& name) const;
    // A 1 x 1 block holding a whole number from lo to hi.
    int count(const std::string& name, int lo, int hi) const;

private:
    std::string path_;
    std::map<std::string, Eigen::MatrixXd> blocks_;
};

}  // namespace qc
