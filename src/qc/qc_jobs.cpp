// The job array of the quantum-chemistry stage: one task per calculation, then
// the collecting step once every task has ended, well or not (it names the
// calculations that failed and refuses to fill their classes).
#include <sys/stat.h>

#include <filesystem>

#include "mmutil.h"
#include "qc_errors.h"
#include "qc_stage.h"
#include "transport.h"

namespace qc {

using namespace qc_error;

namespace {

const char* const kScript = "qc_job.sh";

// Arguments: tasks, scheduler, kelta_qc, the configuration file, the module line.
const char* const kHead =
    "#!/bin/sh\n"
    "# The quantum-chemistry calculations of kelta_qc as a job array of %d tasks (%s), one calculation each,\n"
    "# then kelta_qc -collect, which fills the couplings file, once every task has ended. Written by\n"
    "# kelta_qc -jobscript; run it from this directory:  sh qc_job.sh\n"
    "# A finished calculation is never run again: submitting the script a second time runs what is left.\n"
    "QC='%s'\n"
    "CONFIG='%s'\n"
    "%s"
    "\n"
    "# task K: one calculation of the plan that kelta_qc prints\n"
    "task() {\n"
    "    case \"$1\" in\n";
const char* const kTaskLine = "        %d) set -- %d ;;  # %s\n";
const char* const kTail =
    "        *) echo \"qc_job.sh: no task $1\" >&2; exit 1 ;;\n"
    "    esac\n"
    "    exec \"$QC\" -config \"$CONFIG\" -task \"$1\"\n"
    "}\n"
    "collect() {\n"
    "    exec \"$QC\" -config \"$CONFIG\" -collect\n"
    "}\n"
    "\n";

// Arguments: tasks, threads, queue, node list, threads, queue, node list.
const char* const kSlurm =
    "case \"${1:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        array=$(sbatch --parsable --job-name=qc --array=1-%d --cpus-per-task=%d --partition='%s'%s --chdir=\"$PWD\" \\\n"
    "            --output=qc_task_%%a.log \"$0\" task)\n"
    "        array=${array%%%%;*}\n"
    "        collect=$(sbatch --parsable --job-name=qc_collect --partition='%s'%s --chdir=\"$PWD\" \\\n"
    "            --dependency=afterany:\"$array\" --output=qc_collect.log \"$0\" collect)\n"
    "        echo \"submitted: the calculations as job array $array, the collecting step as job ${collect%%%%;*}\" ;;\n"
    "    task) task \"$SLURM_ARRAY_TASK_ID\" ;;\n"
    "    collect) collect ;;\n"
    "esac\n";

// Arguments: tasks, threads, queue, queue.
const char* const kPbs =
    "case \"${QC_PART:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        array=$(qsub -N qc -J 1-%d -l select=1:ncpus=%d -q '%s' -j oe -o qc_task.log -v QC_PART=task,QC_DIR=\"$PWD\" \"$0\")\n"
    "        collect=$(qsub -N qc_collect -q '%s' -j oe -o qc_collect.log -W depend=afterany:\"$array\" \\\n"
    "            -v QC_PART=collect,QC_DIR=\"$PWD\" \"$0\")\n"
    "        echo \"submitted: the calculations as job array $array, the collecting step as job $collect\" ;;\n"
    "    task) cd \"$QC_DIR\"; task \"${PBS_ARRAY_INDEX:-$PBS_ARRAYID}\" ;;\n"
    "    collect) cd \"$QC_DIR\"; collect ;;\n"
    "esac\n";

// Arguments: tasks, threads, queue, hosts, queue, hosts.
const char* const kLsf =
    "case \"${1:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        bsub -J 'qc[1-%d]' -n %d -q '%s'%s -o 'qc_task_%%I.log' sh \"$0\" task\n"
    "        bsub -J qc_collect -q '%s'%s -w 'ended(qc)' -o qc_collect.log sh \"$0\" collect ;;\n"
    "    task) task \"$LSB_JOBINDEX\" ;;\n"
    "    collect) collect ;;\n"
    "esac\n";

// Arguments: tasks.
const char* const kLocal =
    "cd \"$(dirname \"$0\")\"\n"
    "k=1\n"
    "while [ \"$k\" -le %d ]; do\n"
    "    (task \"$k\") > \"qc_task_$k.log\" 2>&1 || echo \"task $k failed: see qc_task_$k.log\"\n"
    "    k=$((k + 1))\n"
    "done\n"
    "(collect) > qc_collect.log 2>&1 || { echo \"the collecting step failed: see qc_collect.log\"; exit 1; }\n"
    "echo \"done: the couplings file is filled (qc_collect.log)\"\n";


// KELTA_BIN_DIR names the programs' directory when set; otherwise that of the
// running program when kelta_qc stands there, else PATH finds it.
std::string qc_program()
{
    if (const char* dir = std::getenv("KELTA_BIN_DIR")) return std::string(dir) + "/kelta_qc";
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec).parent_path() / "kelta_qc";
    if (!ec && is_regular_file(self.string())) return self.string();
    return "kelta_qc";
}

}  // namespace

std::string write_qc_job(const Transport& t, const Plan& p, const std::vector<int>& tasks, const std::string& config)
{
    std::string sched = t.job.sched_type;
    for (char& c : sched) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (sched != "slurm" && sched != "pbs" && sched != "lsf" && sched != "local")
        fatal(kModule, kLineScript, 1,
              strprintf("sched_type = %s: kelta_qc -jobscript writes scripts for slurm, pbs, lsf and local only\n",
                        t.job.sched_type.c_str()));
    const int n = static_cast<int>(tasks.size());
    const int threads = t.job.qc_ppn;
    const std::string module = t.job.module_qc_given ? "module load '" + shell_quoted(t.job.module_qc) + "'\n" : "";
    OutputFile f(kScript, kModule, kLineScript);
    f.print(kHead, n, sched.c_str(), shell_quoted(qc_program()).c_str(), shell_quoted(config).c_str(), module.c_str());
    for (int k = 0; k < n; ++k)
        f.print(kTaskLine, k + 1, tasks[static_cast<size_t>(k)] + 1, p.calcs[static_cast<size_t>(tasks[static_cast<size_t>(k)])].name.c_str());
    f.write(kTail);
    const std::string queue = shell_quoted(t.job.queue_name);
    if (sched == "slurm") {
        const std::string nodes = t.job.nodelist.empty() ? "" : " --nodelist='" + shell_quoted(t.job.nodelist) + "'";
        f.print(kSlurm, n, threads, queue.c_str(), nodes.c_str(), queue.c_str(), nodes.c_str());
    } else if (sched == "pbs") {
        f.print(kPbs, n, threads, queue.c_str(), queue.c_str());
    } else if (sched == "lsf") {
        const std::string hosts = t.job.nodelist.empty() ? "" : " -m '" + shell_quoted(t.job.nodelist) + "'";
        f.print(kLsf, n, threads, queue.c_str(), hosts.c_str(), queue.c_str(), hosts.c_str());
    } else {
        f.print(kLocal, n);
    }
    f.commit();
    chmod(kScript, 0755);
    return kScript;
}

}  // namespace qc
