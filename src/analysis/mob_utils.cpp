#include "mob_utils.h"
#include "mob_utils_errors.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <span>

#include "mob_utils_engine.h"

using namespace mob_utils_error;

namespace {

const char* const kModule = "mob_utils";

const char* const kBadTimeGrid =
    "tsimu = %g and tsnap = %g give no usable number of time points (tsnap must be positive and round(tsimu / tsnap) "
    "must be a whole number from 0 to %d)\n";
const char* const kNegativeNsimu = "nsimu = %d: the number of track files cannot be negative\n";
const char* const kTablesTooLarge =
    "nsimu = %d trajectories of ntime = %d time points need %.3g GB of track tables, more than the memory "
    "of this machine\n";
const char* const kReadFailed = "Failed to read input file %s: %s\n";
const char* const kNonFinite =
    "%s line %d holds a value that is not a finite number; the mobilities computed from it are not numbers\n";
const char* const kSquareOverflows =
    "%s line %d holds %g, whose square overflows; the mobilities computed from it are not finite numbers\n";
const char* const kNoData = "%d track file(s) hold no data lines, the first %s; their carriers are taken as not moving\n";
const char* const kShortFiles =
    "%d track file(s) hold fewer data rows than ntime = %d, the first %s with %d; their last row stands for the "
    "missing time points, so the mobility comes out too small. Likely cause: tsimu or tsnap in the input file "
    "is not that of the simulation\n";
const char* const kOffGrid =
    "%s line %d holds time %g where the time grid expects %d x tsnap = %g; the analysis takes the times from "
    "the file, but tsnap in the input file is likely not that of the simulation\n";
const char* const kOtherUnit =
    "%d track file(s) name another time unit in their header, the first %s: its times are in %s, the analysis "
    "takes them in %s, so every mobility comes out 1000 times too %s; run with -timeunit %s\n";
const char* const kDrift =
    "the carriers drift: their mean displacement at t = %g, (%.3g, %.3g, %.3g) A, lies %.3g standard errors from "
    "zero and is %.2g times the spread of the displacements; the mean-square displacement counts the drift as "
    "motion, so the mobilities come out too large (under a field, kelta_kmc writes the drift mobility to "
    "kmc_drift.dat)\n";
constexpr double kDriftErrors = 5;
constexpr double kDriftShare = 0.01;
constexpr int kDriftTrajectories = 20;
// A time within this fraction of k x tsnap (of tsnap for k = 0) is on the grid;
// the hopping code prints times to seven significant digits.
constexpr double kGridTolerance = 1e-6;
// The largest magnitude whose square is finite.
const double kLargestSquarable = std::sqrt(std::numeric_limits<double>::max());

constexpr size_t kTrackLineBuffer = 256;  // the hopping code's line buffer
constexpr size_t kTrackBlock = 1 << 16;   // bytes read at once

// The time unit a track header names in its first column, "t,ns" or "t,ps"; 0 for any other header.
double header_time_unit(const char* header)
{
    const char* t = std::strstr(header, "t,");
    if (header[0] != '#' || !t || !t[2] || !t[3]) return 0;
    const auto upper = [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); };
    const std::optional<units::TimeUnit> u = units::time_unit_named(std::string{upper(t[2]), upper(t[3])});
    return u && !std::isalpha(static_cast<unsigned char>(t[4])) ? u->seconds : 0;
}

std::string track_name(int j)
{
    return strprintf("track/track_%04d.dat", j + 1);
}

// ---------------------------------------------------------------- track lines

