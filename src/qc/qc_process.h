// Running an engine's program: a child process in the job's directory, with its
// console (standard output and error) kept in a file there.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qc {

struct ProcessResult {
    bool started = false;  // false: the program could not be run at all (see error)
    int status = -1;       // exit status; -1 when it was ended by a signal
    std::string error;     // empty when it ran and returned 0; otherwise why not, in words
};

// Runs argv (argv[0] looked up in PATH unless it holds a '/') in `dir` with the
// process's environment plus `env` (NAME, value pairs that replace any of the same
// name), standard input from /dev/null and both output streams into the file
// `console` (relative to dir), and waits for it.
ProcessResult run_program(const std::vector<std::string>& argv, const std::string& dir,
                          const std::vector<std::pair<std::string, std::string>>& env, const std::string& console);

// The last n lines of a text file, each with its newline; empty when it cannot be read.
std::string last_lines(const std::string& path, int n);

// Whether `program` names an executable: a path when it holds a '/', otherwise
// one found in PATH.
bool program_exists(const std::string& program);

}  // namespace qc
