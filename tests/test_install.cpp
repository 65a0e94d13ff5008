// An installation into a fresh prefix, as a cluster's software team makes it:
// every program with its manual page, pages that document exactly the options
// the programs' help prints and render without a warning, and the demo run
// from the installed copies.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

class Installed : public testing::Test {
protected:
    void SetUp() override
    {
        const Outcome r = shell("'" KELTA_CMAKE "' --install '" KELTA_BUILD_DIR "' --prefix '" + prefix_.string() + "'");
        ASSERT_EQ(r.status, 0) << r.out;
    }
    std::set<std::string> names_in(const fs::path& dir, const std::string& ext = "") const
    {
        std::set<std::string> names;
        for (const auto& e : fs::directory_iterator(dir))
            if (e.path().extension() == ext) names.insert(e.path().stem().string());
        return names;
    }
    const ScratchDir dir_;  // the working directory
    const fs::path prefix_ = dir_.path() / "prefix";
    const fs::path bin_ = prefix_ / "bin", man_ = prefix_ / "share/man/man1";
};

// The options named in a text: "-x" or "--xy" after a blank, bracket, bar or comma.
std::set<std::string> options_in(const std::string& text)
{
    static const std::regex option(R"((?:^|[\s\[(|,])(--?[A-Za-z][A-Za-z0-9_-]*))");
    std::set<std::string> found;
    for (std::sregex_iterator m(text.begin(), text.end(), option), end; m != end; ++m) found.insert((*m)[1]);
    return found;
}

// A roff line as text: no font changes, "\-" as "-", no macro name, no quotes.
std::string roff_text(std::string line)
{
    line = std::regex_replace(line, std::regex(R"(\\f[BIRP])"), "");
    line = std::regex_replace(line, std::regex(R"(\\-)"), "-");
    line = std::regex_replace(line, std::regex(R"(^\.[A-Za-z]+)"), "");
    std::erase(line, '"');
    return line;
}

// The options of a manual page's SYNOPSIS and those of the tags (the line after
// each .TP) of its OPTIONS section.
std::pair<std::set<std::string>, std::set<std::string>> man_options(const fs::path& page)
{
    std::string section, synopsis, tags;
    bool tag = false;
    for (const std::string& l : read_lines(page)) {
        if (l.rfind(".SH ", 0) == 0) section = l.substr(4);
        else if (section == "SYNOPSIS") synopsis += roff_text(l) + " ";
        else if (section == "OPTIONS" && tag) tags += roff_text(l) + "\n";
        tag = l == ".TP";
    }
    return {options_in(synopsis), options_in(tags)};
}

}  // namespace

TEST_F(Installed, EveryProgramWithItsManualPage)
{
    const std::set<std::string> programs = names_in(bin_), pages = names_in(man_, ".1");
    EXPECT_TRUE(programs.contains("kelta_mob") && programs.contains("kelta_tracks"));
    EXPECT_EQ(pages, programs) << "every installed program needs docs/man/NAME.1, and every page its program";
    EXPECT_EQ(names_in(fs::path(KELTA_SOURCE_DIR) / "docs/man", ".1"), pages);
    EXPECT_TRUE(fs::exists(prefix_ / "share/doc/kelta_mob/README.md"));
    for (std::string p : pages) {
        const std::string title = read_lines(man_ / (p + ".1")).at(0);
        std::transform(p.begin(), p.end(), p.begin(), ::toupper);
        EXPECT_EQ(title.rfind(".TH " + p + " 1 ", 0), 0u) << title;
    }
}

// Every option the help prints is in the page's synopsis and options, and they
// document no other. The two spellings that print the help count as its options:
// the test has just used them (kelta_mob's prescribed help does not list them).
TEST_F(Installed, ManualPagesDocumentTheOptionsOfTheHelp)
{
    for (const std::string& p : names_in(bin_)) {
        const Outcome help = shell("prefix/bin/" + p + " --help"), h = shell("prefix/bin/" + p + " -h");
        ASSERT_EQ(help.status, 0) << p << help.out;
        EXPECT_EQ(h.status, 0) << p;
        EXPECT_EQ(h.out, help.out) << p;
        std::set<std::string> options = options_in(help.out);
        options.insert({"-h", "--help"});
        const auto [synopsis, documented] = man_options(man_ / (p + ".1"));
        EXPECT_EQ(documented, options) << p << ": the OPTIONS section of docs/man/" << p << ".1 against --help";
        EXPECT_EQ(synopsis, options) << p << ": the SYNOPSIS of docs/man/" << p << ".1 against --help";
    }
}

TEST_F(Installed, ManualPagesRenderWithoutWarnings)
{
    if (shell("groff --version").status != 0) GTEST_SKIP() << "groff is not installed";
    for (const std::string& p : names_in(man_, ".1"))
        for (const std::string width : {"", "-rLL=60n"}) {  // man's usual width, and a narrow terminal
            const Outcome r = shell("groff -ww -z -man -Tutf8 " + width + " '" + (man_ / (p + ".1")).string() + "'");
            EXPECT_EQ(r.status, 0) << p;
            EXPECT_EQ(r.out, "") << p << " " << width;
        }
}

// The installed demo script with the installed programs (no file of the source
// or build tree is needed) draws every picture without a message, where gnuplot
// and matplotlib are; the EPS and Python scripts run too.
TEST_F(Installed, DemoRunsFromTheInstalledProgramsAndDrawsEveryPicture)
{
    const fs::path script = prefix_ / "share/doc/kelta_mob/examples/run_demo.sh";
    const Outcome r = shell("cd '" + dir_.path().string() + "' && '" + script.string() + "' '" + bin_.string() + "' run 200 2> err");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(read_file("err"), "");  // gnuplot says nothing when it draws
    EXPECT_NE(r.out.find("*** Succsessfully done."), std::string::npos) << r.out;
    EXPECT_NE(read_file("run/mob_tensor.dat").find("principal_3"), std::string::npos);
    EXPECT_TRUE(fs::exists("run/track/track_0200.dat"));
    const bool gnuplot = shell("gnuplot --version").status == 0;
    const bool python = shell("/usr/bin/python3 -c 'import matplotlib, numpy'").status == 0;
    for (const std::string p : {"mob_plane_xy", "mob_plane_xz", "mob_plane_yz", "mob_direction_all", "mob_msd",
                                "me_marcus/me_temp", "me_marcus/me_field", "me_quantum/me_temp", "me_quantum/me_field"}) {
        const fs::path at = fs::path("run") / p;
        const std::string in = "cd '" + at.parent_path().string() + "' && ", b = at.filename().string();
        if (gnuplot) {
            EXPECT_EQ(read_file(at.string() + ".png").rfind("\x89PNG\r\n\x1a\n", 0), 0u) << p;
            const Outcome eps = shell(in + "gnuplot " + b + ".gnu");
            EXPECT_EQ(eps.status, 0) << eps.out;
            EXPECT_EQ(eps.out, "");
            EXPECT_EQ(read_file(at.string() + ".eps").rfind("%!PS-Adobe", 0), 0u) << p;
        }
        if (python) {
            const Outcome py = shell(in + "MPLBACKEND=Agg /usr/bin/python3 " + b + ".py");
            EXPECT_EQ(py.status, 0) << p << py.out;
        }
    }
    if (!gnuplot || !python) GTEST_SKIP() << "gnuplot or Debian's python3 with matplotlib is not installed";
}
