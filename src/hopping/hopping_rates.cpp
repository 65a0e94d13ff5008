// Hopping rates from the couplings: Marcus, and Marcus-Levich-Jortner with one
// effective high-frequency mode; the applied field enters the free energy.
#include <cmath>

#include "hopping_network.h"
#include "hopping_errors.h"

using namespace hopping_error;

namespace network {

namespace {

const char* const kModule = "transport";

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
    return 2.0 * units::kPi / units::kHbar * V * V / std::sqrt(4.0 * units::kPi * lambda * units::kBoltzmann * T);
}

}  // namespace

double marcus_rate(double V, double lambda, double dG, double T)
{
    const double x = dG + lambda;
    return prefactor(V, lambda, T) * std::exp(-x * x / (4.0 * lambda * units::kBoltzmann * T));
}

// The Poisson weights e^-S S^n / n! in logarithms, so that a large S neither
// underflows e^-S nor overflows S^n.
double mlj_rate(double V, double lambda, double dG, double T, double hw, double S)
{
    const double four_lkt = 4.0 * lambda * units::kBoltzmann * T;
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

Vec3 applied_field(const Mat3& latt, const Vec3& along_abc)
{
    Vec3 f{};
    for (int c = 0; c < 3; ++c) {
        const Vec3 axis = {latt[0][c], latt[1][c], latt[2][c]};
        const double len = get_magnitude(axis);
        for (int k = 0; k < 3; ++k) f[k] += along_abc[c] * axis[k] / len;
    }
    return f;
}

Conditions run_conditions(const Transport& t)
{
    const char letter = t.charge.empty() ? '?' : t.charge[0];
    if (letter != 'e' && letter != 'h') fatal(kModule, kLineCarrier, 1, strprintf(kBadCarrier, t.charge.c_str()));
    Conditions run;
    run.temperature = t.temp;
    run.charge = letter == 'h' ? 1.0 : -1.0;
    if (t.get_appE_flag()) run.field = applied_field(t.latt, {t.app_elec_F[0], t.app_elec_F[1], t.app_elec_F[2]});
    run.model = t.rate_model;
    return run;
}

void assign_rates(const Conditions& run, const Couplings& c, int molecules, std::vector<Hop>& hops)
{
    const Vec3& field = run.field;
    const double lambda = c.lambda_meV * units::kMeV;
    std::vector<char> moves(static_cast<size_t>(molecules), 0);
    for (Hop& h : hops) {
        const double V = c.V_meV[h.pair_class] * units::kMeV;
        // q e F.r in eV: the field in V/m times the hop in m.
        const double work = run.charge * (field[0] * h.r[0] + field[1] * h.r[1] + field[2] * h.r[2]) * units::kAngstromInM;
        h.dG = (c.site_meV[h.to] - c.site_meV[h.from]) * units::kMeV - work;
        const double dG = h.dG;
        h.rate = run.model == RateModel::quantum
                     ? mlj_rate(V, lambda, dG, run.temperature, c.hw_meV * units::kMeV, c.huang_rhys)
                     : marcus_rate(V, lambda, dG, run.temperature);
        if (!std::isfinite(h.rate))
            fatal(kModule, kLineRate, 1,
                  strprintf(kBadRate, h.from + 1, h.to + 1, h.cell[0], h.cell[1], h.cell[2], h.rate, h.pair_class + 1));
        if (h.rate > 0) moves[h.from] = 1;
    }
    for (int m = 0; m < molecules; ++m)
        if (!moves[m]) fatal(kModule, kLineNoHop, 1, strprintf(kNoHop, m + 1));
}

}  // namespace network
