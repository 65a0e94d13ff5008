// Whole runs on the working directories kept under tests/data/cases. A case holds
//   program  kelta_kmc for a run of the hopping simulation, kelta_tracks for the
//            synthetic tracks (its built program; optional; kelta_mob)
//   args     the command-line arguments, one per line (optional)
//   env      NAME=VALUE lines set for the run, and unset after it (optional)
//   base     another case whose in/ is laid down first (optional)
//   remove   paths deleted after the inputs are laid down (optional)
//   disk     "free N": the run happens on a small tmpfs filled up to N free bytes
//            (mounting needs root; elsewhere the case is skipped with a message)
//   in/      the input files
//   out/     stdout, stderr and status of the run (an absent file: empty, or 0), and
//            files: every file the run writes, each after a "==> name <==" line
// Runs are in-process on two threads with fixed seeds, so even the bootstrap error
// columns are exact. UPDATE_CASES=1 rewrites every out/ from what the runs did.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <set>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

const fs::path kCases = fs::path(KELTA_TEST_DATA) / "cases";

std::vector<std::string> case_names()
{
    std::vector<std::string> names;
    if (fs::is_directory(kCases))
        for (const fs::directory_entry& e : fs::directory_iterator(kCases)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// Relative paths of every regular file under dir.
std::set<fs::path> files_under(const fs::path& dir)
{
    std::set<fs::path> files;
    if (fs::is_directory(dir))
        for (const fs::directory_entry& e : fs::recursive_directory_iterator(dir))
            if (e.is_regular_file()) files.insert(fs::relative(e.path(), dir));
    return files;
}

void lay_inputs(const fs::path& c, const fs::path& dir)
{
    for (const std::string& b : read_lines(c / "base")) lay_inputs(kCases / b, dir);
    if (fs::is_directory(c / "in"))
        fs::copy(c / "in", dir, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    for (const std::string& r : read_lines(c / "remove")) fs::remove_all(dir / r);
}

class Cases : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(Cases, RunAsRecorded)
{
    const fs::path c = kCases / GetParam();
    const ScratchDir dir;
    fs::path work = dir.path();
    std::optional<SmallDisk> disk;
    if (const std::vector<std::string> d = read_lines(c / "disk"); !d.empty()) {
        work = dir.path() / "disk";
        disk.emplace(work, "4m");
        if (!disk->mounted()) GTEST_SKIP() << "cannot mount a tmpfs here (root only): " << GetParam() << " not run";
        fs::current_path(work);
    }
    lay_inputs(c, work);
    if (disk) disk->fill_up_to(work / "filler", std::stoul(read_lines(c / "disk")[0].substr(5)));
    std::map<fs::path, std::string> inputs;
    for (const fs::path& f : files_under(work)) inputs[f] = read_file(work / f);

    RandomSeeds seeds;
    seeds.ran2 = 12345;
    seeds.scan = {1, 2};
    const std::vector<std::string> program = read_lines(c / "program"), env = read_lines(c / "env");
    for (const std::string& e : env) setenv(e.substr(0, e.find('=')).c_str(), e.substr(e.find('=') + 1).c_str(), 1);
    const std::string name = program.empty() ? "kelta_mob" : program[0];
    const Outcome r = name == "kelta_kmc"      ? run_kmc(read_lines(c / "args"))
                      : name == "kelta_tracks" ? run_tool(work, read_lines(c / "args"), "", KELTA_TRACKS_EXE)
                                               : run_in_process(read_lines(c / "args"), seeds);
    for (const std::string& e : env) unsetenv(e.substr(0, e.find('=')).c_str());
    expect_recorded(c / "out/stdout", r.out);
    expect_recorded(c / "out/stderr", r.err);
    expect_recorded(c / "out/status", std::to_string(r.status) + "\n", "0\n");
    // Every file the run wrote or changed, one after the other under its name.
    std::string written;
    for (const fs::path& f : files_under(work)) {
        const std::string text = read_file(work / f);
        if (!inputs.count(f) || inputs[f] != text) written += "==> " + f.string() + " <==\n" + text;
    }
    expect_recorded(c / "out/files", written);
    fs::current_path(dir.path());  // off the disk before it goes
}

INSTANTIATE_TEST_SUITE_P(Workdirs, Cases, testing::ValuesIn(case_names()),
                         [](const testing::TestParamInfo<std::string>& p) { return p.param; });
