// The .cfg reader: one value (normally an Object) from text, in a single forward pass with one
// byte of look-ahead for "//". Elements and members are separated only by whitespace and
// comments; keys are bare identifiers, each at most once per object (a repeat is refused, not
// merged or overwritten). Whatever follows the first complete value is ignored.
// Errors: qmp::ParseException "Line N: <message>", qmp::EndOfStreamException when the text ends
// inside a value. No partial tree escapes: the tree is built on the stack and returned whole.
#include "config/config_object.h"

#include "config/text_scanner.h"

#include <string>
#include <string_view>

namespace qmp {

namespace {

using config_detail::Syntax;
using config_detail::TextScanner;
using config_detail::is_identifier_byte;

constexpr const char* kFunction = "ConfigObject::parse_cfg()";

class CfgReader {
public:
    explicit CfgReader(std::string_view text) : in_(text, kFunction, Syntax::Cfg) {}

    ConfigObject read_value() {
        in_.skip();
        switch (in_.peek()) {
            case '{': return read_object();
            case '[': return read_array();
            case '"': return ConfigObject::make_string(in_.read_string());
            case 'n': return in_.read_null();
            case 't':
            case 'f': return in_.read_bool();
            case ',': in_.fail("Don't use commas to separate elements.");
            case '}': in_.fail("Unexpected '}'.");
            case ']': in_.fail("Unexpected ']'.");
            default: return in_.read_integer();
        }
    }

private:
    ConfigObject read_array() {
        in_.enter_container();
        in_.advance();
        ConfigObject array = ConfigObject::make_array();
        while (true) {
            in_.skip();
            if (in_.peek() == ']') break;
            array.push_back(read_value());
        }
        in_.advance();
        in_.leave_container();
        return array;
    }

    ConfigObject read_object() {
        in_.enter_container();
        in_.advance();
        ConfigObject object = ConfigObject::make_object();
        while (true) {
            in_.skip();
            char c = in_.peek();
            if (c == '}') break;
            // A comma here (after a member whose value is not an integer) reads as an empty key
            // and is reported as "Expected identifier."; only a value position or the end of an
            // integer literal names the comma itself.
            std::string key = read_identifier();
            // A repeated key is refused rather than silently overwriting the first: in a job
            // file the second one is nearly always a copy-and-paste slip.
            if (object.contains(key)) in_.fail("Duplicate key in object.");
            in_.skip();
            if (in_.peek() != ':') in_.fail("Expected colon after identifier.");
            in_.advance();
            object.insert_parsed_member(std::move(key), read_value());
        }
        in_.advance();
        in_.leave_container();
        return object;
    }

    std::string read_identifier() {
        std::string key;
        while (true) {
            char c = in_.peek();
            if (!is_identifier_byte(c)) break;
            if (c == '/' && in_.peek_next() == '/') break;  // a comment ends the key
            key += c;
            in_.advance();
        }
        if (key.empty()) in_.fail("Expected identifier.");
        return key;
    }

    TextScanner in_;
};

}  // namespace

ConfigObject parse_cfg(std::string_view text) {
    CfgReader reader(text);
    return reader.read_value();
}

}  // namespace qmp
