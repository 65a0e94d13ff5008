// The hops of the cell's molecules, their classes of equivalent pairs, and the
// couplings file that gives one transfer integral per class.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "fileio_molecules.h"
#include "pairs.h"
#include "transport_errors.h"

using namespace transport_error;

namespace network {

namespace {

const char* const kModule = "transport";

const char* const kExists =
    "%s exists already: it may hold your couplings, so kelta_kmc -pairs does not replace it (remove or rename it, "
    "or name another file with kelta_dat_file)\n";
const char* const kNoCouplings = "run 'kelta_kmc -pairs' to write the couplings file %s, then fill it in\n";
const char* const kBadLine = "%s line %d: cannot read '%s'\n";
const char* const kWrongClass =
    "%s line %d: class %d is the pair %d %d (%d %d %d) here, the file says %d %d (%d %d %d): the file was written "
    "for another structure, lat_cutoff or nei_scell; write a new one with kelta_kmc -pairs\n";
const char* const kClassCount =
    "%s gives %d class line(s), the structure has %d classes of pairs: the file was written for another "
    "structure, lat_cutoff or nei_scell; write a new one with kelta_kmc -pairs\n";
const char* const kNoCoupling =
    "%s line %d: class %d (molecules %d and %d, %.4f A apart) has no coupling: replace NA by its transfer "
    "integral in meV\n";
const char* const kBadValue = "%s line %d: %s = %s: %s\n";
const char* const kMissingValue = "%s: no %s line (%s)\n";
const char* const kOtherCarrier =
    "%s line %d: carrier = %s, but charge.inp makes the carrier of this run %s %s: hole and electron couplings "
    "differ (they come from different orbitals), so these do not serve; write a couplings file for the %s "
    "(kelta_kmc -pairs with kelta_dat_file naming a new file) or change charge.inp\n";

const char* const kTemplateHead =
    "# Couplings of the hopping network, written by kelta_kmc -pairs for %s\n"
    "# (%d molecule(s) in the cell, lat_cutoff %g A, nei_scell %d %d %d). Replace every NA.\n"
    "#\n"
    "# lambda_meV    reorganisation energy, meV, one value for every hop\n"
    "# carrier       hole or electron, as charge.inp said when this file was written: hole and electron couplings\n"
    "#               differ, so a run for the other carrier refuses the file\n"
    "%s"
    "# site_meV = i E    optional, one line per molecule: site energy E (meV) of molecule i of the\n"
    "#                   cell (from 1); 0 when not given\n"
    "#\n"
    "# One line per class of pairs that a lattice translation, the exchange of the two molecules or a\n"
    "# rigid motion of the crystal maps onto each other (same interatomic distances within %g A):\n"
    "#   class        the class number\n"
    "#   mol_i mol_j  a representative pair: molecules of the cell, from 1\n"
    "#   na nb nc     the cell of mol_j, in cell vectors\n"
    "#   d_centre_A   distance of the two centres of mass, Angstrom\n"
    "#   d_min_A      distance of the closest atoms, Angstrom\n"
    "#   d_heavy_A    distance of the closest atoms other than hydrogen, Angstrom\n"
    "#   pairs        how many hops of the cell's molecules belong to the class\n"
    "#   V_meV        the transfer integral of the pair, meV: compute it for the representative\n"
    "#                (its geometry: dimers/class_NNN.xyz beside this file)\n"
    "lambda_meV = NA\n"
    "carrier = %s\n"
    "%s"
    "# class  mol_i mol_j  na nb nc   d_centre_A   d_min_A  d_heavy_A  pairs  V_meV\n";
const char* const kQuantumHead =
    "# hw_meV        energy of the effective high-frequency mode, meV (ratetype quantum)\n"
    "# huang_rhys    its Huang-Rhys factor S\n";
const char* const kQuantumLines = "hw_meV = NA\nhuang_rhys = NA\n";
const char* const kClassRow = "%7d%7d%6d%4d%3d%3d%12.4f%11.4f%11s%7d     NA\n";
const char* const kHopHead = "#\n# Every hop of the cell's molecules and its class:\n#  mol_i mol_j  na nb nc   d_centre_A  class\n";
const char* const kHopRow = "# %6d%6d%4d%3d%3d%13.4f%7d\n";

// Every interatomic distance between the two molecules of a hop, ascending.
std::vector<double> sorted_distances(const Molecules& m, int from, int to, const Cell& cell)
{
    std::vector<double> d;
    const std::vector<double>& xi = m.x_s[static_cast<size_t>(from)];
    const std::vector<double>& xj = m.x_s[static_cast<size_t>(to)];
    d.reserve(xi.size() / 3 * xj.size() / 3);
    for (size_t a = 0; a < xi.size() / 3; ++a)
        for (size_t b = 0; b < xj.size() / 3; ++b) {
            Vec3 f;
            for (size_t k = 0; k < 3; ++k) f[k] = xj[3 * b + k] + cell[k] - xi[3 * a + k];
            d.push_back(get_magnitude(mat_vec_mul(m.latt, f)));
        }
    std::sort(d.begin(), d.end());
    return d;
}

// The closest atoms of the two molecules of a hop that are not hydrogen; not a
// number when either molecule has none (or the elements are not known).
double heavy_distance(const Molecules& m, int from, int to, const Cell& cell)
{
    double best = std::numeric_limits<double>::quiet_NaN();
    if (static_cast<size_t>(std::max(from, to)) >= m.z.size()) return best;
    const std::vector<double>& xi = m.x_s[static_cast<size_t>(from)];
    const std::vector<double>& xj = m.x_s[static_cast<size_t>(to)];
    const std::vector<int>& zi = m.z[static_cast<size_t>(from)];
    const std::vector<int>& zj = m.z[static_cast<size_t>(to)];
    for (size_t a = 0; a < zi.size(); ++a) {
        if (zi[a] <= 1) continue;
        for (size_t b = 0; b < zj.size(); ++b) {
            if (zj[b] <= 1) continue;
            Vec3 f;
            for (size_t k = 0; k < 3; ++k) f[k] = xj[3 * b + k] + cell[k] - xi[3 * a + k];
            const double d = get_magnitude(mat_vec_mul(m.latt, f));
            if (!(d >= best)) best = d;
        }
    }
    return best;
}

bool same_distances(const std::vector<double>& a, const std::vector<double>& b)
{
    if (a.size() != b.size()) return false;
    for (size_t k = 0; k < a.size(); ++k)
        if (!(std::fabs(a[k] - b[k]) <= kSameDistance)) return false;
    return true;
}

// A number, all of the token, or NA (not a number).
bool number(const std::string& token, double& v)
{
    if (token == "NA") {
        v = std::numeric_limits<double>::quiet_NaN();
        return true;
    }
    char* end = nullptr;
    v = std::strtod(token.c_str(), &end);
    return !token.empty() && *end == '\0';
}

bool integer(const std::string& token, int& v)
{
    long l = 0;
    const bool whole = parse_long(token, l);
    v = static_cast<int>(l);
    return whole && l == v;
}

}  // namespace

Molecules cell_molecules(const Transport& t)
{
    Molecules m;
    m.latt = t.latt;
    for (int i = 0; i < t.mol_count; ++i) {
        m.x_s.push_back(t.mol_x_s[i]);
        m.centre_s.push_back(vec3_at(t.mol_com_s, static_cast<size_t>(i)));
        m.z.push_back(t.mol_atypes[i]);
    }
    return m;
}

Neighbours neighbours(const Transport& t)
{
    Neighbours n(static_cast<size_t>(t.mol_count));
    for (int i = 0; i < t.mol_count; ++i)
        for (int k = 0; k < t.num_neighbors[i]; ++k)
            n[i].push_back({t.neighbor_ids[i][k], {t.neighbor_cell_a[i][k], t.neighbor_cell_b[i][k], t.neighbor_cell_c[i][k]}});
    return n;
}

Pairs find_pairs(const Molecules& m, const Neighbours& neighbours)
{
    Pairs p;
    std::vector<std::vector<double>> rep_distances;
    for (size_t i = 0; i < neighbours.size(); ++i) {
        const Vec3 ci = m.centre_s[i];
        for (const Neighbour& nb : neighbours[i]) {
            Hop h;
            h.from = static_cast<int>(i);
            h.to = nb.to;
            h.cell = nb.cell;
            const Vec3 cj = m.centre_s[static_cast<size_t>(h.to)];
            h.r = mat_vec_mul(m.latt, {cj[0] + h.cell[0] - ci[0], cj[1] + h.cell[1] - ci[1], cj[2] + h.cell[2] - ci[2]});
            const std::vector<double> d = sorted_distances(m, h.from, h.to, h.cell);
            h.d_min = d.empty() ? 0.0 : d.front();
            h.d_heavy = heavy_distance(m, h.from, h.to, h.cell);
            const auto same = std::find_if(rep_distances.begin(), rep_distances.end(),
                                           [&d](const std::vector<double>& r) { return same_distances(d, r); });
            h.pair_class = static_cast<int>(same - rep_distances.begin());
            if (same == rep_distances.end()) {
                rep_distances.push_back(d);
                p.classes.push_back({static_cast<int>(p.hops.size()), 0});
            }
            ++p.classes[h.pair_class].hops;
            p.hops.push_back(h);
        }
    }
    // Classes numbered by the distance of their representative's centres.
    std::vector<int> order(p.classes.size());
    for (size_t c = 0; c < order.size(); ++c) order[c] = static_cast<int>(c);
    std::stable_sort(order.begin(), order.end(), [&p](int a, int b) {
        return squared_length(p.hops[p.classes[a].rep].r) < squared_length(p.hops[p.classes[b].rep].r);
    });
    std::vector<int> number(order.size());
    std::vector<PairClass> sorted;
    for (size_t c = 0; c < order.size(); ++c) {
        number[order[c]] = static_cast<int>(c);
        sorted.push_back(p.classes[order[c]]);
    }
    for (Hop& h : p.hops) h.pair_class = number[h.pair_class];
    p.classes = std::move(sorted);
    return p;
}

void write_couplings_template(const Transport& t, const Pairs& pairs, const std::string& file, RateModel model,
                              const std::string& carrier)
{
    const bool quantum = model == RateModel::quantum;
    // A name the system cannot even look up (too long, a file as a directory)
    // is no existing file: the open below reports it.
    std::error_code unused;
    if (std::filesystem::exists(file, unused)) fatal(kModule, kLineExists, 1, strprintf(kExists, file.c_str()));
    const std::string structure = t.mol_input_mode == 2 ? t.cif_filename : "the molecule files of the input";
    OutputFile f(file, kModule, kLineOpen);
    f.print(kTemplateHead, structure.c_str(), t.mol_count, t.lat_cutoff, t.scell_n[0], t.scell_n[1], t.scell_n[2],
            quantum ? kQuantumHead : "", kSameDistance, carrier.c_str(), quantum ? kQuantumLines : "");
    for (size_t c = 0; c < pairs.classes.size(); ++c) {
        const Hop& h = pairs.hops[pairs.classes[c].rep];
        const std::string heavy = std::isnan(h.d_heavy) ? "NA" : strprintf("%.4f", h.d_heavy);
        f.print(kClassRow, static_cast<int>(c) + 1, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2],
                get_magnitude(h.r), h.d_min, heavy.c_str(), pairs.classes[c].hops);
    }
    f.write(kHopHead);
    for (const Hop& h : pairs.hops)
        f.print(kHopRow, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2], get_magnitude(h.r), h.pair_class + 1);
    f.commit();
}

