// Physical constants and unit conversions: the one place where a number with a
// unit is written. Energies in eV, lengths in Angstrom, times in seconds inside
// the programs; other units only where a file is written or read.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace units {

// ---------------------------------------------------------------- CODATA 2018
inline constexpr double kBoltzmann = 8.617333262e-5;    // kB, eV / K
inline constexpr double kHbar = 6.582119569e-16;        // reduced Planck constant, eV s
inline constexpr double kHartree = 27.211386245988;     // one hartree in eV
inline constexpr double kPi = 3.141592653589793238;  // pi to double precision (std::numbers::pi; the
                                                      // gemmi reader is built as C++17)

// ---------------------------------------------------------------- the analysis' own roundings
// The mobility analysis converts a mean-square-displacement slope with 2 kB rounded
// to 0.0001724 eV/K (e / (2 kB) = 1 / 0.0001724 K/V), as the suite has always
// printed it; 0.04% above 2 x kBoltzmann. Every printed mobility uses it, also the
// hopping simulation's exact answer, so that the two programs' numbers compare
// digit for digit.
inline constexpr double kTwoBoltzmannRounded = 0.0001724;  // eV / K
// Degrees turn into radians with this rounded pi in every angle the analysis and
// the crystal readers print or scan.
inline constexpr double kDegreePi = 3.1415926535898;
inline double radians(double degrees) { return degrees * kDegreePi / 180.0; }
inline double degrees(double radians) { return radians * 180.0 / kDegreePi; }

// ---------------------------------------------------------------- conversions
inline constexpr double kAngstromInCm = 1e-8;
inline constexpr double kSquareAngstromInCm2 = 1e-16;
inline constexpr double kAngstromInM = 1e-10;
inline constexpr double kMeV = 1e-3;             // one meV in eV
inline constexpr double kNanosecond = 1e-9;      // the default track time unit, s
inline constexpr double kPicosecond = 1e-12;

// A time unit of the track files and the -timeunit option: its length in
// seconds, its name in files ("ns") and on the command line ("NS").
struct TimeUnit {
    double seconds = kNanosecond;
    std::string label = "ns";
    std::string option = "NS";
};
// The unit an option value names, PS or NS (as written, upper case); none for
// anything else.
inline std::optional<TimeUnit> time_unit_named(std::string_view name)
{
    if (name == "PS") return TimeUnit{kPicosecond, "ps", "PS"};
    if (name == "NS") return TimeUnit{kNanosecond, "ns", "NS"};
    return std::nullopt;
}

// The Einstein relation as the analysis applies it: the mobility in cm^2/(V s) of
// a slope of one Angstrom^2 per time unit (of `unit` seconds) of the squared
// displacement summed over `dimensions` directions, at temperature T (K).
inline double mobility_per_slope(double T, double unit, int dimensions = 1)
{
    return kSquareAngstromInCm2 / (((kTwoBoltzmannRounded * T) * unit) * dimensions);
}

}  // namespace units
