// The JSON writer: objects open with "{\r\n", members are "\"key\": value" separated by ","
// and a line break, 4 spaces per nesting level; arrays use the one-line rule of the .cfg writer
// with ", " between elements, otherwise one element per line. Strings are quoted with only '"'
// and '\' escaped, the two escapes the reader knows, so every byte string reads back as is.
// No comments are written; "{}" and "[]" stand for empty containers.
#include "config/config_object.h"

#include "config/writer_common.h"

#include <string>

namespace qmp {

namespace {

using namespace config_detail;

void write_json_value(std::string& out, const ConfigObject& node, uint32_t level) {
    switch (node.kind()) {
        case ConfigKind::Null: out += "null"; return;
        case ConfigKind::Boolean: out += node.as_bool() ? "true" : "false"; return;
        case ConfigKind::Integer: append_integer(out, node.as_integer()); return;
        case ConfigKind::String: append_quoted(out, node.as_string()); return;
        case ConfigKind::Array: {
            const std::vector<ConfigObject>& elements = node.as_array();
            if (elements.empty()) {
                out += "[]";
                return;
            }
            bool inline_form = array_fits_inline(node);
            out += inline_form ? "[" : "[\r\n";
            for (uint64_t i = 0; i < elements.size(); i++) {
                if (i != 0) out += inline_form ? ", " : ",\r\n";
                if (!inline_form) append_indent(out, level + 1);
                write_json_value(out, elements[i], level + 1);
            }
            if (!inline_form) {
                out += "\r\n";
                append_indent(out, level);
            }
            out += ']';
            return;
        }
        case ConfigKind::Object: {
            if (node.member_count() == 0) {
                out += "{}";
                return;
            }
            out += "{\r\n";
            for (uint64_t i = 0; i < node.member_count(); i++) {
                if (i != 0) out += ",\r\n";
                append_indent(out, level + 1);
                append_quoted(out, node.member_key(i));
                out += ": ";
                write_json_value(out, node.member_value(i), level + 1);
            }
            out += "\r\n";
            append_indent(out, level);
            out += '}';
            return;
        }
    }
}

}  // namespace

std::string write_json(const ConfigObject& node) {
    std::string out;
    write_json_value(out, node, 0);
    out += "\r\n";
    return out;
}

}  // namespace qmp
