// Synthetic track files: a carrier hopping on a lattice as a continuous-time
// random walk, written in the hopping simulation's own format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mmutil.h"

namespace track_gen {

// A hop between lattice sites, in cell units, at a rate per track time unit. The
// walk takes the hop and its reverse, each at this rate, so it does not drift.
struct Hop {
    Vec3 cell;
    double rate;
};

struct Settings {
    Vec3 a{8.098, 0, 0}, b{0, 5.953, 0}, c{-4.888095, 0, 7.138882};  // cell vectors, Angstrom
    std::vector<Hop> hops;
    int nsimu = 100;       // trajectories
    double tsimu = 1000;   // simulated time, track time units
    double tsnap = 5;      // time between rows
    std::uint64_t seed = 1;
    std::string time_label = "ns";  // the time unit the header names
};

// Reads "key = value" lines (vector_a, vector_b, vector_c, hop, nsimu, tsimu,
// tsnap, seed; "#" and "!" start comments); ends the run on a bad line.
Settings read_settings(const std::string& path);

// The hop's displacement in Angstrom.
Vec3 displacement(const Settings& s, const Hop& h);

// The walk's diffusion tensor D = 1/2 sum over hops and reverses of k r r^T,
// Angstrom^2 per track time unit.
Mat3 diffusion_tensor(const Settings& s);

// Writes dir/track/track_0001.dat ... one file per trajectory: the header line,
// then round(tsimu / tsnap) + 1 rows from the all-zero start, each interval
// adding independent Poisson numbers of every hop. Trajectory j draws from its
// own generator (seed, j), so the files do not depend on the thread count.
void write_tracks(const Settings& s, const std::string& dir);

}  // namespace track_gen
