// From the sites as written to the atoms of the cell: elements, one conformer
// of each disorder, the symmetry images with sites on special positions merged,
// and the warnings about what the file leaves open.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>

#include "fileio.h"
#include "fileio_molecules.h"
#include "fileio_raw.h"

namespace crystal {

namespace {

// Images of one site closer than this are one atom on a special position.
// Every image within it is merged (no two atoms can be that close), but one
// beyond kOnSpecialPosition means a site placed beside the special position,
// alternatives of a disorder across it: the first image is kept, with a warning.
constexpr double kMergeImages = kDuplicateDistance;
constexpr double kOnSpecialPosition = 0.1;  // Angstrom: the rounding of a written position

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// The element whose symbol is these one or two characters exactly (as in the table).
int element_index(char first, char second)
{
    for (int z = 1; z < kNumElements; ++z)
        if (Elements_m[z].symbol[0] == first && Elements_m[z].symbol[1] == (second ? second : ' ')) return z;
    return 0;
}

// Deuterium ("D", "D1", "D(12)") is hydrogen here; "Du", "DUM" (dummy atoms) are nothing.
int deuterium(std::string_view s) { return upper(s[0]) == 'D' && (s.size() == 1 || !is_letter(s[1])) ? 1 : 0; }

// The shortest distance between the lattice images of two fractional points.
double periodic_distance(const Mat3& latt, const Vec3& a, const Vec3& b)
{
    Vec3 d;
    for (int k = 0; k < 3; ++k) d[k] = a[k] - b[k] - std::round(a[k] - b[k]);
    double best = INFINITY;
    for (int i = -1; i <= 1; ++i)
        for (int j = -1; j <= 1; ++j)
            for (int k = -1; k <= 1; ++k)
                best = std::min(best, get_magnitude(mat_vec_mul(latt, {d[0] + i, d[1] + j, d[2] + k})));
    return best;
}

double wrap_unit(double f)
{
    double w = f - std::floor(f);
    return w >= 1.0 ? 0.0 : w;  // -1e-17 wraps to 1.0 in floating point
}

// ---------------------------------------------------------------- the cell

void check_cell(RawStructure& raw, Crystal& c)
{
    static const char* const names[6] = {"_cell_length_a",    "_cell_length_b",   "_cell_length_c",
                                         "_cell_angle_alpha", "_cell_angle_beta", "_cell_angle_gamma"};
    for (int k = 0; k < 3; ++k)
        if (!(raw.cell[k] > 0.0 && raw.cell[k] <= kMaxLength))
            refuse(kLineCell, strprintf("%s: %s = %g is not a length between 0 and %g Angstrom\n", raw.source.c_str(),
                                        names[k], raw.cell[k], kMaxLength));
    for (int k = 3; k < 6; ++k)
        if (!(raw.cell[k] > 0.0 && raw.cell[k] < 180.0))
            refuse(kLineCell, strprintf("%s: %s = %g is not an angle between 0 and 180 degrees\n", raw.source.c_str(),
                                        names[k], raw.cell[k]));
    c.cell = raw.cell;
    // FileIO's own construction, so that both readers put a cell the same way.
    FileIO f;
    f.cell_cell6_to_latt3x3(c.cell.data(), c.latt);
    bool finite = c.latt[2][2] > 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) finite = finite && std::isfinite(c.latt[i][j]);
    if (!finite || std::fabs(determinant(c.latt)) < 1e-6 * raw.cell[0] * raw.cell[1] * raw.cell[2])
        refuse(kLineCell, strprintf("%s: the cell angles alpha = %g, beta = %g, gamma = %g admit no cell\n",
                                    raw.source.c_str(), c.cell[3], c.cell[4], c.cell[5]));
    invert(c.latt, c.latt_inv);
}

// ---------------------------------------------------------------- the sites

struct Site {
    int row;
    int z;
    Vec3 frac;
};

int site_element(const RawSite& s)
{
    // No type column (paracetamol_p21n_symopid), '?' types (bedtttf_dicyanamide_pcca_qtypes)
    // or a type that names no element: the label tells the element.
    if (!s.type.empty()) {
        if (const int z = element_from_type(s.type)) return z;
    }
    return element_from_label(s.label);
}

std::vector<Site> read_positions(const RawStructure& raw)
{
    std::vector<Site> sites;
    std::vector<std::string> unknown;
    for (size_t i = 0; i < raw.sites.size(); ++i) {
        const RawSite& s = raw.sites[i];
        if (s.dummy) continue;
        Site site{static_cast<int>(i), site_element(s), {}};
        const std::string* text[3] = {&s.x, &s.y, &s.z};
        for (int k = 0; k < 3; ++k) {
            char* end = nullptr;
            const std::string& t = *text[k];
            site.frac[k] = std::strtod(t.c_str(), &end);
            // "0.1234(5)": the uncertainty in parentheses follows the number.
            const bool whole = end != t.c_str() && (*end == '\0' || (*end == '(' && t.back() == ')'));
            if (!whole || !(std::fabs(site.frac[k]) <= kMaxCells))
                refuse(kLineSite, strprintf("%s: site %s: the fractional coordinate %s is not a number of magnitude at most %g\n",
                                            raw.source.c_str(), s.label.c_str(), t.empty() ? "?" : t.c_str(), kMaxCells));
        }
        if (site.z == 0) unknown.push_back(s.label + (s.type.empty() ? "" : " (type " + s.type + ")"));
        sites.push_back(site);
    }
    if (!unknown.empty())
        refuse(kLineElement, raw.source + ": no element can be told for the site" + (unknown.size() > 1 ? "s " : " ") +
                                 name_list(unknown) + (unknown.size() > 1 ? " from their types or labels\n" : " from its type or its label\n"));
    return sites;
}

double occupancy(const RawSite& s)
{
    char* end = nullptr;
    const double v = std::strtod(s.occupancy.c_str(), &end);
    return s.occupancy.empty() || end == s.occupancy.c_str() || !std::isfinite(v) ? 1.0 : v;
}

// Disorder (benzimidazolylphenol_p42n_disorder: a methyl on two ring
// positions, groups 1 and 2 of assembly A): each assembly ('' when the file
// names none) keeps its group of the largest mean occupancy, the first listed
// of equal ones; sites of no group ('.', '?', 0) are always kept. Partial
// occupancies without a group are kept as they are. Returns the warning, or "".
std::string keep_major_conformers(const RawStructure& raw, std::vector<Site>& sites)
{
    struct Group {
        double sum = 0;
        int count = 0, order = 0;
    };
    std::map<std::string, std::map<std::string, Group>> assemblies;
    int order = 0;
    for (const Site& s : sites) {
        const RawSite& r = raw.sites[s.row];
        if (r.group.empty()) continue;
        Group& g = assemblies[r.assembly][r.group];
        if (g.count == 0) g.order = order++;
        g.sum += occupancy(r);
        ++g.count;
    }
    std::map<std::string, std::string> kept;  // assembly -> group
    std::string text;
    for (const auto& [assembly, groups] : assemblies) {
        const auto major = std::max_element(groups.begin(), groups.end(), [](const auto& a, const auto& b) {
            const double ma = a.second.sum / a.second.count, mb = b.second.sum / b.second.count;
            return ma < mb || (ma == mb && a.second.order > b.second.order);
        });
        kept[assembly] = major->first;
        if (groups.size() < 2) continue;
        std::vector<std::string> dropped;
        for (const Site& s : sites) {
            const RawSite& r = raw.sites[s.row];
            if (!r.group.empty() && r.assembly == assembly && r.group != major->first) dropped.push_back(r.label);
        }
        text += strprintf("%sgroup %s of %s (mean occupancy %.3g) kept, %s dropped", text.empty() ? "" : "; ",
                          major->first.c_str(),
                          assembly.empty() ? "the disorder" : ("disorder assembly " + assembly).c_str(),
                          major->second.sum / major->second.count, name_list(dropped, 1000).c_str());
    }
    std::erase_if(sites, [&](const Site& s) {
        const RawSite& r = raw.sites[s.row];
        return !r.group.empty() && kept[r.assembly] != r.group;
    });
    return text.empty() ? "" : raw.source + ": disordered sites: " + text + "\n";
}

// ---------------------------------------------------------------- formula check

Composition cell_composition(const Crystal& c)
{
    Composition counts(kNumElements, 0);
    for (const CellAtom& a : c.atoms) ++counts[a.z];
    return counts;
}

// The cell against Z formula units of _chemical_formula_sum: a difference
// points at sites that are alternatives with no occupancies to tell them
// (tribenzylmethanol_pcab_crlf gives its hydroxyl H on three sites).
std::string formula_warning(const Crystal& c)
{
    Composition formula;
    if (c.formula_units <= 0 || c.formula_sum.empty() || !parse_formula(c.formula_sum, formula)) return "";
    const Composition cell = cell_composition(c);
    Composition expected = formula;
    for (int& n : expected) n *= c.formula_units;
    if (cell[1] == 0) expected[1] = 0;  // missing hydrogens have their own warning
    if (cell == expected) return "";
    return strprintf("%s: the cell holds %s, but Z = %d formula units of %s make %s: some sites may be alternatives "
                     "of one atom, or missing\n",
                     c.source.c_str(), hill_formula(cell).c_str(), c.formula_units, hill_formula(formula).c_str(),
                     hill_formula(expected).c_str());
}

}  // namespace

