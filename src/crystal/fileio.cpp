#include "fileio.h"
#include "fileio_errors.h"

#include <cctype>
#include <cmath>
#include <cstdio>

using namespace fileio_error;

// Source lines reported by the fatal errors of this file.
namespace {
// A cell whose volume is below this fraction of |a| |b| |c| is flat to rounding:
// its inverse, and every fractional coordinate, would be noise.
constexpr double kFlatCell = 1e-6;
const char* const kFlatCellText =
    "vector_a, vector_b and vector_c span a volume of %g A^3, less than %g of |a| |b| |c| = %g A^3: "
    "the cell is flat\n";
const char* const kBadNumber = "%s line %d: %s = %g is not a finite number of magnitude at most %g\n";
}  // namespace

void check_finite(const std::string& file, int line, const std::string& what, double value, double limit)
{
    if (!(std::fabs(value) <= limit))
        fatal("fileio", kLineBadNumber, -1, strprintf(kBadNumber, file.c_str(), line, what.c_str(), value, limit));
}

// Atomic number, symbol, mass (amu), radius 1 and radius 2 (1/250 A), code, name.
const std::array<Element, kNumElements> Elements_m = {{
    {"  ", 0, 180, 360, 12, ""},
    {"H ", 1.00794, 80, 275, 4, "HYDROGEN"},
    {"He", 4.0026, 400, 550, 5, "HELIUM"},
    {"Li", 6.941, 170, 305, 14, "LITHIUM"},
    {"Be", 9.01218, 88, 157, 12, "BERYLLIUM"},
    {"B ", 10.811, 208, 387, 13, "BORON"},
    {"C ", 12.011, 180, 387, 0, "CARBON"},
    {"N ", 14.0067, 170, 350, 1, "NITROGEN"},
    {"O ", 15.9994, 170, 337, 2, "OXYGEN"},
    {"F ", 18.9984, 160, 325, 6, "FLUORINE"},
    {"Ne", 20.1797, 280, 505, 12, "NEON"},
    {"Na", 22.98977, 243, 550, 7, "SODIUM"},
    {"Mg", 24.305, 275, 375, 15, "MAGNESIUM"},
    {"Al", 26.98154, 338, 375, 9, "ALUMINIUM"},
    {"Si", 28.0855, 300, 550, 6, "SILICON"},
    {"P ", 30.97376, 259, 470, 8, "PHOSPHORUS"},
    {"S ", 32.066, 255, 452, 3, "SULPHUR"},
    {"Cl", 35.4527, 250, 437, 13, "CHLORINE"},
    {"Ar", 39.948, 392, 692, 12, "ARGON"},
    {"K ", 39.0983, 332, 597, 12, "POTASSIUM"},
    {"Ca", 40.078, 248, 487, 9, "CALCIUM"},
    {"Sc", 44.9559, 360, 330, 12, "SCANDIUM"},
    {"Ti", 47.88, 368, 487, 9, "TITANIUM"},
    {"V ", 50.9415, 332, 265, 12, "VANADIUM"},
    {"Cr", 51.996, 338, 282, 9, "CHROMIUM"},
    {"Mn", 54.938, 338, 297, 9, "MANGANESE"},
    {"Fe", 55.847, 335, 487, 8, "IRON"},
    {"Co", 58.9332, 332, 282, 12, "COBALT"},
    {"Ni", 58.6934, 405, 310, 10, "NICKEL"},
    {"Cu", 63.546, 380, 287, 10, "COPPER"},
    {"Zn", 65.39, 362, 287, 10, "ZINC"},
    {"Ga", 69.723, 305, 387, 12, "GALLIUM"},
    {"Ge", 72.61, 292, 999, 12, "GERMANIUM"},
    {"As", 74.9216, 302, 207, 12, "ARSENIC"},
    {"Se", 78.96, 305, 225, 12, "SELENIUM"},
    {"Br", 79.904, 302, 437, 10, "BROMINE"},
    {"Kr", 83.8, 400, 475, 12, "KRYPTON"},
    {"Rb", 85.4678, 368, 662, 12, "RUBIDIUM"},
    {"Sr", 87.62, 280, 505, 12, "STRONTIUM"},
    {"Y ", 88.9059, 445, 402, 12, "YTTRIUM"},
    {"Zr", 91.224, 390, 355, 12, "ZIRCONIUM"},
    {"Nb", 92.9064, 370, 332, 12, "NIOBIUM"},
    {"Mo", 95.94, 368, 437, 12, "MOLYBDENUM"},
    {"Tc", 98, 338, 450, 12, "TECHNETIUM"},
    {"Ru", 101.07, 350, 300, 12, "RUTHENIUM"},
    {"Rh", 102.9055, 362, 305, 12, "RHODIUM"},
    {"Pd", 106.42, 375, 360, 12, "PALLADIUM"},
    {"Ag", 107.868, 398, 387, 9, "SILVER"},
    {"Cd", 112.41, 422, 437, 12, "CADMIUM"},
    {"In", 114.82, 408, 362, 12, "INDIUM"},
    {"Sn", 118.71, 365, 417, 12, "TIN"},
    {"Sb", 121.757, 365, 280, 12, "ANTIMONY"},
    {"Te", 127.6, 368, 315, 12, "TELLURIUM"},
    {"I ", 126.9045, 350, 437, 11, "IODINE"},
    {"Xe", 131.29, 425, 525, 12, "XENON"},
    {"Cs", 132.9054, 418, 752, 12, "CAESIUM"},
    {"Ba", 137.33, 335, 602, 8, "BARIUM"},
    {"La", 138.9055, 468, 457, 12, "LANTHANUM"},
    {"Ce", 140.12, 458, 465, 12, "CERIUM"},
    {"Pr", 140.9077, 455, 405, 12, "PRASEODYMIUM"},
    {"Nd", 144.24, 452, 447, 12, "NEODYMIUM"},
    {"Pm", 145, 450, 440, 12, "PROMETHIUM"},
    {"Sm", 150.36, 450, 435, 12, "SAMARIUM"},
    {"Eu", 151.965, 498, 490, 12, "EUROPIUM"},
    {"Gd", 157.25, 448, 422, 12, "GADOLINIUM"},
    {"Tb", 158.9253, 440, 415, 12, "TERBIUM"},
    {"Dy", 162.5, 438, 407, 12, "DYSPROSIUM"},
    {"Ho", 164.9303, 435, 402, 12, "HOLMIUM"},
    {"Er", 167.26, 432, 397, 12, "ERBIUM"},
    {"Tm", 168.9342, 430, 392, 12, "THULIUM"},
    {"Yb", 173.04, 485, 385, 12, "YTTERBIUM"},
    {"Lu", 174.967, 430, 382, 12, "LUTETIUM"},
    {"Hf", 178.49, 392, 350, 12, "HAFNIUM"},
    {"Ta", 180.9479, 358, 305, 12, "TANTALUM"},
    {"W ", 183.85, 342, 315, 12, "TUNGSTEN"},
    {"Re", 186.207, 338, 325, 12, "RHENIUM"},
    {"Os", 190.2, 342, 395, 12, "OSMIUM"},
    {"Ir", 192.22, 330, 305, 12, "IRIDIUM"},
    {"Pt", 195.08, 375, 387, 12, "PLATINUM"},
    {"Au", 196.9665, 375, 362, 6, "GOLD"},
    {"Hg", 200.59, 425, 495, 12, "MERCURY"},
    {"Tl", 204.282, 388, 427, 12, "THALLIUM"},
    {"Pb", 207.2, 385, 540, 12, "LEAD"},
    {"Bi", 208.9804, 385, 432, 12, "BISMUTH"},
    {"Po", 209, 420, 302, 12, "POLONIUM"},
    {"At", 210, 302, 280, 12, "ASTATINE"},
    {"Rn", 222, 475, 575, 12, "RADON"},
    {"Fr", 223, 450, 810, 12, "FRANCIUM"},
    {"Ra", 226.0254, 358, 642, 12, "RADIUM"},
    {"Ac", 227, 295, 530, 12, "ACTINIUM"},
    {"Th", 232.0381, 255, 460, 12, "THORIUM"},
    {"Pa", 231.0359, 222, 400, 12, "PROTACTINIUM"},
    {"U ", 238.029, 242, 437, 12, "URANIUM"},
    {"Np", 237.0482, 238, 427, 12, "NEPTUNIUM"},
    {"Pu", 244, 232, 417, 12, "PLUTONIUM"},
    {"Am", 243, 230, 415, 12, "AMERICIUM"},
    {"Cm", 247, 228, 412, 12, "CURIUM"},
    {"Bk", 247, 225, 410, 12, "BERKELIUM"},
    {"Cf", 251, 222, 407, 12, "CALIFORNIUM"},
    {"Es", 252, 220, 405, 12, "EINSTEINIUM"},
    {"Fm", 257, 218, 402, 12, "FERMIUM"},
    {"Md", 258, 215, 400, 12, "MENDELEVIUM"},
    {"No", 259, 212, 397, 12, "NOBELIUM"},
    {"Lr", 260, 210, 395, 12, "LAWRENCIUM"}
}};