// The white space that the %lf conversion skips.
bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// One number in the plain form the hopping code writes ("%14.6e": an optional
// '-', digits with an optional point, an optional exponent with digits), ending
// at white space or at the end of the line. Returns its end, or nullptr for
// anything else: a leading '+', "nan", "inf", hexadecimal digits, an exponent
// without digits, a number glued to other text. Those go to sscanf, which
// treats some of them differently from the number parsers. `quick` turns false
// when the value needs from_chars rather than one rounded operation.
const char* plain_number(const char* p, double& v, bool& quick)
{
    const char* const begin = p;
    const bool negative = *p == '-';
    if (negative) ++p;
    std::uint64_t mantissa = 0;
    int exponent = 0, significant = 0;
    bool digits = false, exact = true;
    const auto digit = [&](char c, bool fraction) {
        digits = true;
        if (significant == 19) {
            exact = false;  // more digits than the mantissa holds: from_chars rounds them
            return;
        }
        mantissa = mantissa * 10 + static_cast<unsigned>(c - '0');
        if (mantissa != 0) ++significant;
        if (fraction) --exponent;
    };
    while (is_digit(*p)) digit(*p++, false);
    if (*p == '.')
        for (++p; is_digit(*p);) digit(*p++, true);
    if (!digits) return nullptr;
    if (*p == 'e' || *p == 'E') {
        const char* q = p + 1;
        const bool minus = *q == '-';
        if (*q == '+' || *q == '-') ++q;
        if (!is_digit(*q)) return nullptr;
        int e = 0;
        for (; is_digit(*q); ++q) e = std::min(e * 10 + (*q - '0'), 100000);
        exponent += minus ? -e : e;
        p = q;
    }
    if (*p != '\0' && !is_blank(*p)) return nullptr;
    // Mantissa and power of ten both exact: one correctly rounded operation.
    if (exact && mantissa < (1ull << 53) && exponent >= -22 && exponent <= 22) {
        const double m = static_cast<double>(mantissa);
        const double x = exponent < 0 ? m / kPow10[-exponent] : m * kPow10[exponent];
        v = negative ? -x : x;
        return p;
    }
    quick = false;
    const std::from_chars_result r = std::from_chars(begin, p, v);
    return r.ec == std::errc() && r.ptr == p ? p : nullptr;
}

// The lines of a file as fgets with the hopping code's 256-byte buffer reads
// them: a line longer than 255 characters continues as the next line. Reads
// the file in blocks, and no further than the lines asked for.
class TrackLines {
public:
    TrackLines(std::FILE* f, std::vector<char>& block) : f_(f), block_(block) {}
    // The next line, NUL-terminated (a NUL inside it ends it early, as for sscanf).
    const char* next()
    {
        if (end_ - pos_ < kTrackLineBuffer - 1) refill();
        if (pos_ == end_) return nullptr;
        const char* p = block_.data() + pos_;
        const size_t room = std::min(kTrackLineBuffer - 1, end_ - pos_);
        const char* nl = static_cast<const char*>(std::memchr(p, '\n', room));
        const size_t n = nl ? static_cast<size_t>(nl - p) + 1 : room;
        std::memcpy(line_, p, n);
        line_[n] = '\0';
        pos_ += n;
        ++number_;
        return line_;
    }
    int number() const { return number_; }  // 1-based number of the last line read
    int error() const { return error_; }    // errno of a failed read, 0 if none

private:
    // Moves what is left to the front and reads until a whole line fits or the file ends.
    void refill()
    {
        end_ = static_cast<size_t>(std::copy(block_.begin() + pos_, block_.begin() + end_, block_.begin()) - block_.begin());
        pos_ = 0;
        while (end_ < kTrackLineBuffer - 1 && !eof_) {
            const size_t got = std::fread(block_.data() + end_, 1, block_.size() - end_, f_);
            eof_ = got == 0;
            // A failed read is no end of the file: it is reported, not taken as one.
            if (got == 0 && std::ferror(f_)) error_ = errno != 0 ? errno : EIO;
            end_ += got;
        }
    }

    std::FILE* f_;
    std::vector<char>& block_;
    size_t pos_ = 0, end_ = 0;
    bool eof_ = false;
    int error_ = 0;
    char line_[kTrackLineBuffer];
    int number_ = 0;
};

// ---------------------------------------------------------------- bootstrap

// The clock seeds the bootstrap of a run; a fixed seed restarts the generator.
void seed_ran2(const RandomSeeds& seeds)
{
    if (seeds.ran2)
        reset_random_state(*seeds.ran2);
    else
        init_random_seed();
}

void write_aver_track(const std::string& name, int line, const std::vector<double>& time,
                      const std::vector<double>& mean)
{
    OutputFile f(name, kModule, line);
    for (size_t t = 0; t < mean.size(); ++t) f.print("%14.6e %14.6e\n", time[t], mean[t]);
    f.commit();
}

void write_mob_line(const std::string& name, int line, const std::string& label, double mob, double dev)
{
    OutputFile f(name, kModule, line);
    f.print("%s / dev [cm**2/Vs]: %14.6e  %14.6e\n", label.c_str(), mob, dev);
    f.commit();
}

}  // namespace

