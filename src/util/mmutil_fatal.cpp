// The fatal path and printf into a string.
#include "mmutil.h"

#include <cstdarg>
#include <cstdio>
#include <new>


void end_run(int status)
{
    throw RunExit(status);
}

void fatal(const char* module, int line, int status, const std::string& out_text,
           const std::string& err_text)
{
    std::printf("\nERROR  transport : %s : line %i : \n", module, line);
    fatal_plain(status, out_text, err_text);
}

void fatal_plain(int status, const std::string& out_text, const std::string& err_text)
{
    std::fputs(out_text.c_str(), stdout);
    std::fflush(stdout);
    if (!err_text.empty()) {
        std::fputs(err_text.c_str(), stderr);
        std::fflush(stderr);
    }
    throw RunExit(status);
}

void fatal_open(const char* module, int line, const std::string& name)
{
    fatal(module, line, -1, "", "Failed to open input file " + name + "\n");
}

std::string strprintf(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    std::string s(static_cast<size_t>(std::vsnprintf(nullptr, 0, fmt, ap)), '\0');
    va_end(ap);
    std::vsnprintf(s.data(), s.size() + 1, fmt, again);  // the terminator goes to s[size()]
    va_end(again);
    return s;
}


int run_program(const std::string& prog, const std::function<void()>& body)
{
    try {
        body();
    } catch (const RunExit& e) {
        std::fflush(stdout);
        return e.status();
    } catch (const std::bad_alloc&) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: out of memory for the requested arrays\n", prog.c_str());
        return -1;
    } catch (const std::exception& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %s\n", prog.c_str(), e.what());
        return -1;
    }
    return 0;
}
