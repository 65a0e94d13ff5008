// CIF reader: a line walk that keeps identifier, space group, symmetry
// operations, cell and atom sites, then expands to P1 and separates molecules.
// It is not a CIF grammar: tags are found by substring and values must sit on
// the tag's own line after a space.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "fileio.h"
#include "fileio_errors.h"

using namespace fileio_error;

namespace {
constexpr size_t kRowMax = 1023;  // longest data row kept, as a 1024-byte line buffer holds

const char* const kBadAngle = "%s line %d: %s = %g is not an angle between 0 and 180 degrees\n";
const char* const kNoCell = "%s: the cell angles alpha = %g, beta = %g, gamma = %g admit no cell\n";
const char* const kTooManyAtoms =
    "%s: %d atom sites and %d symmetry operations make %.0f atoms, more than the %d a cell may hold\n";

bool contains(const std::string& s, const char* tag) { return s.find(tag) != std::string::npos; }
bool starts_with(const std::string& s, const char* p) { return s.rfind(p, 0) == 0; }

[[noreturn]] void not_enough_columns(int line, const std::string& row, int needed)
{
    fatal("fileio", line, -1,
          "Not enough columns: " + row + "\nAt least " + std::to_string(needed) +
              " columns are expected!\n");
}

// Splits a data row as a 1024-byte line buffer and strtok would.
std::vector<std::string> row_tokens(std::string& row)
{
    if (row.size() > kRowMax) row.resize(kRowMax);
    std::vector<std::string> tokens;
    tokenize(tokens, row.c_str(), " \t\r\n");
    return tokens;
}

class CifWalk {
public:
    CifWalk(FileIO& f, std::string file, std::vector<std::string> lines)
        : f_(f), file_(std::move(file)), lines_(std::move(lines))
    {
    }
    void run();
    int fract_columns() const { return fract_columns_; }

private:
    bool at_end() const { return i_ >= lines_.size(); }
    const std::string& line() const { return lines_[i_]; }
    int line_number() const { return static_cast<int>(i_) + 1; }
    void skip_text_field();
    bool read_tag(const std::string& s);
    void read_loop();
    void read_operations(bool with_id);
    void check_operation(const std::string& op) const;
    void warn_if_no_operation(const std::string& op);
    int count_headers(const std::vector<const char*>& wanted, std::vector<int>& columns);
    void read_atom_site_loop();
    void read_bond_loop();

