// src/crystal: the crystal structure, above util and below everything else. The
// FileIO class (the base of the configuration and run objects) with the element
// table, the cell and its coordinates, the CIF and MOL readers that kelta_mob
// uses, the P1 expansion and the separation into molecules, spread over
// fileio_*.cpp; fileio_errors.h holds the numbers of its refusals.
#pragma once

#include <array>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "mmutil.h"

// One record of the element table, indexed by atomic number (0 is a dummy).
struct Element {
    char symbol[3];  // two characters, a blank second one for one-letter symbols
    double mass;     // amu
    int radius1;     // bond radius in 1/250 Angstrom
    int radius2;     // 1/250 Angstrom, unused here
    int code;        // unused here
    const char* name;
};

constexpr int kNumElements = 104;
extern const std::array<Element, kNumElements> Elements_m;
extern const std::array<double, kNumElements> _nw_elem_radius_m;  // covalent radius, Angstrom

// Radius reported for a symbol that is not in the table; it bonds to everything
// within the scaled sum, so an unknown atom pulls its neighbours into its molecule.
constexpr double kUnknownRadius = 9999.99;

// Bounds on the numbers of a structure; beyond them the geometry means nothing
// (and the bond searches would work on infinities).
constexpr double kMaxLength = 1e6;  // Angstrom: coordinates, cell lengths, cell vectors
constexpr double kMaxCells = 1e3;   // fractional coordinates, symmetry operation entries
// Most atoms a cell may hold before duplicates are removed: the molecule searches
// compare atoms pairwise, and a larger cell would take minutes.
constexpr int kMaxCellAtoms = 10000;

// Ends the run (status -1) with a message naming the file, line, what was read and
// its value when the value is not finite or its magnitude exceeds `limit`.
void check_finite(const std::string& file, int line, const std::string& what, double value, double limit);

// A text input that counts the lines it has given, for messages; a CR before the
// line end is dropped, so that CRLF files (benzene_crlf_v2000) read alike.
class LineInput {
public:
    LineInput(std::istream& in, std::string name) : in_(in), name_(std::move(name)) {}
    bool get(std::string& s);
    int line() const { return line_; }
    const std::string& name() const { return name_; }

private:
    std::istream& in_;
    std::string name_;
    int line_ = 0;
};

class FileIO {
public:
    FileIO();

    // ------------------------------------------------ element lookups
    // Index operations accept any int: an index outside the table (the -1 of an
    // unknown symbol) reads the dummy entry 0, so it never indexes past the tables;
    // only its bond radius is the unknown-symbol radius kUnknownRadius instead.
    int find_element_index_from_name(const char* name) const;
    double find_element_radius_from_name(const char* name) const;
    void find_element_name_from_index(int index, char* out) const;
    double find_element_mass_from_index(int index) const;
    double find_element_radius_from_index(int index) const;
    double find_element_radius_from_index_nw(int index) const;
    void find_element_name_from_mass(double mass, char* out) const;

    // ------------------------------------------------ cell and coordinates
    void cell_cell6_to_latt3x3(const double* cell6, Mat3& L);
    void set_cell_lattice(const double* abc, double alpha, double beta, double gamma);
    void coord_f2c(double& x, double& y, double& z) const;
    void coord_c2f(double& x, double& y, double& z) const;
    const double* get_cell_latt() const { return cell_latt.data(); }
    void get_cif_lattice_vectors(double* a, double* b, double* c) const;

    // ------------------------------------------------ readers and dispatch
    void read_data_cif(const char* filename, bool binfo);
    void read_data_mol(const char* filename, int index, bool binfo);
    void read_crystal_strcuture_files(bool binfo, bool write_files);
    // The hopping simulation's reading of a CIF: the crystal reader (fileio_gemmi)
    // and its molecules (find_molecules with bond_dis_scale) fill the per-molecule
    // arrays, largest kind first; read_crystal_strcuture_files calls it when
    // cif_by_crystal_reader is set.
    void read_cif_molecules();

    // ------------------------------------------------ symmetry
    static void ParseTransformString(const std::string& op, Mat3& R, Vec3& t);
    void make_spacegroup_P1(int use_fractional);

    // ------------------------------------------------ molecule separation
    void separate_cif_molecules(bool binfo);
    void find_bond_atom(int natoms, const int* unassigned, int nmember, const int* members,
                        int* out_atom, int* out_member, double* out_dist) const;
    void make_whole_molecule(int mol_number, int natoms, const int* atypes, double* x_s, bool binfo);
    void find_bond_atom_one(int natoms, double* x_s, const double* radius, const int* unassigned,
                            int nmember, const int* members, int* out_atom, int* out_member,
                            double* out_dist) const;

