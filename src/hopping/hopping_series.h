// Mobility against temperature and field from the exact answer of the hopping
// network (the master equation of the walk), beside the simulation's values
// where it ran: the grids, one point of each series, the fits, the tables and
// the scripts that draw them.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "hopping_network.h"

namespace series {

using units::TimeUnit;

// ------------------------------------------------ grids
// start, start + step, ... while it stays within end: both ends when the step
// divides the range (to 1e-9 of a step), the end left out otherwise. Ends the
// run (status 1) on a step of zero or of the wrong sign, a temperature that is not
// finite and positive, or more than kMostTemperatures of them.
constexpr long kMostTemperatures = 10000;
std::vector<double> temperatures(double start, double end, double step);

// The shortest text that reads back as T ("300", "250.5").
std::string temperature_text(double T);
// The folder of one temperature of the simulation's series: "T_300".
std::string folder_name(double T);

// field_range = F_first F_last N: N magnitudes (V/m) evenly spaced in ln F
// (F_first alone when N = 1). Ends the run (status 1) unless 0 < F_first <=
// F_last are finite and N is a whole number from 1 to kMostFields.
constexpr long kMostFields = 10000;
std::vector<double> fields(const Vec3& range);

// ------------------------------------------------ the network at any conditions
// The hops of the cell without rates, and the couplings that give them.
struct Network {
    int molecules = 0;
    Mat3 latt{};  // columns a, b, c, Angstrom
    const network::Couplings* couplings = nullptr;
    std::vector<network::Hop> hops;
};

// The exact answer of the network under `run`: rates, then the cell problem.
network::Exact solve_at(const Network& n, const network::Conditions& run);

// ------------------------------------------------ against temperature
// The simulation's mobilities at one temperature, from kelta_mob's mob_tensor.dat:
// principal values largest first and the average, each with its bootstrap
// standard error. Absent (value false) where the simulation did not run.
struct Measured {
    bool present = false;
    Vec3 value{}, se{};
    double average = 0, average_se = 0;
};

struct TemperaturePoint {
    double T = 0;                   // K
    Vec3 value{};                   // exact principal mobilities, cm^2/(V s), largest first
    Mat3 axes{};                    // their unit axes (columns)
    double average = 0;             // trace / 3
    double local_n = 0;             // -d ln(average) / d ln T, from T (1 -+ 1e-3)
    double drift_mobility = 0;      // v.F / |F|^2 under the run's field; not a number without one
    Measured kmc;
};

// The exact point at temperature `run.temperature`.
TemperaturePoint temperature_point(const Network& n, network::Conditions run, const TimeUnit& unit);

// The least-squares lines of ln mu against ln T and against 1/T: mu ~ T^-n and
// mu ~ exp(-Ea / (kB T)). Not numbers with fewer than two temperatures.
struct Fit {
    double n = 0;       // minus the slope of ln mu against ln T
    double ea_meV = 0;  // minus the slope of ln mu against 1/T, times kB, meV
};
Fit fit(const std::vector<double>& T, const std::vector<double>& mu);

// The crystal direction (a, b, c, a*, b*, c*) nearest to a unit axis, with the
// angle to it in degrees, as one word: "b(0.0)", "c*(0.5)".
std::string axis_label(const Mat3& latt, const Vec3& axis);

// Reads the mob_tensor.dat of kelta_mob -tensor; absent when the file is not there.
Measured read_mob_tensor(const std::string& file);

// me_temp.dat and the scripts that draw it (me_temp.gnu, .gnu-png, .py); returns
// the fits as lines for the run to print.
std::string write_temperature_files(const std::vector<TemperaturePoint>& points, const Mat3& latt,
                                    const network::Conditions& run, const std::string& ratetype);

// ------------------------------------------------ against field
struct FieldPoint {
    double field = 0;        // V/m along the direction
    Vec3 velocity{};         // exact drift velocity, cm/s, Cartesian
    double along = 0;        // its component along the field, cm/s
    double mobility = 0;     // v.F / |F|^2, cm^2/(V s)
};

struct FieldSeries {
    Vec3 direction{};          // unit, Cartesian
    double temperature = 0, charge = 1;
    double zero_field = 0;     // e D_uu / (kB T) at no field along the direction, CODATA kB, cm^2/(V s)
    std::vector<FieldPoint> points;
};

// The drift at each magnitude of `grid` along `direction` (any length), at the
// temperature, carrier and rate model of `run`.
FieldSeries field_series(const Network& n, const network::Conditions& run, const Vec3& direction,
                         const std::vector<double>& grid);

// me_field.dat and its scripts (me_field.gnu, .gnu-png, .py); returns the line
// that the run prints about the Einstein relation.
std::string write_field_files(const FieldSeries& s, const std::string& ratetype);

// ------------------------------------------------ the simulation's series
// Lays out `dir` for the simulation at temperature T: the structure files, the
// couplings file and charge.inp copied under their own names, and kelta.inp: the
// configuration file `config` with those files named so, and a last &transport
// block that sets temp = T and selects the simulation alone. Ends the run
// (status 1) when two input files share a name.
void lay_folder(const Transport& t, const std::string& config, double T, const std::string& dir);
// kelta_mob -config kelta.inp -timeunit U -tensor in `dir` (the program beside
// this one, or KELTA_BIN_DIR's, or PATH's), its output in dir/kelta_mob.log. Ends
// the run (status 1) when dir has no tracks or kelta_mob fails.
void analyse_folder(const std::string& dir, const TimeUnit& unit);

// ------------------------------------------------ the scripts of the pictures
// me_temp.gnu (EPS), me_temp.gnu-png and me_temp.py: the exact mobilities against
// T on log-log axes and ln mu against 1/T, the three principal mobilities (each
// named with the label of its axis in `axes`) and the average, with their fits;
// the simulation's points with error bars when `simulated`; the temperatures
// span `low` to `high` K.
void write_temperature_scripts(const std::array<std::string, 4>& axes, const std::array<Fit, 4>& fits, bool simulated,
                               double low, double high);
// me_field.gnu, me_field.gnu-png and me_field.py: the drift velocity and the drift
// mobility against the field, with the zero-field mobility.
void write_field_scripts(const FieldSeries& s);

}  // namespace series