bool parse_track_line(const char* line, std::array<double, 5>& v)
{
    std::array<double, 5> fast;
    bool quick = true;
    const char* p = line;
    for (double& x : fast) {
        while (is_blank(*p)) ++p;
        p = plain_number(p, x, quick);
        if (!p) {
            std::sscanf(line, "%lf%lf%lf%lf%lf", &v[0], &v[1], &v[2], &v[3], &v[4]);
            return false;
        }
    }
    v = fast;
    return quick;
}

Mobutils::Mobutils() = default;

void Mobutils::init()
{
    if (!input_read) read_kelta_inp("kelta.inp", flag_binfo);
    if (nsimu < 0) fatal(kModule, kLineNegativeNsimu, 1, strprintf(kNegativeNsimu, nsimu));
    const double points = tsimu / tsnap + 0.5;
    if (!(tsnap > 0.0 && points >= 0.0 && points < static_cast<double>(INT_MAX)))
        fatal(kModule, kLineBadTimeGrid, 1, strprintf(kBadTimeGrid, tsimu, tsnap, INT_MAX - 1));
    ntime = static_cast<int>(points);
    if (flag_binfo) {
        std::cout << "  nsimu = " << nsimu << "\n";
        std::cout << "  tsimu = " << tsimu << " ps\n";
        std::cout << "  tsnap = " << tsnap << " ps\n";
        std::cout << "  tstep = " << tstep << " ps\n";
        std::cout << "  ntime = " << ntime << "\n";
    }
    read_charge_inp();
    if (flag_binfo) std::cout << "  MC chargetype = " << charge << "\n";
}

// The directory is always "track": the -trackdir option only changes the
// printed name, as users of the hopping code expect. Files are read in
// parallel, each into its own rows; each starts from zeros, so a first line
// that cannot be parsed stores zeros, and a line that cannot be parsed, or is
// missing because the file ended early, repeats the previous line's values.
void Mobutils::readin_track_data()
{
    std::cout << "Reading track data..." << "\n";
    if (flag_binfo) std::cout << "  nsimu = " << nsimu << "\n" << "  ntime = " << ntime << "\n";
    const int n = std::max(nsimu, 0);
    const double bytes = sizeof(double) * (4.0 * n + 1.0) * ntime;
    const double memory = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    if (bytes > memory) fatal(kModule, kLineTablesTooLarge, 1, strprintf(kTablesTooLarge, nsimu, ntime, bytes / 1e9));
    track_time.assign(static_cast<size_t>(ntime), 0.0);
    // Every entry is set by the reader threads, which touch the memory first.
    for (Table* table : {&track_x, &track_y, &track_z, &track_r2}) table->allocate(n, ntime);

    std::vector<TrackFileReport> report(static_cast<size_t>(n));  // each written by the thread reading its file
    std::atomic<bool> out_of_memory{false};
#pragma omp parallel
    {
        std::vector<char> block;
#pragma omp for schedule(dynamic, 8)
        for (int j = 0; j < n; ++j) {
            try {  // nothing may leave the parallel region
                block.resize(kTrackBlock);
                const File f = open_file(track_name(j), "rt");
                if (f) report[j] = read_track(f.get(), block, j);
            } catch (const std::bad_alloc&) {
                out_of_memory.store(true, std::memory_order_relaxed);
            }
        }
    }
    if (out_of_memory.load()) throw std::bad_alloc();
    report_track_files(report);
    check_drift();
    track_loaded = true;
}

