// Doubtful couplings, and the cost of a run from the exact answer of the network.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "hopping_checks.h"
#include "hopping_errors.h"

using namespace hopping_error;

namespace network {

namespace {

const char* const kLambdaInEv =
    "%s: lambda_meV = %g is below 1 meV, where reorganisation energies of molecules are tens to hundreds of "
    "meV: is it in eV (%g eV = %g meV)?\n";
const char* const kAllCouplingsInEv =
    "%s: every V_meV is below 1 meV (the largest: %g, class %d): are the couplings in eV (%g eV = %g meV)?\n";
const char* const kCouplingInEv =
    "%s line %d: class %d (molecules %d and %d, %.4f A apart) has V_meV = %g, below 1 meV, while class %d, "
    "farther apart (%.4f A), has %g: is it in eV (%g eV = %g meV)?\n";
const char* const kOutsideHopping =
    "%s line %d: class %d (molecules %d and %d, %.4f A apart) has |V| = %g meV, above half the reorganisation "
    "energy of %g meV: the carrier spreads over the pair, outside the hopping regime, and the hopping rates of that "
    "class do not hold\n";

}  // namespace

std::vector<std::string> coupling_warnings(const Couplings& c, const Pairs& pairs, RateModel model)
{
    std::vector<std::string> w;
    const char* const file = c.file.c_str();
    const size_t n = std::min(c.V_meV.size(), pairs.classes.size());
    const auto hop = [&](size_t k) -> const Hop& { return pairs.hops[static_cast<size_t>(pairs.classes[k].rep)]; };
    const auto line = [&](size_t k) { return k < c.V_line.size() ? c.V_line[k] : 0; };
    const bool lambda_ev = c.lambda_meV < 1.0;
    if (lambda_ev) w.push_back(strprintf(kLambdaInEv, file, c.lambda_meV, c.lambda_meV, 1000 * c.lambda_meV));

    size_t largest = n;  // the class of the largest |V|, none while every V is zero
    for (size_t k = 0; k < n; ++k)
        if (c.V_meV[k] != 0 && (largest == n || std::fabs(c.V_meV[k]) > std::fabs(c.V_meV[largest]))) largest = k;
    if (largest < n && std::fabs(c.V_meV[largest]) < 1.0) {
        const double v = c.V_meV[largest];
        w.push_back(strprintf(kAllCouplingsInEv, file, v, static_cast<int>(largest) + 1, v, 1000 * v));
    } else {
        // Classes are numbered by distance: a small coupling is suspect only before a larger one.
        for (size_t k = 0; k < n; ++k) {
            const double v = c.V_meV[k];
            if (v == 0 || std::fabs(v) >= 1.0) continue;
            for (size_t far = k + 1; far < n; ++far) {
                if (std::fabs(c.V_meV[far]) < 1.0) continue;
                const Hop& h = hop(k);
                w.push_back(strprintf(kCouplingInEv, file, line(k), static_cast<int>(k) + 1, h.from + 1, h.to + 1,
                                      get_magnitude(h.r), v, static_cast<int>(far) + 1, get_magnitude(hop(far).r),
                                      c.V_meV[far], v, 1000 * v));
                break;
            }
        }
    }
    if (lambda_ev) return w;  // every class would be outside the hopping regime
    const double reorganisation = c.lambda_meV + (model == RateModel::quantum ? c.huang_rhys * c.hw_meV : 0.0);
    for (size_t k = 0; k < n; ++k)
        if (std::fabs(c.V_meV[k]) > reorganisation / 2) {
            const Hop& h = hop(k);
            w.push_back(strprintf(kOutsideHopping, file, line(k), static_cast<int>(k) + 1, h.from + 1, h.to + 1,
                                  get_magnitude(h.r), std::fabs(c.V_meV[k]), reorganisation));
        }
    return w;
}

}  // namespace network

