// Runs the built program as a child process in a given working directory, feeding it standard
// input and capturing everything it prints, with either pipes (a scripted run) or a
// pseudo-terminal (an interactive terminal). A child that runs longer than its time limit is
// killed by SIGALRM, so a menu that loops forever fails the test instead of hanging it.
#pragma once

#include <string>
#include <vector>

namespace qvtest {

struct RunResult {
    int status = -1;  // the exit status, or -signal when the child was killed by a signal
    std::string output;
};

struct RunOptions {
    std::string input;                    // written to standard input, which is then closed
    std::vector<std::string> extra_env;   // "NAME=value" added to the environment
    bool terminal = false;                // run on a pseudo-terminal instead of pipes
    bool own_session = false;             // terminal only: the child leads its own session
    unsigned time_limit_seconds = 20;
};

RunResult run_program(const std::vector<std::string>& args, const std::string& work_dir,
                      const RunOptions& options = {});

// Whether this system can open a pseudo-terminal (containers without /dev/pts cannot).
bool terminals_available();

// A fresh directory under /tmp, removed with its contents when the object dies.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& text);
size_t count_occurrences(const std::string& text, const std::string& needle);

}  // namespace qvtest
