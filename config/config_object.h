// The configuration object: the one tree type that carries every setting, job, formula and
// report. A node is Null, Boolean, Integer (signed 64-bit; there are no fractions), String,
// Array or Object. Objects keep their members in insertion order with a lookup index; keys are
// unique. Objects and members may carry comments, which only the writer produces. Arrays carry
// a block-layout flag that forces the block form when written.
//
// Errors: bad keys and missing keys throw qmp::InvalidParametersException, a node of the wrong
// kind throws qmp::ParseException ("<context>: Expected Integer, got String."), a wrong array
// length throws qmp::InvalidParametersException.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qmp {

// The numeric order matters: it indexes the table of kind names used in messages.
enum class ConfigKind : uint8_t { Null = 0, Boolean = 1, Integer = 2, String = 3, Array = 4, Object = 5 };

// "Null", "Boolean", "Integer", "String", "Array", "Object"; any other code "invalid type".
const char* config_kind_name(int code);

class ConfigObject {
public:
    ConfigObject() = default;  // Null
    static ConfigObject make_null();
    static ConfigObject make_bool(bool value);
    static ConfigObject make_integer(int64_t value);
    static ConfigObject make_string(std::string value);
    static ConfigObject make_array(bool block_layout = false);
    static ConfigObject make_object(std::string comment = {});

    ConfigKind kind() const noexcept { return kind_; }
    bool is_null() const noexcept { return kind_ == ConfigKind::Null; }

    // Key rule: non-empty ("Key cannot be empty."), every byte an ASCII letter, digit, '-', '.'
    // or '_' ("Key must be alphanumeric."); raised under "ConfigObject::sanitize_key()".
    static void sanitize_key(std::string_view key);

    // ---- Typed access. `context` prefixes the message as "<context>: " when not empty.
    bool as_bool(std::string_view context = {}) const;
    int64_t as_integer(std::string_view context = {}) const;
    const std::string& as_string(std::string_view context = {}) const;
    const std::vector<ConfigObject>& as_array(std::string_view context = {}) const;
    std::vector<ConfigObject>& as_array(std::string_view context = {});
    // Array of exactly `count` elements ("Expected array size to be exactly N"), or of at least
    // `minimum` ("Expected array size to be at least N").
    const std::vector<ConfigObject>& as_array_exact(uint64_t count, std::string_view context = {}) const;
    const std::vector<ConfigObject>& as_array_at_least(uint64_t minimum, std::string_view context = {}) const;
    // Throws unless this node is an Object.
    const ConfigObject& as_object(std::string_view context = {}) const;
    ConfigObject& as_object(std::string_view context = {});

    // ---- Object members (this node must be an Object).
    // Each add checks the key rule, refuses an existing key with "Attempted to add an existing
    // key." under its own name ("ConfigObject::add_integer()" ...), and returns the new member.
    // Members live in one vector, so the returned reference is valid only until the next add
    // to the same object; finish filling a child before adding its next sibling.
    ConfigObject& add_bool(std::string_view key, bool value, std::string comment = {});
    ConfigObject& add_integer(std::string_view key, int64_t value, std::string comment = {});
    ConfigObject& add_string(std::string_view key, std::string value, std::string comment = {});
    ConfigObject& add_array(std::string_view key, std::string comment = {});
    ConfigObject& add_object(std::string_view key, std::string comment = {});
    // The common operation underneath ("Object::add_node()").
    ConfigObject& add_node(std::string_view key, ConfigObject node, std::string comment = {});
    // For the text readers: adds a member whose key has passed the syntax's own rule (the .cfg
    // identifier set is wider than the key rule, JSON keys are any string) instead of the key
    // rule. Returns false and adds nothing when the key already exists.
    bool insert_parsed_member(std::string key, ConfigObject node);

    // Lookup: a missing key throws qmp::InvalidParametersException "Invalid Key: <key>" under
    // the caller's function name.
    const ConfigObject& get(std::string_view key, std::string_view caller) const;
    ConfigObject& get(std::string_view key, std::string_view caller);
    const ConfigObject* find(std::string_view key) const noexcept;
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    // Typed lookups: the key is the context of a kind error.
    bool get_bool(std::string_view key, std::string_view caller) const;
    int64_t get_integer(std::string_view key, std::string_view caller) const;
    const std::string& get_string(std::string_view key, std::string_view caller) const;

    // Members in insertion order.
    uint64_t member_count() const noexcept { return keys_.size(); }
    const std::string& member_key(uint64_t i) const { return keys_[i]; }
    const std::string& member_comment(uint64_t i) const { return member_comments_[i]; }
    const ConfigObject& member_value(uint64_t i) const { return values_[i]; }
    ConfigObject& member_value(uint64_t i) { return values_[i]; }

    // The object's own comment.
    const std::string& comment() const noexcept { return comment_; }
    void set_comment(std::string comment) { comment_ = std::move(comment); }

    // ---- Arrays (this node must be an Array).
    ConfigObject& push_back(ConfigObject element);
    bool block_layout() const noexcept { return block_layout_; }
    void set_block_layout(bool block) { block_layout_ = block; }

    // Structural equality: kinds, values, member order and keys; comments and layout flags are
    // not compared (the reader discards comments).
    friend bool operator==(const ConfigObject& a, const ConfigObject& b);

private:
    ConfigKind kind_ = ConfigKind::Null;
    bool bool_ = false;
    bool block_layout_ = false;
    int64_t integer_ = 0;
    std::string string_;
    std::string comment_;
    // Array elements, or Object member values (parallel to keys_ and member_comments_).
    std::vector<ConfigObject> values_;
    std::vector<std::string> keys_;
    std::vector<std::string> member_comments_;
    std::unordered_map<std::string, uint64_t> index_;
};

// ---- Text.
// The .cfg syntax; parse errors throw qmp::ParseException "Line N: <message>" under
// "ConfigObject::parse_cfg()", the text ending inside a value throws qmp::EndOfStreamException.
// Only the first value is read. A key repeated within one object is refused with "Duplicate
// key in object." (as in JSON); containers nested over 1000 deep with "Nesting is too deep.".
ConfigObject parse_cfg(std::string_view text);
// JSON (integers only, no comments), under "ConfigObject::parse_json()".
ConfigObject parse_json(std::string_view text);
// Reads a file by its extension: ".cfg" or ".json"; no (or an empty) extension means ".cfg"
// appended; any other extension throws "Extension must be .cfg or .json.". A file that cannot
// be opened or read throws qmp::FileIO::FileException with the path and the system's reason.
ConfigObject parse_using_extension(const std::string& path);
// The .cfg writer: 4 spaces per level, "\r\n" line ends. Throws
// qmp::InvalidParametersException for a key that is not a bare .cfg identifier (possible only
// for trees read from JSON).
std::string write_cfg(const ConfigObject& node, bool with_comments);
std::string write_json(const ConfigObject& node);

}  // namespace qmp
