// Loading by path: the extension picks the reader, no extension means ".cfg", anything else is
// refused, and missing or unreadable files are file errors naming the path.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace qmp {
namespace {

TEST(ConfigFile, ExtensionSelectsTheReaderAndFailuresNameThePath) {
    char pattern[] = "/tmp/qv_config_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    // The .cfg text is not JSON and the JSON text is not .cfg, so the wrong reader would fail.
    const char* cfg = "{ Action : \"CustomCompute\" Digits : 100 }";
    for (const char* name : {"job.cfg", "settings.cfg", "settings..cfg"}) {
        std::ofstream(dir + "/" + name) << cfg;
    }
    std::ofstream(dir + "/job.json") << "{\"Action\": \"CustomCompute\", \"Digits\": 100}";
    std::ofstream(dir + "/settings.txt") << cfg;
    std::filesystem::create_directory(dir + "/folder.cfg");

    ConfigObject expected = ConfigObject::make_object();
    expected.add_string("Action", "CustomCompute");
    expected.add_integer("Digits", 100);
    // No extension (or an empty one) means ".cfg" appended, also when a directory has a dot.
    for (const char* name : {"/job.cfg", "/job.json", "/settings", "/./settings", "/settings."}) {
        EXPECT_EQ(parse_using_extension(dir + name), expected) << name;
    }
    for (const char* name : {"/settings.txt", "/settings.CFG", "/job.cfg.bak"}) {
        EXPECT_EQ(config_test::expect_throw<InvalidParametersException>(
                      [&] { parse_using_extension(dir + name); }, "Extension must be .cfg or .json."),
                  "ConfigObject::parse_using_extension()")
            << name;
    }
    // A directory opens but cannot be read, which takes the read error path.
    const std::pair<std::string, std::string> failures[] = {
        {"/absent.json", "/absent.json\nUnable to open file: "},
        {"/absent", "/absent.cfg\nUnable to open file: "},
        {"/folder.cfg", "/folder.cfg\nUnable to read file: "}};
    for (const auto& [name, start] : failures) {
        try {
            parse_using_extension(dir + name);
            ADD_FAILURE() << "no exception for " << name;
        } catch (const FileIO::FileException& e) {
            EXPECT_EQ(e.function(), "ConfigObject::parse_using_extension()");
            EXPECT_EQ(e.message().rfind("Path: " + dir + start, 0), 0u) << e.message();
            EXPECT_EQ(e.message().back(), '.');
        }
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace qmp
