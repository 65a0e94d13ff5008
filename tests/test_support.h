// Shared test scaffolding: a scratch working directory, file helpers, recorded
// results, and runs of the tool in-process and as its own process.
#pragma once

#include <gtest/gtest.h>
#include <omp.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "main_kmc.h"
#include "main_mob.h"

namespace testsupport {

// The KELTA_* variables preset the configuration; no test may depend on the
// caller's, so they are cleared once before any test runs (tests that want one
// set it themselves).
inline bool clear_kelta_environment()
{
    std::vector<std::string> names;
    for (char** e = environ; *e; ++e)
        if (std::string(*e).rfind("KELTA_", 0) == 0) names.push_back(std::string(*e).substr(0, std::string(*e).find('=')));
    for (const std::string& n : names) unsetenv(n.c_str());
    return true;
}
inline const bool kKeltaEnvironmentCleared = clear_kelta_environment();

// Creates a fresh directory, makes it the working directory, and on
// destruction goes back and removes it.
class ScratchDir {
public:
    ScratchDir() : old_(std::filesystem::current_path())
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "kelta_test_XXXXXX").string();
        path_ = mkdtemp(tmpl.data());
        std::filesystem::current_path(path_);
    }
    ~ScratchDir()
    {
        std::filesystem::current_path(old_);
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path old_, path_;
};

inline void write_file(const std::filesystem::path& name, const std::string& text)
{
    if (name.has_parent_path()) std::filesystem::create_directories(name.parent_path());
    std::ofstream(name, std::ios::binary) << text;
}

inline std::string read_file(const std::filesystem::path& name)
{
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Compares `actual` with the recorded file (an absent file records `empty`). With
// UPDATE_CASES set in the environment the file is written from `actual` instead:
// inspect the difference before committing it.
inline void expect_recorded(const std::filesystem::path& file, const std::string& actual,
                            const std::string& empty = "")
{
    if (std::getenv("UPDATE_CASES")) {
        actual == empty ? void(std::filesystem::remove(file)) : write_file(file, actual);
        return;
    }
    EXPECT_EQ(actual, std::filesystem::exists(file) ? read_file(file) : empty) << file;
}

inline std::vector<std::string> read_lines(const std::filesystem::path& name)
{
    std::vector<std::string> lines;
    std::ifstream in(name);
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

// What a call printed, and the status it ended the run with (INT_MIN: it returned).
struct Outcome {
    int status = INT_MIN;
    std::string out, err;
};

// Runs the built tool (kelta_mob unless `exe` names another) in `dir` with the
// given arguments (each shell-quoted) after the shell commands `before`.
inline Outcome run_tool(const std::filesystem::path& dir, const std::vector<std::string>& args, const std::string& before = "",
                        const std::string& exe = KELTA_MOB_EXE)
{
    std::string cmd = "cd '" + dir.string() + "' && " + before + " '" + exe + "'";
    for (const std::string& a : args) cmd += " '" + a + "'";
    const int rc = std::system((cmd + " > .stdout 2> .stderr").c_str());
    const Outcome r = {WIFEXITED(rc) ? WEXITSTATUS(rc) : 1000, read_file(dir / ".stdout"), read_file(dir / ".stderr")};
    for (const char* f : {".stdout", ".stderr"}) std::filesystem::remove(dir / f);
    return r;
}

// Runs a shell command; what it printed on both streams is in out.
inline Outcome shell(const std::string& command)
{
    Outcome r;
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    char buf[4096];
    for (size_t n; p && (n = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
    const int rc = p ? pclose(p) : -1;
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : 1000;
    return r;
}

// A tmpfs of `size` (as mount takes it: "4m") and 1000 files, so that the free
// counts a message prints do not depend on the machine, mounted on an empty
// directory for the life of the object; mounting needs root.
class SmallDisk {
public:
    SmallDisk(const std::filesystem::path& at, const std::string& size) : at_(at)
    {
        std::filesystem::create_directories(at_);
        mounted_ = mount("tmpfs", at_.c_str(), "tmpfs", 0, ("size=" + size + ",nr_inodes=1000").c_str()) == 0;
    }
    ~SmallDisk()
    {
        if (mounted_) umount2(at_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }
    // Fills the disk with one file until `left` bytes are free.
    void fill_up_to(const std::filesystem::path& filler, unsigned long left) const
    {
        struct statvfs st {};
        statvfs(at_.c_str(), &st);
        const unsigned long free = st.f_bavail * st.f_frsize;
        std::ofstream(filler, std::ios::binary) << std::string(free > left ? free - left : 0, '\0');
    }

private:
    std::filesystem::path at_;
    bool mounted_ = false;
};

// The working directory of the case kmc_base (the demo crystal and its
// couplings) in `dir`, with 12 trajectories and the kelta.inp lines `more`.
inline void lay_kmc_run(const std::filesystem::path& dir, const std::string& more = "")
{
    std::filesystem::create_directories(dir);
    std::filesystem::copy(std::filesystem::path(KELTA_TEST_DATA) / "cases/kmc_base/in", dir,
                          std::filesystem::copy_options::recursive);
    const std::string inp = read_file(dir / "kelta.inp");
    const size_t at = inp.find("  nsimu    = 3\n");
    write_file(dir / "kelta.inp", inp.substr(0, at) + "  nsimu = 12\n" + more + inp.substr(at + 15));
}

// Every file of dir/track by name, with its text.
inline std::map<std::string, std::string> track_files(const std::filesystem::path& dir)
{
    std::map<std::string, std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(dir / "track")) files[e.path().filename()] = read_file(e.path());
    return files;
}

inline std::string fixture(const std::string& name) { return std::string(KELTA_TEST_DATA) + "/" + name; }
inline std::string shared_file(const std::string& name) { return std::string(KELTA_SHARED_DATA) + "/" + name; }

inline Outcome capture(const std::function<void()>& call)
{
    Outcome o;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try {
        call();
    } catch (const RunExit& e) {
        o.status = e.status();
    }
    o.out = testing::internal::GetCapturedStdout();
    o.err = testing::internal::GetCapturedStderr();
    return o;
}

// Runs an entry function in-process with the given arguments on `threads`
// threads; the printed output is in out and err.
inline Outcome run_entry(const std::string& program, std::vector<std::string> args,
                         const std::function<int(int, char**)>& entry, int threads = 2)
{
    args.insert(args.begin(), program);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    Outcome r;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    r.status = entry(static_cast<int>(argv.size()), argv.data());
    r.out = testing::internal::GetCapturedStdout();
    r.err = testing::internal::GetCapturedStderr();
    omp_set_num_threads(before);
    return r;
}

// kelta_mob in-process with the given seeds, on two threads.
inline Outcome run_in_process(std::vector<std::string> args, const RandomSeeds& seeds)
{
    return run_entry("kelta_mob", std::move(args), [&seeds](int argc, char** argv) { return kelta_mob_main(argc, argv, seeds); });
}

// kelta_kmc in-process.
inline Outcome run_kmc(std::vector<std::string> args, int threads = 2)
{
    return run_entry("kelta_kmc", std::move(args), kelta_kmc_main, threads);
}

}  // namespace testsupport