    FileIO& f_;
    const std::string file_;
    std::vector<std::string> lines_;  // already trimmed
    size_t i_ = 0;
    int fract_columns_ = 0;
    bool warned_operation_ = false;
};

void CifWalk::run()
{
    while (!at_end()) {
        const std::string& s = line();
        if (!s.empty() && s[0] == ';') {
            skip_text_field();
        } else if (s.size() >= 5 && iequals(s.substr(0, 5), "data_")) {
            f_.identifier = s.substr(5);
            ++i_;
        } else {
            const bool opens_loop = !read_tag(s) && contains(s, "loop_");
            ++i_;
            if (opens_loop) read_loop();
        }
    }
}

// A ';' line opens a text field that the next ';' line closes; a tag inside
// one (a quoted cell in a publication text) must not be read.
void CifWalk::skip_text_field()
{
    ++i_;
    while (!at_end() && !starts_with(line(), ";")) ++i_;
    if (!at_end()) ++i_;
}

// The first listed tag the line contains decides; the _alt name is tested
// before its own prefix. Returns whether a tag was taken.
bool CifWalk::read_tag(const std::string& s)
{
    const size_t blank = s.find(' ');
    std::string value = blank == std::string::npos ? "" : s.substr(blank + 1);
    if (contains(s, "_chemical_name_common")) {
        f_.chemical_name = trim(value);
        f_.identifier = f_.chemical_name;
        return true;
    }
    if (contains(s, "_space_group_IT_number")) {
        f_.spacegroup_number = std::atoi(value.c_str());
        return true;
    }
    for (const char* tag : {"_symmetry_space_group_name_H-M_alt", "_symmetry_space_group_name_H-M",
                            "_space_group_name_H-M_alt"}) {
        if (contains(s, tag)) {
            f_.spacegroup_name = trim(value);
            return true;
        }
    }
    static const std::array<const char*, 6> cell_tags = {"_cell_length_a",    "_cell_length_b",   "_cell_length_c",
                                                         "_cell_angle_alpha", "_cell_angle_beta", "_cell_angle_gamma"};
    for (size_t k = 0; k < cell_tags.size(); ++k) {
        if (contains(s, cell_tags[k])) {
            const double v = std::atof(value.c_str());  // "12.345(6)" reads as 12.345
            if (k < 3) check_finite(file_, line_number(), cell_tags[k], v, kMaxLength);
            if (k >= 3 && !(v > 0.0 && v < 180.0))
                fatal("fileio", kLineCellAngle, -1, strprintf(kBadAngle, file_.c_str(), line_number(), cell_tags[k], v));
            f_.cell_latt[k] = v;
            return true;
        }
    }
    return false;
}

void CifWalk::read_loop()
{
    if (at_end()) return;
    bool with_id = false;
    if (contains(line(), "_symmetry_equiv_pos_site_id")) {
        with_id = true;
        ++i_;
        if (at_end()) return;
    }
    const std::string& s = line();
    if (contains(s, "_symmetry_equiv_pos_as_xyz") || contains(s, "_space_group_symop_operation_xyz")) {
        ++i_;
        read_operations(with_id);
    } else if (contains(s, "_atom_site")) {
        // Also the bond loops, whose first column _geom_bond_atom_site_label_1
        // contains "_atom_site": they lack coordinates and are walked past.
        read_atom_site_loop();
    } else if (contains(s, "_geom_bond") || contains(s, "_ccdc_geom")) {
        read_bond_loop();
    }
    // Any other loop: its lines go through the walk and match no tag. That
    // includes operations headed _space_group_symop_id (paracetamol_p21n_symopid):
    // only _symmetry_equiv_pos_site_id marks an id column.
}

// The list ends only at an empty line or a tag line, which the walk then reads.
// Most database files (benzene_pbca, c60_hydroquinone_r-3m, ...) put "loop_"
// right after the operations: it becomes one more operation (the zero
// operation) and the loop it opens is never entered. Ids are dropped up to the
// first blank ("1 +X,+Y,+Z" in tfa_phenylbithiophene_cmca).
void CifWalk::read_operations(bool with_id)
{
    while (!at_end() && !line().empty() && line()[0] != '_') {
        std::string op = line();
        if (with_id) {
            const size_t blank = op.find(' ');
            if (blank != std::string::npos) op.erase(0, blank + 1);
        }
        sg_trim(op);
        if (!op.empty()) {
            check_operation(op);
            warn_if_no_operation(op);
            f_.symm_ops.push_back(op);
        }
        ++i_;
    }
}

// Every number of an operation is bounded: a translation such as x+1e20 would
// put atoms where no bond search ends.
void CifWalk::check_operation(const std::string& op) const
{
    Mat3 R;
    Vec3 t;
    FileIO::ParseTransformString(op, R, t);
    for (int k = 0; k < 3; ++k) {
        check_finite(file_, line_number(), "symmetry operation " + op, t[k], kMaxCells);
        for (const double r : R[k]) check_finite(file_, line_number(), "symmetry operation " + op, r, kMaxCells);
    }
}

// A line of the list that names no coordinate in some component (the "loop_"
// after the operations, a row of the next loop) is still taken as an operation:
// it maps every atom onto one point, where one atom more may appear in the cell.
// Said once per file.
void CifWalk::warn_if_no_operation(const std::string& op)
{
    Mat3 R;
    Vec3 t;
    FileIO::ParseTransformString(op, R, t);
    for (const Vec3& row : R) {
        if (row != Vec3{0, 0, 0} || warned_operation_) continue;
        warned_operation_ = true;
        f_.warn(strprintf("%s line %d: '%s' is taken as a symmetry operation, though it is none (a component without "
                          "x, y or z): it maps the atoms onto a plane, line or point, and may add atoms to the cell\n",
                          file_.c_str(), line_number(), op.c_str()));
        return;
    }
}

// Numbers the header lines from 1 and notes, for each wanted tag, the last
// column whose header contains it (0 when none). Returns the header count.
int CifWalk::count_headers(const std::vector<const char*>& wanted, std::vector<int>& columns)
{
    columns.assign(wanted.size(), 0);
    int n = 0;
    while (!at_end() && starts_with(line(), "_")) {
        ++n;
        for (size_t w = 0; w < wanted.size(); ++w) {
            if (contains(line(), wanted[w])) {
                columns[w] = n;
                break;
            }
        }
        ++i_;
    }
    return n;
}

void CifWalk::read_atom_site_loop()
{
    // Occupancy, ADP type and isotropic displacement columns are known and unused.
    std::vector<int> col;
    count_headers({"_atom_site_label", "_atom_site_type_symbol", "_atom_site_fract_x",
                   "_atom_site_fract_y", "_atom_site_fract_z"},
                  col);
    int needed = 5;
    for (const int c : col) {
        if (c == 0) return;  // anisotropic and bond loops: not atoms
        needed = std::max(needed, c);
    }
    fract_columns_ = 3;
    // Rows end at an empty line, a "loop_" line or the end of the file; a tag
    // right after the rows is read as one more row. A row wrapped over two
    // lines (dimethylquinacridone_p21c_wrapped) ends the run here.
    while (!at_end() && !line().empty() && !starts_with(line(), "loop_")) {
        std::string row = line();
        const std::vector<std::string> tok = row_tokens(row);
        if (tok.size() < 5) not_enough_columns(kLineAtomColumns, row, 5);
        if (static_cast<int>(tok.size()) < needed) not_enough_columns(kLineAtomColumns, row, needed);
        for (int c = 2; c < 5; ++c)
            check_finite(file_, line_number(), "fractional coordinate of " + tok[col[0] - 1],
                         std::atof(tok[col[c] - 1].c_str()), kMaxCells);
        f_.cif_labels.push_back(tok[col[0] - 1]);
        f_.cif_symbols.push_back(tok[col[1] - 1]);
        f_.cif_fx.push_back(tok[col[2] - 1]);
        f_.cif_fy.push_back(tok[col[3] - 1]);
        f_.cif_fz.push_back(tok[col[4] - 1]);
        ++i_;
    }
}

// Bond loops that do not start with a label column. Nothing here uses them; a
// row must hold two labels, distance and symmetry (4 columns), and the CCDC
// bond type too (5), when the header declares that many. The rows also end at
// a tag line, since database files put _cod_database_code right after them.
void CifWalk::read_bond_loop()
{
    std::vector<int> col;
    const int headers = count_headers({"_geom_bond_atom_site_label_1", "_geom_bond_atom_site_label_2",
                                       "_geom_bond_distance", "_geom_bond_site_symmetry_2",
                                       "_ccdc_geom_bond_type"},
                                      col);
    const int needed = col[4] > 0 ? 5 : 4;
    while (!at_end() && !line().empty() && !starts_with(line(), "loop_") && !starts_with(line(), "_")) {
        std::string row = line();
        if (headers >= needed && static_cast<int>(row_tokens(row).size()) < needed)
            not_enough_columns(kLineBondColumns, row, needed);
        ++i_;
    }
}

void print_cif_summary(const FileIO& f)
{
    std::cout << "  Identifier: " << f.identifier << "\n"
              << "  Spacegroup name: " << f.spacegroup_name << "\n"
              << "  Spacegroup operations: \n";
    for (const std::string& op : f.symm_ops) std::cout << "    " << op << "\n";
    static const std::array<const char*, 6> names = {"  Cell lattice a = ",     "  Cell lattice b = ",
                                                     "  Cell lattice c = ",     "  Cell lattice alpha = ",
                                                     "  Cell lattice beta  = ", "  Cell lattice gamma = "};
    for (size_t k = 0; k < names.size(); ++k) std::cout << names[k] << f.cell_latt[k] << "\n";
    const size_t n = f.cif_labels.size();
    std::cout << "  natoms_cif = " << n << "\n";
    if (n == 0) return;
    auto atom = [&f](size_t i) {
        return f.cif_labels[i] + " " + f.cif_symbols[i] + " " + f.cif_fx[i] + " " + f.cif_fy[i] + " " +
            f.cif_fz[i];
    };
    std::cout << "  First atom: " << atom(0) << "\n  ...\n  Last  atom: " << atom(n - 1) << "\n";
}
}  // namespace