    // ------------------------------------------------ cell: written by the readers and the
    // configuration, read by the neighbour list and the axis analysis
    std::array<double, 6> cell_latt;  // a, b, c (Angstrom), alpha, beta, gamma (degrees)
    Mat3 latt{};                      // columns are a, b, c: Cartesian = latt . fractional
    Mat3 latt_inv{};
    Vec3 vec_a{}, vec_b{}, vec_c{};  // cell vectors; the vector_a/b/c keywords write them
    double len_a{}, len_b{}, len_c{};
    std::array<int, 3> scell_n{3, 3, 3};  // nei_scell: cells searched on each side
    Mat3 scell_latt{};                    // rows of latt scaled by scell_n (row-wise on purpose)
    double bond_dis_scale = 1.15;
    bool flag_detail_print = false;  // prints every symmetry operation while expanding
    std::string output_dir = "kelta_files";  // bond and cell side files (never written here)

    // ------------------------------------------------ structure source: written by the
    // configuration reader, read by read_crystal_strcuture_files
    int mol_input_mode = 0;               // 1 MOL files, 2 CIF file
    // Set before the input is read: the keyword crystal then only names the file
    // (cif_filename), which read_crystal_strcuture_files reads with the crystal
    // reader of the hopping simulation instead of read_data_cif.
    bool cif_by_crystal_reader = false;
    std::vector<std::string> mol_names;   // [mol_count]

    // ------------------------------------------------ molecules: written by the dispatch,
    // read by the transport model and the analyses
    int mol_count = 0;
    std::vector<int> mol_natoms;                // [mol_count]
    std::vector<std::vector<int>> mol_atypes;   // [mol_count][natoms] atomic numbers, -1 unknown
    std::vector<std::vector<double>> mol_x;     // [mol_count][3*natoms] Cartesian, Angstrom
    std::vector<std::vector<double>> mol_x_s;   // [mol_count][3*natoms] fractional
    std::vector<int> mol_ids;                   // [mol_count] 1..mol_count
    std::vector<double> mol_mass;               // [mol_count] amu
    std::vector<double> mol_com;                // [3*mol_count] Cartesian centres of mass
    std::vector<double> mol_com_s;              // [3*mol_count] fractional centres of mass
    std::vector<std::multimap<int, int>> mol_bonds;  // [mol_count] bonded pairs (i, j), 1-based
    // Hill formula of molecule m ("C10H8"); elements outside the table are left out.
    std::string mol_formula(int m) const;
    // Each kind of molecule with its count, in the order the kinds first appear:
    // "4 x C6H6"; "2 x C20H14O2, 2 x C12H8N2" for a co-crystal.
    std::string mol_kinds() const;

    // ------------------------------------------------ CIF content: written by the CIF reader,
    // expansion and separation, read by the dispatch
    std::string cif_filename, identifier, chemical_name, spacegroup_name;
    int spacegroup_number = 0;
    std::vector<std::string> symm_ops;
    std::vector<std::string> cif_labels, cif_symbols, cif_fx, cif_fy, cif_fz;  // [rows]
    int cif_natoms = 0;
    std::vector<int> cif_atypes;        // [cif_natoms] element index, -1 when unknown
    std::vector<double> cif_nw_radius;  // [cif_natoms] covalent radius, 9999.99 when unknown
    std::vector<double> cif_x_s;        // [3*cif_natoms] fractional
    std::vector<double> cif_x;          // [3*cif_natoms] Cartesian
    std::vector<int> cifmol_natoms;     // [molecules] atoms per separated molecule
    std::vector<int> cifmol_atoms;      // atom indices of all molecules, concatenated

    // ------------------------------------------------ warnings: written by every stage of
    // the run, read by the run summary
    // Prints "WARNING: " + text on standard error and keeps text.
    void warn(const std::string& text);
    std::vector<std::string> warnings;  // in the order printed, without the prefix

    // Mass-weighted mean of n fractional triples into com[3]; returns the total mass.
    // Unknown elements weigh nothing; when nothing weighs (all unknown), the plain
    // mean is taken so that the centre is still a point of the molecule (a molecule
    // without atoms has no centre: not a number, and no neighbours either).
    double centre_of_mass(int natoms, const int* atypes, const double* x_s, Vec3& com) const;
    // mol_mass, mol_com_s and mol_com of every molecule; the neighbour list orders by them.
    void fill_mass_and_centres();

private:
    void resize_mol_slots(int count);
    void copy_cif_molecules();
    void list_bonds();
    void write_side_files() const;

    void read_mol_v2000(LineInput& in, const std::string& first_counts, int index);
    void add_coordinate(const LineInput& in, int index, double v);
    void ReadV3000Block(LineInput& in, int index, bool binfo);
    bool ReadV3000Line(LineInput& in, std::vector<std::string>& tokens);
    void ReadAtomBlock(LineInput& in, int index);
    void ReadBondBlock(LineInput& in);
    void ReadRGroupBlock(LineInput& in);
    void ReadUnimplementedBlock(LineInput& in, const std::string& name);
};
