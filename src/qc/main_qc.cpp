// kelta_qc: the quantum-chemistry stage. From kelta.inp, charge.inp, the
// couplings file of kelta_kmc -pairs and the geometries beside it (dimers/) it
// computes every class's transfer integral and the reorganisation energy with
// psi4, here one calculation after the other or as a job array, and fills the
// couplings file for kelta_kmc.
#include "main_qc.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "mmutil.h"
#include "qc_errors.h"
#include "qc_process.h"
#include "qc_psi4.h"
#include "qc_stage.h"
#include "transport.h"

using namespace qc_error;

namespace {

const char* const kHelp =
    "Quantum-chemistry stage: computes the transfer integral of every class of pairs and the\n"
    "reorganisation energy with psi4 (compute_engine = 4) and fills the couplings file\n"
    "(kelta_dat_file) from the geometries in dimers/ beside it, both as kelta_kmc writes them\n"
    "\n"
    "Usage: %s [opts]\n"
    "      -config kelta.inp   : set config file, default to 'kelta.inp'\n"
    "      -jobscript          : write the inputs and qc_job.sh, a job array of sched_type, then stop\n"
    "      -task K             : run calculation K of the plan only (the job array's tasks)\n"
    "      -collect            : fill the couplings file from the finished calculations only\n"
    "      -h, --help          : this text\n"
    "\n"
    "The step switches of kelta.inp select the steps: do_transport_prepare (write the inputs),\n"
    "do_transport_submit_HL_job (the couplings' calculations), do_transport_submit_RE_job (the\n"
    "reorganisation energy), do_transport_get_transferintegral and do_transport_get_re_evc (fill\n"
    "V_meV and lambda_meV). A finished calculation is never run again.\n"
    "\n"
    "e.g.: %s                (every step, one calculation after the other)\n"
    "      %s -jobscript     (then: sh qc_job.sh)\n"
    "\n";

struct Options {
    std::string config = "kelta.inp";
    bool jobscript = false, collect = false;
    long task = 0;  // not given
};

[[noreturn]] void usage_error(const std::string& prog, const std::string& text)
{
    fatal_plain(1, "", prog + ": " + text + " (see " + prog + " -h)\n");
}

Options parse_options(int argc, char** argv, const std::string& prog)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const auto value = [&]() -> const char* {
            if (i + 1 >= argc) usage_error(prog, "option " + a + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::printf(kHelp, prog.c_str(), prog.c_str(), prog.c_str());
            end_run(0);
        } else if (a == "-config") {
            o.config = value();
            if (!file_exists(o.config.c_str())) usage_error(prog, "input config file " + o.config + " not found");
        } else if (a == "-jobscript") {
            o.jobscript = true;
        } else if (a == "-collect") {
            o.collect = true;
        } else if (a == "-task") {
            const char* v = value();
            if (!parse_long(v, o.task) || o.task < 1) usage_error(prog, std::string("-task needs a whole number from 1, not '") + v + "'");
        } else {
            usage_error(prog, "unknown option " + a);
        }
    }
    if (static_cast<int>(o.jobscript) + static_cast<int>(o.collect) + static_cast<int>(o.task > 0) > 1)
        usage_error(prog, "-jobscript, -task and -collect exclude one another");
    return o;
}

// The end of a calculation's progress line: its time or why it failed with the last lines
// of its output; true when it finished.
bool report(const qc::Outcome& o)
{
    if (o.before) {
        std::printf("finished before\n");
    } else if (o.ok) {
        std::printf("%.1f s\n", o.seconds);
    } else {
        std::printf("FAILED after %.1f s: %s\n", o.seconds, o.error.c_str());
        if (!o.tail.empty()) {
            std::printf("    the last lines of its output:\n");
            for (size_t at = 0; at < o.tail.size();) {
                const size_t end = o.tail.find('\n', at);
                std::printf("    | %s\n", o.tail.substr(at, end - at).c_str());
                if (end == std::string::npos) break;
                at = end + 1;
            }
        }
    }
    std::fflush(stdout);
    return o.ok;
}

qc::Outcome run_one(const qc::Engine& e, const qc::Plan& p, size_t k)
{
    const qc::PlannedCalculation& c = p.calcs[k];
    std::printf("  [%zu/%zu] %-16s %s: ", k + 1, p.calcs.size(), c.name.c_str(), c.what.c_str());
    std::fflush(stdout);
    const qc::Outcome o = qc::run_calculation(e, c);
    report(o);
    return o;
}

