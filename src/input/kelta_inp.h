// src/input: the suite's keyword input file kelta.inp (KeltaInp: defaults,
// environment presets, the reader and its checks) and the job settings it fills
// (job_scripts: the scheduler record and the batch scripts). Above the crystal
// structure, which the crystal keyword reads at once; below the model.
#pragma once

#include <string>
#include <vector>

#include "fileio.h"
#include "job_scripts.h"

// The hopping-rate model, chosen once when ratetype is read: Marcus, or
// Marcus-Levich-Jortner with one effective high-frequency mode.
enum class RateModel { marcus, quantum };

class KeltaInp : public FileIO {
public:
    KeltaInp();

    // Defaults (constructor, then these two), then the file; always true on return.
    bool read_kelta_inp(const char* path, bool verbose);
    void load_kelta_inp_file(const char* path, bool verbose);
    void set_varables_default();
    void get_environment_variables();

    int get_compute_engine() const { return compute_engine; }
    void set_compute_engine(int engine) { compute_engine = engine; }
    bool get_appE_flag() const { return app_elec_F_on; }
    int get_run_memory() const { return qc_memory; }

    // ------------------------------------------------ written by the reader, read by the run
    int nsimu = 0;
    double tsimu = 0, tsnap = 0, tstep = 0, temp = 0;
    std::string chargetype;
    double delta_angle = 0;
    double lat_cutoff = 0;
    int output_level = 0;  // bit 2: angle scans, bit 4: averaged-track files
    std::string ratetype, kelta_dat_file;
    RateModel rate_model = RateModel::quantum;  // from ratetype's prefix
    int seed = 0;  // the hopping simulation's random numbers: the same seed, the same tracks
    std::string config_file;  // the file read_kelta_inp read
    bool input_read = false;

    // ------------------------------------------------ suite settings the mobility run only stores
    int do_transport_prepare = 1, do_transport_submit_HL_job = 1, do_transport_submit_RE_job = 1,
        do_transport_get_transferintegral = 1, do_transport_get_re_evc = 1, do_transport_run_MC = 1,
        do_transport_get_mob_MC = 1, do_transport_run_MC_temp = 0, do_transport_get_mob_MC_temp = 0,
        do_transport_run_ME = 0, do_transport_get_mob_ME = 0, do_transport_run_ME_temp = 0,
        do_transport_get_mob_ME_temp = 0, do_transport_gather_kelta_data = 1;
    std::string mater_name, qc_method, qc_basis, qc_basis_re, evc_type;
    int qc_memory = 4096;
    int compute_engine = 1;
    double start_temp = 0, end_temp = 0, delta_temp = 0, maxt = 0;
    std::array<int, 3> super_cell{};
    int sta = 0, iterlimit = 0, nevery_out = 0;
    int RE_unique_mol = 1, HL_unique_mol = 1;
    std::vector<int> homo_adjustment, lumo_adjustment;
    int lat_site_energy = 0, output_eigval = 0, eckart_mirror = 0;
    Vec3 app_elec_F{};
    bool app_elec_F_on = false;
    // field_range = F_first F_last N: N field magnitudes (V/m) from F_first to
    // F_last, evenly spaced in ln F, along the direction of app_elec_F (the
    // hopping simulation's drift against field)
    Vec3 field_range{};
    bool field_range_on = false;
    std::string qc_inp_append;  // text of &qc_inp_append / &gaussian.append blocks
    Jobscript job;

    // Unique-molecule flags; they belong to the transport model but the reader sets them.
    bool unique_RE_calc = true, unique_uc_mol_one_calc = true, unique_nei_mol_one_calc = true,
         unique_2mol_calc = true;

private:
    void interpret_lines(const char* path);
    void set_keyword(const std::string& key, const std::string& value, const char* path);
    void check_settings();
    void set_molecule_files(const std::string& value);
    double length(const char* key, const std::string& value, double v) const;
    void set_length_triple(const char* key, const std::string& value, Vec3& vec);
    double temperature(const std::string& value);
    // The value kinds of numbers; each notes text it leaves unread.
    int integer(const std::string& value);
    double real(const std::string& value);
    void real_triple(const std::string& value, double* out);
    void int_triple(const std::string& value, int* out);
    void note_unread(const std::string& value, const char* end, const std::string& used);

    std::vector<std::string> lines_;  // the file, one entry per read; only during reading
    std::string path_;                // the file being read, and the line number of the
    int line_{};                      // setting being stored, for messages
    std::string key_;                 // the key being stored, as written
    std::string unread_;              // the first number followed by text, as its warning
    int unread_count_ = 0;            // lines with such numbers
    bool verbose_ = false;
};
