// The folders of the simulation's temperature series: each holds what one run of
// kelta_kmc and of kelta_mob at its temperature reads, so that it can be run,
// sliced, analysed or moved on its own.
#include <sys/wait.h>

#include <filesystem>

#include "hopping_series.h"
#include "hopping_errors.h"

using namespace hopping_error;

namespace series {

namespace {

const char* const kModule = "transport";

const char* const kSameName =
    "the input files %s and %s have the same name: the folders of the temperature series hold every input under "
    "its own name, so rename one\n";
const char* const kNoTracks =
    "%s/track holds no track files: run the simulation of the series first (do_transport_run_MC_temp = 1)\n";
const char* const kMobFailed = "kelta_mob -tensor failed in %s (status %d): see %s/kelta_mob.log\n";

// The last block of a folder's kelta.inp: its temperature, the simulation alone.
const char* const kFolderBlock =
    "\n"
    "! Written by kelta_kmc for one temperature of the series: this block, read last, sets the\n"
    "! temperature and runs the simulation alone (the input files above are the copies in this folder).\n"
    "&transport\n"
    "  temp = %s\n"
    "  do_transport_run_MC = 1\n"
    "  do_transport_run_MC_temp = 0\n"
    "  do_transport_get_mob_MC_temp = 0\n"
    "  do_transport_run_ME = 0\n"
    "  do_transport_get_mob_ME = 0\n"
    "  do_transport_run_ME_temp = 0\n"
    "  do_transport_get_mob_ME_temp = 0\n"
    "/\n";

// Single quotes for the shell.
std::string quoted(const std::string& s)
{
    std::string q = "'";
    for (const char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string read_all(const std::string& name)
{
    const File f = open_file(name, "rb");
    if (!f) fatal_open(kModule, kLineFolderFiles, name);
    std::string text;
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f.get())) > 0;) text.append(buf, n);
    return text;
}

void write_all(const std::string& name, const std::string& text)
{
    OutputFile f(name, kModule, kLineFolderFiles);
    f.write(text);
    f.commit();
}

// The configuration with the values of the keywords that name input files
// replaced by the copies' names, read block by block as the input reader reads it.
std::string with_local_names(const std::string& text, const std::string& crystal, const std::string& molecule,
                             const std::string& couplings)
{
    std::string out;
    bool block = false;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at), s = line;
        at = end + 1;
        trim(s);
        if (!block) {
            s = s.substr(0, s.find('!'));
            block = iequals(s, "&transport");
        } else {
            s = s.substr(0, s.find('!'));
            s = s.substr(0, s.find('#'));
            if (!s.empty() && s[0] == '/') block = false;
            std::string key = s.substr(0, s.find('='));
            trim(key);
            // A line that names the copy already stays as it is.
            const auto name = [&](const char* keyword, const std::string& value) {
                std::string was = s.substr(s.find('=') + 1);
                if (trim(was) != value) line = std::string("  ") + keyword + " = " + value;
            };
            if (s.find('=') != std::string::npos) {
                if (iequals(key, "crystal")) name("crystal", crystal);
                else if (iequals(key, "molecule")) name("molecule", molecule);
                else if (iequals(key, "kelta_dat_file")) name("kelta_dat_file", couplings);
            }
        }
        out += line + (end < text.size() ? "\n" : "");
    }
    return out;
}

}  // namespace

void lay_folder(const Transport& t, const std::string& config, double T, const std::string& dir)
{
    create_directory(dir.c_str());
    std::vector<std::string> sources;
    const auto local = [&](const std::string& file) {
        const std::string name = std::filesystem::path(file).filename().string();
        for (const std::string& other : sources)
            if (other != file && std::filesystem::path(other).filename() == name)
                fatal(kModule, kLineFolderFiles, 1, strprintf(kSameName, other.c_str(), file.c_str()));
        sources.push_back(file);
        return name;
    };
    std::string crystal, molecule = std::to_string(t.mol_count);
    if (t.mol_input_mode == 2) crystal = local(t.cif_filename);
    if (t.mol_input_mode == 1)
        for (const std::string& m : t.mol_names) {
            molecule += ' ';
            molecule += local(m);
        }
    const std::string couplings = local(t.kelta_dat_file);
    local("charge.inp");
    for (const std::string& file : sources)
        write_all(dir + "/" + std::filesystem::path(file).filename().string(), read_all(file));
    write_all(dir + "/kelta.inp", with_local_names(read_all(config), crystal, molecule, couplings) +
                                      strprintf(kFolderBlock, temperature_text(T).c_str()));
}

void analyse_folder(const std::string& dir, const TimeUnit& unit)
{
    if (!std::filesystem::is_directory(dir + "/track")) fatal(kModule, kLineAnalysis, 1, strprintf(kNoTracks, dir.c_str()));
    const std::string bin = Jobscript::program_dir(), mob = bin.empty() ? "kelta_mob" : bin + "/kelta_mob";
    std::fflush(stdout);
    const int rc = std::system(("cd " + quoted(dir) + " && " + quoted(mob) + " -config kelta.inp -timeunit " + unit.option +
                                " -tensor > kelta_mob.log 2>&1")
                                   .c_str());
    const int status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    if (status != 0) fatal(kModule, kLineAnalysis, 1, strprintf(kMobFailed, dir.c_str(), status, dir.c_str()));
}

}  // namespace series