// ---------------------------------------------------------------- elements

int element_from_type(std::string_view type)
{
    // "C", "Cl", "CL", "O2-", "Fe3+": the letters the type starts with, in any case.
    if (type.empty() || !is_letter(type[0])) return 0;
    const char first = upper(type[0]);
    if (type.size() > 1 && is_letter(type[1]))
        if (const int z = element_index(first, lower(type[1]))) return z;
    if (const int z = element_index(first, '\0')) return z;
    return deuterium(type);
}

int element_from_label(std::string_view label)
{
    // A label is the element symbol followed by anything the author liked:
    // "C(10)", "C10A", "H8A", "H(O1)", "O", "N0", "Cl1", "Si1".
    //  - A second letter in lower case that makes an element with the first is
    //    part of the symbol ("Cl1", "Br2", "Si1"); otherwise the first letter
    //    alone is the element ("Hb" is a hydrogen b).
    //  - A second letter in capitals is a suffix ("HO1" is the hydrogen on O1,
    //    "CA" carbon A, "NA" nitrogen A), except for CL, BR, SI and SE, which
    //    old all-capital files write for chlorine, bromine, silicon and
    //    selenium, and which no organic label means otherwise.
    //  - "D1" is deuterium: hydrogen.
    if (label.empty() || !is_letter(label[0])) return 0;
    const char first = upper(label[0]);
    const char second = label.size() > 1 && is_letter(label[1]) ? label[1] : '\0';
    if (second && std::islower(static_cast<unsigned char>(second)))
        if (const int z = element_index(first, second)) return z;
    if (second && std::isupper(static_cast<unsigned char>(second))) {
        const std::string pair{first, second};
        if (pair == "CL" || pair == "BR" || pair == "SI" || pair == "SE") return element_index(first, lower(second));
    }
    if (const int z = element_index(first, '\0')) return z;
    return deuterium(label);
}