const std::array<double, kNumElements> _nw_elem_radius_m = {
    99999.99, 0.35, 1.22, 1.23, 0.89, 0.88, 0.77, 0.72, 0.66, 0.58,
    1.6, 1.4, 1.36, 1.25, 1.17, 1.1, 1.04, 0.99, 1.91, 2.03,
    1.74, 1.44, 1.32, 1.22, 1.19, 1.17, 1.165, 1.16, 1.15, 1.17,
    1.25, 1.25, 1.22, 1.21, 1.17, 1.14, 1.98, 2.22, 1.92, 1.62,
    1.45, 1.34, 1.29, 1.27, 1.24, 1.25, 1.28, 1.34, 1.41, 1.5,
    1.4, 1.41, 1.37, 1.33, 2.09, 2.35, 1.98, 1.69, 1.65, 1.65,
    1.64, 1.65, 1.66, 1.65, 1.61, 1.59, 1.59, 1.58, 1.57, 1.56,
    1.56, 1.56, 1.44, 1.34, 1.3, 1.28, 1.26, 1.26, 1.29, 1.34,
    1.44, 1.55, 1.54, 1.52, 1.53, 1.5, 2.2, 3.24, 2.68, 2.25,
    2.16, 1.93, 1.66, 1.57, 1.81, 2.21, 1.43, 1.42, 1.4, 1.39,
    1.38, 1.37, 1.36, 1.34,
};

