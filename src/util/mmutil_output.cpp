// Checked, atomic output files: every write checked, the file renamed into place
// only when complete, temporary files removed on SIGINT and SIGTERM.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "mmutil.h"

namespace {

const char* const kWriteFailed = "Failed to write output file %s: %s\n";

// The temporary files being written, for the signal handler: a handler can reach
// nothing but globals, so this list is the one piece of global state besides the
// random generator. A slot is free (0), being filled (1) or names a file (2).
constexpr int kSlots = 256;  // more files open at once than threads ever write
constexpr size_t kPathRoom = 4096;
struct PendingFile {
    std::atomic<int> state{0};
    char path[kPathRoom];
};
PendingFile g_pending[kSlots];

extern "C" void remove_pending_files(int sig)
{
    for (PendingFile& p : g_pending)
        if (p.state.load(std::memory_order_acquire) == 2) unlink(p.path);
    // The default action ends the process with the signal, as the caller expects.
    signal(sig, SIG_DFL);
    raise(sig);
}

// Installed once, and only over the default action: a signal the caller ignores
// (a job started with nohup) stays ignored.
void install_handlers()
{
    static std::once_flag once;
    std::call_once(once, [] {
        for (const int sig : {SIGINT, SIGTERM}) {
            struct sigaction old {};
            if (sigaction(sig, nullptr, &old) != 0 || old.sa_handler != SIG_DFL) continue;
            struct sigaction act {};
            act.sa_handler = remove_pending_files;
            sigemptyset(&act.sa_mask);
            sigaction(sig, &act, nullptr);
        }
    });
}

int claim_slot(const std::string& path)
{
    if (path.size() >= kPathRoom) return -1;
    for (int i = 0; i < kSlots; ++i) {
        int free = 0;
        if (g_pending[i].state.compare_exchange_strong(free, 1, std::memory_order_acq_rel)) {
            std::memcpy(g_pending[i].path, path.c_str(), path.size() + 1);
            g_pending[i].state.store(2, std::memory_order_release);
            return i;
        }
    }
    return -1;  // the file is then not removed by a signal; nothing else changes
}

void release_slot(int& slot)
{
    if (slot >= 0) g_pending[slot].state.store(0, std::memory_order_release);
    slot = -1;
}

std::string reason(int err)
{
    return std::strerror(err);
}

}  // namespace

// ---------------------------------------------------------------- CheckedStream

CheckedStream::~CheckedStream()
{
    if (f_) std::fclose(f_);
}

void CheckedStream::failed(int err)
{
    if (error_ == 0) error_ = err != 0 ? err : EIO;
}

void CheckedStream::print(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vprint(fmt, ap);
    va_end(ap);
}

void CheckedStream::vprint(const char* fmt, std::va_list ap)
{
    if (!f_ || error_ != 0) return;
    errno = 0;
    if (std::vfprintf(f_, fmt, ap) < 0) failed(errno);
}

void CheckedStream::write(std::string_view text)
{
    if (!f_ || error_ != 0 || text.empty()) return;
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), f_) != text.size()) failed(errno);
}

std::string CheckedStream::close()
{
    if (!f_) return reason(EBADF);
    errno = 0;
    if (std::fflush(f_) != 0 || std::ferror(f_)) failed(errno);
    errno = 0;
    if (std::fclose(f_) != 0) failed(errno);
    f_ = nullptr;
    return error_ == 0 ? std::string() : reason(error_);
}

// ---------------------------------------------------------------- OutputFile

std::string temporary_name(const std::string& name)
{
    const size_t cut = name.rfind('/');
    const std::string dir = cut == std::string::npos ? "" : name.substr(0, cut + 1);
    const std::string base = cut == std::string::npos ? name : name.substr(cut + 1);
    return dir + "." + base + "." + std::to_string(getpid()) + ".tmp";
}

OutputFile::OutputFile(std::string name) : name_(std::move(name)), temp_(temporary_name(name_)), out_(create()) {}

OutputFile::OutputFile(std::string name, const char* module, int line, const char* open_message)
    : name_(std::move(name)), temp_(temporary_name(name_)), module_(module), line_(line), out_(create())
{
    if (!open()) fatal(module_, line_, -1, "", open_message + name_ + "\n");
}

// NAME as something the run may not replace fails as its open would have: a
// directory, or a file without write permission.
std::FILE* OutputFile::create()
{
    install_handlers();
    struct stat st {};
    if (stat(name_.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode)) open_error_ = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        else if (access(name_.c_str(), W_OK) != 0) open_error_ = errno;
        if (open_error_ != 0) return nullptr;
    }
    slot_ = claim_slot(temp_);
    const int fd = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    std::FILE* f = fd < 0 ? nullptr : fdopen(fd, "w");
    if (!f) {
        open_error_ = errno != 0 ? errno : EIO;
        if (fd >= 0) {
            ::close(fd);
            unlink(temp_.c_str());
        }
        release_slot(slot_);
    }
    return f;
}

OutputFile::~OutputFile()
{
    if (open() && !finished_) {
        out_.close();
        unlink(temp_.c_str());
    }
    release_slot(slot_);
}

std::string OutputFile::open_reason() const
{
    return open() ? std::string() : reason(open_error_);
}

void OutputFile::print(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    out_.vprint(fmt, ap);
    va_end(ap);
}

std::string OutputFile::finish()
{
    if (!open()) return open_reason();
    if (finished_) return {};
    finished_ = true;
    std::string why = out_.close();
    if (why.empty() && std::rename(temp_.c_str(), name_.c_str()) != 0) why = reason(errno);
    if (!why.empty()) unlink(temp_.c_str());
    release_slot(slot_);
    return why;
}

void OutputFile::commit()
{
    const std::string why = finish();
    if (!why.empty()) fatal(module_, line_, -1, "", strprintf(kWriteFailed, name_.c_str(), why.c_str()));
}
