// The engine layer without the engine: the results-file reader, the psi4 inputs,
// the checks of a calculation and of its results, and running a program.
#include <gtest/gtest.h>

#include <filesystem>

#include "qc_matrix.h"
#include "qc_process.h"
#include "qc_psi4.h"
#include "test_qc_support.h"
#include "test_support.h"

using testsupport::capture;
using testsupport::read_file;
using testsupport::ScratchDir;
using testsupport::write_file;

namespace {
std::string qc_error(int code, const std::string& text)
{
    return "\nERROR  transport : qc : line " + std::to_string(code) + " : \n" + text;
}

qc::Calculation calculation(qc::CalcKind kind)
{
    qc::Calculation c;
    c.kind = kind;
    c.atoms = qctest::ethylene();
    if (kind == qc::CalcKind::DimerMatrices) {
        c.atoms = qctest::joined(c.atoms, qctest::moved(c.atoms, {3.5, 0, 0}));
        c.atoms_a = 6;
    }
    c.basis = "6-31g";
    return c;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
}  // namespace

TEST(QcMatrixFile, ReadsBlocksExactlyAndChecksTheirShapes)
{
    ScratchDir dir;
    write_file("r.txt", "overlap 2 2\n1.0 0.25000000000000006\n0.25000000000000006 1\n"
                        "orbital_energies 3 1\n-9.9930736000000001\n\t-0.3763\n1e-300\nnbf 1 1\n2\n");
    const qc::MatrixFile f("r.txt");
    EXPECT_EQ(f.symmetric("overlap", 2, 1e-12)(0, 1), 0.25000000000000006);  // every digit back
    EXPECT_EQ(f.vector("orbital_energies", 3)[0], -9.9930736000000001);
    EXPECT_EQ(f.count("nbf", 1, 10), 2);
    EXPECT_FALSE(f.has("fock"));

    const testsupport::Outcome o = capture([&] { f.vector("orbital_energies", 4); });
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.out, qc_error(203, "r.txt: block orbital_energies is 3 x 1, expected 4 x 1\n"));
    EXPECT_EQ(capture([&] { f.block("fock"); }).out, qc_error(203, "r.txt: no block fock\n"));
    EXPECT_EQ(capture([&] { f.count("nbf", 3, 10); }).out, qc_error(203, "r.txt: block nbf = 2 is no whole number from 3 to 10\n"));
}

TEST(QcMatrixFile, EachDefectIsNamedWithFileLineAndBlock)
{
    ScratchDir dir;
    const std::pair<const char*, const char*> cases[] = {
        {"overlap 2 0\n", "bad.txt line 1: block overlap: '2 0' are no dimensions (two whole numbers from 1 to 100000)\n"},
        {"overlap 2\n1 0\n0 1\n", "bad.txt line 1: 'overlap 2' is no block header (NAME ROWS COLS)\n"},
        {"overlap 2 2\n1 0.25\n0.25\n", "bad.txt line 3: block overlap, row 2: 2 numbers expected, 1 found\n"},
        {"overlap 2 2\n1 0.25\n0.25 one\n", "bad.txt line 3: block overlap, row 2: 'one' is no finite number\n"},
        {"overlap 2 2\n1 nan\nnan 1\n", "bad.txt line 2: block overlap, row 1: 'nan' is no finite number\n"},
        {"overlap 3 3\n1 0 0\n", "bad.txt: block overlap ends after 1 of its 3 rows\n"},
        {"nbf 1 1\n2\n\nnmo 1 1\n2\n", "bad.txt line 3: '' is no block header (NAME ROWS COLS)\n"},
        {"nbf 1 1\n2\nnbf 1 1\n3\n", "bad.txt line 3: a second block nbf\n"},
        // A header promising far more than the file holds is read as far as it goes.
        {"overlap 100000 100000\n1\n", "bad.txt line 2: block overlap, row 1: 100000 numbers expected, 1 found\n"},
    };
    for (const auto& [text, message] : cases) {
        write_file("bad.txt", text);
        const testsupport::Outcome o = capture([] { qc::MatrixFile("bad.txt"); });
        EXPECT_EQ(o.status, 1) << text;
        EXPECT_EQ(o.out, qc_error(202, message)) << text;
    }
    // Shapes a well-formed file can still get wrong.
    write_file("shape.txt", "overlap 2 3\n1 0 0\n0 1 0\nfock 2 2\n-0.5 -0.1\n-0.100000012 -0.4\n");
    const qc::MatrixFile f("shape.txt");
    EXPECT_EQ(capture([&] { f.symmetric("overlap", -1, 1e-8); }).out,
              qc_error(203, "shape.txt: block overlap is 2 x 3, not square\n"));
    // The tolerance is absolute for entries below 1 and relative to the largest above.
    EXPECT_EQ(capture([&] { f.symmetric("fock", 2, 1e-8); }).out,
              qc_error(203, "shape.txt: block fock is not symmetric: entries (2, 1) and (1, 2) differ by 1.2e-08\n"));
    EXPECT_EQ(capture([] { qc::MatrixFile("missing.txt"); }).out, qc_error(201, "results file missing.txt cannot be read\n"));
}

