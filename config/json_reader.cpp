// The JSON reader: the same value model as the .cfg syntax, with "," between elements and
// members and double-quoted keys, each at most once per object. Scalars follow the .cfg rules
// (integers only; strings know only the \" and \\ escapes). Only whitespace is skipped: there
// are no comments in JSON. Whatever follows the first complete value is ignored.
// Errors: qmp::ParseException "Line N: <message>", qmp::EndOfStreamException when the text ends
// inside a value.
#include "config/config_object.h"

#include "config/text_scanner.h"

#include <string>
#include <string_view>

namespace qmp {

namespace {

using config_detail::Syntax;
using config_detail::TextScanner;

class JsonReader {
public:
    explicit JsonReader(std::string_view text)
        : in_(text, "ConfigObject::parse_json()", Syntax::Json) {}

    ConfigObject read_value() {
        in_.skip();
        switch (in_.peek()) {
            case '{': return read_object();
            case '[': return read_array();
            case '"': return ConfigObject::make_string(in_.read_string());
            case 'n': return in_.read_null();
            case 't':
            case 'f': return in_.read_bool();
            case ',': in_.fail("Unexpected ','.");
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
        in_.skip();
        if (in_.peek() != ']') {
            while (true) {
                // A value position rejects ',' and ']', which catches "[1,,2]" and "[1,]".
                array.push_back(read_value());
                in_.skip();
                char c = in_.peek();
                if (c == ']') break;
                if (c == '}') in_.fail("Unexpected '}'.");
                // Two elements with nothing between them: the same message as two members.
                if (c != ',') in_.fail("Expected ',' before identifier.");
                in_.advance();
            }
        }
        in_.advance();
        in_.leave_container();
        return array;
    }

    ConfigObject read_object() {
        in_.enter_container();
        in_.advance();
        ConfigObject object = ConfigObject::make_object();
        in_.skip();
        if (in_.peek() != '}') {
            while (true) {
                std::string key = read_key();
                if (object.contains(key)) in_.fail("Duplicate key in object.");
                in_.skip();
                if (in_.peek() != ':') in_.fail("Expected colon after object key string.");
                in_.advance();
                object.insert_parsed_member(std::move(key), read_value());
                in_.skip();
                char c = in_.peek();
                if (c == '}') break;
                if (c == ']') in_.fail("Unexpected ']'.");
                if (c == '"') in_.fail("Expected ',' before object key string.");
                if (c != ',') in_.fail("Expected ',' before identifier.");
                in_.advance();
                in_.skip();
            }
        }
        in_.advance();
        in_.leave_container();
        return object;
    }

    std::string read_key() {
        char c = in_.peek();
        if (c == '"') return in_.read_string();
        if (c == ',') in_.fail("Unexpected ','.");
        if (c == '}') in_.fail("Unexpected '}'.");  // a trailing comma before the close
        in_.fail("Expected object key string.");
    }

    TextScanner in_;
};

}  // namespace

ConfigObject parse_json(std::string_view text) {
    JsonReader reader(text);
    return reader.read_value();
}

}  // namespace qmp