namespace kmc {

namespace {

const char* const kEstimate =
    "  estimate: %.3g hops per trajectory%s (escape rate %.3g per s), %.3g hops and %.3g snapshot rows in all, about "
    "%s%s on %d thread(s); %s\n";
const char* const kSuggestion =
    "suggested tsimu = %g %s, tsnap = %g %s (the mean-square displacement along the slowest axis reaches a hundred "
    "squared hop lengths after %.3g %s)";
const char* const kNoSuggestion = "no suggested tsimu: the network does not diffuse";
const char* const kTooLong =
    "the run would take about %s%s (%.3g hops: %ld trajectories of %.3g hops, %g s per hop on %d thread(s)), more "
    "than a day (tsimu = %g %s). %s.%s%s Run with -force if you mean it\n";
const char* const kSuggests = "The exact answer suggests tsimu = %g %s and tsnap = %g %s";
const char* const kUnitHint = " Is tsimu in %s, the unit of -timeunit?";
const char* const kPicoseconds = " With -timeunit PS the suggestion reads tsimu = %g ps and tsnap = %g ps.";
// A tsimu this many times the suggested one is warned about: the factor between ns and ps.
constexpr double kFarBeyond = 1000;
const char* const kFarBeyondText =
    "tsimu = %g %s is %.3g times the suggested %g %s: is tsimu in %s, the unit of -timeunit?%s\n";
const char* const kDefaultsHint =
    " nsimu = 2000 and tsimu = 1000 are the defaults: does a line beginning with / close the &transport block "
    "before they are set?";

// The first of 1, 2, 5 x 10^k that is x or more.
double round_up(double x)
{
    const double p = std::pow(10.0, std::floor(std::log10(x)));
    for (const double m : {1.0, 2.0, 5.0, 10.0})
        if (m * p >= x * (1 - 1e-12)) return m * p;
    return 10 * p;
}

}  // namespace

Estimate estimate_run(const std::vector<network::Hop>& hops, const network::Exact& e, double unit_seconds,
                      double tsimu, long trajectories, long rows, int threads)
{
    Estimate x;
    double flux_l2 = 0;  // sum_i pi_i sum_e k_e |r_e|^2
    for (const network::Hop& h : hops) {
        const double p = e.pi[static_cast<size_t>(h.from)];
        x.escape_rate += p * h.rate;
        flux_l2 += p * h.rate * squared_length(h.r);
    }
    x.hops_per_trajectory = x.escape_rate * tsimu * unit_seconds;
    x.trajectories = trajectories;
    x.hops = x.hops_per_trajectory * static_cast<double>(trajectories);
    x.rows = static_cast<double>(rows) * static_cast<double>(trajectories);
    // Threads share out whole trajectories.
    x.threads = static_cast<int>(std::clamp<long>(trajectories, 1, std::max(threads, 1)));
    x.seconds = (x.hops * kSecondsPerHop + x.rows * kSecondsPerRow) / x.threads;

    Vec3 value{};
    Mat3 axes{};
    symmetric_eigen(e.D, value, axes);
    double slowest = 0;  // the smallest principal D that is not zero against the largest
    for (const double d : value)
        if (d > 1e-6 * value[0] && (slowest == 0 || d < slowest)) slowest = d;
    if (slowest > 0 && x.escape_rate > 0) {
        const double hop_l2 = flux_l2 / x.escape_rate;  // mean squared hop length, Angstrom^2
        x.msd_time = 100 * hop_l2 / (2 * slowest) / unit_seconds;
        x.tsimu = round_up(x.msd_time);
        x.tsnap = x.tsimu / 200;
    }
    return x;
}

std::string duration_text(double seconds)
{
    if (seconds < 60) return strprintf("%.2g s", seconds);
    if (seconds < 3600) return strprintf("%.2g min", seconds / 60);
    if (seconds < 86400) return strprintf("%.2g h", seconds / 3600);
    return strprintf("%.3g days", seconds / 86400);
}

std::string estimate_text(const Estimate& x, const std::string& label)
{
    const std::string suggestion =
        x.tsimu > 0 ? strprintf(kSuggestion, x.tsimu, label.c_str(), x.tsnap, label.c_str(), x.msd_time, label.c_str())
                    : std::string(kNoSuggestion);
    const std::string each = x.jobs > 1 ? strprintf(" for each of %ld jobs", x.jobs) : "";
    const std::string over = x.temperatures > 1 ? strprintf(" on average over %d temperatures", x.temperatures) : "";
    return strprintf(kEstimate, x.hops_per_trajectory, over.c_str(), x.escape_rate, x.hops, x.rows,
                     duration_text(x.seconds).c_str(), each.c_str(), x.threads, suggestion.c_str());
}

void refuse_long_run(const Estimate& x, const std::string& label, double tsimu, bool defaults, bool force)
{
    if (force || !(x.seconds > kMostSeconds)) return;
    std::string unit_hint = x.tsimu > 0 && tsimu >= 100 * x.tsimu ? strprintf(kUnitHint, label.c_str()) : "";
    if (label == "ns" && x.tsimu > 0 && x.tsimu < 1) unit_hint += strprintf(kPicoseconds, 1000 * x.tsimu, 1000 * x.tsnap);
    const std::string suggestion = x.tsimu > 0 ? strprintf(kSuggests, x.tsimu, label.c_str(), x.tsnap, label.c_str())
                                               : std::string("The network does not diffuse");
    fatal("transport", kLineRunTooLong, 1,
          strprintf(kTooLong, duration_text(x.seconds).c_str(), x.jobs > 1 ? " for each job" : "", x.hops, x.trajectories, x.hops_per_trajectory,
                    kSecondsPerHop, x.threads, tsimu, label.c_str(), suggestion.c_str(), unit_hint.c_str(), defaults ? kDefaultsHint : ""));
}

Estimate check_run(const series::Network& n, network::Conditions run, const std::vector<double>& temps,
                   const RunPlan& p)
{
    Estimate sum;
    const std::vector<double> at = temps.empty() ? std::vector<double>{run.temperature} : temps;
    for (const double T : at) {
        run.temperature = T;
        std::vector<network::Hop> hops = n.hops;
        network::assign_rates(run, *n.couplings, n.molecules, hops);
        const Estimate x =
            estimate_run(hops, network::solve_exact(n.molecules, hops), p.unit.seconds, p.tsimu, p.trajectories, p.rows,
                         omp_get_max_threads());
        // The sum's rates are averages over the temperatures; its suggestion is the slowest one's.
        sum.escape_rate += x.escape_rate / static_cast<double>(at.size());
        sum.hops_per_trajectory += x.hops_per_trajectory / static_cast<double>(at.size());
        sum.trajectories += x.trajectories;
        sum.hops += x.hops;
        sum.rows += x.rows;
        sum.threads = x.threads;
        sum.seconds += x.seconds;
        if (x.msd_time > sum.msd_time) {
            sum.msd_time = x.msd_time;
            sum.tsimu = x.tsimu;
            sum.tsnap = x.tsnap;
        }
    }
    sum.temperatures = static_cast<int>(at.size());
    sum.jobs = std::max(p.jobs, 1L);
    sum.seconds /= static_cast<double>(sum.jobs);
    std::fflush(stdout);
    std::fputs(estimate_text(sum, p.unit.label).c_str(), stderr);
    std::fflush(stderr);
    refuse_long_run(sum, p.unit.label, p.tsimu, p.defaults, p.force);
    if (sum.tsimu > 0 && p.tsimu >= kFarBeyond * sum.tsimu) {
        std::string ps;
        if (p.unit.label == "ns" && sum.tsimu < 1) ps = strprintf(kPicoseconds, 1000 * sum.tsimu, 1000 * sum.tsnap);
        std::fprintf(stderr, "WARNING: ");
        std::fprintf(stderr, kFarBeyondText, p.tsimu, p.unit.label.c_str(), p.tsimu / sum.tsimu, sum.tsimu,
                     p.unit.label.c_str(), p.unit.label.c_str(), ps.c_str());
        std::fflush(stderr);
    }
    return sum;
}

}  // namespace kmc
