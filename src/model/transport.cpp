#include "transport.h"
#include "transport_errors.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <span>

using namespace transport_error;

namespace {
const char* const kModule = "transport";
// Atom pairs a neighbour search may compare (a few seconds); a wider search range
// is refused rather than left running for hours.
constexpr double kMaxPairTests = 2e9;
// Cells searched on each side, at most: far beyond any cut-off, and small enough
// that no arithmetic on the range can overflow.
constexpr int kMaxSearchCells = 1000;
const char* const kRangeOutOfBounds = "nei_scell = %d %d %d: each component must lie between -%d and %d\n";
const char* const kRangeTooNarrow =
    "lat_cutoff = %g A reaches beyond nei_scell = %d %d %d: molecule %d and molecule %d in cell %d %d %d have atoms "
    "%.4f A apart, and the neighbour list misses them; nei_scell = %d %d %d reaches every neighbour within "
    "lat_cutoff\n";
const char* const kRangeMayBeTooNarrow =
    "lat_cutoff = %g A may reach beyond nei_scell = %d %d %d: atoms within lat_cutoff of the cell's molecules can lie "
    "in cells up to %d %d %d away, too wide a range to search for them here; nei_scell = %d %d %d reaches every "
    "neighbour\n";
// Molecule pairs of the wider range that the check of nei_scell looks at, at most
// (each a centre distance, a fraction of a second in all).
constexpr double kMaxRangeTests = 1e7;
const char* const kTempNoNumber =
    "temp.inp line 1 ('%s') is no number: the temperature stays temp = %g K of the input file\n";
const char* const kRangeTooWide =
    "nei_scell = %d %d %d would compare %.3g atom pairs, more than the %.3g a neighbour search may; "
    "use a smaller range\n";
}  // namespace

Transport::Transport()
{
    mol_input_mode = -1;  // not known until the input file names molecules or a crystal
    std::vector<char> buf(4096);
    if (getcwd(buf.data(), buf.size())) workdir = buf.data();
    unique_RE_calc = RE_unique_mol != 0;
    unique_uc_mol_one_calc = unique_nei_mol_one_calc = unique_2mol_calc = HL_unique_mol != 0;
}

// Electron count of the neutral molecule over two, rounded down. An atom of
// unknown element (-1) brings no electrons.
void Transport::calc_homo()
{
    homo.assign(static_cast<size_t>(std::max(mol_count, 0)), 0);
    for (int m = 0; m < mol_count; ++m) {
        int electrons = 0;
        for (const int z : mol_atypes[m]) electrons += std::max(z, 0);
        homo[m] = electrons / 2;
    }
}

// Only the first character of the first line counts, unchecked: the caller
// decides what an unexpected letter means.
void Transport::read_charge_inp()
{
    const char* const name = "charge.inp";
    const File f = open_file(name, "rt");
    // The hopping code's own message for this file: no error header.
    if (!f) fatal_plain(-1, "", strprintf("Failed to open input file %s\n", name));
    std::printf("Reading input file %s...\n", name);
    // An empty file leaves the buffer holding the file name, so the letter is 'c'.
    char line[128];
    if (!std::fgets(line, sizeof line, f.get())) std::snprintf(line, sizeof line, "%s", name);
    c_trim(line);
    charge = std::string(1, line[0]);
}

void Transport::read_temp_inp(const char* module, int line)
{
    std::string first;
    if (read_first_number("temp.inp", temp, &first) == FirstNumber::no_number) {
        const std::string text = strprintf(kTempNoNumber, trim(first).c_str(), temp);
        // Every stage reads the file again: one warning is enough.
        if (std::find(warnings.begin(), warnings.end(), text) == warnings.end()) warn(text);
    }
    if (!(temp > 0.0 && std::isfinite(temp)))
        fatal(module, line, 1, strprintf("temp.inp line 1: temp = %g K, not a finite positive temperature\n", temp));
}

bool Transport::found_molecule_within_rcut(int i, int j, const Vec3& cell, double rcut_sq,
                                           double* out_rsq) const
{
    const std::vector<double>& xi = mol_x_s[i];
    const std::vector<double>& xj = mol_x_s[j];
    for (int a = 0; a < mol_natoms[i]; ++a) {
        for (int b = 0; b < mol_natoms[j]; ++b) {
            Vec3 d;
            for (size_t k = 0; k < d.size(); ++k) d[k] = xj[3 * b + k] - xi[3 * a + k] + cell[k];
            const double s = squared_length(mat_vec_mul(latt, d));
            if (s < rcut_sq) {
                *out_rsq = s;  // the first pair in range, not the closest
                return true;
            }
        }
    }
    return false;
}

