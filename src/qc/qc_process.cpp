#include "qc_process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "mmutil.h"

namespace qc {

namespace {
// What the child reports through its pipe when it cannot start the program.
struct ChildFailure {
    int step;  // 0 entering the directory, 1 opening /dev/null, 2 creating the console file, 3 exec
    int err;
};

// The longest tail last_lines reads from the end of a file.
constexpr std::streamoff kTailBytes = 1 << 16;
}  // namespace

ProcessResult run_program(const std::vector<std::string>& argv, const std::string& dir,
                          const std::vector<std::pair<std::string, std::string>>& env, const std::string& console)
{
    ProcessResult result;
    if (argv.empty() || argv[0].empty()) {
        result.error = "no program to run";
        return result;
    }
    // Everything the child needs is prepared before the fork: between fork and
    // exec it only calls what is safe in a copy of a threaded process.
    std::vector<std::string> environment;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        bool replaced = false;
        for (const auto& [name, value] : env) replaced = replaced || entry.rfind(name + "=", 0) == 0;
        if (!replaced) environment.push_back(entry);
    }
    for (const auto& [name, value] : env) environment.push_back(name + "=" + value);
    std::vector<char*> args, envp;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    for (const std::string& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        result.error = std::string("cannot start ") + argv[0] + ": " + std::strerror(errno);
        return result;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        close(report[0]);
        close(report[1]);
        result.error = std::string("cannot start ") + argv[0] + ": " + std::strerror(errno);
        return result;
    }
    if (pid == 0) {
        const auto fail = [&](int step) {
            const ChildFailure f{step, errno};
            [[maybe_unused]] const ssize_t n = write(report[1], &f, sizeof f);
            _exit(127);
        };
        if (chdir(dir.c_str()) != 0) fail(0);
        const int null_in = open("/dev/null", O_RDONLY);
        if (null_in < 0) fail(1);
        const int out = open(console.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0) fail(2);
        dup2(null_in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execvpe(args[0], args.data(), envp.data());
        fail(3);
    }
    close(report[1]);
    ChildFailure failure{};
    ssize_t got;
    do got = read(report[0], &failure, sizeof failure);
    while (got < 0 && errno == EINTR);
    close(report[0]);
    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    if (got == static_cast<ssize_t>(sizeof failure)) {
        static const char* const what[] = {"cannot enter the directory ", "cannot open /dev/null", "cannot create ",
                                           "cannot run "};
        const std::string object = failure.step == 0 ? dir : failure.step == 2 ? dir + "/" + console : failure.step == 3 ? argv[0] : "";
        result.error = std::string(what[failure.step]) + object + ": " + std::strerror(failure.err);
        return result;
    }
    result.started = true;
    if (WIFEXITED(wstatus)) {
        result.status = WEXITSTATUS(wstatus);
        if (result.status != 0) result.error = argv[0] + strprintf(" ended with status %d", result.status);
    } else if (WIFSIGNALED(wstatus)) {
        result.error = argv[0] + strprintf(" was ended by signal %d (%s)", WTERMSIG(wstatus), strsignal(WTERMSIG(wstatus)));
    }
    return result;
}

std::string last_lines(const std::string& path, int n)
{
    std::ifstream in(path, std::ios::binary);
    if (!in || n <= 0) return {};
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    const std::streamoff start = size > kTailBytes ? size - kTailBytes : 0;
    in.seekg(start);
    std::string text(static_cast<size_t>(size - start), '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
    if (text.empty()) return {};
    if (text.back() != '\n') text += '\n';
    // Back from the final newline over n more: the one found last ends the line
    // before the first wanted.
    size_t begin = text.size() - 1;
    for (int k = 0; k < n; ++k) {
        const size_t previous = begin == 0 ? std::string::npos : text.rfind('\n', begin - 1);
        if (previous == std::string::npos) return text;
        begin = previous;
    }
    return text.substr(begin + 1);
}

bool program_exists(const std::string& program)
{
    if (program.empty()) return false;
    if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0;
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    size_t from = 0;
    while (from <= dirs.size()) {
        size_t to = dirs.find(':', from);
        if (to == std::string::npos) to = dirs.size();
        const std::string dir = to > from ? dirs.substr(from, to - from) : ".";
        const std::string candidate = dir + "/" + program;
        struct stat st {};
        if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(candidate.c_str(), X_OK) == 0) return true;
        from = to + 1;
    }
    return false;
}

}  // namespace qc
