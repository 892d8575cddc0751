// Loading by path: the extension picks the reader, no extension means ".cfg", anything else is
// refused, and missing or unreadable files are file errors naming the path.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace qmp {
namespace {

using config_test::expect_throw;

class ConfigFile : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qv_config_test_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        for (const std::string& path : written_) std::remove(path.c_str());
        ::rmdir(dir_.c_str());
    }
    std::string write(const std::string& name, const std::string& text) {
        std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        written_.push_back(path);
        return path;
    }

    std::string dir_;
    std::vector<std::string> written_;
};

TEST_F(ConfigFile, ExtensionSelectsTheReader) {
    // Each text is valid in one syntax only, so the wrong reader would fail.
    write("job.cfg", "{ Action : \"CustomCompute\" Digits : 100 }");
    write("job.json", "{\"Action\": \"CustomCompute\", \"Digits\": 100}");
    write("settings.cfg", "{ a : [1 2] }");
    write("v1.2.cfg", "{ a : [1 2] }");
    ConfigObject expected = ConfigObject::make_object();
    expected.add_string("Action", "CustomCompute");
    expected.add_integer("Digits", 100);
    EXPECT_EQ(parse_using_extension(dir_ + "/job.cfg"), expected);
    EXPECT_EQ(parse_using_extension(dir_ + "/job.json"), expected);
    // No extension: ".cfg" is appended, also when a directory name carries a dot.
    EXPECT_EQ(parse_using_extension(dir_ + "/settings").get("a", "T::t()").as_array().size(), 2u);
    EXPECT_EQ(parse_using_extension(dir_ + "/./settings").get("a", "T::t()").as_array().size(), 2u);
    EXPECT_EQ(parse_using_extension(dir_ + "/v1.2.cfg").member_count(), 1u);
    // Syntax errors come through unchanged.
    write("bad.json", "{\"a\": 1,}");
    expect_throw<ParseException>([&] { parse_using_extension(dir_ + "/bad.json"); },
                                 "Line 1: Unexpected '}'.");
}

TEST_F(ConfigFile, RefusesOtherExtensions) {
    write("settings.txt", "{}");
    for (const char* name : {"settings.txt", "settings.CFG", "settings.cfg.bak", "settings."}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(expect_throw<InvalidParametersException>(
                      [&] { parse_using_extension(dir_ + "/" + name); },
                      "Extension must be .cfg or .json."),
                  "ConfigObject::parse_using_extension()");
    }
}

TEST_F(ConfigFile, MissingOrUnreadableFilesAreFileErrors) {
    // A directory opens but cannot be read, which takes the read error path.
    const std::string directory = dir_ + "/folder.cfg";
    ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
    struct Case {
        std::string path;
        std::string reason;
    };
    for (const Case& c : {Case{dir_ + "/absent.json", "Unable to open file: "},
                          Case{dir_ + "/absent", "Unable to open file: "},
                          Case{directory, "Unable to read file: "}}) {
        SCOPED_TRACE(c.path);
        try {
            parse_using_extension(c.path);
            ADD_FAILURE() << "no exception";
        } catch (const FileIO::FileException& e) {
            EXPECT_EQ(e.function(), "ConfigObject::parse_using_extension()");
            EXPECT_EQ(e.message().rfind("Path: " + e.path() + "\n" + c.reason, 0), 0u) << e.message();
            EXPECT_EQ(e.message().back(), '.');
        }
    }
    ::rmdir(directory.c_str());
    // The missing-file message names the path actually tried, with ".cfg" appended.
    try {
        parse_using_extension(dir_ + "/absent");
        ADD_FAILURE() << "no exception";
    } catch (const FileIO::FileException& e) {
        EXPECT_EQ(e.path(), dir_ + "/absent.cfg");
    }
}

}  // namespace
}  // namespace qmp
