// Hopping rates from the couplings: Marcus, and Marcus-Levich-Jortner with one
// effective high-frequency mode; the applied field enters the free energy.
#include <cmath>
#include <numbers>

#include "hopping_network.h"

namespace network {

namespace {

const char* const kModule = "transport";
constexpr int kLineCarrier = 1810;
constexpr int kLineRate = 1820;
constexpr int kLineNoHop = 1830;

const char* const kBadCarrier =
    "charge.inp names the carrier '%s': the hopping simulation needs e (electron) or h (hole)\n";
const char* const kBadRate =
    "the hop of molecule %d to molecule %d (%d %d %d) has the rate %g per second, not a finite number: "
    "check V_meV of class %d, lambda_meV and the field\n";
const char* const kNoHop =
    "molecule %d of the cell has no hop: no neighbour within lat_cutoff, or every coupling of its pairs is 0\n";

// The mode's terms are summed until they fall below this fraction of the sum,
// once both the Poisson weight and the Gaussian have passed their largest term.
constexpr double kNegligible = 1e-16;
constexpr int kMostTerms = 1000000;

double prefactor(double V, double lambda, double T)
{
    return 2.0 * std::numbers::pi / kHbar * V * V / std::sqrt(4.0 * std::numbers::pi * lambda * kBoltzmann * T);
}

}  // namespace

double marcus_rate(double V, double lambda, double dG, double T)
{
    const double x = dG + lambda;
    return prefactor(V, lambda, T) * std::exp(-x * x / (4.0 * lambda * kBoltzmann * T));
}

// The Poisson weights e^-S S^n / n! in logarithms, so that a large S neither
// underflows e^-S nor overflows S^n.
double mlj_rate(double V, double lambda, double dG, double T, double hw, double S)
{
    const double four_lkt = 4.0 * lambda * kBoltzmann * T;
    const double log_s = S > 0 ? std::log(S) : 0.0;
    double sum = 0.0;
    for (int n = 0; n < kMostTerms; ++n) {
        const double x = dG + lambda + n * hw;
        const double log_weight = S > 0 ? -S + n * log_s - std::lgamma(n + 1.0) : (n == 0 ? 0.0 : -INFINITY);
        const double term = std::exp(log_weight - x * x / four_lkt);
        sum += term;
        const bool past_peaks = n > S && x > 0;
        if (past_peaks && (term <= kNegligible * sum || log_weight == -INFINITY)) break;
    }
    return prefactor(V, lambda, T) * sum;
}

Vec3 applied_field(const Transport& t)
{
    Vec3 f{};
    for (int c = 0; c < 3; ++c) {
        const Vec3 axis = {t.latt[0][c], t.latt[1][c], t.latt[2][c]};
        const double len = get_magnitude(axis);
        for (int k = 0; k < 3; ++k) f[k] += t.app_elec_F[c] * axis[k] / len;
    }
    return f;
}

void assign_rates(const Transport& t, const Couplings& c, std::vector<Hop>& hops, bool quantum)
{
    const char letter = t.charge.empty() ? '?' : t.charge[0];
    if (letter != 'e' && letter != 'h') fatal(kModule, kLineCarrier, 1, strprintf(kBadCarrier, t.charge.c_str()));
    const double q = letter == 'h' ? 1.0 : -1.0;
    const Vec3 field = t.get_appE_flag() ? applied_field(t) : Vec3{};
    const double lambda = c.lambda_meV * 1e-3;
    std::vector<char> moves(static_cast<size_t>(t.mol_count), 0);
    for (Hop& h : hops) {
        const double V = c.V_meV[h.pair_class] * 1e-3;
        // q e F.r in eV: the field in V/m times the hop in m.
        const double work = q * (field[0] * h.r[0] + field[1] * h.r[1] + field[2] * h.r[2]) * 1e-10;
        h.dG = (c.site_meV[h.to] - c.site_meV[h.from]) * 1e-3 - work;
        const double dG = h.dG;
        const double per_second = quantum ? mlj_rate(V, lambda, dG, t.temp, c.hw_meV * 1e-3, c.huang_rhys)
                                          : marcus_rate(V, lambda, dG, t.temp);
        h.rate = per_second * t.get_track_timeunit();
        if (!std::isfinite(h.rate))
            fatal(kModule, kLineRate, 1,
                  strprintf(kBadRate, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2], per_second, h.pair_class + 1));
        if (h.rate > 0) moves[h.from] = 1;
    }
    for (int m = 0; m < t.mol_count; ++m)
        if (!moves[m]) fatal(kModule, kLineNoHop, 1, strprintf(kNoHop, m + 1));
}

}  // namespace network
