// Files: opening, line reading, existence, directories, and the checked,
// atomic output every program writes through.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// fopen wrapper; a null File when the file cannot be opened, or when it is to be
// read and is no regular file.
File open_file(const std::string& name, const char* mode);
bool is_regular_file(const std::string& name);

// Reads one line as fgets would with a buffer of `size` bytes; false at end of file.
bool read_line(std::FILE* f, std::string& line, int size);

bool file_exists(const char* name);

// Whether all of `text` is one decimal integer that a long holds; then v is it.
bool parse_long(const std::string& text, long& v);

// The last component of argv[0], for messages; `fallback` when there is none.
std::string program_name(const char* argv0, const char* fallback);
int create_directory(const char* path);

// ------------------------------------------------ checked output
// A stream whose every write is checked: the first failure is kept with the
// system's error number, and close() reports it, or the failure of the flush and
// the close themselves. Takes ownership of f, which may be null.
class CheckedStream {
public:
    explicit CheckedStream(std::FILE* f = nullptr) : f_(f) {}
    ~CheckedStream();
    CheckedStream(const CheckedStream&) = delete;
    CheckedStream& operator=(const CheckedStream&) = delete;

    void print(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void vprint(const char* fmt, std::va_list ap);
    void write(std::string_view text);
    // Flushes and closes; the system's reason for the first failure ("No space
    // left on device"), or an empty string when everything was written.
    std::string close();

private:
    void failed(int err);
    std::FILE* f_;
    int error_ = 0;  // errno of the first failed write
};

// An output file. It is written under a temporary name beside its final one
// (".NAME.PID.tmp" in the same directory) and renamed over NAME only when every
// write, the flush and the close succeeded: a full disk or an interrupted run
// never leaves a cut file, and an earlier complete version of NAME stays until
// the new one is whole. SIGINT and SIGTERM remove the temporary files of the
// moment before the process ends.
class OutputFile {
public:
    // Creates the temporary file; open() tells whether that worked. NAME being
    // there as something other than a regular file it may replace (a directory,
    // a read-only file) counts as a failed open.
    explicit OutputFile(std::string name);
    // The same for the run: a failed open ends it with the error header (module,
    // line), then open_message and NAME on standard error, status -1; commit()
    // reports under the same module and line.
    OutputFile(std::string name, const char* module, int line,
               const char* open_message = "Failed to open input file ");
    ~OutputFile();  // not finished (the run ended early): the temporary file goes
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool open() const { return open_error_ == 0; }
    std::string open_reason() const;
    void print(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void write(std::string_view text) { out_.write(text); }
    // Closes and renames; an empty string, or the reason the file could not be
    // completed (its temporary file is then removed). Safe inside threads.
    std::string finish();
    // finish() for the run: a failure ends it with the error header and "Failed
    // to write output file NAME: <reason>" on standard error, status -1.
    void commit();
    const std::string& name() const { return name_; }

private:
    std::FILE* create();  // the temporary file, or null with open_error_ set
    std::string name_, temp_;
    const char* module_ = "mmutil";
    int line_ = 0;
    int slot_ = -1;       // entry in the list the signal handler clears (-1: none)
    int open_error_ = 0;  // errno of a failed open
    CheckedStream out_;
    bool finished_ = false;
};

// The temporary name an OutputFile writes NAME under.
std::string temporary_name(const std::string& name);