// What the physics tests cannot see: the ion's charge follows the carrier, the
// caller's text comes before the first calculation (text after the last could
// change nothing), and the input replaces the results of an earlier run.
TEST(QcPsi4Input, IonFollowsTheCarrierAndOldResultsGo)
{
    qc::Calculation reorg = calculation(qc::CalcKind::Reorganisation);
    EXPECT_TRUE(contains(qc::Psi4Engine::input_text(reorg), "molecule ion {\n1 2\n"));
    reorg.carrier = qc::Carrier::Electron;
    EXPECT_TRUE(contains(qc::Psi4Engine::input_text(reorg), "molecule ion {\n-1 2\n"));

    qc::Calculation mono = calculation(qc::CalcKind::MonomerOrbitals);
    mono.extra = "set scf_type pk";
    const std::string m = qc::Psi4Engine::input_text(mono);
    EXPECT_LT(m.find("set scf_type pk"), m.find("energy("));
    ScratchDir dir;
    write_file("job/results.txt", "nbf 1 1\n1\n");
    qc::Psi4Engine().write_input({"job", mono});
    EXPECT_EQ(read_file("job/psi4.in"), m);
    EXPECT_FALSE(std::filesystem::exists("job/results.txt"));
}

TEST(QcPsi4Input, CalculationsThatCannotBeWrittenAreRefused)
{
    const auto refused = [](const qc::Calculation& c, const std::string& why) {
        const testsupport::Outcome o = capture([&] { qc::check_calculation(c); });
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(o.out, qc_error(101, "quantum-chemistry calculation: " + why + "\n"));
    };
    qc::Calculation c = calculation(qc::CalcKind::MonomerOrbitals);
    qc::check_calculation(c);
    c.multiplicity = 2;
    refused(c, "16 electrons (charge 0) cannot have multiplicity 2");
    c.charge = 1;
    qc::check_calculation(c);  // the doublet cation
    c = calculation(qc::CalcKind::MonomerOrbitals);
    c.atoms[2].z = 0;
    refused(c, "atom 3 has atomic number 0, which is no element");
    c = calculation(qc::CalcKind::DimerMatrices);
    c.atoms_a = 12;
    refused(c, "a dimer of 12 atoms cannot have 12 of them in its first molecule");
    c = calculation(qc::CalcKind::Reorganisation);
    c.ion_multiplicity = 1;
    refused(c, "the ion (charge 1, 15 electrons) cannot have multiplicity 1");
    c = calculation(qc::CalcKind::MonomerOrbitals);
    c.method = "b3lyp')\nimport os";
    refused(c, "the method 'b3lyp')\nimport os' is no method name");
}

