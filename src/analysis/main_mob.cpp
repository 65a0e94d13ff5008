// kelta_mob: charge-carrier mobility from the track files of a hopping simulation.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string_view>
#include <string>

#include "main_mob.h"

namespace {

const char* const kTrackdirNotRead =
    "-trackdir %s is stored and printed only: the track files are read from track/ in any case\n";
const char* const kStars = "*******************************************************************";

void print_KELTA_title()
{
    for (const std::string& l : {std::string(kStars),
                                 std::string("*   KELTA Transport Calculation Utility, Version ") + kReleaseLabel + "    *",
                                 std::string("*   Carrier mobility from kinetic Monte Carlo trajectories        *"),
                                 std::string(kStars)})
        std::cout << l << std::endl;
}

void print_help(const std::string& prog)
{
    print_KELTA_title();
    std::cout << "Calculate mobility properties with data in track directory\n"
              << "\n"
              << "Usage: " << prog << " [opts]\n"
              << "      -config kelta.inp   : set config file, default to 'kelta.inp'\n"
              << "      -trackdir track     : set track directory, default to 'track'\n"
              << "      -timeunit [PS | NS] : can only be 'PS' or 'NS'\n"
              << "      -deltaa num         : set grid angle delta, default to 10.0\n"
              << "                            can also use 'delta.inp' to set angle delta\n"
              << "      -moball             : trigger mob all calculation\n"
              << "      -binfo              : enable screen output\n"
              << "      -tensor             : also write the mobility tensor to 'mob_tensor.dat'\n"
              << "      -json               : also write the run summary to 'mob_summary.json'\n"
              << "\n"
              << "e.g.: " << prog << "\n"
              << "      " << prog << " -config kelta.inp\n"
              << "      " << prog << " -deltaa 10.0\n"
              << "      " << prog << " -trackdir track\n"
              << "      " << prog << " -config kelta.inp -trackdir track\n"
              << "\n";
}

struct RunOptions {
    std::string config = "kelta.inp";
    std::string trackdir = "track";
    double timeunit = units::kNanosecond;
    double angle_delta = 10.0;
    bool binfo = false;
    bool tensor = false;
    bool json = false;
    int mob_all = 0;
};

// An option matches when the argument begins with the option's text.
bool is_option(const char* arg, const char* option)
{
    return std::strncmp(arg, option, std::strlen(option)) == 0;
}

// Options are acted on as they are met, so a failure or help ends the run
// before later arguments are looked at; unknown arguments are skipped.
RunOptions parse_options(int argc, char** argv, const std::string& prog)
{
    RunOptions o;
    auto value = [&](int& i, const char* option) -> const char* {
        if (i + 1 >= argc) {
            std::printf("ERROR: %s option %s needs a value\n", prog.c_str(), option);
            end_run(1);
        }
        return argv[++i];
    };
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (is_option(arg, "-config")) {
            o.config = value(i, "-config");
            if (!file_exists(o.config.c_str())) {
                std::printf("ERROR: %s input config file %s not found!\n", prog.c_str(), o.config.c_str());
                end_run(0);
            }
            std::printf("  %s input config file is %s\n", prog.c_str(), o.config.c_str());
        } else if (is_option(arg, "-trackdir")) {
            o.trackdir = value(i, "-trackdir");
            std::printf(" trackdir is '%s'\n", o.trackdir.c_str());
        } else if (is_option(arg, "-timeunit")) {
            const char* unit = value(i, "-timeunit");
            // Only the first two letters count: -timeunit PSEC is ps.
            const std::optional<units::TimeUnit> u = units::time_unit_named(std::string_view(unit).substr(0, 2));
            if (!u) {
                std::printf(" Unknown time unit string, can only be 'PS' or 'NS'\n");
                end_run(0);
            }
            o.timeunit = u->seconds;
            std::printf(" timeunit is '%s'\n", unit);
        } else if (is_option(arg, "-deltaa")) {
            o.angle_delta = std::atof(value(i, "-deltaa"));
            o.mob_all = 1;  // an explicit step asks for the scans that use it
            std::printf(" angle delta is %g\n", o.angle_delta);
        } else if (is_option(arg, "-moball")) {
            o.mob_all = 1;
        } else if (is_option(arg, "-binfo")) {
            o.binfo = true;
        } else if (is_option(arg, "-tensor")) {
            o.tensor = true;
        } else if (is_option(arg, "-json")) {
            o.json = true;
        } else if (is_option(arg, "-h") || is_option(arg, "--help")) {
            print_help(prog);
            end_run(0);
        }
    }
    return o;
}

void run(const RunOptions& o, const RandomSeeds& seeds)
{
    std::printf("*** Perform Mobility Calculation...\n");
    Mobutils mob;
    mob.set_flag_binfo(o.binfo);
    mob.read_kelta_inp(o.config.c_str(), o.binfo);
    mob.read_crystal_strcuture_files(o.binfo, false);
    mob.set_trackdir(o.trackdir);
    if (std::filesystem::path(o.trackdir).lexically_normal() / "" != std::filesystem::path("track/"))
        mob.warn(strprintf(kTrackdirNotRead, o.trackdir.c_str()));
    mob.set_track_timeunit(o.timeunit);
    mob.set_angle_delta(o.angle_delta);
    mob.set_flag_tensor(o.tensor);
    mob.set_flag_json(o.json);
    mob.calc_homo();
    mob.build_neighbor_list(o.binfo);
    mob.init();
    mob.readin_track_data();
    mob.output_mob_data(o.mob_all, seeds);
    std::printf("*** Succsessfully done.\n");
}

}  // namespace

int kelta_mob_main(int argc, char** argv, const RandomSeeds& seeds)
{
    const std::string prog = program_name(argv[0], "kelta_mob");  // null when argc is 0
    return run_program(prog, [&] { run(parse_options(argc, argv, prog), seeds); });
}

#ifndef KELTA_MOB_NO_MAIN
int main(int argc, char** argv)
{
    return kelta_mob_main(argc, argv);
}
#endif
