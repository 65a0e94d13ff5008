// Batch scripts that run the hopping simulation on a cluster: the trajectories
// split into slices that a job array runs, then the mobility analysis once every
// slice has ended well.
#include "job_scripts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "mmutil.h"

namespace {

const char* const kModule = "job_scripts";
constexpr int kLineScript = 120;
constexpr int kLineScheduler = 130;
const char* const kUnknownScheduler =
    "sched_type = %s: kelta_kmc -jobscript writes scripts for slurm, pbs, lsf and local only\n";

// Arguments: slices, trajectories, scheduler, kelta_kmc, kelta_mob, the
// configuration file, the time unit.
const char* const kHead =
    "#!/bin/sh\n"
    "# The hopping simulation as %d slices of the %ld trajectories (%s), then the mobility analysis once every\n"
    "# slice has ended well. Written by kelta_kmc -jobscript; run it from this directory:  sh kmc_job.sh\n"
    "# Each slice writes its own track files, byte for byte those of a run in one process.\n"
    "set -e\n"
    "KMC='%s'\n"
    "MOB='%s'\n"
    "CONFIG='%s'\n"
    "UNIT=%s\n"
    "\n"
    "# slice K: the trajectories of slice K (from 1)\n"
    "slice() {\n"
    "    case \"$1\" in\n";
const char* const kSliceLine = "        %d) set -- -first %ld -count %ld%s ;;\n";
const char* const kSliceTail =
    "        *) echo \"kmc_job.sh: no slice $1\" >&2; exit 1 ;;\n"
    "    esac\n"
    "    exec \"$KMC\" -config \"$CONFIG\" -timeunit \"$UNIT\" \"$@\"\n"
    "}\n"
    "analyse() {\n"
    "    exec \"$MOB\" -config \"$CONFIG\" -timeunit \"$UNIT\" -tensor\n"
    "}\n"
    "\n";

// Arguments: slices, queue, node list option, queue again, node list option.
const char* const kSlurm =
    "case \"${1:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        array=$(sbatch --parsable --job-name=kmc --array=1-%d --partition='%s'%s --chdir=\"$PWD\" \\\n"
    "            --output=kmc_slice_%%a.log \"$0\" slice)\n"
    "        array=${array%%%%;*}\n"
    "        mob=$(sbatch --parsable --job-name=kmc_mob --partition='%s'%s --chdir=\"$PWD\" \\\n"
    "            --dependency=afterok:\"$array\" --output=kmc_mob.log \"$0\" analyse)\n"
    "        echo \"submitted: the slices as job array $array, the analysis as job ${mob%%%%;*}\" ;;\n"
    "    slice) slice \"$SLURM_ARRAY_TASK_ID\" ;;\n"
    "    analyse) analyse ;;\n"
    "esac\n";

// Arguments: slices, queue, queue.
const char* const kPbs =
    "case \"${KMC_PART:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        array=$(qsub -N kmc -J 1-%d -q '%s' -j oe -o kmc_slice.log -v KMC_PART=slice,KMC_DIR=\"$PWD\" \"$0\")\n"
    "        mob=$(qsub -N kmc_mob -q '%s' -j oe -o kmc_mob.log -W depend=afterok:\"$array\" \\\n"
    "            -v KMC_PART=analyse,KMC_DIR=\"$PWD\" \"$0\")\n"
    "        echo \"submitted: the slices as job array $array, the analysis as job $mob\" ;;\n"
    "    slice) cd \"$KMC_DIR\"; slice \"${PBS_ARRAY_INDEX:-$PBS_ARRAYID}\" ;;\n"
    "    analyse) cd \"$KMC_DIR\"; analyse ;;\n"
    "esac\n";

// Arguments: slices, queue, node list option, queue, node list option.
const char* const kLsf =
    "case \"${1:-submit}\" in\n"
    "    submit)\n"
    "        cd \"$(dirname \"$0\")\"\n"
    "        bsub -J 'kmc[1-%d]' -q '%s'%s -o 'kmc_slice_%%I.log' sh \"$0\" slice\n"
    "        bsub -J kmc_mob -q '%s'%s -w 'done(kmc)' -o kmc_mob.log sh \"$0\" analyse ;;\n"
    "    slice) slice \"$LSB_JOBINDEX\" ;;\n"
    "    analyse) analyse ;;\n"
    "esac\n";

// Arguments: slices, what the run leaves.
const char* const kLocal =
    "cd \"$(dirname \"$0\")\"\n"
    "k=1\n"
    "while [ \"$k\" -le %d ]; do\n"
    "    (slice \"$k\") > \"kmc_slice_$k.log\"\n"
    "    k=$((k + 1))\n"
    "done\n"
    "(analyse) > kmc_mob.log\n"
    "echo \"done: %s\"\n";

// The temperature series. Arguments: temperatures, slices, trajectories,
// scheduler, kelta_kmc, kelta_mob, the configuration file, the time unit.
const char* const kSeriesHead =
    "#!/bin/sh\n"
    "# The temperature series of the hopping simulation: %zu temperatures x %d slices of the %ld trajectories (%s)\n"
    "# as one job array, then kelta_mob -tensor in every temperature's folder and the table me_temp.dat, once every\n"
    "# slice has ended well. Written by kelta_kmc -jobscript; run it from this directory:  sh kmc_job.sh\n"
    "# Each slice writes its own track files in its folder, byte for byte those of a run in one process.\n"
    "set -e\n"
    "KMC='%s'\n"
    "MOB='%s'\n"
    "CONFIG='%s'\n"
    "UNIT=%s\n"
    "\n"
    "# task K (from 1): a slice of the trajectories at one temperature, run in that temperature's folder\n"
    "slice() {\n"
    "    case \"$1\" in\n";
const char* const kSeriesLine = "        %d) set -- '%s' -first %ld -count %ld%s ;;\n";
const char* const kSeriesTail =
    "        *) echo \"kmc_job.sh: no slice $1\" >&2; exit 1 ;;\n"
    "    esac\n"
    "    cd \"$1\"\n"
    "    shift\n"
    "    exec \"$KMC\" -config kelta.inp -timeunit \"$UNIT\" \"$@\"\n"
    "}\n"
    "analyse() {\n"
    "    for dir in%s; do\n"
    "        (cd \"$dir\" && \"$MOB\" -config kelta.inp -timeunit \"$UNIT\" -tensor > kelta_mob.log)\n"
    "    done\n"
    "    exec \"$KMC\" -config \"$CONFIG\" -timeunit \"$UNIT\" -collect\n"
    "}\n"
    "\n";


}  // namespace

