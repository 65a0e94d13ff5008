// The CIF text through gemmi: the data block with the atoms, its cell, its
// symmetry operations and its atom sites as written. Every exception gemmi
// throws on bad input becomes a refusal naming the file; gemmi is included
// here only.
//
// Where the symmetry comes from, first that can be read:
//   1. the listed operations, _space_group_symop_operation_xyz or
//      _symmetry_equiv_pos_as_xyz (an id column beside them is another column
//      of the loop and does not matter);
//   2. the Hall symbol; 3. the Hermann-Mauguin symbol; 4. the IT number.
// Nothing of these: refused.
//
// What real database files do, the file that does it, and where it is met:
//   CRLF line ends (tribenzylmethanol_pcab_crlf), atom rows wrapped over two or
//   three lines (dimethylquinacridone_p21c_wrapped), numbers without a leading
//   zero, ".26248(2)" (c60_hydroquinone_r-3m), '#' and '&' inside a label
//   (oxacalixarene_dcm_c2c): the CIF grammar itself, nothing to do here.
//   An id column beside the operations, under _symmetry_equiv_pos_site_id
//   (tfa_phenylbithiophene_cmca) or _space_group_symop_id
//   (paracetamol_p21n_symopid); operations in capitals with signs, "+X,+Y,+Z":
//   read by column and by the operation parser, listed_operations.
//   An operation listed twice (tfa_phenylbithiophene_cmca): add_distinct.
//   Decimal translations, "0.5-x" (bedtttf_dicyanamide_pcca_qtypes):
//   normalise_operation.
//   No space-group tag at all, the operations under the newer tag only
//   (disulfide_cc_newtags): listed_operations.
//   No type column (paracetamol_p21n_symopid), every type '?'
//   (bedtttf_dicyanamide_pcca_qtypes), labels "O", "C(11)", "H(O1)"
//   (tribenzylmethanol_pcab_crlf): site_element and element_from_label
//   (fileio_sites.cpp).
//   Sites on special positions: on a mirror as x = 1.0000
//   (tfa_phenylbithiophene_cmca), on a 2-fold axis (the anion's N0 of
//   bedtttf_dicyanamide_pcca_qtypes): build_crystal merges images.
//   Disorder groups in an assembly with occupancies
//   (benzimidazolylphenol_p42n_disorder): keep_major_conformers.
//   Alternative sites with no occupancies, the hydroxyl H on three sites
//   (tribenzylmethanol_pcab_crlf): formula_warning; overlapping C60
//   orientations (c60_hydroquinone_r-3m): refused as duplicate sites
//   (find_molecules).
//   No hydrogen located (bedtttf_dicyanamide_pcca_qtypes): a warning in
//   build_crystal. No Z (paracetamol_p21n_symopid): no formula check.
#include <gemmi/cif.hpp>
#include <gemmi/numb.hpp>
#include <gemmi/symmetry.hpp>

#include <cmath>
#include <fstream>
#include <sstream>

#include "fileio.h"
#include "fileio_raw.h"

namespace crystal {

namespace cif = gemmi::cif;

void refuse(int line, const std::string& text) { fatal("crystal", line, -1, text); }

namespace {

// An operation or symbol longer than this is no operation; a bound on the text
// also bounds the integer arithmetic of the operation parser.
constexpr size_t kMaxOperationText = 200;
constexpr int kMaxDigits = 6;

// The first value of a tag, unquoted; "" when absent, '?' or '.'.
std::string value_of(cif::Block& block, const char* tag)
{
    const cif::Column col = block.find_values(tag);
    if (!col || col.length() < 1) return "";
    return cif::as_string(col.at(0));
}

std::string first_value(cif::Block& block, std::initializer_list<const char*> tags)
{
    for (const char* tag : tags) {
        std::string v = value_of(block, tag);
        if (!v.empty()) return v;
    }
    return "";
}

// Operations as database files write them, made into text the operation parser
// takes. Decimal translations ("0.5-x,-y, z" in bedtttf_dicyanamide_pcca_qtypes)
// become twenty-fourths. Anything but x, y, z, numbers, signs, '*', '/' and
// blanks is refused, and so are numbers of more than six digits.
bool normalise_operation(const std::string& in, std::string& out, std::string& why)
{
    out.clear();
    if (in.size() > kMaxOperationText) {
        why = "longer than " + std::to_string(kMaxOperationText) + " characters";
        return false;
    }
    for (size_t i = 0; i < in.size();) {
        const char c = in[i];
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            size_t j = i;
            while (j < in.size() && (std::isdigit(static_cast<unsigned char>(in[j])) || in[j] == '.')) ++j;
            const std::string number = in.substr(i, j - i);
            if (number.size() > static_cast<size_t>(kMaxDigits)) {
                why = "the number " + number + " is too long";
                return false;
            }
            if (number.find('.') == std::string::npos) {
                out += number;
            } else {
                char* end = nullptr;
                const double v = std::strtod(number.c_str(), &end);
                const double k = std::round(v * gemmi::Op::DEN);
                if (*end != '\0' || !(std::fabs(v * gemmi::Op::DEN - k) < 0.02)) {
                    why = "the translation " + number + " is no multiple of 1/24";
                    return false;
                }
                out += std::to_string(static_cast<int>(k)) + "/" + std::to_string(gemmi::Op::DEN);
            }
            i = j;
            continue;
        }
        if (!std::strchr("xyzXYZ+-*/ \t,", c) || c == '\0') {
            why = std::string("unexpected character '") + c + "'";
            return false;
        }
        out += c;
        ++i;
    }
    return true;
}

// A parsed operation must map the lattice onto itself: entries -1, 0 or 1 and
// a determinant of 1 or -1.
bool lattice_operation(const gemmi::Op& op)
{
    for (const auto& row : op.rot)
        for (const int r : row)
            if (r != 0 && r != gemmi::Op::DEN && r != -gemmi::Op::DEN) return false;
    const int det = op.det_rot();
    constexpr int unit = gemmi::Op::DEN * gemmi::Op::DEN * gemmi::Op::DEN;
    return det == unit || det == -unit;
}

RawOp to_raw(const gemmi::Op& op)
{
    RawOp r;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) r.R[i][j] = op.rot[i][j] / static_cast<double>(gemmi::Op::DEN);
        r.t[i] = op.tran[i] / static_cast<double>(gemmi::Op::DEN);
    }
    r.triplet = op.triplet();
    return r;
}

