// Reading, clamping, checking, writing and printing of the far-memory tuning levels. The
// doubling rule is evaluated in 128 bits so that an unbounded previous level can never be
// doubled past by a bounded one.
#include "qmp/farmemory/tuning_parameters.h"

#include "qmp/console.h"
#include "qmp/exception.h"

#include <cstdio>
#include <string>

namespace qmp {

namespace {

constexpr const char* multi_level_warning =
    "Warning: You are about to enable Multi-level Far-Memory.\n\n"
    "This feature has neither been officially enabled nor has it been\n"
    "properly tested. Continue at your own risk!";

void print_field(const char* label, const std::string& value) {
    char padded[64];
    std::snprintf(padded, sizeof padded, "%-32s", label);
    Console::print(padded, Console::Colour::Label);
    Console::println(value, Console::Colour::Value);
}

}  // namespace

const char* parallel_access_name(FarMemoryParallelAccess mode) {
    switch (mode) {
        case FarMemoryParallelAccess::None: return "none";
        case FarMemoryParallelAccess::ReadWrite: return "readwrite";
        case FarMemoryParallelAccess::All: return "all";
    }
    return "none";
}

FarMemoryParallelAccess parse_parallel_access(std::string_view text) {
    if (text == "none") return FarMemoryParallelAccess::None;
    if (text == "readwrite") return FarMemoryParallelAccess::ReadWrite;
    if (text == "all") return FarMemoryParallelAccess::All;
    throw InvalidParametersException("parse_parallel_access()",
                                     "Invalid FarMemoryParallelAccess mode: " + std::string(text));
}

void FarMemoryTuningLevel::set_bytes_per_seek(uint64_t bytes) {
    if (bytes < min_bytes_per_seek + 1) bytes = min_bytes_per_seek;
    if (bytes > max_bytes_per_seek - 1) bytes = max_bytes_per_seek;
    bytes_per_seek = bytes;
}

void FarMemoryTuningLevel::set_alignment_k(uint64_t k) {
    alignment_k = k > max_alignment_k - 1 ? max_alignment_k : uint32_t(k);
}

FarMemoryTuningLevel FarMemoryTuningLevel::from_config(const ConfigObject& object) {
    object.as_object("FarMemoryTuningLevel");
    FarMemoryTuningLevel level;
    if (const ConfigObject* n = object.find("SizeInBytes")) {
        level.size_bytes = uint64_t(n->as_integer("SizeInBytes"));
    }
    if (const ConfigObject* n = object.find("BytesPerSeek")) {
        level.set_bytes_per_seek(uint64_t(n->as_integer("BytesPerSeek")));
    }
    if (const ConfigObject* n = object.find("PreferredAlignmentK")) {
        level.set_alignment_k(uint64_t(n->as_integer("PreferredAlignmentK")));
    }
    if (const ConfigObject* n = object.find("ParallelAccess")) {
        level.parallel_access = parse_parallel_access(n->as_string("ParallelAccess"));
    }
    return level;
}

ConfigObject FarMemoryTuningLevel::to_config() const {
    ConfigObject object = ConfigObject::make_object();
    object.add_integer("SizeInBytes", int64_t(size_bytes), is_unbounded() ? "unbounded" : "");
    object.add_integer("BytesPerSeek", int64_t(bytes_per_seek));
    object.add_integer("PreferredAlignmentK", int64_t(alignment_k));
    object.add_string("ParallelAccess", parallel_access_name(parallel_access));
    return object;
}

FarMemoryTuningParameters FarMemoryTuningParameters::defaults() {
    FarMemoryTuningParameters tuning;
    tuning.add_level(FarMemoryTuningLevel{});
    return tuning;
}

FarMemoryTuningParameters::FarMemoryTuningParameters(const ConfigObject& config) {
    static const char* const place = "FarMemoryTuningParameters()";
    const auto& levels = config.get("Levels", place).as_array("Levels");
    if (levels.empty()) {
        throw InvalidParametersException(place, "Expected at least one level of far memory.");
    }
    if (levels.size() > max_levels) {
        throw InvalidParametersException(place, "Too many levels of far memory.");
    }
    for (const ConfigObject& level : levels) add_level(FarMemoryTuningLevel::from_config(level));
    check();
    if (level_count_ > 1) {
        Console::warning(multi_level_warning);
        Console::pause();
    }
}

ConfigObject FarMemoryTuningParameters::to_config() const {
    ConfigObject config = ConfigObject::make_object();
    ConfigObject& levels = config.add_array("Levels");
    for (uint32_t i = 0; i < level_count_; ++i) levels.push_back(levels_[i].to_config());
    return config;
}

void FarMemoryTuningParameters::add_level(const FarMemoryTuningLevel& level) {
    if (level_count_ == max_levels) {
        throw InvalidParametersException("FarMemoryTuningParameters::add_level()",
                                         "Level count is full.");
    }
    levels_[level_count_++] = level;
}

const FarMemoryTuningLevel& FarMemoryTuningParameters::level(uint32_t index) const {
    if (index >= level_count_) {
        throw InvalidParametersException("FarMemoryTuningParameters::level()",
                                         "Level index is out of range.");
    }
    return levels_[index];
}

const FarMemoryTuningLevel& FarMemoryTuningParameters::summary() const {
    if (level_count_ == 0) {
        throw InvalidParametersException("FarMemoryTuningParameters::summary()",
                                         "Must have at least one level.");
    }
    return levels_[0];
}

void FarMemoryTuningParameters::check() const {
    static const char* const place = "FarMemoryTuningParameters::check()";
    if (level_count_ == 0) throw InvalidParametersException(place, "Must have at least one level.");
    for (uint32_t i = 1; i < level_count_; ++i) {
        if (levels_[i].is_unbounded()) continue;
        // In 128 bits: twice an unbounded (or huge) previous level is never reached.
        const unsigned __int128 needed = (unsigned __int128)levels_[i - 1].size_bytes * 2;
        if (levels_[i].size_bytes < needed) {
            throw InvalidParametersException(
                place, "Each level must be at least twice the size of the previous level.");
        }
    }
}

void FarMemoryTuningParameters::print() const {
    for (uint32_t i = 0; i < level_count_; ++i) {
        const FarMemoryTuningLevel& l = levels_[i];
        Console::println("Far Memory Level " + std::to_string(i), Console::Colour::Header);
        print_field("SizeInBytes", l.is_unbounded() ? "unbounded" : std::to_string(l.size_bytes));
        print_field("BytesPerSeek", std::to_string(l.bytes_per_seek));
        print_field("PreferredAlignmentK", std::to_string(l.alignment_k));
        print_field("ParallelAccess", parallel_access_name(l.parallel_access));
    }
}

}  // namespace qmp