void print_plan(const qc::StageSettings& s, const qc::Plan& p)
{
    const size_t classes = p.classes.size();
    const size_t couplings = p.calcs.size() - p.kinds.size();
    std::string kinds;
    for (const qc::Kind& k : p.kinds) kinds += (kinds.empty() ? "" : ", ") + k.formula;
    std::printf("  %s: couplings |J_eff| through the %s%s at %s/%s, lambda at %s/%s\n",
                s.carrier == qc::Carrier::Hole ? "a hole" : "an electron", s.carrier == qc::Carrier::Hole ? "HOMO" : "LUMO",
                (s.carrier == qc::Carrier::Hole ? s.homo_adjustment : s.lumo_adjustment).empty() ? "" : " (adjusted)",
                s.method.c_str(), s.basis.c_str(), s.method_re.c_str(), s.basis_re.c_str());
    std::printf("  %d molecule(s) in the cell, %zu class(es) of pairs: %zu calculations for the couplings (%s %zu dimers; "
                "3 per class would be %zu), %zu for the reorganisation energy (%s)\n",
                p.molecules, classes, couplings,
                s.monomers_once ? strprintf("%d molecules and", p.molecules).c_str() : strprintf("%zu molecules and", 2 * classes).c_str(),
                classes, 3 * classes, p.kinds.size(), kinds.c_str());
}

void fill(const qc::Engine& e, const qc::StageSettings& s, const qc::Plan& p, const qc::CouplingsText& text, bool couplings,
          bool lambda)
{
    if (!couplings && !lambda) return;
    const qc::Collected c = qc::collect(e, s, p, couplings, lambda);
    for (size_t k = 0; k < p.classes.size() && couplings; ++k) {
        const qc::ClassRow& r = p.classes[k].row;
        if (!std::isfinite(c.V_meV[k])) continue;
        std::printf("  class %3d  %8.4f A  molecules %d and %d in cell %d %d %d:  V = %9.3f meV  (J_eff %+.3f meV, S_AB %+.2e)\n",
                    r.cls, r.d_centre, r.mol_i, r.mol_j, r.cell[0], r.cell[1], r.cell[2], c.V_meV[k],
                    c.coupling[k].j_eff * 1000.0, c.coupling[k].s_ab);
    }
    for (size_t k = 0; k < p.kinds.size() && lambda; ++k)
        if (std::isfinite(c.lambda[k].lambda))
            std::printf("  lambda of %s: %.1f meV = %.1f (%s relaxation) + %.1f (neutral relaxation)\n", p.kinds[k].formula.c_str(),
                        c.lambda[k].lambda * 1000.0, c.lambda[k].ion_relaxation * 1000.0,
                        s.carrier == qc::Carrier::Hole ? "cation" : "anion", c.lambda[k].neutral_relaxation * 1000.0);
    for (size_t m = 0; m < c.site_meV.size(); ++m) std::printf("  site energy of molecule %zu: %.3f meV\n", m + 1, c.site_meV[m]);
    OutputFile out(text.file, qc::kModule, kLineCouplings);
    out.write(qc::filled_text(text, qc::filling(s, p, c, couplings, lambda)));
    out.commit();
    size_t filled = 0;
    for (const double v : c.V_meV) filled += std::isfinite(v) ? 1 : 0;
    std::printf("  filled %s: %zu of %zu couplings%s\n", text.file.c_str(), filled, p.classes.size(),
                std::isfinite(c.lambda_meV) ? strprintf(", lambda_meV = %.1f", c.lambda_meV).c_str() : "");
    if (!c.missing.empty()) {
        std::string list;
        for (const std::string& m : c.missing) list += "  " + m + "\n";
        fatal(qc::kModule, kLineUnfilled, 1,
              strprintf("%zu value(s) of %s left as they were, their calculations not finished (failed, or not run yet):\n",
                        c.missing.size(), text.file.c_str()) +
                  list + "run kelta_qc again once they are (it runs only what is left)\n");
    }
}

