// The Debian packages of tools/deps.sh against what the build, the tests and
// the demo use. What CMake finds and the sources include must be listed as
// required; the programs the tests and the demo run and the Python modules of
// the scripts they run, as optional (what needs them skips without them). A
// listed package that nothing uses is an error too. fuzz/ is left out: only
// make fuzz builds it, with clang.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>

#include "test_support.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

// Listed ahead of the code that will use them; remove a name once it is used.
const std::set<std::string> kAwaitingUse = {};

// What provides each thing a file can use; an empty package is the compiler's
// or the C library's own.
const std::map<std::string, std::string> kCmakePackages = {
    {"OpenMP", "g++"}, {"GTest", "libgtest-dev"}, {"Eigen3", "libeigen3-dev"},
    {"nlohmann_json", "nlohmann-json3-dev"}, {"Threads", ""}};
const std::map<std::string, std::string> kIncludeDirs = {
    {"gtest", "libgtest-dev"}, {"gmock", "libgtest-dev"}, {"Eigen", "libeigen3-dev"},
    {"unsupported", "libeigen3-dev"}, {"nlohmann", "nlohmann-json3-dev"}, {"sys", ""}, {"bits", ""}, {"linux", ""}};
// The programs the tests and the demo run are found by name: a new one goes here.
const std::map<std::string, std::string> kPrograms = {
    {"gnuplot", "gnuplot-nox"}, {"groff", "groff-base"}, {"/usr/bin/python3", "python3"}};
const std::map<std::string, std::string> kPythonModules = {
    {"numpy", "python3-numpy"}, {"matplotlib", "python3-matplotlib"}, {"mpl_toolkits", "python3-matplotlib"},
    {"jsonschema", "python3-jsonschema"}};
const std::set<std::string> kPythonStandard = {
    "argparse", "collections", "csv", "glob", "io", "itertools", "json", "math", "os", "pathlib", "re",
    "shutil", "subprocess", "sys", "tempfile", "unittest"};

// Where each package is first used, and whether the build needs it.
struct Use {
    std::string where;
    bool required = false;
};

class Uses {
public:
    void add(const std::map<std::string, std::string>& table, const std::string& what, const std::string& where,
             bool required)
    {
        const auto it = table.find(what);
        if (it == table.end()) {
            ADD_FAILURE() << where << " uses " << what << ": which Debian package provides it?";
        } else if (!it->second.empty()) {
            Use& u = by_package[it->second];
            if (u.where.empty()) u.where = where + " (" + what + ")";
            u.required = u.required || required;
        }
    }
    std::map<std::string, Use> by_package;
};

void scan(const fs::path& file, const std::string& name, Uses& uses)
{
    static const std::regex include(R"(^\s*#\s*include\s*<([^>/]+)/)"), program(R"((?:^|[^\w/.-])(gnuplot|groff|/usr/bin/python3)\b)"),
        find(R"(find_package\(\s*(\w+))"), import(R"((?:^|["'])\s*import\s+([\w.]+(?:\s*,\s*[\w.]+)*))"),
        from(R"((?:^|["'])\s*from\s+([\w.]+)\s+import\b)");
    const bool runs = name.rfind("tests/", 0) == 0 || name.rfind("demo/", 0) == 0 || name == "CMakeLists.txt";
    int number = 0;
    for (const std::string& line : read_lines(file)) {
        const std::string where = name + ":" + std::to_string(++number);
        std::smatch m;
        if (std::regex_search(line, m, include)) uses.add(kIncludeDirs, m[1], where, true);
        if (std::regex_search(line, m, find)) uses.add(kCmakePackages, m[1], where, true);
        if (runs && std::regex_search(line, m, program)) uses.add(kPrograms, m[1], where, false);
        std::string modules = std::regex_search(line, m, import) || std::regex_search(line, m, from) ? m[1].str() : "";
        std::replace(modules.begin(), modules.end(), ',', ' ');
        std::istringstream names(modules);
        for (std::string module; names >> module;) {
            const std::string top = module.substr(0, module.find('.'));
            if (!kPythonStandard.contains(top)) uses.add(kPythonModules, top, where, false);
        }
    }
}

}  // namespace

TEST(Packages, ListMatchesWhatIsUsed)
{
    const fs::path source = KELTA_SOURCE_DIR;
    const Outcome list = shell("cd '" + source.string() + "' && bash tools/deps.sh --list");
    ASSERT_EQ(list.status, 0) << list.out;
    std::map<std::string, bool> listed;  // package: required
    std::istringstream in(list.out);
    for (std::string group, package; in >> group >> package;) listed[package] = group == "required";

    Uses uses;
    uses.by_package = {{"cmake", {"CMakeLists.txt", true}}, {"make", {"Makefile", true}}, {"g++", {"CMakeLists.txt (CXX)", true}}};
    scan(source / "CMakeLists.txt", "CMakeLists.txt", uses);
    for (const char* dir : {"src", "tools", "tests", "bench", "demo"})
        for (const auto& e : fs::recursive_directory_iterator(source / dir)) {
            const std::string name = fs::relative(e.path(), source).string(), ext = e.path().extension().string();
            if (name.starts_with("tests/data/") || name == "tests/test_packages.cpp") continue;
            if (ext == ".cpp" || ext == ".h" || ext == ".sh" || ext == ".py") scan(e.path(), name, uses);
        }

    for (const auto& [package, use] : uses.by_package) {
        const auto it = listed.find(package);
        if (it == listed.end())
            ADD_FAILURE() << use.where << " needs " << package << ", which tools/deps.sh does not list";
        else if (use.required && !it->second)
            ADD_FAILURE() << use.where << " needs " << package << " to build: list it as required";
        else if (!use.required && it->second)
            ADD_FAILURE() << package << " is only used where its absence is skipped (" << use.where << "): list it as optional";
    }
    for (const auto& [package, required] : listed) {
        const bool used = uses.by_package.contains(package);
        if (kAwaitingUse.contains(package)) EXPECT_FALSE(used) << package << " is used now: remove it from kAwaitingUse";
        else EXPECT_TRUE(used) << "tools/deps.sh lists " << package << ", which nothing uses";
    }
}
