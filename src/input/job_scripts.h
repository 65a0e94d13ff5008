// Scheduler and quantum-chemistry settings of the suite, filled from the input
// file and the environment, and the batch script of the hopping simulation.
#pragma once

#include <string>
#include <vector>

class OutputFile;

class Jobscript {
public:
    // Trajectories first .. first + count - 1 (from 1).
    struct Slice {
        long first, count;
    };
    // `trajectories` split into k slices as even as can be, the larger first.
    static std::vector<Slice> slices(long trajectories, int k);
    // Where the script finds kelta_kmc and kelta_mob: KELTA_BIN_DIR when set, else
    // the running program's directory when kelta_mob stands there, else "" (PATH).
    static std::string program_dir();
    // Writes kmc_job.sh for sched_type (slurm, pbs, lsf or local; status 1 for
    // another): a job array of k slices of kelta_kmc, then kelta_mob -tensor,
    // both with -config `config` and -timeunit `unit` (PS or NS); `force` passes
    // -force to every slice (a run the estimate refuses). Returns its name.
    std::string write_kmc_job(long trajectories, int k, const std::string& config, const std::string& unit,
                              bool force = false) const;
    // The same for a temperature series: every folder (one per temperature, laid
    // out for its run) times k slices as one job array, each slice run in its
    // folder with -config kelta.inp; then kelta_mob -tensor in every folder and
    // kelta_kmc -config `config` -collect.
    std::string write_kmc_series_job(const std::vector<std::string>& folders, long trajectories, int k,
                                     const std::string& config, const std::string& unit, bool force = false) const;

    // ------------------------------------------------ settings: written by the input
    // file reader and the environment
    std::string sched_type = "pbs";  // pbs, slurm, lsf or local
    std::string queue_name = "workq";
    std::string nodelist;
    bool sched_job_array = false;
    std::string module_mpich2 = "mpich2/1.5-gnu-5.4.0";
    bool module_mpich2_given = false;
    std::string module_qc = "gaussian/g09.e01";
    bool module_qc_given = false;
    std::string qc_exe = "g09";
    bool qc_exe_given = false;  // by the file or KELTA_QC_EXE; otherwise compute_engine = 4 makes it psi4
    int qc_nodes = 1;
    int qc_ppn = 8;
    std::string scratch = "/tmp";  // kept exactly as written after '=' (leading blank too)

private:
    void write_submission(OutputFile& f, const std::string& sched, int tasks, const char* done) const;
};