std::string element_symbol(int z)
{
    if (z < 1 || z >= kNumElements) return "";
    const char* s = Elements_m[z].symbol;
    return s[1] == ' ' ? std::string(1, s[0]) : std::string(s, 2);
}

double covalent_radius(int z) { return z >= 1 && z < kNumElements ? _nw_elem_radius_m[z] : 0.0; }
double atomic_mass(int z) { return z >= 1 && z < kNumElements ? Elements_m[z].mass : 0.0; }

std::string hill_formula(const Composition& counts)
{
    std::vector<int> order;
    for (size_t z = 1; z < counts.size(); ++z)
        if (counts[z] > 0) order.push_back(static_cast<int>(z));
    const bool carbon = counts.size() > 6 && counts[6] > 0;
    std::sort(order.begin(), order.end(), [carbon](int a, int b) {
        const auto rank = [carbon](int z) { return carbon && z == 6 ? 0 : carbon && z == 1 ? 1 : 2; };
        if (rank(a) != rank(b)) return rank(a) < rank(b);
        return element_symbol(a) < element_symbol(b);
    });
    std::string s;
    for (const int z : order) s += element_symbol(z) + (counts[z] > 1 ? std::to_string(counts[z]) : "");
    return s;
}

bool parse_formula(std::string_view text, Composition& counts)
{
    counts.assign(kNumElements, 0);
    bool any = false;
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (c == ' ' || c == ',' || c == '\t' || c == '\n' || c == '\r') {
            ++i;
            continue;
        }
        if (!std::isupper(static_cast<unsigned char>(c))) return false;
        int z = 0;
        if (i + 1 < text.size() && std::islower(static_cast<unsigned char>(text[i + 1])))
            z = element_index(c, text[i + 1]);
        size_t next = i + (z ? 2 : 1);
        if (!z) z = element_index(c, '\0');
        if (!z) return false;
        int n = 0;
        size_t digits = 0;
        while (next < text.size() && std::isdigit(static_cast<unsigned char>(text[next])) && digits < 6)
            n = 10 * n + (text[next++] - '0'), ++digits;
        if (next < text.size() && (text[next] == '.' || std::isdigit(static_cast<unsigned char>(text[next]))))
            return false;  // a fractional count ("C0.5") or an absurd one
        counts[z] += digits ? n : 1;
        any = true;
        i = next;
    }
    return any;
}

