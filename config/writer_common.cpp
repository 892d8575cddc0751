// String quoting, the one-line array rule and indentation for the two writers.
#include "config/writer_common.h"

#include <string>

namespace qmp::config_detail {

void append_quoted(std::string& out, std::string_view text) {
    out += '"';
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
}

bool array_fits_inline(const ConfigObject& array) {
    if (array.block_layout()) return false;
    uint64_t string_bytes = 0;
    for (const ConfigObject& element : array.as_array()) {
        ConfigKind kind = element.kind();
        if (kind == ConfigKind::Array || kind == ConfigKind::Object) return false;
        if (kind == ConfigKind::String) string_bytes += element.as_string().size();
    }
    return string_bytes <= kInlineArrayMaxStringBytes;
}

void append_indent(std::string& out, uint32_t level) { out.append(uint64_t(level) * 4, ' '); }

void append_integer(std::string& out, int64_t value) { out += std::to_string(value); }

}  // namespace qmp::config_detail