std::vector<Jobscript::Slice> Jobscript::slices(long trajectories, int k)
{
    std::vector<Slice> s;
    long first = 1;
    for (int i = 0; i < k; ++i) {
        const long count = trajectories / k + (i < trajectories % k ? 1 : 0);
        s.push_back({first, count});
        first += count;
    }
    return s;
}

// KELTA_BIN_DIR names the directory of the programs when set; otherwise that of
// the running kelta_kmc when kelta_mob stands beside it, else the PATH finds them.
std::string Jobscript::program_dir()
{
    if (const char* dir = std::getenv("KELTA_BIN_DIR")) return dir;
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec).parent_path();
    if (!ec && is_regular_file((self / "kelta_mob").string())) return self.string();
    return "";
}

namespace {

// The scheduler of sched_type in lower case; ends the run (status 1) for one
// without a script.
std::string scheduler(const std::string& sched_type)
{
    std::string sched = sched_type;
    for (char& c : sched) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (sched != "slurm" && sched != "pbs" && sched != "lsf" && sched != "local")
        fatal(kModule, kLineScheduler, 1, strprintf(kUnknownScheduler, sched_type.c_str()));
    return sched;
}

std::string program(const std::string& dir, const char* name) { return shell_quoted(dir.empty() ? name : dir + "/" + name); }

}  // namespace

// The submission of `tasks` array tasks and the analysis after them, for the
// scheduler; the local run says that it left `done`.
void Jobscript::write_submission(OutputFile& f, const std::string& sched, int tasks, const char* done) const
{
    const std::string queue = shell_quoted(queue_name);
    if (sched == "slurm") {
        const std::string nodes = nodelist.empty() ? "" : " --nodelist='" + shell_quoted(nodelist) + "'";
        f.print(kSlurm, tasks, queue.c_str(), nodes.c_str(), queue.c_str(), nodes.c_str());
    } else if (sched == "pbs") {
        f.print(kPbs, tasks, queue.c_str(), queue.c_str());
    } else if (sched == "lsf") {
        const std::string hosts = nodelist.empty() ? "" : " -m '" + shell_quoted(nodelist) + "'";
        f.print(kLsf, tasks, queue.c_str(), hosts.c_str(), queue.c_str(), hosts.c_str());
    } else {
        f.print(kLocal, tasks, done);
    }
}

std::string Jobscript::write_kmc_job(long trajectories, int k, const std::string& config, const std::string& unit,
                                     bool force) const
{
    const std::string sched = scheduler(sched_type), dir = program_dir();
    const std::string name = "kmc_job.sh";
    OutputFile f(name, kModule, kLineScript);
    f.print(kHead, k, trajectories, sched.c_str(), program(dir, "kelta_kmc").c_str(), program(dir, "kelta_mob").c_str(),
            shell_quoted(config).c_str(), unit.c_str());
    const std::vector<Slice> parts = slices(trajectories, k);
    for (size_t i = 0; i < parts.size(); ++i) f.print(kSliceLine, static_cast<int>(i) + 1, parts[i].first, parts[i].count, force ? " -force" : "");
    f.write(kSliceTail);
    write_submission(f, sched, k, "the tracks in track/, the mobility in mob_tensor.dat");
    f.commit();
    chmod(name.c_str(), 0755);
    return name;
}

std::string Jobscript::write_kmc_series_job(const std::vector<std::string>& folders, long trajectories, int k,
                                            const std::string& config, const std::string& unit, bool force) const
{
    const std::string sched = scheduler(sched_type), dir = program_dir();
    const std::string name = "kmc_job.sh";
    OutputFile f(name, kModule, kLineScript);
    f.print(kSeriesHead, folders.size(), k, trajectories, sched.c_str(), program(dir, "kelta_kmc").c_str(),
            program(dir, "kelta_mob").c_str(), shell_quoted(config).c_str(), unit.c_str());
    const std::vector<Slice> parts = slices(trajectories, k);
    int task = 0;
    std::string all;
    for (const std::string& folder : folders) {
        for (const Slice& part : parts) f.print(kSeriesLine, ++task, shell_quoted(folder).c_str(), part.first, part.count, force ? " -force" : "");
        all += " '" + shell_quoted(folder) + "'";
    }
    f.print(kSeriesTail, all.c_str());
    write_submission(f, sched, task, "the tracks in T_*/track/, the mobilities in me_temp.dat");
    f.commit();
    chmod(name.c_str(), 0755);
    return name;
}