FileIO::FileIO() : cell_latt{0, 0, 0, 90, 90, 90} {}

void FileIO::warn(const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "WARNING: %s", text.c_str());
    std::fflush(stderr);
    warnings.push_back(text);
}

// ---------------------------------------------------------------- element lookups

namespace {
// An index outside the table (the -1 that an unknown symbol leaves) reads the
// dummy entry: mass 0 and covalent radius 99999.99 A. Its bond radius is the
// 9999.99 A that separation gives unknown symbols, so an atom that separation
// pulled into a molecule also bonds when the molecule is made whole (the
// database files with '?' type symbols become one molecule, not a failure).
int table_index(int index) { return (index >= 0 && index < kNumElements) ? index : 0; }

// The two characters a symbol is compared on: the first upper-cased, the second
// lower-cased, a blank in place of a missing second character.
bool symbol_matches(const Element& e, const char* name)
{
    const char first = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    const char second = name[1] == '\0'
        ? ' '
        : static_cast<char>(std::tolower(static_cast<unsigned char>(name[1])));
    return e.symbol[0] == first && e.symbol[1] == second;
}
}  // namespace

int FileIO::find_element_index_from_name(const char* name) const
{
    if (!name || name[0] == '\0') return -1;
    for (int i = 0; i < kNumElements; ++i)
        if (symbol_matches(Elements_m[i], name)) return i;
    return -1;
}