Couplings read_couplings(const std::string& file, const Pairs& pairs, int molecules, RateModel model,
                         const std::string& carrier)
{
    std::ifstream in;
    if (is_regular_file(file)) in.open(file);
    if (!in.is_open()) fatal(kModule, kLineOpen, -1, strprintf(kNoCouplings, file.c_str()), "Failed to open input file " + file + "\n");
    const double na = std::numeric_limits<double>::quiet_NaN();
    Couplings c;
    c.file = file;
    c.lambda_meV = c.hw_meV = c.huang_rhys = na;
    c.V_meV.assign(pairs.classes.size(), na);
    c.V_line.assign(pairs.classes.size(), 0);
    c.site_meV.assign(static_cast<size_t>(molecules), 0.0);
    std::map<std::string, int> key_line;  // lambda_meV, hw_meV, huang_rhys: where they are given
    int lineno = 0, class_lines = 0;
    const auto bad = [&](const std::string& text) {
        fatal(kModule, kLineSyntax, 1, strprintf(kBadLine, file.c_str(), lineno, text.c_str()));
    };
    const auto bad_value = [&](const std::string& key, const std::string& value, const char* why) {
        fatal(kModule, kLineValue, 1, strprintf(kBadValue, file.c_str(), lineno, key.c_str(), value.c_str(), why));
    };
    for (std::string raw; std::getline(in, raw);) {
        ++lineno;
        std::string line = raw.substr(0, raw.find('#'));
        if (trim(line).empty()) continue;
        if (const size_t eq = line.find('='); eq != std::string::npos) {
            std::string key = line.substr(0, eq), value = line.substr(eq + 1);
            trim(key);
            trim(value);
            double v = 0;
            if (key == "site_meV") {
                std::istringstream s(value);
                std::string mol, energy, extra;
                int m = 0;
                if (!(s >> mol >> energy) || (s >> extra) || !integer(mol, m) || !number(energy, v)) bad(trim(raw));
                if (m < 1 || m > molecules) bad_value(key, value, "no such molecule in the cell");
                if (!std::isfinite(v)) bad_value(key, value, "the site energy must be a finite number of meV");
                c.site_meV[m - 1] = v;
            } else if (key == "carrier") {
                if (value != "hole" && value != "electron") bad_value(key, value, "the carrier is hole or electron");
                if (!carrier.empty() && value != carrier)
                    fatal(kModule, kLineCarrier, 1,
                          strprintf(kOtherCarrier, file.c_str(), lineno, value.c_str(),
                                    carrier == "hole" ? "a" : "an", carrier.c_str(), carrier.c_str()));
            } else if (key == "lambda_meV" || key == "hw_meV" || key == "huang_rhys") {
                if (!number(value, v)) bad(trim(raw));
                (key == "lambda_meV" ? c.lambda_meV : key == "hw_meV" ? c.hw_meV : c.huang_rhys) = v;
                key_line[key] = lineno;
            } else {
                bad(trim(raw));
            }
            continue;
        }
        std::istringstream s(line);
        std::vector<std::string> tok;
        for (std::string w; s >> w;) tok.push_back(w);
        // Ten columns in files written before d_heavy_A, eleven since.
        std::array<int, 9> n{};
        double dummy = 0, V = 0;
        const size_t last = tok.size() - 1;
        bool ok = (tok.size() == 10 || tok.size() == 11) && number(tok[6], dummy) && number(tok[7], dummy) &&
                  number(tok[last - 2], dummy) && number(tok[last], V);
        for (size_t k = 0; ok && k < 6; ++k) ok = integer(tok[k], n[k]);
        if (ok) ok = integer(tok[last - 1], n[6]);
        if (!ok) bad(trim(raw));
        const int cls = n[0];
        if (cls < 1 || cls > static_cast<int>(pairs.classes.size()))
            fatal(kModule, kLineClasses, 1,
                  strprintf(kClassCount, file.c_str(), cls, static_cast<int>(pairs.classes.size())));
        const Hop& h = pairs.hops[pairs.classes[cls - 1].rep];
        if (n[1] != h.from + 1 || n[2] != h.to + 1 || n[3] != h.cell[0] || n[4] != h.cell[1] || n[5] != h.cell[2])
            fatal(kModule, kLineClasses, 1,
                  strprintf(kWrongClass, file.c_str(), lineno, cls, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2],
                            n[1], n[2], n[3], n[4], n[5]));
        if (c.V_line[cls - 1] != 0) bad(trim(raw));  // a class given twice
        c.V_meV[cls - 1] = V;
        c.V_line[cls - 1] = lineno;
        ++class_lines;
    }
    if (class_lines != static_cast<int>(pairs.classes.size()))
        fatal(kModule, kLineClasses, 1,
              strprintf(kClassCount, file.c_str(), class_lines, static_cast<int>(pairs.classes.size())));
    for (size_t k = 0; k < c.V_meV.size(); ++k) {
        lineno = c.V_line[k];
        if (std::isnan(c.V_meV[k])) {
            const Hop& h = pairs.hops[pairs.classes[k].rep];
            fatal(kModule, kLineValue, 1,
                  strprintf(kNoCoupling, file.c_str(), lineno, static_cast<int>(k) + 1, h.from + 1, h.to + 1,
                            get_magnitude(h.r)));
        }
        if (!std::isfinite(c.V_meV[k])) bad_value("V_meV", strprintf("%g", c.V_meV[k]), "the coupling must be finite");
    }
    const auto require = [&](const char* key, double v, bool ok, const char* why) {
        if (!key_line.count(key)) fatal(kModule, kLineValue, 1, strprintf(kMissingValue, file.c_str(), key, why));
        lineno = key_line[key];
        if (!ok) bad_value(key, std::isnan(v) ? "NA" : strprintf("%g", v), why);
    };
    require("lambda_meV", c.lambda_meV, c.lambda_meV > 0 && std::isfinite(c.lambda_meV),
            "the reorganisation energy must be a finite positive number of meV");
    if (model == RateModel::quantum) {
        require("hw_meV", c.hw_meV, c.hw_meV > 0 && std::isfinite(c.hw_meV),
                "the mode energy must be a finite positive number of meV");
        require("huang_rhys", c.huang_rhys, c.huang_rhys >= 0 && std::isfinite(c.huang_rhys),
                "the Huang-Rhys factor must be a finite number, 0 or more");
    }
    return c;
}

