// The configuration-object tree: kind names, the key rule, building objects and arrays, typed
// and keyed access with their messages, and structural equality.
// Contract: a node owns its children; object members stay in insertion order and the key index
// maps each key to its position. Bad or missing keys throw qmp::InvalidParametersException,
// a node of the wrong kind throws qmp::ParseException, a wrong array length throws
// qmp::InvalidParametersException. Nothing here touches text; the readers and writers live in
// their own files.
#include "config/config_object.h"

#include "qmp/exception.h"

#include <string>
#include <utility>

namespace qmp {

namespace {

const char* const kKindNames[] = {"Null", "Boolean", "Integer", "String", "Array", "Object"};

bool is_key_byte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}

// "<context>: " when a context is given, nothing otherwise.
std::string with_context(std::string_view context, std::string message) {
    if (context.empty()) return message;
    std::string text(context);
    text += ": ";
    text += message;
    return text;
}

[[noreturn]] void throw_kind(std::string_view function, std::string_view context,
                             ConfigKind expected, ConfigKind actual) {
    std::string message = "Expected ";
    message += config_kind_name(static_cast<int>(expected));
    message += ", got ";
    message += config_kind_name(static_cast<int>(actual));
    message += ".";
    throw ParseException(std::string(function), with_context(context, std::move(message)));
}

// The typed adds run the checks of add_node() themselves first, so that a refusal names the
// add that was called rather than the common operation underneath.
void check_new_member(const ConfigObject& object, const char* function, std::string_view key) {
    if (object.kind() != ConfigKind::Object) {
        throw_kind(function, {}, ConfigKind::Object, object.kind());
    }
    ConfigObject::sanitize_key(key);
    if (object.contains(key)) {
        throw InvalidParametersException(function, "Attempted to add an existing key.");
    }
}

}  // namespace

const char* config_kind_name(int code) {
    if (code < 0 || code > 5) return "invalid type";
    return kKindNames[code];
}

ConfigObject ConfigObject::make_null() { return ConfigObject(); }

ConfigObject ConfigObject::make_bool(bool value) {
    ConfigObject node;
    node.kind_ = ConfigKind::Boolean;
    node.bool_ = value;
    return node;
}

ConfigObject ConfigObject::make_integer(int64_t value) {
    ConfigObject node;
    node.kind_ = ConfigKind::Integer;
    node.integer_ = value;
    return node;
}

ConfigObject ConfigObject::make_string(std::string value) {
    ConfigObject node;
    node.kind_ = ConfigKind::String;
    node.string_ = std::move(value);
    return node;
}

ConfigObject ConfigObject::make_array(bool block_layout) {
    ConfigObject node;
    node.kind_ = ConfigKind::Array;
    node.block_layout_ = block_layout;
    return node;
}

ConfigObject ConfigObject::make_object(std::string comment) {
    ConfigObject node;
    node.kind_ = ConfigKind::Object;
    node.comment_ = std::move(comment);
    return node;
}

void ConfigObject::sanitize_key(std::string_view key) {
    // The accepted set is wider than "alphanumeric" ('-', '.', '_' pass); the message keeps the
    // simpler word on purpose, since users read it as "no spaces or symbols".
    if (key.empty()) {
        throw InvalidParametersException("ConfigObject::sanitize_key()", "Key cannot be empty.");
    }
    for (char c : key) {
        if (!is_key_byte(c)) {
            throw InvalidParametersException("ConfigObject::sanitize_key()",
                                             "Key must be alphanumeric.");
        }
    }
}

// ---- Typed access

bool ConfigObject::as_bool(std::string_view context) const {
    if (kind_ != ConfigKind::Boolean) {
        throw_kind("ConfigObject::as_bool()", context, ConfigKind::Boolean, kind_);
    }
    return bool_;
}

int64_t ConfigObject::as_integer(std::string_view context) const {
    if (kind_ != ConfigKind::Integer) {
        throw_kind("ConfigObject::as_integer()", context, ConfigKind::Integer, kind_);
    }
    return integer_;
}

const std::string& ConfigObject::as_string(std::string_view context) const {
    if (kind_ != ConfigKind::String) {
        throw_kind("ConfigObject::as_string()", context, ConfigKind::String, kind_);
    }
    return string_;
}

const std::vector<ConfigObject>& ConfigObject::as_array(std::string_view context) const {
    if (kind_ != ConfigKind::Array) {
        throw_kind("ConfigObject::as_array()", context, ConfigKind::Array, kind_);
    }
    return values_;
}

std::vector<ConfigObject>& ConfigObject::as_array(std::string_view context) {
    if (kind_ != ConfigKind::Array) {
        throw_kind("ConfigObject::as_array()", context, ConfigKind::Array, kind_);
    }
    return values_;
}

// The length messages carry no final full stop: the count is the last thing on the line and
// the text is fixed by the users' documentation. A context is prefixed like the kind errors.
const std::vector<ConfigObject>& ConfigObject::as_array_exact(uint64_t count,
                                                             std::string_view context) const {
    const std::vector<ConfigObject>& elements = as_array(context);
    if (elements.size() != count) {
        throw InvalidParametersException(
            "ConfigObject::as_array_exact()",
            with_context(context, "Expected array size to be exactly " + std::to_string(count)));
    }
    return elements;
}