double FileIO::find_element_radius_from_name(const char* name) const
{
    const int i = find_element_index_from_name(name);
    return i < 0 ? kUnknownRadius : _nw_elem_radius_m[i];
}

void FileIO::find_element_name_from_index(int index, char* out) const
{
    const char* s = Elements_m[table_index(index)].symbol;
    out[0] = s[0];
    out[1] = s[1] == ' ' ? '\0' : s[1];
    out[2] = '\0';
}

double FileIO::find_element_mass_from_index(int index) const
{
    return Elements_m[table_index(index)].mass;
}

double FileIO::find_element_radius_from_index(int index) const
{
    if (index < 0 || index >= kNumElements) return kUnknownRadius;
    return Elements_m[index].radius1 / 250.0;
}

double FileIO::find_element_radius_from_index_nw(int index) const
{
    return _nw_elem_radius_m[table_index(index)];
}

void FileIO::find_element_name_from_mass(double mass, char* out) const
{
    for (int i = 1; i < kNumElements; ++i) {
        if (std::fabs(Elements_m[i].mass - mass) < 0.1) {
            out[0] = Elements_m[i].symbol[0];
            out[1] = Elements_m[i].symbol[1];
            out[2] = '\0';
            return;
        }
    }
    out[0] = 'A';
    out[1] = ' ';
    out[2] = '\0';
}

double FileIO::centre_of_mass(int natoms, const int* atypes, const double* x_s, Vec3& com) const
{
    double total = 0.0;
    Vec3 sum{}, plain{};
    for (int i = 0; i < natoms; ++i) {
        const double w = find_element_mass_from_index(atypes[i]);
        total += w;
        for (int d = 0; d < 3; ++d) {
            sum[d] += w * x_s[3 * i + d];
            plain[d] += x_s[3 * i + d];
        }
    }
    for (int d = 0; d < 3; ++d) com[d] = total > 0.0 ? sum[d] / total : plain[d] / natoms;
    return total;
}

// ---------------------------------------------------------------- cell and coordinates

namespace {
// Elimination against the identity, without pivoting: the lattice
// matrix is upper triangular, so its diagonal is not zero for a real cell.
Mat3 inverse_by_elimination(Mat3 a)
{
    Mat3 inv{};
    for (int i = 0; i < 3; ++i) inv[i][i] = 1.0;
    for (int c = 0; c < 3; ++c) {
        const double p = a[c][c];
        for (int j = 0; j < 3; ++j) {
            a[c][j] /= p;
            inv[c][j] /= p;
        }
        for (int r = 0; r < 3; ++r) {
            if (r == c) continue;
            const double f = a[r][c];
            for (int j = 0; j < 3; ++j) {
                a[r][j] -= f * a[c][j];
                inv[r][j] -= f * inv[c][j];
            }
        }
    }
    return inv;
}
}  // namespace

void FileIO::cell_cell6_to_latt3x3(const double* cell6, Mat3& L)
{
    const double a = cell6[0], b = cell6[1], c = cell6[2];
    const double ca = std::cos(units::radians(cell6[3]));
    const double cb = std::cos(units::radians(cell6[4]));
    const double cg = std::cos(units::radians(cell6[5]));
    const double sg = std::sin(units::radians(cell6[5]));
    L = Mat3{};
    L[0][0] = a;
    L[0][1] = b * cg;
    L[1][1] = b * sg;
    L[0][2] = c * cb;
    L[1][2] = c * (ca - cb * cg) / sg;
    L[2][2] = (c / sg) * std::sqrt(1.0 - ca * ca - cb * cb - cg * cg + 2.0 * ca * cb * cg);
    latt = L;
    latt_inv = inverse_by_elimination(latt);
}

