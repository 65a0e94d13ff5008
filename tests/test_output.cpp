// Checked, atomic output and checked input: a write the system refuses is
// reported with its reason, a file is renamed into place only when complete, a
// signal leaves no temporary file behind, and a failed read of a track file is
// no end of file.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "mob_utils.h"
#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

// /dev/full takes the open and refuses every byte: the stream keeps the reason
// of the first refusal, whether it comes at a write or at the flush.
TEST(CheckedOutput, TheDeviceThatIsAlwaysFullIsReported)
{
    CheckedStream buffered(std::fopen("/dev/full", "w"));
    buffered.print("%d\n", 42);
    EXPECT_EQ(buffered.close(), "No space left on device");

    std::FILE* f = std::fopen("/dev/full", "w");
    ASSERT_NE(f, nullptr);
    std::setvbuf(f, nullptr, _IONBF, 0);  // every write reaches the device at once
    CheckedStream unbuffered(f);
    unbuffered.write("x");
    unbuffered.print("%s", "more");
    EXPECT_EQ(unbuffered.close(), "No space left on device");

    CheckedStream fine(std::fopen("/dev/null", "w"));
    fine.print("%s", "fine");
    EXPECT_EQ(fine.close(), "");
}

// The file appears under its name only when finished; until then, and after
// a failure, the earlier version is what the name shows.
TEST(CheckedOutput, AFileAppearsWholeOrNotAtAll)
{
    const ScratchDir dir;
    write_file("sub/result.dat", "earlier\n");
    {
        OutputFile f("sub/result.dat");
        ASSERT_TRUE(f.open());
        f.print("%s\n", "new");
        EXPECT_EQ(read_file("sub/result.dat"), "earlier\n");
        EXPECT_TRUE(fs::exists(temporary_name("sub/result.dat")));
        EXPECT_EQ(temporary_name("sub/result.dat"), "sub/.result.dat." + std::to_string(getpid()) + ".tmp");
        EXPECT_EQ(f.finish(), "");
    }
    EXPECT_EQ(read_file("sub/result.dat"), "new\n");
    {
        OutputFile abandoned("sub/result.dat");  // the run ends before it is finished
        abandoned.write("cut sho");
    }
    EXPECT_EQ(read_file("sub/result.dat"), "new\n");
    EXPECT_EQ(std::distance(fs::directory_iterator("sub"), fs::directory_iterator()), 1);

    // What fopen would refuse to write is refused before anything is created.
    fs::create_directory("taken");
    OutputFile directory("taken");
    EXPECT_FALSE(directory.open());
    EXPECT_EQ(directory.open_reason(), "Is a directory");
    EXPECT_EQ(directory.finish(), "Is a directory");
    OutputFile nowhere("missing/result.dat");
    EXPECT_EQ(nowhere.open_reason(), "No such file or directory");
}

// A failed commit ends the run with the file's line and the system's reason,
// and leaves no temporary file.
TEST(CheckedOutput, AFailedCommitEndsTheRun)
{
    const ScratchDir dir;
    fs::create_directory("out");
    const Outcome r = capture([] {
        OutputFile f("out/x.dat", "mob_utils", 645);
        f.write("data\n");
        fs::remove_all("out");  // the directory goes while the file is written
        f.commit();
    });
    EXPECT_EQ(r.status, -1);
    EXPECT_EQ(r.out, "\nERROR  transport : mob_utils : line 645 : \n");
    EXPECT_EQ(r.err, "Failed to write output file out/x.dat: No such file or directory\n");
}

// SIGTERM and SIGINT while a file is written: the process ends by the signal,
// and neither the temporary file nor a cut result is left. Files finished
// before give their places in the signal handler's list back: more of them
// than the list holds come first.
TEST(CheckedOutput, ASignalLeavesNoTemporaryFile)
{
    {
        const ScratchDir dir;
        for (int k = 0; k < 300; ++k) {
            OutputFile f("done.dat");
            f.write("x");
            ASSERT_EQ(f.finish(), "");
        }
    }
    for (const int sig : {SIGTERM, SIGINT}) {
        const ScratchDir dir;
        const pid_t child = fork();
        if (child == 0) {
            OutputFile f("result.dat");
            f.write("half");
            kill(getpid(), sig);
            _exit(0);  // not reached
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig) << status;
        EXPECT_TRUE(fs::is_empty(dir.path())) << sig;
    }
}

namespace {
// A stream whose reads fail as a disk that cannot be read does.
ssize_t failing_read(void*, char*, size_t)
{
    errno = EIO;
    return -1;
}
}  // namespace

TEST(CheckedInput, AFailedReadOfATrackFileIsNoEndOfFile)
{
    Mobutils m;
    m.ntime = 3;
    m.tsnap = 1;
    m.track_time.assign(3, 0.0);
    for (Table* t : {&m.track_x, &m.track_y, &m.track_z, &m.track_r2}) t->resize(1, 3);
    std::FILE* f = fopencookie(nullptr, "r", cookie_io_functions_t{failing_read, nullptr, nullptr, nullptr});
    ASSERT_NE(f, nullptr);
    std::vector<char> block(1 << 16);
    const TrackFileReport r = m.read_track(f, block, 0);
    std::fclose(f);
    EXPECT_TRUE(r.opened);
    EXPECT_EQ(r.rows, 0);
    EXPECT_EQ(r.read_error, EIO);

    // The run names the first such file and the reason, before any warning.
    std::vector<TrackFileReport> reports(3, TrackFileReport{true, 0, 3});
    reports[1] = r;
    reports[2].bad_line = 4;
    const Outcome o = capture([&] { m.report_track_files(reports); });
    EXPECT_EQ(o.status, -1);
    EXPECT_EQ(o.out, "\nERROR  transport : mob_utils : line 178 : \n");
    EXPECT_EQ(o.err, "Failed to read input file track/track_0002.dat: Input/output error\n");
}
