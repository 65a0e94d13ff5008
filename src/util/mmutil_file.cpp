// Opening and reading files, directories, whole numbers, program names.
#include "mmutil.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>


File open_file(const std::string& name, const char* mode)
{
    // An input that is no regular file (a directory, a pipe, /dev/zero) counts as
    // one that cannot be opened: reading it would fail or never end.
    if (mode[0] == 'r' && !is_regular_file(name)) return File();
    // "t" is a no-op on POSIX but the modes are kept as the tool documents them.
    return File(std::fopen(name.c_str(), mode));
}

bool is_regular_file(const std::string& name)
{
    struct stat st {};
    return stat(name.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool read_line(std::FILE* f, std::string& line, int size)
{
    std::vector<char> buf(static_cast<size_t>(size));
    if (!std::fgets(buf.data(), size, f)) return false;
    line.assign(buf.data());
    return true;
}

bool parse_long(const std::string& text, long& v)
{
    char* end = nullptr;
    errno = 0;
    v = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' && errno != ERANGE;
}

std::string program_name(const char* argv0, const char* fallback)
{
    const std::string s = argv0 ? argv0 : fallback;
    const size_t cut = s.find_last_of("/\\");
    return cut == std::string::npos ? s : s.substr(cut + 1);
}

bool file_exists(const char* name)
{
    if (!name) return false;
    return static_cast<bool>(open_file(name, "r"));
}

int create_directory(const char* path)
{
    struct stat st {};
    if (stat(path, &st) != 0) return mkdir(path, 0750);
    return 0;
}

FirstNumber read_first_number(const char* name, double& value, std::string* first_line)
{
    const File f = open_file(name, "rt");
    if (!f) return FirstNumber::absent;
    char line[128];
    if (!std::fgets(line, sizeof line, f.get())) return FirstNumber::no_number;
    if (first_line) *first_line = line;
    return std::sscanf(line, "%lf", &value) == 1 ? FirstNumber::read : FirstNumber::no_number;
}