void run(const Options& o)
{
    std::printf("*** kelta_qc: couplings and reorganisation energy with psi4\n");
    Transport t;
    t.read_kelta_inp(o.config.c_str(), false);
    t.read_charge_inp();
    const qc::StageSettings s = qc::stage_settings(t);
    const qc::CouplingsText text = qc::read_couplings_text(t.kelta_dat_file);
    const char* carrier = s.carrier == qc::Carrier::Hole ? "hole" : "electron";
    if (!text.carrier.empty() && text.carrier != carrier)
        fatal(qc::kModule, kLineCarrier, 1,
              strprintf("%s was written for carrier = %s, and charge.inp asks for a %s: run kelta_kmc -pairs again\n",
                        text.file.c_str(), text.carrier.c_str(), carrier));
    const qc::Plan p = qc::make_plan(s, text);
    print_plan(s, p);
    const qc::Psi4Engine engine(s.exe);
    const bool hl = t.do_transport_submit_HL_job != 0, re = t.do_transport_submit_RE_job != 0;
    const bool get_v = t.do_transport_get_transferintegral != 0, get_lambda = t.do_transport_get_re_evc != 0;
    const auto selected = [&](const qc::PlannedCalculation& c) { return c.step == qc::Step::Couplings ? hl : re; };
    const auto check_program = [&] {
        if (!qc::program_exists(s.exe))
            fatal(qc::kModule, kLineEngine, 1,
                  "qc_exe = " + s.exe + ": no such program (install psi4, Debian's package psi4, or name it with qc_exe)\n");
    };

    if (o.task > 0) {
        if (o.task > static_cast<long>(p.calcs.size()))
            fatal(qc::kModule, kLineTask, 1, strprintf("-task %ld: the plan has calculations 1 to %zu\n", o.task, p.calcs.size()));
        check_program();
        const size_t k = static_cast<size_t>(o.task - 1);
        if (!qc::finished(p.calcs[k]) && t.do_transport_prepare != 0) qc::prepare(engine, p.calcs[k]);
        if (!run_one(engine, p, k).ok) fatal(qc::kModule, kLineFailed, 1, "the calculation " + p.calcs[k].name + " failed\n");
        std::printf("*** Successfully done.\n");
        return;
    }
    if (o.collect) {
        fill(engine, s, p, text, get_v, get_lambda);
        std::printf("*** Successfully done.\n");
        return;
    }
    if (t.do_transport_prepare != 0) {
        int written = 0;
        for (const qc::PlannedCalculation& c : p.calcs) written += qc::prepare(engine, c) ? 1 : 0;
        std::printf("  wrote the inputs of %d calculation(s) in HL/ and RE/; %zu finished before\n", written,
                    p.calcs.size() - static_cast<size_t>(written));
    }
    std::vector<int> todo;
    for (size_t k = 0; k < p.calcs.size(); ++k)
        if (selected(p.calcs[k]) && !qc::finished(p.calcs[k])) todo.push_back(static_cast<int>(k));
    if (o.jobscript) {
        if (todo.empty()) {
            std::printf("  every calculation the switches select has finished: no job array; kelta_qc -collect fills the couplings file\n");
        } else {
            const std::string script = qc::write_qc_job(t, p, todo, o.config);
            std::printf("  wrote %s: %zu calculation(s) as a job array for %s, then kelta_qc -collect; submit with: sh %s\n",
                        script.c_str(), todo.size(), t.job.sched_type.c_str(), script.c_str());
        }
        std::printf("*** Successfully done.\n");
        return;
    }
    if (!todo.empty()) check_program();
    int failed = 0;
    for (size_t k = 0; k < p.calcs.size(); ++k)
        if (selected(p.calcs[k])) failed += run_one(engine, p, k).ok ? 0 : 1;
    if (failed > 0) std::printf("  %d calculation(s) failed; the others went on\n", failed);
    fill(engine, s, p, text, get_v, get_lambda);
    if (failed > 0) fatal(qc::kModule, kLineFailed, 1, strprintf("%d calculation(s) failed (above)\n", failed));
    std::printf("*** Successfully done.\n");
}

}  // namespace

int kelta_qc_main(int argc, char** argv)
{
    const std::string prog = program_name(argc > 0 ? argv[0] : nullptr, "kelta_qc");
    return run_program(prog, [&] { run(parse_options(argc, argv, prog)); });
}

#ifndef KELTA_QC_NO_MAIN
int main(int argc, char** argv)
{
    return kelta_qc_main(argc, argv);
}
#endif