TEST(QcPsi4Results, ReadersCheckTheResultsAgainstTheJob)
{
    ScratchDir dir;
    const qc::Psi4Engine psi4;
    // H2 in a minimal basis: one occupied and one virtual orbital, both saved.
    qc::Job job{"h2", {}};
    job.calc.atoms = {{1, {0, 0, 0}}, {1, {0, 0, 0.74}}};
    const std::string head = "nbf 1 1\n2\nnmo 1 1\n2\n";
    const std::string tail = "orbital_energies 2 1\n-0.58\n0.67\nfirst_mo 1 1\n0\ncoefficients 2 2\n0.55 1.2\n0.55 -1.2\n";
    write_file("h2/results.txt", head + "nalpha 1 1\n1\n" + tail);
    const qc::MonomerOrbitals m = psi4.read_monomer(job);
    EXPECT_EQ(m.homo, 0);
    EXPECT_EQ(m.coefficients(1, 1), -1.2);
    EXPECT_EQ(m.source, "h2/results.txt");

    // Results of another molecule (two alpha electrons) give themselves away.
    write_file("h2/results.txt", head + "nalpha 1 1\n2\n" + tail);
    EXPECT_EQ(capture([&] { psi4.read_monomer(job); }).out,
              qc_error(303, "h2/results.txt: nalpha = 2, but 2 atoms with 2 electrons and multiplicity 1 have 1 alpha electrons\n"));
    // Optimised geometries with one atom fewer than the molecule.
    job.calc.kind = qc::CalcKind::Reorganisation;
    write_file("h2/results.txt", "neutral_at_neutral 1 1\n-1.1\nneutral_at_ion 1 1\n-1.0\nion_at_ion 1 1\n-0.6\n"
                                 "ion_at_neutral 1 1\n-0.55\nneutral_geometry 1 3\n0 0 0\n");
    EXPECT_EQ(capture([&] { psi4.read_reorganisation(job); }).out,
              qc_error(203, "h2/results.txt: block neutral_geometry is 1 x 3, expected 2 x 3\n"));
}

TEST(QcPsi4Run, AFailedRunReportsWhyWithTheOutputsLastLines)
{
    ScratchDir dir;
    // A stand-in program: records how it was called, writes 40 output lines, fails.
    write_file("fake", "#!/bin/sh\nprintf '%s\\n' \"$*\" > called\npwd >> called\necho \"$PSI_SCRATCH\" >> called\necho console text\n"
                       "for i in $(seq 1 40); do echo \"line $i\"; done > \"$4\"\nexit 3\n");
    std::filesystem::permissions("fake", std::filesystem::perms::owner_all);
    qc::Job job{"job", {}};
    job.calc.threads = 2;
    std::filesystem::create_directory("job");
    const std::string job_dir = (dir.path() / "job").string();

    const qc::RunResult r = qc::Psi4Engine((dir.path() / "fake").string()).run(job);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, (dir.path() / "fake").string() + " ended with status 3 (output job/psi4.out, console job/psi4.log)");
    std::string expected_tail;
    for (int i = 11; i <= 40; ++i) expected_tail += "line " + std::to_string(i) + "\n";
    EXPECT_EQ(r.output_tail, expected_tail);
    EXPECT_EQ(read_file("job/called"), "-n 2 psi4.in psi4.out\n" + job_dir + "\n" + job_dir + "/scratch\n");
    EXPECT_EQ(read_file("job/psi4.log"), "console text\n");
    EXPECT_TRUE(std::filesystem::is_directory("job/scratch"));

    const qc::RunResult missing = qc::Psi4Engine("/nonexistent/psi4").run(job);
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.error, "cannot run /nonexistent/psi4: No such file or directory");
    EXPECT_EQ(qc::Psi4Engine((dir.path() / "fake").string()).run({"nowhere", {}}).error,
              "no job directory nowhere");
    EXPECT_FALSE(qc::program_exists("/nonexistent/psi4") || qc::program_exists("kelta-no-such-program"));
    EXPECT_TRUE(qc::program_exists("sh"));
    write_file("three", "a\nb\nc");  // no final newline
    EXPECT_EQ(qc::last_lines("three", 2), "b\nc\n");
    EXPECT_EQ(qc::last_lines("three", 5), "a\nb\nc\n");
}