// ------------------------------------------------ the XYZ files of molecules and pairs

namespace {

// Molecule m of the cell as the XYZ writers of the crystal reader take it.
crystal::Molecule xyz_molecule(const Transport& t, int m)
{
    crystal::Molecule mol;
    mol.z = t.mol_atypes[static_cast<size_t>(m)];
    for (size_t a = 0; a < mol.z.size(); ++a) mol.cart.push_back(vec3_at(t.mol_x[static_cast<size_t>(m)], a));
    return mol;
}

}  // namespace

void write_dimer_files(const Transport& t, const Pairs& pairs, const std::string& dir)
{
    create_directory(dir.c_str());
    std::vector<crystal::Molecule> molecules;
    for (int m = 0; m < t.mol_count; ++m) {
        molecules.push_back(xyz_molecule(t, m));
        crystal::write_xyz(dir + strprintf("/molecule_%d.xyz", m + 1), molecules.back(),
                           strprintf("molecule %d of the cell: %s", m + 1, t.mol_formula(m).c_str()));
    }
    crystal::Crystal cell;
    cell.latt = t.latt;
    for (size_t c = 0; c < pairs.classes.size(); ++c) {
        const Hop& h = pairs.hops[static_cast<size_t>(pairs.classes[c].rep)];
        crystal::write_dimer_xyz(dir + strprintf("/class_%03zu.xyz", c + 1), cell, molecules[static_cast<size_t>(h.from)],
                                 molecules[static_cast<size_t>(h.to)], h.cell,
                                 strprintf("class %zu: molecule %d and molecule %d in cell %d %d %d", c + 1, h.from + 1,
                                           h.to + 1, h.cell[0], h.cell[1], h.cell[2]));
    }
}

}  // namespace network
