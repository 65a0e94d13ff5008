// The quantum-chemistry stage kelta_qc on a tiny "crystal": one ethylene per
// cell, stacked cofacially along a (class 1) and shifted along b too (class 2),
// as kelta_kmc -pairs lays out the couplings file and dimers/. The plan, the
// refusals and the job script need no psi4; the runs do (HF/STO-3G, one thread,
// seconds each) and skip without it.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "main_qc.h"
#include "qc_couplings.h"
#include "qc_process.h"
#include "test_qc_support.h"
#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

const char* const kCouplings =
    "# Couplings of the hopping network, written by kelta_kmc -pairs for ethylene.cif\n"
    "#\n"
    "carrier = hole\n"
    "lambda_meV = NA\n"
    "#\n"
    "# class  mol_i mol_j  na nb nc   d_centre_A   d_min_A  d_heavy_A  pairs  V_meV\n"
    "      1      1     1   1  0  0      4.0000     4.0000     4.0000      2     NA\n"
    "      2      1     1   1  1  0      4.7170     3.9000     4.7170      2     NA  # kept\n"
    "#\n"
    "# Every hop of the cell's molecules and its class:\n"
    "#       1     1   1  0  0       4.0000      1\n";

std::string xyz(const qc::Geometry& g, const std::string& comment)
{
    std::string s = strprintf("%zu\n%s\n", g.size(), comment.c_str());
    for (const qc::Atom& a : g) s += strprintf("%s %.6f %.6f %.6f\n", qc::element_symbol(a.z).c_str(), a.x[0], a.x[1], a.x[2]);
    return s;
}

// The working directory of the stage: kelta.inp with `more`, charge.inp, the
// couplings file and dimers/.
void lay_stage(const fs::path& dir, const std::string& more = "")
{
    const qc::Geometry m = qctest::ethylene();
    write_file(dir / "dimers/molecule_1.xyz", xyz(m, "molecule 1 of the cell: C2H4"));
    write_file(dir / "dimers/class_001.xyz",
               xyz(qctest::joined(m, qctest::moved(m, {4, 0, 0})), "class 1: molecule 1 and molecule 1 in cell 1 0 0"));
    write_file(dir / "dimers/class_002.xyz",
               xyz(qctest::joined(m, qctest::moved(m, {4, 2.5, 0})), "class 2: molecule 1 and molecule 1 in cell 1 1 0"));
    write_file(dir / "kelta-marcus.dat", kCouplings);
    write_file(dir / "charge.inp", "h\n");
    write_file(dir / "kelta.inp", "&transport\n  ratetype = marcus\n  compute_engine = 4\n  qc_basis = hf sto-3g\n"
                                  "  qc_basis_re = hf sto-3g\n  qc_memory = 500\n  qc_ppn = 1\n  scratch = " +
                                      (dir / "scratch").string() + "\n" + more + "/\n");
}

Outcome run_qc(std::vector<std::string> args) { return run_entry("kelta_qc", std::move(args), kelta_qc_main, 1); }

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A qc_exe that fails the dimer of class 2 after writing some output (psi4 -n N in out),
// and runs psi4 otherwise.
void lay_failing_engine(const fs::path& dir)
{
    write_file(dir / "flaky_psi4",
               "#!/bin/sh\ncase \"$PWD\" in\n  */class_002) printf 'SCF iteration 1\\nSCF did not converge in class 2\\n' > \"$4\"; exit 3 ;;\n"
               "esac\nexec psi4 \"$@\"\n");
    fs::permissions(dir / "flaky_psi4", fs::perms::owner_all);
}

}  // namespace

