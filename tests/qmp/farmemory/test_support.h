// Shared helpers of the far-memory tests: the reproducible seed, a scratch directory removed
// after each test, random bytes, and capture of console output and standard input.
#pragma once

#include "qmp/console.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace qmp::test {


inline std::vector<unsigned char> random_bytes(std::mt19937_64& rng, size_t n) {
    std::vector<unsigned char> v(n);
    for (auto& b : v) b = static_cast<unsigned char>(rng());
    return v;
}

inline std::string read_whole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Runs f, expecting an exception of type E raised at `place`; returns its message.
template <class E, class F>
std::string expect_thrown(F&& f, const std::string& place) {
    try {
        f();
        ADD_FAILURE() << "no exception at " << place;
    } catch (const E& e) {
        EXPECT_EQ(e.function(), place);
        return e.message();
    }
    return {};
}

// A fresh directory under `parent` (the system's temporary directory by default).
class ScratchDir {
public:
    explicit ScratchDir(std::filesystem::path parent = std::filesystem::temp_directory_path()) {
        std::string pattern = (parent / "qmp-farmemory-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed in " + parent.string());
        path_ = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// Console output of a scope as plain text.
class CaptureConsole {
public:
    CaptureConsole() {
        Console::set_colours_enabled(false);
        testing::internal::CaptureStdout();
    }
    std::string text() { return done_ ? text_ : (done_ = true, text_ = testing::internal::GetCapturedStdout()); }
    ~CaptureConsole() { text(); }

private:
    bool done_ = false;
    std::string text_;
};

// Feeds `input` to standard input for the scope, so that prompts and pauses never wait.
class FeedStdin {
public:
    explicit FeedStdin(std::string input) : stream_(std::move(input)), saved_(std::cin.rdbuf(stream_.rdbuf())) {
        std::cin.clear();
    }
    ~FeedStdin() {
        std::cin.rdbuf(saved_);
        std::cin.clear();
    }

private:
    std::istringstream stream_;
    std::streambuf* saved_;
};

}  // namespace qmp::test
