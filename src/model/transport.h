// src/model: what every stage after the input reads. The Transport class: the
// run's transport state (track directory and unit, carrier, electron counts) and
// the neighbour list of molecule pairs; pairs.h: the hops grouped into classes of
// equivalent pairs and the couplings file. Below the analysis, the hopping
// simulation and the quantum-chemistry stage, which never see one another.
#pragma once

#include <string>
#include <vector>

#include "kelta_inp.h"

class Transport : public KeltaInp {
public:
    Transport();

    void set_trackdir(const char* dir) { trackdir = dir; }
    void set_trackdir(const std::string& dir) { trackdir = dir; }
    double get_track_timeunit() const { return track_timeunit; }
    void set_track_timeunit(double unit) { track_timeunit = unit; }
    // The Einstein relation at temp: cm^2/(V s) per Angstrom^2 per track time unit
    // of the slope of the squared displacement along one direction (the slope is
    // 2 D; units.h says which kB).
    double mobility_per_slope() const { return units::mobility_per_slope(temp, track_timeunit); }
    bool get_unique_uc_mol_one_calc_flag() const { return unique_uc_mol_one_calc; }
    bool get_unique_nei_mol_one_calc_flag() const { return unique_nei_mol_one_calc; }
    bool get_unique_2mol_calc_flag() const { return unique_2mol_calc; }
    bool get_unique_RE_calc_flag() const { return unique_RE_calc; }

    void calc_homo();
    void read_charge_inp();
    // temp.inp replaces temp when it opens and its first line is a number (for
    // every later analysis and for the simulation alike); a temperature that is
    // not finite and positive ends the run (module, line) before any file is written.
    void read_temp_inp(const char* module, int line);
    void build_neighbor_list(bool verbose);
    bool found_molecule_within_rcut(int i, int j, const Vec3& cell, double rcut_sq,
                                    double* out_rsq) const;
    void allocate_mol_id_indexes_array();
    // Warns when lat_cutoff reaches neighbours beyond the cells that nei_scell
    // searches, with the smallest nei_scell that finds them all.
    void check_search_range();

    // ------------------------------------------------ run state: set by main and init,
    // read by the analyses
    std::string trackdir = "track";
    double track_timeunit = 1.0e-9;  // seconds per track time unit
    std::string charge = "e";        // carrier letter from charge.inp
    int ntime = 0;                   // time points used per trajectory
    int ndim = 3;
    std::string dir_HL = "HL", dir_RE = "RE", dir_scr = "scr", dir_RUN = "RUN", dir_check = "check";
    std::string workdir;
    std::vector<int> homo;  // [mol_count] highest occupied orbital index

    // ------------------------------------------------ neighbour list: written by
    // build_neighbor_list, read by the later stages of the suite
    int NNEIMAX = 300;
    bool neighbor_list_built = false;
    bool debug = false;
    std::vector<int> num_neighbors;                 // [mol_count]
    std::vector<std::vector<int>> neighbor_ids;     // [mol_count][NNEIMAX] 0-based molecule
    std::vector<std::vector<int>> neighbor_cell_a;  // [mol_count][NNEIMAX] cell offsets
    std::vector<std::vector<int>> neighbor_cell_b;
    std::vector<std::vector<int>> neighbor_cell_c;
    std::vector<std::vector<int>> neighbor_flag;       // [mol_count][NNEIMAX] filled later
    std::vector<std::vector<double>> neighbor_rsq;     // [mol_count][NNEIMAX] filled later
    std::vector<std::vector<Vec3>> neighbor_vec;       // [mol_count][NNEIMAX] filled later
    std::vector<Vec3> mol_vec;                         // [mol_count] filled later
    std::vector<int> uc_mol_id, uc_mol_index, nei_mol_id, nei_mol_index;  // [mol_count]
    std::vector<std::vector<int>> pair_id, pair_index;  // [mol_count][num_neighbors]
};
