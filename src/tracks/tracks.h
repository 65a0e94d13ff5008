// The track files: the format that the hopping simulation and the synthetic
// tracks write and the mobility analysis reads, the checked writer of one file,
// and the check that a run's files fit on the disk.
#pragma once

#include <string>

#include "mmutil.h"

namespace tracks {

// A track file in the format kelta_mob reads: one header line, then rows of
// time, position (Angstrom, from the start), squared displacement and hop count.
class TrackWriter {
public:
    TrackWriter(const std::string& name, const std::string& time_label);  // label "ns" or "ps"
    bool open() const { return out_.open(); }
    void row(double t, const Vec3& x, long long hops);
    // Empty, or why the file is not complete (could not be created, written or renamed).
    std::string finish() { return out_.finish(); }

private:
    OutputFile out_;
};

// "DIR/track/track_%04d.dat" for trajectory `number` (from 1).
std::string track_file_name(const std::string& dir, long number);
// Rows of a track: the all-zero start and one per snapshot up to tsimu.
long track_rows(double tsimu, double tsnap);
// Ends the run (status 1) when `files` track files of `rows` rows and
// `other_bytes` of other files would not fit on the disk that holds `dir`.
void check_room(const std::string& dir, long files, long rows, double other_bytes = 0);

}  // namespace tracks
