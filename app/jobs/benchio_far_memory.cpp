// The helpers of benchio_far_memory.h.
#include "app/jobs/benchio_far_memory.h"

#include "qmp/exception.h"

#include <cstdio>
#include <cstring>

namespace qv {

qmp::ConfigObject disk_far_memory_config(const std::vector<std::string>& paths) {
    qmp::ConfigObject config = qmp::ConfigObject::make_object();
    config.add_string("Framework", "disk-raid0");
    qmp::ConfigObject& lanes = config.add_array("Lanes");
    for (const std::string& path : paths.empty() ? std::vector<std::string>{"."} : paths) {
        qmp::ConfigObject lane = qmp::ConfigObject::make_object();
        lane.add_string("Path", path);
        lanes.push_back(std::move(lane));
    }
    return config;
}

uint64_t parse_byte_count(std::string_view text, std::string_view caller) {
    auto fail = [&]() -> uint64_t {
        throw qmp::InvalidParametersException(std::string(caller), "Invalid size: " + std::string(text));
    };
    uint64_t value = 0;
    size_t i = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        if (value > (UINT64_MAX - 9) / 10) return fail();
        value = value * 10 + uint64_t(text[i] - '0');
    }
    if (i == 0) return fail();
    unsigned shift = 0;
    if (i + 1 == text.size()) {
        switch (text[i]) {
            case 'k': case 'K': shift = 10; break;
            case 'm': case 'M': shift = 20; break;
            case 'g': case 'G': shift = 30; break;
            case 't': case 'T': shift = 40; break;
            default: return fail();
        }
    } else if (i != text.size()) {
        return fail();
    }
    if (shift != 0 && value > (UINT64_MAX >> shift)) return fail();
    return value << shift;
}

uint64_t byte_count_member(const qmp::ConfigObject& job, const char* key, uint64_t fallback) {
    const qmp::ConfigObject* node = job.find(key);
    if (node == nullptr) return fallback;
    const int64_t value = node->as_integer(key);
    if (value < 0) throw qmp::InvalidParametersException("JobSettings::load_config()", std::string(key) + " must not be negative.");
    return uint64_t(value);
}

std::string short_byte_size(uint64_t bytes) {
    static const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    double value = double(bytes);
    while (value >= 1024 && unit < 4) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    if (unit == 0 || value == double(uint64_t(value))) {
        std::snprintf(text, sizeof text, "%llu %s", (unsigned long long)value, units[unit]);
    } else {
        std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    }
    return text;
}

void fill_random(char* p, uint64_t bytes, std::mt19937_64& rng) {
    uint64_t i = 0;
    for (; i + 8 <= bytes; i += 8) {
        const uint64_t v = rng();
        std::memcpy(p + i, &v, 8);
    }
    for (; i < bytes; ++i) p[i] = char(rng());
}

}  // namespace qv