// Filling keeps every other line byte for byte, finds V_meV by the header's
// column names, and a second filling replaces the first instead of adding to it.
TEST(QcStage, CouplingsFileIsFilledByItsColumnNames)
{
    const ScratchDir dir;
    write_file("c.dat", kCouplings);
    const qc::CouplingsText c = qc::read_couplings_text("c.dat");
    ASSERT_EQ(c.rows.size(), 2u);
    EXPECT_EQ(c.carrier, "hole");
    EXPECT_EQ(c.rows[1].cls, 2);
    EXPECT_EQ(c.rows[1].cell, (std::array<int, 3>{1, 1, 0}));
    EXPECT_DOUBLE_EQ(c.rows[1].d_centre, 4.717);

    qc::Filling f;
    f.V_meV = {108.915, std::nan("")};
    f.lambda_meV = 1161.34;
    f.comments = {"# kelta_qc: first"};
    write_file("c.dat", qc::filled_text(c, f));
    std::string expected = kCouplings;
    expected.replace(expected.find("lambda_meV = NA\n"), 16, "lambda_meV = 1161.3\n# kelta_qc: first\n");
    expected.replace(expected.find("     2     NA\n"), 14, "     2 108.915\n");
    EXPECT_EQ(read_file("c.dat"), expected);

    f.V_meV = {40.0, 7.25};
    f.comments = {"# kelta_qc: second"};
    f.site_meV = {0.0};
    const std::string again = qc::filled_text(qc::read_couplings_text("c.dat"), f);
    EXPECT_FALSE(has(again, "first")) << again;
    EXPECT_TRUE(has(again, "lambda_meV = 1161.3\n# kelta_qc: second\nsite_meV = 1 0.000\n#\n")) << again;
    EXPECT_TRUE(has(again, "4.0000      2  40.000\n")) << again;
    EXPECT_TRUE(has(again, "4.7170      2  7.250  # kept\n")) << again;

    write_file("bad.dat", "# class mol_i mol_j na nb nc V_meV\n 1 1 1 0 0 NA\n");
    const Outcome o = capture([] { qc::read_couplings_text("bad.dat"); });
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(has(o.out, "bad.dat line 2: 6 columns where the header comment names 7")) << o.out;
}

// Without psi4: the plan's count, the job array written for SLURM, and the
// refusals of another engine and of a class file that is not its molecules.
TEST(QcStage, PlanJobArrayAndRefusals)
{
    const ScratchDir dir;
    lay_stage(dir.path(), "  sched_type = slurm\n  qc_ppn = 2\n");
    setenv("KELTA_BIN_DIR", fs::path(KELTA_QC_PROGRAM).parent_path().c_str(), 1);
    Outcome o = run_qc({"-jobscript"});
    unsetenv("KELTA_BIN_DIR");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(has(o.out, "3 calculations for the couplings (1 molecules and 2 dimers; 3 per class would be 6), 1 for the "
                           "reorganisation energy (C2H4)")) << o.out;
    EXPECT_TRUE(has(o.out, "wrote qc_job.sh: 4 calculation(s) as a job array for slurm")) << o.out;
    const std::string script = read_file("qc_job.sh");
    EXPECT_TRUE(has(script, "--array=1-4 --cpus-per-task=2")) << script;
    EXPECT_TRUE(has(script, "--dependency=afterany:")) << script;
    EXPECT_TRUE(has(script, "        3) set -- 3 ;;  # HL/class_002\n")) << script;
    EXPECT_TRUE(has(read_file("HL/class_002/psi4.in"), "set basis sto-3g")) << "the inputs are written first";

    // Each dimer computing its own two molecules: three calculations per class.
    lay_stage(dir.path(), "  HL_unique_mol = 0\n  sched_type = local\n");
    o = run_qc({"-jobscript"});
    EXPECT_TRUE(has(o.out, "6 calculations for the couplings (4 molecules and 2 dimers")) << o.out;

    lay_stage(dir.path(), "  compute_engine = 1\n  qc_exe = g09\n");
    o = run_qc({});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(has(o.out, "line 510 :")) << o.out;
    EXPECT_TRUE(has(o.out, "compute_engine = 1 (Gaussian): kelta_qc runs psi4 only")) << o.out;

    lay_stage(dir.path());
    const qc::Geometry m = qctest::ethylene();
    write_file("dimers/class_002.xyz", xyz(qctest::joined(m, qctest::moved(m, {4, 0, 0}, Eigen::Vector3d::UnitZ(), 90)), "turned"));
    o = run_qc({"-collect"});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(has(o.out, "dimers/class_002.xyz is not molecule 1 followed by molecule 1")) << o.out;
}