// Adds op unless it is there already: tfa_phenylbithiophene_cmca lists two
// operations twice, and operations differing by a lattice translation place the
// same atoms.
void add_distinct(std::vector<gemmi::Op>& ops, gemmi::Op op)
{
    op.wrap();
    if (std::find(ops.begin(), ops.end(), op) == ops.end()) ops.push_back(op);
}

std::vector<gemmi::Op> listed_operations(cif::Block& block, const std::string& source, std::string& tag_used)
{
    std::vector<gemmi::Op> ops;
    for (const char* tag : {"_space_group_symop_operation_xyz", "_symmetry_equiv_pos_as_xyz",
                            "_space_group_symop.operation_xyz"}) {
        const cif::Column col = block.find_values(tag);
        if (!col) continue;
        for (const std::string& raw : col) {
            const std::string text = cif::as_string(raw);
            if (text.empty()) continue;
            std::string normal, why;
            gemmi::Op op{};
            bool ok = normalise_operation(text, normal, why);
            if (ok) {
                try {
                    op = gemmi::parse_triplet(normal);
                } catch (const std::exception& e) {
                    why = e.what();
                    ok = false;
                }
            }
            if (ok && !lattice_operation(op)) {
                why = "it does not map the lattice onto itself";
                ok = false;
            }
            if (!ok)
                refuse(kLineOperation, source + ": the symmetry operation '" + text + "' (" + tag + ") cannot be used: " + why + "\n");
            add_distinct(ops, op);
        }
        if (!ops.empty()) {
            tag_used = tag;
            return ops;
        }
    }
    return ops;
}

std::vector<gemmi::Op> group_operations(const gemmi::GroupOps& group)
{
    std::vector<gemmi::Op> ops;
    for (int n = 0; n < group.order(); ++n) add_distinct(ops, group.get_op(n));
    return ops;
}

bool short_digit_runs(const std::string& s)
{
    int run = 0;
    for (const char c : s) {
        run = std::isdigit(static_cast<unsigned char>(c)) ? run + 1 : 0;
        if (run > 3) return false;
    }
    return s.size() <= kMaxOperationText;
}

// The operations of the block, and where they came from.
std::vector<RawOp> read_symmetry(cif::Block& block, const RawStructure& raw, std::string& from)
{
    std::string tag;
    std::vector<gemmi::Op> ops = listed_operations(block, raw.source, tag);
    std::vector<std::string> tried;
    if (!ops.empty()) {
        from = "operations listed under " + tag;
    }
    const std::string hall = first_value(block, {"_space_group_name_Hall", "_symmetry_space_group_name_Hall"});
    if (ops.empty() && !hall.empty()) {
        try {
            if (!short_digit_runs(hall)) gemmi::fail("not a Hall symbol");
            ops = group_operations(gemmi::symops_from_hall(hall.c_str()));
            from = "Hall symbol " + hall;
        } catch (const std::exception& e) {
            tried.push_back("the Hall symbol '" + hall + "' (" + e.what() + ")");
        }
    }
    const std::string hm = first_value(block, {"_space_group_name_H-M_alt", "_symmetry_space_group_name_H-M"});
    if (ops.empty() && !hm.empty()) {
        const gemmi::SpaceGroup* sg =
            short_digit_runs(hm) ? gemmi::find_spacegroup_by_name(hm, raw.cell[3], raw.cell[5]) : nullptr;
        if (sg) {
            ops = group_operations(sg->operations());
            from = "space group " + sg->xhm();
        } else {
            tried.push_back("the space-group symbol '" + hm + "' (not known)");
        }
    }
    const std::string number = first_value(block, {"_space_group_IT_number", "_symmetry_Int_Tables_number"});
    if (ops.empty() && !number.empty()) {
        long n = 0;
        if (parse_long(number, n) && n >= 1 && n <= 230) {
            const gemmi::SpaceGroup& sg = gemmi::get_spacegroup_reference_setting(static_cast<int>(n));
            ops = group_operations(sg.operations());
            from = "space group number " + number + " (" + sg.xhm() + ")";
        } else {
            tried.push_back("the space-group number '" + number + "' (not 1 to 230)");
        }
    }
    if (ops.empty()) {
        if (tried.empty())
            refuse(kLineNoSymmetry, raw.source + ": no symmetry: the file lists no operations and gives no Hall symbol, "
                                                 "space-group symbol or number\n");
        std::string text = raw.source + ": no symmetry: no operations are listed, and neither ";
        for (size_t i = 0; i < tried.size(); ++i) text += (i ? " nor " : "") + tried[i];
        refuse(kLineNoSymmetry, text + " gives any\n");
    }
    std::vector<RawOp> out;
    for (const gemmi::Op& op : ops) out.push_back(to_raw(op));
    return out;
}

