// Scheduler and quantum-chemistry settings of the suite. The mobility tool only
// fills these fields from the input file and the environment; it writes no job.
#pragma once

#include <string>

class Jobscript {
public:
    std::string sched_type = "pbs";  // pbs, slurm, lsf or local
    std::string queue_name = "workq";
    std::string nodelist;
    bool sched_job_array = false;
    std::string module_mpich2 = "mpich2/1.5-gnu-5.4.0";
    bool module_mpich2_given = false;
    std::string module_qc = "gaussian/g09.e01";
    bool module_qc_given = false;
    std::string qc_exe = "g09";
    int qc_nodes = 1;
    int qc_ppn = 8;
    std::string scratch = "/tmp";  // kept exactly as written after '=' (leading blank too)
};
