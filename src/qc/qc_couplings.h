// The couplings file as the quantum-chemistry stage reads and fills it: its class
// lines found by the column names of their header comment, the lambda line and
// the carrier line; the filled text keeps every other line byte for byte.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace qc {

// One class line: the numbers the stage needs and where the V_meV column stands.
struct ClassRow {
    int line = 0;  // index into CouplingsText::lines
    int cls = 0, mol_i = 0, mol_j = 0;  // from 1
    std::array<int, 3> cell{};
    double d_centre = -1;  // Angstrom; -1 when the file has no such column
    size_t v_begin = 0, v_end = 0;  // the V_meV token in the line
};

struct CouplingsText {
    std::string file;
    std::vector<std::string> lines;  // without their newlines
    bool final_newline = true;
    std::vector<ClassRow> rows;      // in the file's order
    int lambda_line = -1;            // index of "lambda_meV = ...", -1 when absent
    std::string carrier;             // "hole" or "electron" from "carrier = ..."; empty when absent
};

// Reads the couplings file; ends the run (module qc) when it cannot be read, has
// no header naming the columns class, mol_i, mol_j, na, nb, nc and V_meV, or a
// class line that does not fit that header.
CouplingsText read_couplings_text(const std::string& file);

// What the stage puts into the file. A value that is not a number is left as
// the file has it.
struct Filling {
    std::vector<double> V_meV;          // [rows] in the order of CouplingsText::rows
    double lambda_meV = 0;              // written when finite
    std::vector<std::string> comments;  // lines written after the lambda line, each starting "# kelta_qc"
    std::vector<double> site_meV;       // [molecules]; empty: the site lines stay as they are
};

// The filled file: the V_meV tokens and the lambda line replaced, the comment and
// site lines of an earlier filling replaced by the new ones, every other line as it was.
std::string filled_text(const CouplingsText& c, const Filling& f);

}  // namespace qc
