#include "process_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#ifndef QV_EXECUTABLE
#error "QV_EXECUTABLE must name the built program"
#endif

namespace qvtest {
namespace {

std::string read_all(int fd) {
    std::string out;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            out.append(buffer, static_cast<size_t>(n));
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break;  // end of file, or EIO from a pseudo-terminal whose last user left
        }
    }
    return out;
}

void write_all(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // the child stopped reading; what it did not read is its business
        done += static_cast<size_t>(n);
    }
}

[[noreturn]] void exec_child(const std::vector<std::string>& args, const std::string& work_dir,
                             const RunOptions& options) {
    if (::chdir(work_dir.c_str()) != 0) ::_exit(126);
    ::signal(SIGPIPE, SIG_DFL);
    ::unsetenv("QMP_EVENT_LOG");
    ::unsetenv("NO_COLOR");
    for (const std::string& e : options.extra_env) ::putenv(const_cast<char*>(e.c_str()));
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(QV_EXECUTABLE));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::alarm(options.time_limit_seconds);
    ::execv(QV_EXECUTABLE, argv.data());
    ::_exit(127);
}

int wait_status(pid_t pid) {
    int raw = 0;
    while (::waitpid(pid, &raw, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    if (WIFSIGNALED(raw)) return -WTERMSIG(raw);
    return -1000;
}

RunResult run_with_pipes(const std::vector<std::string>& args, const std::string& work_dir,
                         const RunOptions& options) {
    int in_pipe[2], out_pipe[2];
    if (::pipe(in_pipe) != 0 || ::pipe(out_pipe) != 0) throw std::runtime_error("pipe failed");
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::dup2(in_pipe[0], STDIN_FILENO);
        ::dup2(out_pipe[1], STDOUT_FILENO);
        ::dup2(out_pipe[1], STDERR_FILENO);
        ::close(in_pipe[0]);
        ::close(in_pipe[1]);
        ::close(out_pipe[0]);
        ::close(out_pipe[1]);
        exec_child(args, work_dir, options);
    }
    ::close(in_pipe[0]);
    ::close(out_pipe[1]);
    // The inputs are far below a pipe's capacity, so writing first cannot deadlock.
    write_all(in_pipe[1], options.input);
    ::close(in_pipe[1]);
    RunResult result;
    result.output = read_all(out_pipe[0]);
    ::close(out_pipe[0]);
    result.status = wait_status(pid);
    return result;
}

RunResult run_with_terminal(const std::vector<std::string>& args, const std::string& work_dir,
                            const RunOptions& options) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
        throw std::runtime_error("no pseudo-terminal");
    const std::string slave_name = ::ptsname(master);
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::close(master);
        // A session leader without a terminal acquires the first one it opens.
        if (options.own_session) ::setsid();
        const int slave = ::open(slave_name.c_str(), O_RDWR | (options.own_session ? 0 : O_NOCTTY));
        if (slave < 0) ::_exit(125);
        ::dup2(slave, STDIN_FILENO);
        ::dup2(slave, STDOUT_FILENO);
        ::dup2(slave, STDERR_FILENO);
        if (slave > STDERR_FILENO) ::close(slave);
        exec_child(args, work_dir, options);
    }
    // Typed-ahead input waits in the terminal's line buffer until the program reads it; the
    // end-of-file character (Ctrl-D) ends the input as a user would.
    write_all(master, options.input + "\x04");
    RunResult result;
    result.output = read_all(master);
    ::close(master);
    result.status = wait_status(pid);
    return result;
}

}  // namespace

RunResult run_program(const std::vector<std::string>& args, const std::string& work_dir,
                      const RunOptions& options) {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, nullptr);
    return options.terminal ? run_with_terminal(args, work_dir, options)
                            : run_with_pipes(args, work_dir, options);
}

bool terminals_available() {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0) return false;
    ::close(master);
    return true;
}

TempDir::TempDir() {
    std::string pattern = "/tmp/qv_app_test_XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_file(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

size_t count_occurrences(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

}  // namespace qvtest