void FileIO::set_cell_lattice(const double* abc, double alpha, double beta, double gamma)
{
    cell_latt = {abc[0], abc[1], abc[2], alpha, beta, gamma};
}

void FileIO::coord_f2c(double& x, double& y, double& z) const
{
    const Vec3 v = mat_vec_mul(latt, {x, y, z});
    x = v[0], y = v[1], z = v[2];
}

void FileIO::coord_c2f(double& x, double& y, double& z) const
{
    const Vec3 v = mat_vec_mul(latt_inv, {x, y, z});
    x = v[0], y = v[1], z = v[2];
}


void FileIO::get_cif_lattice_vectors(double* a, double* b, double* c) const
{
    for (int i = 0; i < 3; ++i) {
        a[i] = latt[i][0];
        b[i] = latt[i][1];
        c[i] = latt[i][2];
    }
}

// ---------------------------------------------------------------- structure dispatch

void FileIO::resize_mol_slots(int count)
{
    const size_t n = static_cast<size_t>(std::max(count, 0));
    mol_natoms.resize(n);
    mol_atypes.resize(n);
    mol_x.resize(n);
    mol_x_s.resize(n);
    mol_ids.resize(n);
    mol_mass.resize(n);
    mol_com.resize(3 * n);
    mol_com_s.resize(3 * n);
}

// Lays out the separated CIF molecules as per-molecule arrays, atoms in the
// order the separation added them. The Cartesian copies follow once each
// molecule is whole.
void FileIO::copy_cif_molecules()
{
    mol_count = static_cast<int>(cifmol_natoms.size());
    resize_mol_slots(mol_count);
    mol_names.resize(static_cast<size_t>(mol_count));
    size_t offset = 0;
    for (int m = 0; m < mol_count; ++m) {
        mol_names[m] = "mol" + std::to_string(m + 1) + ".mol";
        mol_natoms[m] = cifmol_natoms[m];
        mol_atypes[m].resize(static_cast<size_t>(mol_natoms[m]));
        mol_x_s[m].resize(3 * mol_atypes[m].size());
        for (size_t a = 0; a < mol_atypes[m].size(); ++a, ++offset) {
            const int k = cifmol_atoms[offset];
            mol_atypes[m][a] = cif_atypes[k];
            set_vec3_at(mol_x_s[m], a, vec3_at(cif_x_s, static_cast<size_t>(k)));
        }
    }
}

void FileIO::fill_mass_and_centres()
{
    for (int m = 0; m < mol_count; ++m) {
        Vec3 com;
        mol_mass[m] = centre_of_mass(mol_natoms[m], mol_atypes[m].data(), mol_x_s[m].data(), com);
        set_vec3_at(mol_com_s, m, com);
        set_vec3_at(mol_com, m, mat_vec_mul(latt, com));
    }
}

void FileIO::list_bonds()
{
    mol_bonds.assign(mol_natoms.size(), {});
    for (int m = 0; m < mol_count; ++m) {
        const std::vector<double>& x = mol_x[m];
        for (int i = 0; i + 1 < mol_natoms[m]; ++i) {
            const double ri = find_element_radius_from_index(mol_atypes[m][i]);
            for (int j = i + 1; j < mol_natoms[m]; ++j) {
                const double rj = find_element_radius_from_index(mol_atypes[m][j]);
                const Vec3 d = {x[3 * j] - x[3 * i], x[3 * j + 1] - x[3 * i + 1], x[3 * j + 2] - x[3 * i + 2]};
                if (get_magnitude(d) < (ri + rj) * bond_dis_scale) mol_bonds[m].emplace(i + 1, j + 1);
            }
        }
    }
}

