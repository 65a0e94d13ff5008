// The run summary (-json): mob_summary.json, the inputs and every result of the
// run with its unit and error, and every warning it printed, for workflow
// engines and screening scripts. The layout is docs/mob_summary.schema.json.
// JSON has no value for a number that is not finite: such a value is null.
#include <nlohmann/json.hpp>

#include <cmath>

#include "mob_utils.h"
#include "mob_utils_errors.h"

using namespace mob_utils_error;

namespace {

// Keys in the order written: program, inputs, results, warnings.
using json = nlohmann::ordered_json;

const char* const kModule = "mob_utils";
const char* const kSummaryFile = "mob_summary.json";
const char* const kMobilityUnit = "cm^2/(V s)";

json number(double v)
{
    return std::isfinite(v) ? json(v) : json(nullptr);
}

json vector(const Vec3& v)
{
    return json::array({number(v[0]), number(v[1]), number(v[2])});
}

json mobility(const MobValue& m)
{
    return {{"value", number(m.mob)}, {"half_range", number(m.dev)}, {"unit", kMobilityUnit}};
}

json scan_point(const ScanPoint& p, bool sphere)
{
    json j = mobility(p.value);
    if (sphere) {
        j["polar_deg"] = p.polar;
        j["azimuth_deg"] = p.azimuth;
        j["direction"] = vector(p.dir);
    } else {
        j["angle_deg"] = p.azimuth;
    }
    return j;
}

json extremes(const ScanExtremes& e, bool sphere)
{
    if (!e.found) return nullptr;
    return {{"largest", scan_point(e.largest, sphere)}, {"smallest", scan_point(e.smallest, sphere)}};
}

json statistics(double value, const Spread& s)
{
    return {{"value", number(value)},
            {"standard_error", number(s.se)},
            {"interval_95", json::array({number(s.low), number(s.high)})},
            {"half_range", number(s.half_range)},
            {"unit", kMobilityUnit}};
}

json tensor(const TensorReport& r)
{
    json t;
    t["cartesian"] = json::array({vector(r.mu[0]), vector(r.mu[1]), vector(r.mu[2])});
    t["unit"] = kMobilityUnit;
    t["average"] = statistics(r.value[0], r.spread[0]);
    for (int c = 0; c < 3; ++c) {
        json p = statistics(r.value[c + 1], r.spread[c + 1]);
        p["axis"] = vector({r.axes[0][c], r.axes[1][c], r.axes[2][c]});
        t["principal"].push_back(p);
    }
    t["anisotropy"] = number(r.principal[0] / r.principal[2]);
    for (int c = 0; c < 3; ++c) {
        t["along"][std::string(1, "abc"[c])] = number(r.along[0][c]);
        t["along"][std::string(1, "abc"[c]) + "*"] = number(r.along[1][c]);
    }
    const auto half = [&r](int k) { return json{{"value", number(r.value[k])}, {"standard_error", number(r.spread[k].se)}}; };
    t["linearity"] = {{"first_half", half(4)}, {"second_half", half(5)}, {"difference", half(6)},
                      {"verdict", r.linearity_verdict}};
    json c = json::array();
    for (const TensorReport::Subset& s : r.convergence)
        c.push_back({{"trajectories", s.trajectories}, {"value", number(s.mob)}, {"standard_error", number(s.se)}});
    t["convergence"] = {{"subsets", c}, {"verdict", r.convergence_verdict}};
    return t;
}

std::string release()
{
    std::string v = kReleaseLabel;
    return trim(v);
}

}  // namespace

void Mobutils::write_summary() const
{
    json inputs;
    inputs["configuration_file"] = config_file;
    if (mol_input_mode == 2)
        inputs["structure_files"] = json::array({cif_filename});
    else
        inputs["structure_files"] = mol_names;
    inputs["nsimu"] = nsimu;
    inputs["ntime"] = ntime;
    inputs["tsimu"] = tsimu;
    inputs["tsnap"] = tsnap;
    inputs["time_unit_s"] = get_track_timeunit();
    inputs["temperature_K"] = temp;
    inputs["carrier"] = charge;
    inputs["cell_vectors_A"] = json::array({vector({latt[0][0], latt[1][0], latt[2][0]}),
                                            vector({latt[0][1], latt[1][1], latt[2][1]}),
                                            vector({latt[0][2], latt[1][2], latt[2][2]})});
    json results;
    results["average"] = mobility(result_average);
    for (int c = 0; c < 3; ++c) results["axes"][std::string(1, "abc"[c])] = mobility(result_axes[c]);
    const char* const planes[] = {"xy", "xz", "yz"};
    for (size_t p = 0; p < result_planes.size(); ++p) results["planes"][planes[p]] = extremes(result_planes[p], false);
    results["sphere"] = extremes(result_sphere, true);
    results["tensor"] = result_tensor ? tensor(*result_tensor) : json(nullptr);

    std::vector<std::string> printed;  // without their line ends
    for (std::string w : warnings) printed.push_back(trim(w));
    const json summary = {{"program", "kelta_mob"},
                          {"version", release()},
                          {"inputs", inputs},
                          {"results", results},
                          {"warnings", printed}};
    OutputFile f(kSummaryFile, kModule, kLineSummary);
    f.write(summary.dump(2) + "\n");
    f.commit();
}
