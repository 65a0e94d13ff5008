// The batch scripts of kelta_kmc -jobscript run for real: the local one here,
// the SLURM one on a single-node cluster that tests/slurm_cluster.sh starts
// (root and Debian's slurmctld, slurmd and munge; skipped elsewhere). Either
// must leave the tracks of a run in one process, and the analysis; so must the
// script of a temperature series, in the folder of each temperature.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// kmc_job.sh for `sched` in dir/job, and the tracks of one process in dir/one.
void write_job_and_reference(const fs::path& dir, const std::string& sched)
{
    lay_kmc_run(dir / "one", "  sched_type = " + sched + "\n");
    lay_kmc_run(dir / "job", "  sched_type = " + sched + "\n");
    fs::current_path(dir / "one");
    ASSERT_EQ(run_kmc({"-timeunit", "PS"}).status, 0);
    fs::current_path(dir / "job");
    setenv("KELTA_BIN_DIR", fs::path(KELTA_KMC_EXE).parent_path().c_str(), 1);
    const Outcome o = run_kmc({"-timeunit", "PS", "-jobscript", "5"});
    unsetenv("KELTA_BIN_DIR");
    fs::current_path(dir);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
}

// The series' kmc_job.sh (250 and 300 K, 2 slices each) for `sched` in
// dir/series, and the tracks of one process at each temperature in dir/one_T.
void write_series_job_and_reference(const fs::path& dir, const std::string& sched)
{
    for (const char* T : {"250", "300"}) {
        lay_kmc_run(dir / (std::string("one_") + T), std::string("  temp = ") + T + "\n");
        fs::current_path(dir / (std::string("one_") + T));
        ASSERT_EQ(run_kmc({"-timeunit", "PS"}).status, 0);
    }
    lay_kmc_run(dir / "series", "  sched_type = " + sched + "\n  do_transport_run_MC = 0\n  do_transport_run_MC_temp = 1\n"
                                "  start_temp = 250\n  end_temp = 300\n  delta_temp = 50\n");
    fs::current_path(dir / "series");
    setenv("KELTA_BIN_DIR", fs::path(KELTA_KMC_EXE).parent_path().c_str(), 1);
    const Outcome o = run_kmc({"-timeunit", "PS", "-jobscript", "2"});
    unsetenv("KELTA_BIN_DIR");
    fs::current_path(dir);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
}

void expect_the_series_of_one_process(const fs::path& dir)
{
    for (const char* T : {"250", "300"}) {
        const fs::path folder = dir / "series" / (std::string("T_") + T);
        EXPECT_EQ(track_files(folder), track_files(dir / (std::string("one_") + T))) << T;
        EXPECT_NE(read_file(folder / "mob_tensor.dat").find("principal_1"), std::string::npos) << T;
    }
    const std::string table = read_file(dir / "series/me_temp.dat");
    EXPECT_NE(table.find("# fit kmc_avg"), std::string::npos) << table;  // both temperatures simulated
    EXPECT_NE(read_file(dir / "series/kmc_mob.log").find("*** Successfully done."), std::string::npos);
}

void expect_the_run_of_one_process(const fs::path& dir)
{
    const auto job = track_files(dir / "job");
    EXPECT_EQ(job.size(), 12u);
    EXPECT_EQ(job, track_files(dir / "one"));
    EXPECT_NE(read_file(dir / "job/kmc_mob.log").find("*** Succsessfully done."), std::string::npos);
    EXPECT_NE(read_file(dir / "job/mob_tensor.dat").find("principal_1"), std::string::npos);
}

}  // namespace

TEST(JobScripts, LocalScriptRunsTheSlicesThenTheAnalysis)
{
    const ScratchDir dir;
    write_job_and_reference(dir.path(), "local");
    const Outcome r = shell("cd job && sh kmc_job.sh");
    ASSERT_EQ(r.status, 0) << r.out;
    expect_the_run_of_one_process(dir.path());
    EXPECT_NE(read_file("job/kmc_slice_5.log").find("  2 trajectories (11 to 12) of 1 ps"), std::string::npos);

    write_series_job_and_reference(dir.path(), "local");
    const Outcome series = shell("cd series && sh kmc_job.sh");
    ASSERT_EQ(series.status, 0) << series.out;
    expect_the_series_of_one_process(dir.path());
}

// The cluster is stopped whatever happens to the test.
TEST(JobScripts, SlurmRunsTheArrayThenTheAnalysis)
{
    const ScratchDir dir;
    const std::string cluster = (dir.path() / "cluster").string(), script = KELTA_SOURCE_DIR "/tests/slurm_cluster.sh";
    const Outcome started = shell("'" + script + "' start '" + cluster + "'");
    const std::shared_ptr<void> stop(nullptr, [&](void*) { shell("'" + script + "' stop '" + cluster + "'"); });
    if (started.status == 77) GTEST_SKIP() << started.out;
    ASSERT_EQ(started.status, 0) << started.out;
    write_job_and_reference(dir.path(), "slurm");
    write_series_job_and_reference(dir.path(), "slurm");
    const std::string slurm = "export SLURM_CONF='" + cluster + "/slurm.conf' PATH=$PATH:/usr/sbin; ";
    for (const char* job : {"job", "series"}) {  // one run, and a temperature series: 2 temperatures x 2 slices
        const Outcome submitted = shell(slurm + "cd '" + (dir.path() / job).string() + "' && sh kmc_job.sh");
        ASSERT_EQ(submitted.status, 0) << submitted.out;
        EXPECT_NE(submitted.out.find("submitted: the slices as job array"), std::string::npos) << submitted.out;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (!shell(slurm + "squeue -h").out.empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << shell(slurm + "squeue").out;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    expect_the_run_of_one_process(dir.path());
    expect_the_series_of_one_process(dir.path());
    for (int k = 1; k <= 5; ++k) EXPECT_NE(read_file(dir.path() / strprintf("job/kmc_slice_%d.log", k)).find("*** Successfully done."), std::string::npos) << k;
}