// The whole stage with psi4: a calculation that fails is reported with its last
// lines while the others go on; the collecting step refuses its class; the job
// array then runs only what is left, and a further run redoes nothing.
TEST(QcStage, FailureResumeAndJobArrayWithPsi4)
{
    if (!qc::program_exists("psi4")) GTEST_SKIP() << "psi4 is not on PATH: the stage's runs need it";
    const ScratchDir dir;
    lay_failing_engine(dir.path());
    lay_stage(dir.path(), "  qc_exe = " + (dir.path() / "flaky_psi4").string() + "\n  sched_type = local\n");
    Outcome o = run_qc({});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(has(o.out, "[3/4] HL/class_002     class 2: molecules 1 and 1 in cell 1 1 0: FAILED after")) << o.out;
    EXPECT_TRUE(has(o.out, "    | SCF iteration 1\n    | SCF did not converge in class 2\n")) << o.out;
    EXPECT_TRUE(has(o.out, "[4/4] RE/molecule_1")) << o.out;
    EXPECT_TRUE(has(o.out, "  class 2 (HL/class_002 not finished)\n")) << o.out;
    std::string filled = read_file("kelta-marcus.dat");
    EXPECT_TRUE(has(filled, "4.0000      2 108.9")) << filled;  // class 1: 108.9 meV at HF/STO-3G
    EXPECT_TRUE(has(filled, "4.7170      2     NA  # kept\n")) << filled;
    EXPECT_TRUE(has(filled, "lambda_meV = 1161.")) << filled;  // 567.6 + 593.8
    o = run_qc({"-collect"});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(has(o.out, "line 560 :")) << o.out;

    lay_stage(dir.path(), "  sched_type = local\n");  // psi4 itself now
    write_file("kelta-marcus.dat", filled);
    setenv("KELTA_BIN_DIR", fs::path(KELTA_QC_PROGRAM).parent_path().c_str(), 1);
    o = run_qc({"-jobscript"});
    unsetenv("KELTA_BIN_DIR");
    EXPECT_TRUE(has(o.out, "wrote qc_job.sh: 1 calculation(s) as a job array for local")) << o.out;
    const Outcome job = shell("sh qc_job.sh");
    ASSERT_EQ(job.status, 0) << job.out << read_file("qc_task_1.log") << read_file("qc_collect.log");
    filled = read_file("kelta-marcus.dat");
    EXPECT_FALSE(has(filled, "NA")) << filled;
    EXPECT_TRUE(has(filled, "# kelta_qc (psi4): lambda of C2H4 = 1161.")) << filled;

    const auto written = fs::last_write_time("HL/class_001/psi4.out");
    o = run_qc({});
    EXPECT_EQ(o.status, 0) << o.out;
    EXPECT_EQ(fs::last_write_time("HL/class_001/psi4.out"), written);
    size_t before = 0;
    for (size_t at = 0; (at = o.out.find(": finished before\n", at)) != std::string::npos; ++at) ++before;
    EXPECT_EQ(before, 4u) << o.out;
}

// The job array on a single-node SLURM cluster (tests/slurm_cluster.sh; root and
// Debian's slurmctld, slurmd and munge), with psi4; skipped elsewhere.
TEST(QcStage, SlurmRunsTheCalculationsThenCollects)
{
    if (!qc::program_exists("psi4")) GTEST_SKIP() << "psi4 is not on PATH: the stage's runs need it";
    const ScratchDir dir;
    const std::string cluster = (dir.path() / "cluster").string(), script = KELTA_SOURCE_DIR "/tests/slurm_cluster.sh";
    const Outcome started = shell("'" + script + "' start '" + cluster + "'");
    const std::shared_ptr<void> stop(nullptr, [&](void*) { shell("'" + script + "' stop '" + cluster + "'"); });
    if (started.status == 77) GTEST_SKIP() << started.out;
    ASSERT_EQ(started.status, 0) << started.out;
    lay_stage(dir.path() / "run", "  sched_type = slurm\n");
    fs::current_path(dir.path() / "run");
    setenv("KELTA_BIN_DIR", fs::path(KELTA_QC_PROGRAM).parent_path().c_str(), 1);
    const Outcome o = run_qc({"-jobscript"});
    unsetenv("KELTA_BIN_DIR");
    ASSERT_EQ(o.status, 0) << o.out;
    const std::string slurm = "export SLURM_CONF='" + cluster + "/slurm.conf' PATH=$PATH:/usr/sbin; ";
    const Outcome submitted = shell(slurm + "sh qc_job.sh");
    ASSERT_EQ(submitted.status, 0) << submitted.out;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (!shell(slurm + "squeue -h").out.empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << shell(slurm + "squeue").out;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_TRUE(has(read_file("qc_collect.log"), "*** Successfully done.")) << read_file("qc_collect.log");
    EXPECT_FALSE(has(read_file("kelta-marcus.dat"), "NA")) << read_file("kelta-marcus.dat");
}