void FileIO::write_side_files() const
{
    create_directory(output_dir.c_str());
    for (int m = 0; m < mol_count; ++m) {
        const std::string path = output_dir + "/mol" + std::to_string(m + 1) + "_bonds.dat";
        OutputFile f(path, "fileio", kLineBondsFile, "Failed to open output file ");
        f.print("%d\n", static_cast<int>(mol_bonds[m].size()));
        for (const auto& [i, j] : mol_bonds[m]) f.print("%3d %3d  0  0\n", i, j);
        f.commit();
    }
    OutputFile f(output_dir + "/cellvec.dat", "fileio", kLineCellFile, "Failed to open output file ");
    f.print("a = %9g %9g %9g\n", vec_a[0], vec_a[1], vec_a[2]);
    f.print("b = %9g %9g %9g\n", vec_b[0], vec_b[1], vec_b[2]);
    f.print("c = %9g %9g %9g\n", vec_c[0], vec_c[1], vec_c[2]);
    f.commit();
}

namespace {
double angle_deg(const Vec3& u, const Vec3& v)
{
    const double dot = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
    return units::degrees(std::acos(dot / (get_magnitude(u) * get_magnitude(v))));
}
}  // namespace

void FileIO::read_crystal_strcuture_files(bool binfo, bool write_files)
{
    if (mol_input_mode == 1) {
        for (int m = 0; m < mol_count; ++m) {  // each read lays out its molecule's slot
            // A count larger than the list of names reads a file without a name.
            const std::string name = m < static_cast<int>(mol_names.size()) ? mol_names[m] : "";
            read_data_mol(name.c_str(), m, binfo);
        }
    } else if (mol_input_mode == 2 && cif_by_crystal_reader) {
        read_cif_molecules();
    } else if (mol_input_mode == 2) {
        copy_cif_molecules();
        if (binfo) std::printf("Make whole molecules...\n");
        for (int m = 0; m < mol_count; ++m) {
            make_whole_molecule(m + 1, mol_natoms[m], mol_atypes[m].data(), mol_x_s[m].data(), binfo);
            mat_vec_mul_all(latt, mol_x_s[m], mol_x[m]);
        }
        get_cif_lattice_vectors(vec_a.data(), vec_b.data(), vec_c.data());
    } else {
        fatal("fileio", kLineNoInput, -1,
              "No input molecule data is available. (" + std::to_string(mol_input_mode) + ")\n");
    }

    len_a = get_magnitude(vec_a);
    len_b = get_magnitude(vec_b);
    len_c = get_magnitude(vec_c);
    for (int i = 0; i < 3; ++i) {
        latt[i] = {vec_a[i], vec_b[i], vec_c[i]};
        // Row i holds the i-th Cartesian component of a, b and c; scaling rows
        // rather than vectors is how the search range has always been laid out.
        for (int j = 0; j < 3; ++j) scell_latt[i][j] = latt[i][j] * scell_n[i];
    }
    if (mol_input_mode == 1) {
        const double volume = std::fabs(determinant(latt));
        const double box = len_a * len_b * len_c;
        // No volume at all is invert's own failure, whose message stands.
        if (volume >= kSingularDeterminant && !(volume > kFlatCell * box)) fatal("fileio", kLineFlatCell, 1, strprintf(kFlatCellText, volume, kFlatCell, box));
    }
    invert(latt, latt_inv);

    if (mol_input_mode == 1) {
        for (int m = 0; m < mol_count; ++m)
            mat_vec_mul_all(latt_inv, mol_x[m], mol_x_s[m]);
        cell_latt = {len_a, len_b, len_c, angle_deg(vec_b, vec_c), angle_deg(vec_a, vec_c),
                     angle_deg(vec_a, vec_b)};
    }
    for (int m = 0; m < mol_count; ++m) mol_ids[m] = m + 1;
    fill_mass_and_centres();
    list_bonds();
    if (write_files) write_side_files();
}