// Ends the run on the lowest-numbered file that could not be opened or read;
// otherwise each kind of doubtful content gets one warning, naming the first
// file that has it.
void Mobutils::report_track_files(const std::vector<TrackFileReport>& report)
{
    const auto first = [&report](auto has) -> int {
        const auto it = std::find_if(report.begin(), report.end(), has);
        return it == report.end() ? -1 : static_cast<int>(it - report.begin());
    };
    if (const int j = first([](const TrackFileReport& r) { return !r.opened; }); j >= 0)
        fatal_open(kModule, kLineTrackOpen, track_name(j));
    if (const int j = first([](const TrackFileReport& r) { return r.read_error != 0; }); j >= 0)
        fatal(kModule, kLineTrackRead, -1, "",
              strprintf(kReadFailed, track_name(j).c_str(), std::strerror(report[j].read_error)));
    if (const int j = first([](const TrackFileReport& r) { return r.bad_line != 0; }); j >= 0)
        warn(strprintf(kNonFinite, track_name(j).c_str(), report[j].bad_line));
    if (const int j = first([](const TrackFileReport& r) { return r.overflow_line != 0; }); j >= 0)
        warn(strprintf(kSquareOverflows, track_name(j).c_str(), report[j].overflow_line, report[j].overflow_value));
    const auto empty = [this](const TrackFileReport& r) { return r.rows == 0 && ntime > 0; };
    if (const int j = first(empty); j >= 0)
        warn(strprintf(kNoData, static_cast<int>(std::count_if(report.begin(), report.end(), empty)),
                       track_name(j).c_str()));
    const auto short_file = [this](const TrackFileReport& r) { return r.rows > 0 && r.rows < ntime; };
    if (const int j = first(short_file); j >= 0)
        warn(strprintf(kShortFiles, static_cast<int>(std::count_if(report.begin(), report.end(), short_file)), ntime,
                       track_name(j).c_str(), report[j].rows));
    const auto other_unit = [this](const TrackFileReport& r) {
        return r.header_unit != 0 && r.header_unit != get_track_timeunit();
    };
    if (const int j = first(other_unit); j >= 0) {
        const bool ps = report[j].header_unit < get_track_timeunit();
        warn(strprintf(kOtherUnit, static_cast<int>(std::count_if(report.begin(), report.end(), other_unit)),
                       track_name(j).c_str(), ps ? "ps" : "ns", ps ? "ns" : "ps", ps ? "small" : "large",
                       ps ? "PS" : "NS"));
    }
    if (!report.empty() && report[0].off_grid_line != 0) {
        const int k = report[0].off_grid_line - 2;  // the header is line 1, time point 0 line 2
        warn(strprintf(kOffGrid, track_name(0).c_str(), report[0].off_grid_line, report[0].off_grid_time, k,
                       k * tsnap));
    }
}

// A drift counts when the mean displacement lies more than kDriftErrors standard
// errors from zero and its square is more than kDriftShare of the spread's (it
// then matters to the slope). With fewer than kDriftTrajectories the spread
// itself is too uncertain to tell a drift from chance.
void Mobutils::check_drift()
{
    const int n = std::max(nsimu, 0), last = ntime - 1;
    if (n < kDriftTrajectories || last < 1) return;
    Vec3 mean{};
    double squares = 0;  // mean |d|^2
    for (int j = 0; j < n; ++j) {
        const Vec3 d = {track_x[j][last] - track_x[j][0], track_y[j][last] - track_y[j][0], track_z[j][last] - track_z[j][0]};
        for (size_t k = 0; k < 3; ++k) mean[k] += d[k] / n;
        squares += squared_length(d) / n;
    }
    const double drift = squared_length(mean), spread = squares - drift;  // of the displacements, squared
    if (!(drift > kDriftShare * spread && drift * n > kDriftErrors * kDriftErrors * spread)) return;
    warn(strprintf(kDrift, track_time[static_cast<size_t>(last)], mean[0], mean[1], mean[2],
                   std::sqrt(drift * n / spread), std::sqrt(drift / spread)));
}

// One trajectory's rows from an open track file, and what was doubtful in them.
// Only the first file's times are kept, and only they are compared with the
// grid k x tsnap.
TrackFileReport Mobutils::read_track(std::FILE* f, std::vector<char>& block, int j)
{
    TrackFileReport r;
    r.opened = true;
    TrackLines lines(f, block);
    if (const char* header = lines.next()) r.header_unit = header_time_unit(header);
    std::array<double, 5> v{};
    for (int t = 0; t < ntime; ++t) {
        if (const char* line = lines.next()) {
            parse_track_line(line, v);
            ++r.rows;
            const std::span<const double> kept = std::span(v).subspan(j == 0 ? 0 : 1);
            for (const double x : kept) {
                if (r.bad_line == 0 && !std::isfinite(x)) r.bad_line = lines.number();
                if (r.overflow_line == 0 && std::isfinite(x) && std::fabs(x) > kLargestSquarable) {
                    r.overflow_line = lines.number();
                    r.overflow_value = x;
                }
            }
            const double expected = t * tsnap;
            if (j == 0 && r.off_grid_line == 0 && !(std::fabs(v[0] - expected) <= kGridTolerance * tsnap * std::max(t, 1))) {
                r.off_grid_line = lines.number();
                r.off_grid_time = v[0];
            }
        }
        track_x[j][t] = v[1];
        track_y[j][t] = v[2];
        track_z[j][t] = v[3];
        track_r2[j][t] = v[4];
        if (j == 0) track_time[t] = v[0];
    }
    r.read_error = lines.error();
    return r;
}

