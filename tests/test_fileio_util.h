// Helpers shared by the structure-module tests.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "fileio.h"

namespace fileio_test {

inline std::string fixture(const std::string& name) { return std::string(KELTA_TEST_DATA) + "/" + name; }
inline std::string shared_file(const std::string& name) { return std::string(KELTA_SHARED_DATA) + "/" + name; }

struct Outcome {
    int status = INT_MIN;  // INT_MIN: the call returned
    std::string out, err;
};

inline Outcome capture(const std::function<void()>& call)
{
    Outcome o;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try { call(); } catch (const RunExit& e) { o.status = e.status(); }
    o.out = testing::internal::GetCapturedStdout();
    o.err = testing::internal::GetCapturedStderr();
    return o;
}

// CIF reader, then the dispatch in crystal mode, as a run does them.
inline Outcome load_crystal(FileIO& f, const std::string& path)
{
    return capture([&] {
        f.read_data_cif(path.c_str(), false);
        f.mol_input_mode = 2;
        f.read_crystal_strcuture_files(false, false);
    });
}

// The run ended with `status`, its output with this module's error header and `text`.
inline void expect_fatal(const Outcome& o, int status, const std::string& text)
{
    EXPECT_EQ(o.status, status);
    const size_t at = o.out.rfind("\nERROR  transport : fileio : line ");
    const size_t end = at == std::string::npos ? at : o.out.find(" : \n", at);
    ASSERT_NE(end, std::string::npos) << o.out;
    EXPECT_EQ(o.out.substr(end + 4), text);
}

}  // namespace fileio_test