void Transport::build_neighbor_list(bool verbose)
{
    const double rcut = lat_cutoff;
    const double rcut_sq = rcut * rcut;
    const int na = scell_n[0], nb = scell_n[1], nc = scell_n[2];
    for (const int n : scell_n)
        if (n < -kMaxSearchCells || n > kMaxSearchCells)
            fatal(kModule, kLineSearchRange, 1, strprintf(kRangeOutOfBounds, na, nb, nc, kMaxSearchCells, kMaxSearchCells));
    double atoms = 0.0, cells = 1.0;
    for (int m = 0; m < mol_count; ++m) atoms += mol_natoms[m];
    for (const int n : scell_n) cells *= std::max(0.0, 2.0 * n + 1.0);  // a negative range searches nothing
    if (cells * atoms * atoms > kMaxPairTests)
        fatal(kModule, kLineSearchTooWide, 1, strprintf(kRangeTooWide, na, nb, nc, cells * atoms * atoms, kMaxPairTests));
    const size_t nmol = static_cast<size_t>(mol_count);
    const size_t cap = static_cast<size_t>(NNEIMAX);

    num_neighbors.assign(nmol, 0);
    neighbor_ids.assign(nmol, std::vector<int>(cap));
    neighbor_cell_a.assign(nmol, std::vector<int>(cap));
    neighbor_cell_b.assign(nmol, std::vector<int>(cap));
    neighbor_cell_c.assign(nmol, std::vector<int>(cap));
    neighbor_flag.assign(nmol, std::vector<int>(cap));
    neighbor_rsq.assign(nmol, std::vector<double>(cap));
    neighbor_vec.assign(nmol, std::vector<Vec3>(cap, Vec3{}));
    mol_vec.assign(nmol, Vec3{});

    struct Candidate {
        int id, ka, kb, kc;
    };
    std::vector<Candidate> cand(cap);
    std::vector<double> key(cap);
    std::vector<int> order(cap);

    if (debug) {
        std::printf("  h:");
        for (const Vec3& row : latt) {
            for (const double v : row) std::printf(" %12.7f", v);
            std::printf("\n");
        }
    }
    if (verbose) {
        std::printf("\n**** KELTA Build Neighbor List ****\n");
        std::printf("  Neighbor rcutoff distance: %g\n", rcut);
        std::printf("  Neighbor search cell (-/+): %d %d %d\n", na, nb, nc);
    }

    for (int i = 0; i < mol_count; ++i) {
        const Vec3 com_i = vec3_at(mol_com_s, static_cast<size_t>(i));
        int count = 0;
        for (int kc = -nc; kc <= nc; ++kc)
            for (int kb = -nb; kb <= nb; ++kb)
                for (int ka = -na; ka <= na; ++ka)
                    for (int j = 0; j < mol_count; ++j) {
                        if (j == i && ka == 0 && kb == 0 && kc == 0) continue;
                        const Vec3 cell = {double(ka), double(kb), double(kc)};
                        double rsq = 1.0e6;
                        if (!found_molecule_within_rcut(i, j, cell, rcut_sq, &rsq)) continue;
                        const Vec3 com_j = vec3_at(mol_com_s, j);
                        Vec3 d;
                        for (size_t k = 0; k < d.size(); ++k) d[k] = com_j[k] - com_i[k] + cell[k];
                        cand[count] = {j, ka, kb, kc};
                        key[count] = squared_length(mat_vec_mul(latt, d));
                        ++count;
                        if (count >= NNEIMAX)
                            fatal(kModule, kLineNeighbours, -1, "", "Need to boost NNEIMAX (NumNeigh=" + std::to_string(NNEIMAX) + ")\n");
                    }
        std::iota(order.begin(), order.begin() + count, 0);
        quickSort_d(key.data(), order.data(), count);
        num_neighbors[i] = count;
        const std::span<const int> sorted(order.data(), static_cast<size_t>(count));
        for (size_t k = 0; k < sorted.size(); ++k) {
            const Candidate& c = cand[sorted[k]];
            neighbor_ids[i][k] = c.id;
            neighbor_cell_a[i][k] = c.ka;
            neighbor_cell_b[i][k] = c.kb;
            neighbor_cell_c[i][k] = c.kc;
        }
    }
    neighbor_list_built = true;
    check_search_range();
    if (verbose) std::printf("**** End of KELTA Build Neighbor List ****\n\n");
    allocate_mol_id_indexes_array();
}

