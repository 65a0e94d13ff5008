// Track files: their header and rows, their names, and the room they need.
#include "tracks.h"

#include <sys/statvfs.h>

#include <cmath>

namespace tracks {

namespace {

const char* const kModule = "transport";
constexpr int kLineRoom = 2010;
const char* const kHeader = "#      t,%s         x,angs         y,angs         z,angs         r2,A^2     istep\n";
const char* const kRow = "%14.6e %14.6e %14.6e %14.6e %14.6e  %lld\n";
const char* const kNoRoom =
    "%ld track files of %ld rows need about %.3g MB and %ld files on the disk of %s, which has %.3g MB and %.0f "
    "files free: free some space, or write fewer or shorter trajectories\n";
// Widest row: five numbers of 14 characters and their blanks, a hop count of
// up to 19 digits, the line end.
constexpr double kRowBytes = 5 * 15 + 1 + 19 + 1;
constexpr double kHeaderBytes = 82;  // the header line

}  // namespace

TrackWriter::TrackWriter(const std::string& name, const std::string& time_label) : out_(name)
{
    out_.print(kHeader, time_label.c_str());
}

void TrackWriter::row(double t, const Vec3& x, long long hops)
{
    out_.print(kRow, t, x[0], x[1], x[2], x[0] * x[0] + x[1] * x[1] + x[2] * x[2], hops);
}

std::string track_file_name(const std::string& dir, long number)
{
    return strprintf("%s/track/track_%04ld.dat", dir.c_str(), number);
}

long track_rows(double tsimu, double tsnap)
{
    return static_cast<long>(tsimu / tsnap + 0.5) + 1;
}

// Each file takes whole blocks of the disk.
void check_room(const std::string& dir, long files, long rows, double other_bytes)
{
    struct statvfs st {};
    if (statvfs(dir.c_str(), &st) != 0) return;  // the writes will tell
    const double block = st.f_frsize > 0 ? static_cast<double>(st.f_frsize) : 4096.0;
    const double per_file = std::ceil((kHeaderBytes + kRowBytes * static_cast<double>(rows)) / block) * block;
    const double need = per_file * static_cast<double>(files) + std::ceil(other_bytes / block) * block, have = static_cast<double>(st.f_bavail) * block;
    const bool inodes = st.f_files == 0 || static_cast<double>(st.f_favail) >= static_cast<double>(files);
    if (need > have || !inodes)
        fatal(kModule, kLineRoom, 1,
              strprintf(kNoRoom, files, rows, need / 1e6, files, dir.c_str(), have / 1e6, static_cast<double>(st.f_favail)));
}

}  // namespace tracks