void FileIO::read_data_cif(const char* filename, bool binfo)
{
    std::ifstream in(filename);
    if (!in || !is_regular_file(filename)) fatal("fileio", kLineCifOpen, -1, "", "Failed to open input file \"" + std::string(filename) + "\"\n");
    cif_filename = filename;
    if (binfo) std::cout << "Reading crystal file \"" << filename << "\"... ";

    std::vector<std::string> lines;
    // trim also drops the CR of CRLF files (tribenzylmethanol_pcab_crlf).
    for (std::string s; std::getline(in, s);) lines.push_back(std::move(trim(s)));
    symm_ops.clear();
    for (auto* list : {&cif_labels, &cif_symbols, &cif_fx, &cif_fy, &cif_fz}) list->clear();

    CifWalk walk(*this, filename, std::move(lines));
    walk.run();
    if (binfo) print_cif_summary(*this);
    const double atoms = static_cast<double>(cif_labels.size()) * static_cast<double>(symm_ops.size());
    if (atoms > kMaxCellAtoms)
        fatal("fileio", kLineTooManyAtoms, -1,
              strprintf(kTooManyAtoms, filename, static_cast<int>(cif_labels.size()), static_cast<int>(symm_ops.size()),
                        atoms, kMaxCellAtoms));

    cell_cell6_to_latt3x3(cell_latt.data(), latt);
    for (const Vec3& row : latt)
        for (const double v : row)
            if (!std::isfinite(v))
                fatal("fileio", kLineNoCell, -1, strprintf(kNoCell, filename, cell_latt[3], cell_latt[4], cell_latt[5]));
    cif_natoms = static_cast<int>(cif_labels.size());
    cif_atypes.resize(static_cast<size_t>(cif_natoms));
    cif_nw_radius.resize(static_cast<size_t>(cif_natoms));
    cif_x_s.resize(3 * static_cast<size_t>(cif_natoms));
    for (int i = 0; i < cif_natoms; ++i) {
        // Only the first two characters count: "Cl" is chlorine, the ion "O2-" unknown.
        cif_atypes[i] = find_element_index_from_name(cif_symbols[i].c_str());
        cif_nw_radius[i] = find_element_radius_from_name(cif_symbols[i].c_str());
        cif_x_s[3 * i] = std::atof(cif_fx[i].c_str());
        cif_x_s[3 * i + 1] = std::atof(cif_fy[i].c_str());
        cif_x_s[3 * i + 2] = std::atof(cif_fz[i].c_str());
    }
    mat_vec_mul_all(latt, cif_x_s, cif_x);
    make_spacegroup_P1(walk.fract_columns());
    mat_vec_mul_all(latt, cif_x_s, cif_x);
    if (cif_natoms == 0)
        warn(cif_labels.empty()
                 ? strprintf("%s: no atom site read (a loop with _atom_site_label, _atom_site_type_symbol and "
                             "_atom_site_fract_x, _y, _z, one site per line): the cell holds no atom and no molecule\n",
                             filename)
                 : strprintf("%s: %zu atom sites but no symmetry operation read (a loop of _symmetry_equiv_pos_as_xyz or "
                             "_space_group_symop_operation_xyz): the cell holds no atom and no molecule\n",
                             filename, cif_labels.size()));
    separate_cif_molecules(binfo);
    if (binfo) std::cout << "Crystal file " << filename << " parsing done.\n";
}
