#include "kelta_inp.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include "kelta_inp_errors.h"

using namespace kelta_inp_error;

namespace {

const char* const kModule = "kelta_inp";
const char* const kDefaultChargetype = "a";

// Message texts of the reader.
const char* const kOpenFailed = "Failed to open input file: %s\n";
const char* const kUnknownKey = "\nUnknown parameter \"%s\" in file %s!!!\n\n";
const char* const kBadChoice = "The current %s in kelta.inp is '%s', \nwhile the supported %s's are: %s\n";
const char* const kEngineMismatch =
    "Incomptiable settings:\n  The compute_engine = %d, while qc_exe is set to %s\n"
    "  1 - Gaussian, 2 - ORCA, 3 - QCHEM\n";
const char* const kMoleculeNames = "Keyword molecule announces %d file name(s) but gives %d: '%s'\n";
const char* const kMoleculeNone = "Keyword molecule names no molecule file: '%s'\n";
const char* const kBadLength = "%s line %d: %s = %s holds %g, not a finite number of magnitude at most %g\n";
const char* const kBadTemperature = "%s line %d: temp = %s holds %g K, not a finite positive temperature\n";
const char* const kTextAfterNumber = "%s line %d: %s = %s is read as %s (the text \"%s\" after the number is ignored)";
const char* const kNoNumber = "%s line %d: %s = %s is read as %s (the text \"%s\" is no number)";
const char* const kMoreTextAfterNumbers = "; %d more line(s) hold numbers followed by text\n";

int as_int(const std::string& v) { return std::atoi(v.c_str()); }

std::string as_text(std::string v) { return trim(v); }

// Words lose every quote wherever it stands: "e", 'e' and e are the same.
std::string as_word(std::string v)
{
    trim(v);
    std::erase_if(v, [](char c) { return c == '"' || c == '\''; });
    return v;
}

void append_int_list(const std::string& v, std::vector<int>& list)
{
    std::vector<std::string> tokens;
    tokenize(tokens, v.c_str(), " ");
    for (const std::string& t : tokens) list.push_back(as_int(t));
}

void check_choice(const std::string& value, bool ok, const char* what, const char* allowed)
{
    if (!ok) fatal(kModule, kLineBadChoice, 1, strprintf(kBadChoice, what, value.c_str(), what, allowed));
}

}  // namespace

KeltaInp::KeltaInp() = default;

void KeltaInp::set_varables_default()
{
    job.sched_type = "pbs";
    job.queue_name = "workq";
    qc_method = "b3lyp";
    qc_basis = "b3lyp STO-3g";
    qc_basis_re = "b3lyp STO-3g";
    qc_memory = 4096;
    start_temp = 200.0;
    end_temp = 300.0;
    delta_temp = 50.0;
    temp = 300.0;
    ratetype = "quantum";
    rate_model = RateModel::quantum;
    chargetype = std::string(kDefaultChargetype);
    evc_type = "cart";
    vec_a = {8.098, 0.0, 0.0};
    vec_b = {0.0, 5.953, 0.0};
    vec_c = {-4.888095, 0.0, 7.138882};
    lat_cutoff = 4.0;
    delta_angle = 10.0;
    tsimu = 1000.0;
    tsnap = 5.0;
    super_cell = {5, 5, 5};
    mol_count = 0;
    output_level = 2;
    scell_n = {3, 3, 3};
    eckart_mirror = 0;
    maxt = 10000.0;
    sta = 1;
    nsimu = 2000;
    seed = 1;
    tstep = 1.0;
    iterlimit = 100;
    nevery_out = 10;
    job.qc_nodes = 1;
    job.qc_ppn = 8;
}

void KeltaInp::get_environment_variables()
{
    if (const char* v = std::getenv("KELTA_JOB_SCHED")) job.sched_type = v;
    if (const char* v = std::getenv("KELTA_JOB_QUEUE")) job.queue_name = v;
    if (const char* v = std::getenv("KELTA_QC_EXE")) job.qc_exe = v;
    if (const char* v = std::getenv("KELTA_QC_NODES")) job.qc_nodes = std::atoi(v);
    if (const char* v = std::getenv("KELTA_QC_PPN")) job.qc_ppn = std::atoi(v);
    if (const char* v = std::getenv("KELTA_MODULE_QC")) {
        job.module_qc = v;
        job.module_qc_given = true;
    }
}

