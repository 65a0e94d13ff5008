// Trimming, comparing and splitting text.
#include "mmutil.h"

#include <cctype>
#include <cstring>


namespace {
bool is_one_of(char c, const char* set)
{
    for (; *set; ++set)
        if (c == *set) return true;
    return false;
}

std::string& strip(std::string& s, const char* left, const char* right)
{
    s.erase(0, std::min(s.find_first_not_of(left), s.size()));
    s.erase(s.find_last_not_of(right) + 1);  // npos + 1 is 0: nothing is left
    return s;
}

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
}  // namespace

std::string& trim(std::string& s) { return strip(s, " \t", " \t\r\n"); }
std::string& sg_triml(std::string& s) { return strip(s, "\t \"'", ""); }
std::string& sg_trimr(std::string& s) { return strip(s, "", "\t\n\r \"'"); }

std::string& sg_trim(std::string& s)
{
    sg_triml(s);
    sg_trimr(s);
    std::erase(s, ' ');
    return s;
}

void c_trim(char* s)
{
    if (!s) return;
    const size_t b = std::strspn(s, " \t");
    size_t n = std::strlen(s + b);
    std::memmove(s, s + b, n + 1);
    // The right-hand pass never removes the first character, so "\n" stays "\n".
    while (n > 1 && is_one_of(s[n - 1], " \t\r\n")) s[--n] = '\0';
}

bool iequals(const std::string& a, const std::string& b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (upper(a[i]) != upper(b[i])) return false;
    return true;
}

bool my_strcasestr(const char* a, const char* b, int n)
{
    for (int k = 0; k < n; ++k) {
        if (lower(a[k]) != lower(b[k])) return false;
        if (a[k] == '\0') return true;  // both strings ended together
    }
    return true;
}

bool tokenize(std::vector<std::string>& out, const char* str, const char* delims)
{
    out.clear();
    if (!str || !delims) return false;
    std::string cur;
    for (const char* p = str; *p; ++p) {
        if (is_one_of(*p, delims)) {
            if (!cur.empty()) out.push_back(std::exchange(cur, {}));
        } else {
            cur += *p;
        }
    }
    if (!cur.empty()) out.push_back(std::move(cur));
    return true;
}

std::string RemoveWhiteSpaceUnderscore(const std::string& s)
{
    std::string r;
    for (char c : s)
        if (c != ' ' && c != '_') r += c;
    return r;
}

std::string remove_filename_extension(const std::string& s)
{
    const size_t dot = s.rfind('.');
    return dot == std::string::npos ? s : s.substr(0, dot);
}

std::string shell_quoted(const std::string& s)
{
    std::string q;
    for (const char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q;
}