const std::vector<ConfigObject>& ConfigObject::as_array_at_least(uint64_t minimum,
                                                                std::string_view context) const {
    const std::vector<ConfigObject>& elements = as_array(context);
    if (elements.size() < minimum) {
        throw InvalidParametersException(
            "ConfigObject::as_array_at_least()",
            with_context(context, "Expected array size to be at least " + std::to_string(minimum)));
    }
    return elements;
}

const ConfigObject& ConfigObject::as_object(std::string_view context) const {
    if (kind_ != ConfigKind::Object) {
        throw_kind("ConfigObject::as_object()", context, ConfigKind::Object, kind_);
    }
    return *this;
}

ConfigObject& ConfigObject::as_object(std::string_view context) {
    if (kind_ != ConfigKind::Object) {
        throw_kind("ConfigObject::as_object()", context, ConfigKind::Object, kind_);
    }
    return *this;
}

// ---- Object members

ConfigObject& ConfigObject::add_node(std::string_view key, ConfigObject node, std::string comment) {
    check_new_member(*this, "Object::add_node()", key);
    std::string owned_key(key);
    index_.emplace(owned_key, keys_.size());
    keys_.push_back(std::move(owned_key));
    member_comments_.push_back(std::move(comment));
    values_.push_back(std::move(node));
    return values_.back();
}

bool ConfigObject::insert_parsed_member(std::string key, ConfigObject node) {
    if (kind_ != ConfigKind::Object) {
        throw_kind("ConfigObject::insert_parsed_member()", {}, ConfigKind::Object, kind_);
    }
    if (!index_.emplace(key, keys_.size()).second) return false;
    keys_.push_back(std::move(key));
    member_comments_.emplace_back();
    values_.push_back(std::move(node));
    return true;
}

ConfigObject& ConfigObject::add_bool(std::string_view key, bool value, std::string comment) {
    check_new_member(*this, "ConfigObject::add_bool()", key);
    return add_node(key, make_bool(value), std::move(comment));
}

ConfigObject& ConfigObject::add_integer(std::string_view key, int64_t value, std::string comment) {
    check_new_member(*this, "ConfigObject::add_integer()", key);
    return add_node(key, make_integer(value), std::move(comment));
}

ConfigObject& ConfigObject::add_string(std::string_view key, std::string value,
                                       std::string comment) {
    check_new_member(*this, "ConfigObject::add_string()", key);
    return add_node(key, make_string(std::move(value)), std::move(comment));
}

ConfigObject& ConfigObject::add_array(std::string_view key, std::string comment) {
    check_new_member(*this, "ConfigObject::add_array()", key);
    return add_node(key, make_array(), std::move(comment));
}

ConfigObject& ConfigObject::add_object(std::string_view key, std::string comment) {
    check_new_member(*this, "ConfigObject::add_object()", key);
    return add_node(key, make_object(), std::move(comment));
}

const ConfigObject* ConfigObject::find(std::string_view key) const noexcept {
    if (kind_ != ConfigKind::Object) return nullptr;
    auto it = index_.find(std::string(key));
    if (it == index_.end()) return nullptr;
    return &values_[it->second];
}

const ConfigObject& ConfigObject::get(std::string_view key, std::string_view caller) const {
    if (kind_ != ConfigKind::Object) throw_kind(caller, {}, ConfigKind::Object, kind_);
    const ConfigObject* node = find(key);
    if (node == nullptr) {
        throw InvalidParametersException(std::string(caller), "Invalid Key: " + std::string(key));
    }
    return *node;
}

ConfigObject& ConfigObject::get(std::string_view key, std::string_view caller) {
    return const_cast<ConfigObject&>(static_cast<const ConfigObject&>(*this).get(key, caller));
}

// A kind error from a keyed lookup carries the caller's name and the key as its context, so
// the message reads "DecimalDigits: Expected Integer, got String.".
bool ConfigObject::get_bool(std::string_view key, std::string_view caller) const {
    const ConfigObject& node = get(key, caller);
    if (node.kind_ != ConfigKind::Boolean) throw_kind(caller, key, ConfigKind::Boolean, node.kind_);
    return node.bool_;
}

int64_t ConfigObject::get_integer(std::string_view key, std::string_view caller) const {
    const ConfigObject& node = get(key, caller);
    if (node.kind_ != ConfigKind::Integer) throw_kind(caller, key, ConfigKind::Integer, node.kind_);
    return node.integer_;
}

const std::string& ConfigObject::get_string(std::string_view key, std::string_view caller) const {
    const ConfigObject& node = get(key, caller);
    if (node.kind_ != ConfigKind::String) throw_kind(caller, key, ConfigKind::String, node.kind_);
    return node.string_;
}

// ---- Arrays

ConfigObject& ConfigObject::push_back(ConfigObject element) {
    if (kind_ != ConfigKind::Array) {
        throw_kind("ConfigObject::push_back()", {}, ConfigKind::Array, kind_);
    }
    values_.push_back(std::move(element));
    return values_.back();
}

// ---- Equality

bool operator==(const ConfigObject& a, const ConfigObject& b) {
    if (a.kind_ != b.kind_) return false;
    switch (a.kind_) {
        case ConfigKind::Null:
            return true;
        case ConfigKind::Boolean:
            return a.bool_ == b.bool_;
        case ConfigKind::Integer:
            return a.integer_ == b.integer_;
        case ConfigKind::String:
            return a.string_ == b.string_;
        case ConfigKind::Array:
            return a.values_ == b.values_;
        case ConfigKind::Object:
            return a.keys_ == b.keys_ && a.values_ == b.values_;
    }
    return false;
}

}  // namespace qmp
