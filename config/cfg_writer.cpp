// The .cfg writer: 4 spaces per nesting level, "\r\n" line ends, members in insertion order as
// "key : value", arrays on one line when they fit (see array_fits_inline) and in block form
// otherwise. With comments, an object's own comment follows its "{" as "   //  text" and a
// member's comment stands on "//  " lines after an empty line, just above the member.
// A container's closing line carries no line break of its own: the enclosing member or element
// line supplies it, so a nested object ends in "}\r\n" with no empty line after it.
// Throws qmp::InvalidParametersException for a key the .cfg reader could not read back (only
// possible for trees read from JSON, whose keys may be any string).
#include "config/config_object.h"

#include "config/text_scanner.h"
#include "config/writer_common.h"
#include "qmp/exception.h"

#include <string>
#include <string_view>

namespace qmp {

namespace {

using namespace config_detail;

void check_key(std::string_view key) {
    bool readable = !key.empty() && key.find("//") == std::string_view::npos;
    for (char c : key) readable = readable && is_identifier_byte(c);
    if (!readable) {
        std::string message = "Key ";
        append_quoted(message, key);
        message += " cannot be written in the .cfg syntax.";
        throw InvalidParametersException("ConfigObject::write_cfg()", std::move(message));
    }
}

// Calls `line` for each line of a comment; a CR before a line feed is dropped and a final line
// feed does not make an extra empty line.
template <typename LineFunction>
void for_each_comment_line(std::string_view comment, LineFunction line) {
    while (!comment.empty()) {
        uint64_t end = comment.find('\n');
        std::string_view piece = comment.substr(0, end);
        if (!piece.empty() && piece.back() == '\r') piece.remove_suffix(1);
        line(piece);
        if (end == std::string_view::npos) break;
        comment.remove_prefix(end + 1);
    }
}

class CfgWriter {
public:
    CfgWriter(std::string& out, bool with_comments) : out_(out), with_comments_(with_comments) {}

    void write(const ConfigObject& node, uint32_t level) {
        switch (node.kind()) {
            case ConfigKind::Null: out_ += "null"; return;
            case ConfigKind::Boolean: out_ += node.as_bool() ? "true" : "false"; return;
            case ConfigKind::Integer: append_integer(out_, node.as_integer()); return;
            case ConfigKind::String: append_quoted(out_, node.as_string()); return;
            case ConfigKind::Array: write_array(node, level); return;
            case ConfigKind::Object: write_object(node, level); return;
        }
    }

private:
    void write_array(const ConfigObject& array, uint32_t level) {
        const std::vector<ConfigObject>& elements = array.as_array();
        if (elements.empty()) {
            out_ += "[]";
        } else if (array_fits_inline(array)) {
            out_ += '[';
            for (uint64_t i = 0; i < elements.size(); i++) {
                if (i != 0) out_ += ' ';
                write(elements[i], level + 1);
            }
            out_ += ']';
        } else {
            out_ += "[\r\n";
            for (const ConfigObject& element : elements) {
                append_indent(out_, level + 1);
                write(element, level + 1);
                out_ += "\r\n";
            }
            append_indent(out_, level);
            out_ += ']';
        }
    }

    void write_object(const ConfigObject& object, uint32_t level) {
        if (object.member_count() == 0) {
            out_ += "{}";
            return;
        }
        out_ += '{';
        bool first_line = true;
        if (with_comments_) {
            // The first line sits after the brace; any further lines cannot (the reader would
            // take them as members), so they go on their own comment lines inside the object.
            for_each_comment_line(object.comment(), [&](std::string_view line) {
                if (first_line) {
                    out_ += "   //  ";
                } else {
                    out_ += "\r\n";
                    append_indent(out_, level + 1);
                    out_ += "//  ";
                }
                out_ += line;
                first_line = false;
            });
        }
        out_ += "\r\n";
        for (uint64_t i = 0; i < object.member_count(); i++) {
            const std::string& key = object.member_key(i);
            check_key(key);
            if (with_comments_ && !object.member_comment(i).empty()) {
                out_ += "\r\n";
                for_each_comment_line(object.member_comment(i), [&](std::string_view line) {
                    append_indent(out_, level + 1);
                    out_ += "//  ";
                    out_ += line;
                    out_ += "\r\n";
                });
            }
            append_indent(out_, level + 1);
            out_ += key;
            out_ += " : ";
            write(object.member_value(i), level + 1);
            out_ += "\r\n";
        }
        append_indent(out_, level);
        out_ += '}';
    }

    std::string& out_;
    bool with_comments_;
};

}  // namespace

std::string write_cfg(const ConfigObject& node, bool with_comments) {
    std::string out;
    CfgWriter(out, with_comments).write(node, 0);
    out += "\r\n";
    return out;
}

}  // namespace qmp
