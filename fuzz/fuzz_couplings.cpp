// The couplings file reader on arbitrary text, for the five classes of pairs of
// the demo crystal; what it accepts then gives Marcus and one-mode rates.
#include <cmath>

#include "fuzz_support.h"
#include "hopping_network.h"

namespace {

// The demo crystal's classes, by their representative pairs.
network::Pairs demo_pairs()
{
    network::Pairs p;
    const std::array<std::array<int, 5>, 5> reps = {{{0, 1, 0, 1, -1}, {0, 0, 0, 1, 0}, {0, 1, 0, 1, 0}, {0, 0, 0, 0, -1},
                                                     {0, 0, 0, 1, 1}}};
    for (const auto& r : reps) {
        network::Hop h;
        h.from = r[0];
        h.to = r[1];
        h.cell = {r[2], r[3], r[4]};
        h.r = {1.0 + static_cast<double>(p.classes.size()), 0, 0};
        h.pair_class = static_cast<int>(p.classes.size());
        p.classes.push_back({static_cast<int>(p.hops.size()), 2});
        p.hops.push_back(h);
    }
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    static const network::Pairs pairs = demo_pairs();
    const std::string path = fuzzsupport::as_file(data, size, ".dat");
    for (const RateModel model : {RateModel::marcus, RateModel::quantum}) {
        const bool quantum = model == RateModel::quantum;
        try {
            const network::Couplings c = network::read_couplings(path, pairs, 2, model);
            for (const double v : c.V_meV) {
                const double dG = (c.site_meV[1] - c.site_meV[0]) * 1e-3;
                const double k = quantum ? network::mlj_rate(v * 1e-3, c.lambda_meV * 1e-3, dG, 300, c.hw_meV * 1e-3,
                                                             c.huang_rhys)
                                         : network::marcus_rate(v * 1e-3, c.lambda_meV * 1e-3, dG, 300);
                if (k < 0) __builtin_trap();  // a rate is never negative
            }
        } catch (const RunExit&) {
        }
    }
    return 0;
}
