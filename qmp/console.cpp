#include "qmp/console.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <mutex>

namespace qmp::Console {
namespace {

std::mutex& console_mutex() {
    static std::mutex m;
    return m;
}

int colour_state = -1;  // -1 not decided yet, 0 off, 1 on

const char* ansi_code(Colour colour) {
    switch (colour) {
        case Colour::Default: return "\x1b[0m";
        case Colour::Red: return "\x1b[31m";
        case Colour::Green: return "\x1b[32m";
        case Colour::Yellow: return "\x1b[33m";
        case Colour::Blue: return "\x1b[34m";
        case Colour::Magenta: return "\x1b[35m";
        case Colour::Cyan: return "\x1b[36m";
        case Colour::White: return "\x1b[37m";
        case Colour::BrightRed: return "\x1b[91m";
        case Colour::BrightGreen: return "\x1b[92m";
        case Colour::BrightYellow: return "\x1b[93m";
        case Colour::BrightBlue: return "\x1b[94m";
        case Colour::BrightMagenta: return "\x1b[95m";
        case Colour::BrightCyan: return "\x1b[96m";
        case Colour::BrightWhite: return "\x1b[97m";
    }
    return "\x1b[0m";
}

void write_locked(std::string_view text, Colour colour, bool newline) {
    const bool coloured = colours_enabled() && colour != Colour::Default;
    if (coloured) std::cout << ansi_code(colour);
    std::cout << text;
    if (coloured) std::cout << "\x1b[0m";
    if (newline) std::cout << '\n';
    std::cout.flush();
}

}  // namespace

bool colours_enabled() {
    if (colour_state < 0) {
        const char* no_colour = std::getenv("NO_COLOR");
        const bool disabled = no_colour != nullptr && no_colour[0] != '\0';
        colour_state = (!disabled && isatty(STDOUT_FILENO)) ? 1 : 0;
    }
    return colour_state == 1;
}

void set_colours_enabled(bool enabled) { colour_state = enabled ? 1 : 0; }

void print(std::string_view text, Colour colour) {
    std::lock_guard<std::mutex> lock(console_mutex());
    write_locked(text, colour, false);
}

void println(std::string_view text, Colour colour) {
    std::lock_guard<std::mutex> lock(console_mutex());
    write_locked(text, colour, true);
}

void warning(std::string_view text) {
    println(text, Colour::Warning);
    EventLog::append(text);
}

bool read_line(std::string& line) {
    line.clear();
    if (!std::getline(std::cin, line)) return false;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

void pause() {
    println("Press ENTER to continue . . .", Colour::Prompt);
    std::string ignored;
    read_line(ignored);
}

}  // namespace qmp::Console

namespace qmp::EventLog {
namespace {
std::mutex log_mutex;
std::vector<std::string> log_entries;
}  // namespace

void append(std::string_view event) {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char stamp[32];
    std::tm tm_utc{};
    gmtime_r(&now, &tm_utc);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm_utc);
    std::string line = std::string(stamp) + "  " + std::string(event);
    std::lock_guard<std::mutex> lock(log_mutex);
    if (const char* path = std::getenv("QMP_EVENT_LOG"); path != nullptr && path[0] != '\0') {
        if (std::FILE* f = std::fopen(path, "ab")) {
            std::fwrite(line.data(), 1, line.size(), f);
            std::fwrite("\r\n", 1, 2, f);
            std::fclose(f);
        }
    }
    log_entries.push_back(std::move(line));
}

std::vector<std::string> entries() {
    std::lock_guard<std::mutex> lock(log_mutex);
    return log_entries;
}

}  // namespace qmp::EventLog