void Mobutils::output_mob_data(int mob_all, const RandomSeeds& seeds)
{
    mob_average(seeds);
    mob_direction_a_b_c(seeds);
    if ((output_level & 2) != 0 || mob_all != 0) {
        mob_plane_xy_xz_yz(seeds);
        mob_direction_all(seeds);
    }
    if (flag_tensor) mob_tensor(seeds);
    if (flag_json) write_summary();
}

void Mobutils::mob_average(const RandomSeeds& seeds)
{
    std::cout << "Treating mob_average..." << "\n";
    read_temp_inp(kModule, kLineTemperature);
    if (flag_binfo) std::cout << "  temp  = " << temp << "\n";
    const int n = std::max(nsimu, 0);
    std::vector<double> mean(static_cast<size_t>(ntime), 0.0);
    for (int j = 0; j < n; ++j)
        for (int t = 0; t < ntime; ++t) mean[t] += track_r2[j][t];
    for (double& m : mean) m /= nsimu;
    if (output_level & 4) write_aver_track("aver_track.dat", kLineAverTrack, track_time, mean);
    const double f = units::mobility_per_slope(temp, get_track_timeunit(), ndim);
    if (flag_binfo)
        std::cout << "  nsimu = " << nsimu << "\n" << "  nsamp = " << nsamp << "\n" << "  ntime = " << ntime << "\n";
    const mob_engine::SlopeWeights weights(track_time.data(), ntime);
    std::vector<double> slopes(static_cast<size_t>(n));
    for (int j = 0; j < n; ++j) slopes[j] = weights.slope(track_r2[j]);
    seed_ran2(seeds);
    const double dev = mob_engine::sequential_bootstrap(slopes, weights, track_time.data(), nsamp, f, 1e20);
    const double mob = f * regression_slope(track_time.data(), mean.data(), ntime);
    write_mob_line("mob.dat", kLineMob, "mob_ave", mob, dev);
    result_average = {mob, dev};
    if (flag_binfo) std::cout << "done." << "\n";
}

void Mobutils::mob_direction_a_b_c(const RandomSeeds& seeds)
{
    std::cout << "Treating mob_direction..." << "\n";
    read_temp_inp(kModule, kLineTemperature);
    if (flag_binfo) std::cout << "  temp = " << temp << "\n";
    const int n = std::max(nsimu, 0);
    const double f1 = mobility_per_slope();
    const mob_engine::SlopeWeights weights(track_time.data(), ntime);
    std::vector<double> mean, slopes;
    for (const char* axis : {"a", "b", "c"}) {
        // The axis is a column of latt; a zero column gives directions that are not numbers.
        const int col = axis[0] - 'a';
        const Vec3 column = {latt[0][col], latt[1][col], latt[2][col]};
        const double len = get_magnitude(column);
        mob_engine::project_squares(track_x, track_y, track_z, n, ntime, {column[0] / len, column[1] / len, column[2] / len},
                        weights, mean, slopes);
        if (output_level & 4) write_aver_track(strprintf("aver_track_%s.dat", axis), kLineAverTrackAxis, track_time, mean);
        seed_ran2(seeds);
        const double dev = mob_engine::sequential_bootstrap(slopes, weights, track_time.data(), nsamp, f1, 1e8);
        const double mob = f1 * regression_slope(track_time.data(), mean.data(), ntime);
        write_mob_line(strprintf("mob_%s.dat", axis), kLineMobAxis, strprintf("mob_%s", axis), mob, dev);
        result_axes[static_cast<size_t>(col)] = {mob, dev};
    }
    if (flag_binfo) std::cout << "done." << "\n";
}
