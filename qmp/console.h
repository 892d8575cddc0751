// Line-oriented console output, each kind of line in its own colour, and the event log.
// Colours are written only when standard output is a terminal and NO_COLOR is not set, so that
// piped output stays plain text. Printing is serialised by a mutex: worker threads may warn.
// Reading a line reports the end of standard input so that no prompt can loop forever.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qmp::Console {

enum class Colour {
    Default,
    Red,
    Green,
    Yellow,
    Blue,
    Magenta,
    Cyan,
    White,
    BrightRed,
    BrightGreen,
    BrightYellow,
    BrightBlue,
    BrightMagenta,
    BrightCyan,
    BrightWhite,
    // Kinds of line.
    Error = BrightRed,
    Warning = BrightYellow,
    Header = BrightWhite,
    Label = White,
    Value = BrightGreen,
    Prompt = BrightCyan,
    Info = Cyan,
};

bool colours_enabled();
// Overrides the terminal detection (tests; "--no-colour" style switches).
void set_colours_enabled(bool enabled);

void print(std::string_view text, Colour colour = Colour::Default);
void println(std::string_view text = {}, Colour colour = Colour::Default);
// A warning line in the warning colour; it is also appended to the event log.
void warning(std::string_view text);

// Reads one line from standard input without its line end. Returns false at the end of input.
bool read_line(std::string& line);
// Waits for the user to press Enter ("Press ENTER to continue . . ."); returns at once at the
// end of input, so that scripted runs never hang.
void pause();

}  // namespace qmp::Console

namespace qmp::EventLog {

// Appends a notable event (an allocation failure, a warning, a retried operation) with a time
// stamp. The log lives in memory for the report; when the environment variable QMP_EVENT_LOG
// names a file, every event is also appended to that file as it happens.
void append(std::string_view event);
std::vector<std::string> entries();

}  // namespace qmp::EventLog