// ---------------------------------------------------------------- names

std::string name_list(const std::vector<std::string>& names, size_t shown)
{
    std::string s;
    const size_t n = std::min(names.size(), shown);
    for (size_t i = 0; i < n; ++i) s += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    if (names.size() > n) s += strprintf(" and %zu more", names.size() - n);
    return s;
}

std::string Crystal::atom_name(int i) const
{
    const CellAtom& a = atoms[static_cast<size_t>(i)];
    return a.op == 0 ? a.label : a.label + " (by " + operations[static_cast<size_t>(a.op)] + ")";
}

// ---------------------------------------------------------------- the cell's atoms

Crystal build_crystal(RawStructure&& raw)
{
    Crystal c;
    c.source = raw.source;
    c.block = raw.block;
    c.symmetry = raw.symmetry;
    c.formula_sum = raw.formula_sum;
    c.formula_units = raw.formula_units;
    check_cell(raw, c);
    for (const RawOp& op : raw.ops) c.operations.push_back(op.triplet);

    std::vector<Site> sites = read_positions(raw);
    std::vector<std::string> warnings = std::move(raw.warnings);
    if (std::string w = keep_major_conformers(raw, sites); !w.empty()) warnings.push_back(w);

    const double count = static_cast<double>(sites.size()) * static_cast<double>(raw.ops.size());
    if (count > kMaxCellAtoms)
        refuse(kLineTooManyAtoms, strprintf("%s: %zu atom sites and %zu symmetry operations make %.0f atoms, more than "
                                            "the %d a cell may hold\n",
                                            raw.source.c_str(), sites.size(), raw.ops.size(), count, kMaxCellAtoms));

    std::vector<std::string> beside;  // sites beside a special position
    for (const Site& s : sites) {
        const size_t first = c.atoms.size();
        bool near = false;
        for (size_t k = 0; k < raw.ops.size(); ++k) {
            const RawOp& op = raw.ops[k];
            Vec3 f = mat_vec_mul(op.R, s.frac);
            for (int d = 0; d < 3; ++d) f[d] = wrap_unit(f[d] + op.t[d]);
            double closest = INFINITY;
            for (size_t j = first; j < c.atoms.size(); ++j)
                closest = std::min(closest, periodic_distance(c.latt, f, c.atoms[j].frac));
            if (closest < kMergeImages) {  // the same atom again: a special position
                near = near || closest > kOnSpecialPosition;
                continue;
            }
            c.atoms.push_back({s.z, raw.sites[s.row].label, s.row, static_cast<int>(k), f, c.to_cartesian(f)});
        }
        if (near) beside.push_back(raw.sites[s.row].label);
    }
    if (!beside.empty())
        warnings.push_back(raw.source + ": the site" + (beside.size() > 1 ? "s " : " ") + name_list(beside) +
                           (beside.size() > 1 ? " lie" : " lies") + strprintf(" within %g A of", kMergeImages) +
                           " a symmetry image of " + (beside.size() > 1 ? "themselves" : "itself") +
                           " but not on it: taken as disordered across a special position, one image kept\n");

    const Composition counts = cell_composition(c);
    if (counts[6] > 0 && counts[1] == 0)
        warnings.push_back(raw.source + ": the structure has carbon but no hydrogen atoms: its molecules lack their "
                                        "hydrogens\n");
    if (std::string w = formula_warning(c); !w.empty()) warnings.push_back(w);

    for (const std::string& w : warnings) {
        std::fflush(stdout);
        std::fprintf(stderr, "WARNING: %s", w.c_str());
    }
    std::fflush(stderr);
    c.warnings = std::move(warnings);
    return c;
}

}  // namespace crystal
