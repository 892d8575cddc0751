// The parallel frameworks the user chooses from, and the registry that makes them by key.
// Each framework is a Parallelizer that also knows its key, writes its settings back as a
// configuration object ({"Framework": key, options...}) and lists its settings for the menus.
// The registry maps keys to factories; it holds the five built-in frameworks from its first
// use, and more can be added. A second registration of a key throws "Duplicate Framework Type";
// an unknown key in a settings object throws "Invalid Parallel Framework: <key>" (both
// InvalidParametersException).
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/config_object.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp {

// One line of a framework's settings as the menu shows it: a label ("    Launch Policy:") and
// the current value.
struct FrameworkSettingLine {
    std::string label;
    std::string value;
};

class ParallelFramework : public Parallelizer {
public:
    // The registry key: "none", "cppasync", "spawn", "taskqueue" or "pushpool".
    virtual const char* key() const noexcept = 0;
    // The settings as a configuration object that make_parallel_framework() accepts back.
    virtual ConfigObject to_config() const;
    // The framework's options for the menu (none by default).
    virtual std::vector<FrameworkSettingLine> setting_lines() const { return {}; }
};

// Makes a framework from its settings object (its String member "Framework" names the key).
using ParallelFrameworkFactory = std::unique_ptr<ParallelFramework> (*)(const ConfigObject& settings);

struct ParallelFrameworkType {
    std::string key;
    std::string display_name;
    ParallelFrameworkFactory factory;
    // The settings object of a freshly chosen framework of this type.
    ConfigObject (*default_config)();
};

// Adds a framework type; throws "Duplicate Framework Type" when the key is taken.
void register_parallel_framework(ParallelFrameworkType type);
// The registered types in registration order (the built-in five first), for the menu.
std::vector<ParallelFrameworkType> parallel_framework_types();
// The type registered under `key`; throws "Invalid Parallel Framework: <key>".
ParallelFrameworkType find_parallel_framework(const std::string& key);
// Reads the key from `settings` and lets that framework read its options.
std::unique_ptr<ParallelFramework> make_parallel_framework(const ConfigObject& settings);

// The framework used when the settings name none: "pushpool" (see parallel_framework.cpp for
// the measurement behind the choice).
const char* default_parallel_framework_key();

}  // namespace qmp