// Lines are read with a 1024-byte buffer, so a longer physical line becomes
// several entries; counting and storing use the same split.
void KeltaInp::load_kelta_inp_file(const char* path, bool /*verbose*/)
{
    const File f = open_file(path, "rt");
    if (!f) fatal(kModule, kLineOpen, -1, strprintf(kOpenFailed, path));
    std::vector<std::string> lines;
    for (std::string line; read_line(f.get(), line, 1024);) lines.push_back(line);
    lines_ = std::move(lines);
}

bool KeltaInp::read_kelta_inp(const char* path, bool verbose)
{
    verbose_ = verbose;
    config_file = path;
    unread_count_ = 0;
    set_varables_default();
    get_environment_variables();
    load_kelta_inp_file(path, verbose);
    if (verbose) std::printf("Reading config file \"%s\"... \n", path);
    interpret_lines(path);
    if (unread_count_ > 0)
        warn(unread_ + (unread_count_ > 1 ? strprintf(kMoreTextAfterNumbers, unread_count_ - 1) : std::string(".\n")));
    check_settings();
    lines_ = std::vector<std::string>();  // frees the text
    if (kelta_dat_file.empty()) kelta_dat_file = "kelta-" + ratetype + ".dat";
    if (job.sched_type == "lsf" && !job.nodelist.empty())
        std::replace(job.nodelist.begin(), job.nodelist.end(), ',', ' ');
    input_read = true;
    return true;
}

void KeltaInp::interpret_lines(const char* path)
{
    path_ = path;
    const size_t n = lines_.size();
    size_t i = 0;
    while (i < n) {
        std::string s = lines_[i++];
        trim(s);
        // Only '!' cuts a comment here, and there is no second trim: a header
        // "&transport   ! settings" keeps its blanks and does not open the block.
        s = s.substr(0, s.find('!'));
        if (iequals(s, "&transport")) {
            while (i < n) {
                std::string b = lines_[i++];
                trim(b);
                // A comment runs from the first '!' or '#'; what is left without a '=' is passed over.
                b = b.substr(0, b.find('!'));
                b = b.substr(0, b.find('#'));
                if (!b.empty() && b[0] == '/') break;
                const size_t eq = b.find('=');
                if (eq == std::string::npos) continue;
                std::string key = b.substr(0, eq);
                line_ = static_cast<int>(i);  // i has moved past the line: its 1-based number
                set_keyword(trim(key), b.substr(eq + 1), path);
            }
        } else if (iequals(s, "&gaussian.append") || iequals(s, "&qc_inp_append")) {
            // Raw lines, newline kept; only a '/' in the very first column ends it.
            while (i < n && lines_[i][0] != '/') qc_inp_append += lines_[i++];
            ++i;  // past the '/' line, or past the end
        }
    }
}