// The cell's lengths must be there; missing angles are 90 degrees, as the
// dictionary says. Values keep their uncertainty: "7.287(6)".
void read_cell(cif::Block& block, RawStructure& raw)
{
    static const char* const tags[6] = {"_cell_length_a",    "_cell_length_b",   "_cell_length_c",
                                        "_cell_angle_alpha", "_cell_angle_beta", "_cell_angle_gamma"};
    for (int k = 0; k < 6; ++k) {
        const std::string v = value_of(block, tags[k]);
        if (v.empty() && k >= 3) {
            raw.cell[k] = 90.0;
            continue;
        }
        if (v.empty()) refuse(kLineCell, raw.source + ": " + tags[k] + " is missing\n");
        raw.cell[k] = gemmi::cif::as_number(v);
        if (std::isnan(raw.cell[k])) refuse(kLineCell, raw.source + ": " + tags[k] + " = " + v + " is not a number\n");
    }
}

// The atom loop as written; the columns beyond label and coordinates may be missing.
void read_sites(cif::Block& block, RawStructure& raw)
{
    enum { kLabel, kX, kY, kZ, kType, kOcc, kAssembly, kGroup, kCalc };
    cif::Table table = block.find("_atom_site_", {"label", "fract_x", "fract_y", "fract_z", "?type_symbol", "?occupancy",
                                                  "?disorder_assembly", "?disorder_group", "?calc_flag"});
    if (!table.ok())
        refuse(kLineNoAtoms, raw.source + ": data block " + raw.block +
                                 ": the atom sites need _atom_site_label and _atom_site_fract_x, _y and _z in one loop\n");
    for (auto row : table) {
        RawSite s;
        s.label = row.str(kLabel);
        s.x = row.str(kX);
        s.y = row.str(kY);
        s.z = row.str(kZ);
        if (row.has(kType)) s.type = row.str(kType);
        if (row.has(kOcc)) s.occupancy = row.str(kOcc);
        if (row.has(kAssembly)) s.assembly = row.str(kAssembly);
        if (row.has(kGroup)) s.group = row.str(kGroup);
        if (s.group == "0") s.group.clear();
        s.dummy = row.has(kCalc) && iequals(row.str(kCalc), "dum");
        raw.sites.push_back(std::move(s));
    }
}

}  // namespace

Crystal read_cif_text(std::string_view text, const std::string& name)
{
    cif::Document doc;
    try {
        doc = cif::read_memory(text.data(), text.size(), name.c_str());
    } catch (const std::exception& e) {
        refuse(kLineSyntax, name + ": not a CIF file that can be read: " + e.what() + "\n");
    }
    RawStructure raw;
    raw.source = name;
    // The first block with atoms; a file with several structures is read for its first.
    cif::Block* block = nullptr;
    std::vector<std::string> others;
    for (cif::Block& b : doc.blocks) {
        if (!b.find_values("_atom_site_fract_x")) continue;
        if (block)
            others.push_back(b.name);
        else
            block = &b;
    }
    if (!block) refuse(kLineNoAtoms, name + ": no data block has atom sites (_atom_site_fract_x)\n");
    raw.block = block->name;
    if (!others.empty())
        raw.warnings.push_back(name + ": data block " + raw.block + " is read; the other structures (" + name_list(others) +
                               ") are not\n");
    read_cell(*block, raw);
    read_sites(*block, raw);
    raw.ops = read_symmetry(*block, raw, raw.symmetry);
    raw.formula_sum = value_of(*block, "_chemical_formula_sum");
    long z = 0;
    if (parse_long(value_of(*block, "_cell_formula_units_Z"), z) && z > 0 && z < 100000) raw.formula_units = static_cast<int>(z);
    return build_crystal(std::move(raw));
}

Crystal read_cif_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in || !is_regular_file(path)) fatal_open("crystal", kLineOpen, path);
    std::ostringstream text;
    text << in.rdbuf();
    return read_cif_text(text.str(), path);
}

}  // namespace crystal