// Cells along axis k hold atoms of a molecule within lat_cutoff of the cell's
// molecules only up to ceil(span_k + lat_cutoff |row k of latt_inv|) - 1 cells
// away, span_k being the range of the atoms' fractional coordinates k: a
// Cartesian distance r changes fractional coordinate k by at most
// r |row k of latt_inv|. Within that bound and beyond nei_scell, the images are
// searched for neighbours (molecules whose centres are farther apart than
// lat_cutoff plus both molecules' radii are skipped unseen).
void Transport::check_search_range()
{
    const double rcut = lat_cutoff;
    std::array<double, 3> lo{}, hi{};
    lo.fill(INFINITY);
    hi.fill(-INFINITY);
    std::vector<Vec3> centre;  // [molecules] Cartesian, for the centres only
    std::vector<double> radius;
    for (int m = 0; m < mol_count; ++m) {
        const Vec3 com_s = vec3_at(mol_com_s, static_cast<size_t>(m));
        double r = 0;
        for (int a = 0; a < mol_natoms[m]; ++a) {
            Vec3 d;
            for (size_t k = 0; k < 3; ++k) {
                const double x = mol_x_s[m][3 * a + k];
                lo[k] = std::min(lo[k], x);
                hi[k] = std::max(hi[k], x);
                d[k] = x - com_s[k];
            }
            r = std::max(r, get_magnitude(mat_vec_mul(latt, d)));
        }
        centre.push_back(mat_vec_mul(latt, com_s));
        radius.push_back(r);
    }
    if (!(std::fabs(determinant(latt)) >= kSingularDeterminant)) return;
    Mat3 inverse{};  // of the cell the neighbours were searched in, whoever filled latt_inv
    invert(latt, inverse);
    std::array<int, 3> bound{}, searched{};
    bool complete = true;
    for (size_t k = 0; k < 3; ++k) {
        if (!(hi[k] >= lo[k])) return;  // no atoms
        const Vec3 row = inverse[k];
        const double reach = std::ceil(hi[k] - lo[k] + rcut * get_magnitude(row)) - 1;
        if (!std::isfinite(reach) || reach > kMaxSearchCells) return;  // nothing to tell within the bounds
        bound[k] = std::max(0, static_cast<int>(reach));
        searched[k] = std::max(scell_n[k], -1);
        complete = complete && bound[k] <= searched[k];
    }
    if (complete) return;
    const double cells = (2.0 * bound[0] + 1) * (2.0 * bound[1] + 1) * (2.0 * bound[2] + 1);
    if (cells * mol_count * mol_count > kMaxRangeTests) {
        warn(strprintf(kRangeMayBeTooNarrow, lat_cutoff, scell_n[0], scell_n[1], scell_n[2], bound[0], bound[1], bound[2],
                       bound[0], bound[1], bound[2]));
        return;
    }
    std::array<int, 3> needed = {0, 0, 0};
    std::array<int, 5> missed{};  // i, j and the cell of the first neighbour outside the search, i = -1: none
    missed[0] = -1;
    double missed_rsq = 0;
    for (int kc = -bound[2]; kc <= bound[2]; ++kc)
        for (int kb = -bound[1]; kb <= bound[1]; ++kb)
            for (int ka = -bound[0]; ka <= bound[0]; ++ka) {
                const std::array<int, 3> k = {ka, kb, kc};
                const Vec3 cell = {double(ka), double(kb), double(kc)};
                const Vec3 shift = mat_vec_mul(latt, cell);
                for (int i = 0; i < mol_count; ++i)
                    for (int j = 0; j < mol_count; ++j) {
                        if (j == i && ka == 0 && kb == 0 && kc == 0) continue;
                        Vec3 d;
                        for (size_t q = 0; q < 3; ++q) d[q] = centre[j][q] + shift[q] - centre[i][q];
                        if (!(get_magnitude(d) < rcut + radius[i] + radius[j])) continue;
                        double rsq = 0;
                        if (!found_molecule_within_rcut(i, j, cell, rcut * rcut, &rsq)) continue;
                        bool outside = false;
                        for (size_t q = 0; q < 3; ++q) {
                            needed[q] = std::max(needed[q], std::abs(k[q]));
                            outside = outside || std::abs(k[q]) > searched[q];
                        }
                        if (outside && missed[0] < 0) {
                            missed = {i, j, ka, kb, kc};
                            missed_rsq = rsq;
                        }
                    }
            }
    if (missed[0] < 0) return;
    warn(strprintf(kRangeTooNarrow, lat_cutoff, scell_n[0], scell_n[1], scell_n[2], missed[0] + 1, missed[1] + 1,
                   missed[2], missed[3], missed[4], std::sqrt(missed_rsq), needed[0], needed[1], needed[2]));
}

// Identity numberings; later stages of the suite reduce them by symmetry.
void Transport::allocate_mol_id_indexes_array()
{
    const size_t nmol = static_cast<size_t>(mol_count);
    uc_mol_id.resize(nmol);
    std::iota(uc_mol_id.begin(), uc_mol_id.end(), 1);
    nei_mol_id = uc_mol_id;
    uc_mol_index.assign(nmol, 0);
    nei_mol_index.assign(nmol, 0);
    pair_id.assign(nmol, {});
    pair_index.assign(nmol, {});
    for (size_t i = 0; i < nmol; ++i) {
        pair_id[i].resize(static_cast<size_t>(num_neighbors[i]));
        std::iota(pair_id[i].begin(), pair_id[i].end(), 1);
        pair_index[i].assign(static_cast<size_t>(num_neighbors[i]), 0);
    }
}