void KeltaInp::set_keyword(const std::string& key, const std::string& v, const char* path)
{
    using Setter = void (*)(KeltaInp&, const std::string&);
    struct Keyword {
        const char* name;
        const char* alias;
        Setter set;
    };
    // The order in which keys are compared; the first match wins.
    static const Keyword table[] = {
        {"do_transport_prepare", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_prepare = k.integer(v); }},
        {"do_transport_submit_HL_job", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_submit_HL_job = k.integer(v); }},
        {"do_transport_submit_RE_job", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_submit_RE_job = k.integer(v); }},
        {"do_transport_get_transferintegral", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_transferintegral = k.integer(v); }},
        {"do_transport_get_re_evc", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_re_evc = k.integer(v); }},
        {"do_transport_run_MC", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_run_MC = k.integer(v); }},
        {"do_transport_get_mob_MC", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_mob_MC = k.integer(v); }},
        {"do_transport_run_MC_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_run_MC_temp = k.integer(v); }},
        {"do_transport_get_mob_MC_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_mob_MC_temp = k.integer(v); }},
        {"do_transport_run_ME", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_run_ME = k.integer(v); }},
        {"do_transport_get_mob_ME", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_mob_ME = k.integer(v); }},
        {"do_transport_run_ME_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_run_ME_temp = k.integer(v); }},
        {"do_transport_get_mob_ME_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_get_mob_ME_temp = k.integer(v); }},
        {"do_transport_gather_kelta_data", nullptr, [](KeltaInp& k, const std::string& v) { k.do_transport_gather_kelta_data = k.integer(v); }},
        {"mater_name", nullptr, [](KeltaInp& k, const std::string& v) { k.mater_name = as_word(v); }},
        {"module_mpich2", nullptr, [](KeltaInp& k, const std::string& v) { k.job.module_mpich2 = as_word(v); k.job.module_mpich2_given = true; }},
        {"module_qc", "module_gaussian", [](KeltaInp& k, const std::string& v) { k.job.module_qc = as_word(v); k.job.module_qc_given = true; }},
        {"qc_exe", "gaussian_exe", [](KeltaInp& k, const std::string& v) { k.job.qc_exe = as_word(v); }},
        {"qc_memory", "memory", [](KeltaInp& k, const std::string& v) { k.qc_memory = k.integer(v); }},
        {"qc_nodes", "gaussian_nodes", [](KeltaInp& k, const std::string& v) { k.job.qc_nodes = k.integer(v); }},
        {"qc_ppn", "gaussian_ppn", [](KeltaInp& k, const std::string& v) { k.job.qc_ppn = k.integer(v); }},
        {"qc_method", nullptr, [](KeltaInp& k, const std::string& v) { k.qc_method = as_word(v); }},
        {"qc_basis", "basis_name", [](KeltaInp& k, const std::string& v) { k.qc_basis = as_word(v); }},
        {"qc_basis_re", "basis_name_re", [](KeltaInp& k, const std::string& v) { k.qc_basis_re = as_word(v); }},
        {"queue_name", nullptr, [](KeltaInp& k, const std::string& v) { k.job.queue_name = as_word(v); }},
        {"sched_type", "queue_type", [](KeltaInp& k, const std::string& v) { k.job.sched_type = as_word(v); }},
        {"sched_job_array", nullptr, [](KeltaInp& k, const std::string& v) { k.job.sched_job_array = k.integer(v) != 0; }},
        {"nodelist", nullptr, [](KeltaInp& k, const std::string& v) { k.job.nodelist = as_word(v); }},
        {"start_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.start_temp = k.real(v); }},
        {"end_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.end_temp = k.real(v); }},
        {"delta_temp", nullptr, [](KeltaInp& k, const std::string& v) { k.delta_temp = k.real(v); }},
        {"chargetype", nullptr, [](KeltaInp& k, const std::string& v) {
             k.chargetype = as_word(v);
             const std::string& c = k.chargetype;
             check_choice(c, iequals(c, "e") || iequals(c, "h") || iequals(c, "a"), "chargetype", "'e', 'h', 'a'");
         }},
        {"evc_type", nullptr, [](KeltaInp& k, const std::string& v) {
             k.evc_type = as_word(v);
             check_choice(k.evc_type, iequals(k.evc_type, "cart") || iequals(k.evc_type, "int"), "evc_type", "'cart', 'int'");
         }},
        {"vector_a", nullptr, [](KeltaInp& k, const std::string& v) { k.set_length_triple("vector_a", v, k.vec_a); }},
        {"vector_b", nullptr, [](KeltaInp& k, const std::string& v) { k.set_length_triple("vector_b", v, k.vec_b); }},
        {"vector_c", nullptr, [](KeltaInp& k, const std::string& v) { k.set_length_triple("vector_c", v, k.vec_c); }},
        {"lat_cutoff", nullptr, [](KeltaInp& k, const std::string& v) { k.lat_cutoff = k.length("lat_cutoff", v, k.real(v)); }},
        {"nei_scell", nullptr, [](KeltaInp& k, const std::string& v) { k.int_triple(v, k.scell_n.data()); }},
        {"super-cell", "super_cell", [](KeltaInp& k, const std::string& v) { k.int_triple(v, k.super_cell.data()); }},
        {"bond_dis_scale", nullptr, [](KeltaInp& k, const std::string& v) { k.bond_dis_scale = k.length("bond_dis_scale", v, k.real(v)); }},
        {"temp", nullptr, [](KeltaInp& k, const std::string& v) { k.temp = k.temperature(v); }},
        {"maxt", nullptr, [](KeltaInp& k, const std::string& v) { k.maxt = k.real(v); }},
        {"ratetype", nullptr, [](KeltaInp& k, const std::string& v) {
             k.ratetype = as_text(v);
             const char* r = k.ratetype.c_str();
             const bool marcus = my_strcasestr(r, "marcus", 6);
             check_choice(k.ratetype, marcus || my_strcasestr(r, "quant", 5), "ratetype", "marcus, quantum");
             k.rate_model = marcus ? RateModel::marcus : RateModel::quantum;
         }},
        {"sta", nullptr, [](KeltaInp& k, const std::string& v) { k.sta = k.integer(v); }},
        {"delta_angle", nullptr, [](KeltaInp& k, const std::string& v) { k.delta_angle = k.real(v); }},
        {"tsimu", nullptr, [](KeltaInp& k, const std::string& v) { k.tsimu = k.real(v); }},
        {"tsnap", nullptr, [](KeltaInp& k, const std::string& v) { k.tsnap = k.real(v); }},
        {"tstep", nullptr, [](KeltaInp& k, const std::string& v) { k.tstep = k.real(v); }},
        {"nsimu", nullptr, [](KeltaInp& k, const std::string& v) { k.nsimu = k.integer(v); }},
        {"iterlimit", nullptr, [](KeltaInp& k, const std::string& v) { k.iterlimit = k.integer(v); }},
        {"nevery_out", nullptr, [](KeltaInp& k, const std::string& v) { k.nevery_out = k.integer(v); }},
        {"RE_unique_mol", nullptr, [](KeltaInp& k, const std::string& v) { k.RE_unique_mol = k.integer(v); }},
        {"HL_unique_mol", nullptr, [](KeltaInp& k, const std::string& v) { k.HL_unique_mol = k.integer(v); }},
        {"homo_adjustment", nullptr, [](KeltaInp& k, const std::string& v) { append_int_list(v, k.homo_adjustment); }},
        {"lumo_adjustment", nullptr, [](KeltaInp& k, const std::string& v) { append_int_list(v, k.lumo_adjustment); }},
        {"molecule", nullptr, [](KeltaInp& k, const std::string& v) { k.set_molecule_files(v); }},
        {"crystal", nullptr, [](KeltaInp& k, const std::string& v) {
             if (k.cif_by_crystal_reader)
                 k.cif_filename = as_text(v);  // read with the structure, after the whole input
             else
                 k.read_data_cif(as_text(v).c_str(), k.verbose_);
             k.mol_input_mode = 2;
         }},
        {"lat_site_energy", nullptr, [](KeltaInp& k, const std::string& v) { k.lat_site_energy = k.integer(v); }},
        {"output_level", nullptr, [](KeltaInp& k, const std::string& v) { k.output_level = k.integer(v); }},
        {"kelta_dat_file", nullptr, [](KeltaInp& k, const std::string& v) { k.kelta_dat_file = as_text(v); }},
        {"output_eigval", nullptr, [](KeltaInp& k, const std::string& v) { k.output_eigval = k.integer(v); }},
        {"compute_engine", nullptr, [](KeltaInp& k, const std::string& v) {
             k.compute_engine = k.integer(v);
             if (k.compute_engine == 2) k.job.qc_exe = "fullpath/orca";
         }},
        {"scratch", nullptr, [](KeltaInp& k, const std::string& v) { k.job.scratch = v; }},
        {"eckart_mirror", nullptr, [](KeltaInp& k, const std::string& v) { k.eckart_mirror = k.integer(v); }},
        {"app_elec_F", nullptr, [](KeltaInp& k, const std::string& v) {
             k.real_triple(v, k.app_elec_F.data());
             for (const double f : k.app_elec_F)
                 if (f != 0.0) k.app_elec_F_on = true;  // never cleared by a later zero field
         }},
        {"field_range", nullptr, [](KeltaInp& k, const std::string& v) {
             k.real_triple(v, k.field_range.data());
             k.field_range_on = true;
         }},
        {"seed", nullptr, [](KeltaInp& k, const std::string& v) { k.seed = k.integer(v); }},
    };
    for (const Keyword& kw : table) {
        if (iequals(key, kw.name) || (kw.alias && iequals(key, kw.alias))) {
            key_ = key;
            kw.set(*this, v);
            return;
        }
    }
    fatal(kModule, kLineUnknownKey, -1, strprintf(kUnknownKey, key.c_str(), path));
}

// Lengths must be finite and at most kMaxLength in magnitude, as those of the
// structure files: beyond that no geometry means anything.
double KeltaInp::length(const char* key, const std::string& value, double v) const
{
    if (!(std::fabs(v) <= kMaxLength))
        fatal(kModule, kLineLength, 1, strprintf(kBadLength, path_.c_str(), line_, key, as_text(value).c_str(), v, kMaxLength));
    return v;
}

void KeltaInp::set_length_triple(const char* key, const std::string& value, Vec3& vec)
{
    real_triple(value, vec.data());
    for (const double c : vec) length(key, value, c);
}

double KeltaInp::temperature(const std::string& value)
{
    const double t = real(value);
    if (!(t > 0.0 && std::isfinite(t)))
        fatal(kModule, kLineTemperature, 1, strprintf(kBadTemperature, path_.c_str(), line_, as_text(value).c_str(), t));
    return t;
}

// Numbers follow atoi, atof and sscanf: "nsimu = abc" gives 0 and "1.0d3" gives
// 1.0, as the suite has always read them. What they leave unread is noted, and
// the first such line is named in one warning after the file is read.
int KeltaInp::integer(const std::string& value)
{
    char* end = nullptr;
    const int v = static_cast<int>(std::strtol(value.c_str(), &end, 10));  // atoi
    note_unread(value, end, std::to_string(v));
    return v;
}

double KeltaInp::real(const std::string& value)
{
    char* end = nullptr;
    const double v = std::strtod(value.c_str(), &end);  // atof
    note_unread(value, end, strprintf("%g", v));
    return v;
}

// Components that cannot be scanned keep their previous values.
void KeltaInp::real_triple(const std::string& value, double* out)
{
    const std::string t = as_text(value);
    const char* p = t.c_str();
    for (int k = 0, n = 0; k < 3 && std::sscanf(p, "%lf%n", &out[k], &n) == 1; ++k) p += n;
    note_unread(value, p, strprintf("%g %g %g", out[0], out[1], out[2]));
}

void KeltaInp::int_triple(const std::string& value, int* out)
{
    const std::string t = as_text(value);
    const char* p = t.c_str();
    for (int k = 0, n = 0; k < 3 && std::sscanf(p, "%d%n", &out[k], &n) == 1; ++k) p += n;
    note_unread(value, p, strprintf("%d %d %d", out[0], out[1], out[2]));
}

void KeltaInp::note_unread(const std::string& value, const char* end, const std::string& used)
{
    std::string rest = end;
    if (trim(rest).empty()) return;
    if (unread_count_++ > 0) return;
    const std::string text = as_text(value);
    unread_ = strprintf(text == rest ? kNoNumber : kTextAfterNumber, path_.c_str(), line_, key_.c_str(), text.c_str(),
                        used.c_str(), rest.c_str());
}

// "molecule = N a.mol b.mol ...": runs of blanks count as one separator.
void KeltaInp::set_molecule_files(const std::string& value)
{
    std::vector<std::string> tokens;
    tokenize(tokens, value.c_str(), " ");
    if (tokens.empty()) fatal(kModule, kLineMoleculeNone, 1, strprintf(kMoleculeNone, value.c_str()));
    const int n = as_int(tokens[0]);
    const int given = static_cast<int>(tokens.size()) - 1;
    if (n < 0 || n > given) fatal(kModule, kLineMoleculeNames, 1, strprintf(kMoleculeNames, n, given, value.c_str()));
    mol_count = n;
    mol_names.assign(tokens.begin() + 1, tokens.begin() + 1 + n);
    mol_input_mode = 1;
}

void KeltaInp::check_settings()
{
    const std::string& exe = job.qc_exe;
    const bool ok = (compute_engine == 1 && exe.find('g') != std::string::npos) ||
                    (compute_engine == 2 && exe.find("orca") != std::string::npos) ||
                    (compute_engine == 3 && exe.find("qchem") != std::string::npos) ||
                    (compute_engine < 1 || compute_engine > 3);
    if (!ok) fatal(kModule, kLineEngine, 1, strprintf(kEngineMismatch, compute_engine, exe.c_str()));
    unique_RE_calc = RE_unique_mol != 0;
    unique_uc_mol_one_calc = unique_nei_mol_one_calc = unique_2mol_calc = HL_unique_mol != 0;
}
