// The one way a run ends early: RunExit, thrown by the fatal helpers (which
// print the error header and message first) and caught once, in run_program.
#pragma once

#include <cstdio>
#include <exception>
#include <functional>
#include <string>

// Every way out of a run before its end throws this; main() catches it once and
// returns the status (-1 reaches the shell as 255).
class RunExit : public std::exception {
public:
    explicit RunExit(int status) : status_(status) {}
    int status() const { return status_; }
    const char* what() const noexcept override { return "kelta_mob run ended early"; }

private:
    int status_;
};

// Every program's entry function runs its body through this, the one place a run
// ends: the status of a RunExit; for anything else a library throws (running out
// of memory, a file-system error) a message on standard error that names the
// program, and -1. Standard output is flushed first, so that the messages stay in
// the order they were made.
int run_program(const std::string& prog, const std::function<void()>& body);

// Ends the run without a message (help text, rejected options, cancelled scans).
[[noreturn]] void end_run(int status);

// Prints "\nERROR  transport : <module> : line <line> : \n" on standard output,
// then out_text on standard output and err_text on standard error, and ends the
// run with the given status.
[[noreturn]] void fatal(const char* module, int line, int status, const std::string& out_text,
                        const std::string& err_text = {});

// The same without the header, for the messages that stand alone.
[[noreturn]] void fatal_plain(int status, const std::string& out_text, const std::string& err_text = {});

// The common failure of every file open: header, then "Failed to open input file "
// and the name on standard error, status -1 (also used for files being written).
[[noreturn]] void fatal_open(const char* module, int line, const std::string& name);

// printf into a std::string.
std::string strprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

