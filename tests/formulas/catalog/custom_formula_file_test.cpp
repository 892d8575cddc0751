// Formula file lookup in a scratch tree (a path as given, then "../Custom Formulas/" before
// "../Test Formulas/" with ".cfg" appended) and the constant-name rules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "formulas/catalog/custom_formula_file.h"
#include "formulas/catalog/formula_generator.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using qmp::InvalidParametersException;
using qmp::test::expect_throw;

TEST(CustomFormulaFile, LookupOrder) {
    const fs::path root = fs::temp_directory_path() / ("qv_catalog_" + std::to_string(::getpid()));
    for (const char* dir : {"work", "Custom Formulas", "Test Formulas"}) fs::create_directories(root / dir);
    std::ofstream(root / "Custom Formulas" / "both.cfg") << "{Integer : 1}";
    std::ofstream(root / "Test Formulas" / "both.cfg") << "{Integer : 2}";
    std::ofstream(root / "Test Formulas" / "test only.cfg") << "{Integer : 3}";
    std::ofstream(root / "direct.txt") << "{Integer : 4}";
    const std::string work = (root / "work").string();
    auto text_of = [&](const std::string& name) { return CustomFormulaFile::read_text(CustomFormulaFile::find(name, work)); };
    EXPECT_EQ(text_of("both"), "{Integer : 1}");
    EXPECT_EQ(text_of("both.cfg"), "{Integer : 1}");
    EXPECT_EQ(text_of("test only"), "{Integer : 3}");
    EXPECT_EQ(text_of((root / "direct.txt").string()), "{Integer : 4}");
    expect_throw<InvalidParametersException>([&] { CustomFormulaFile::find("missing", work); }, "CustomFormulaFile::find()",
                                             "File not found.");
    expect_throw<InvalidParametersException>([&] { CustomFormulaFile::find("", work); }, "CustomFormulaFile::find()",
                                             "No formula file specified.");
    // The catalog's "custom" constant hands out the file's text.
    FormulaRequest request;
    request.constant = "custom";
    request.formula_file = (root / "direct.txt").string();
    const GeneratedFormula f = generate_formula(request);
    EXPECT_EQ(f.label, "Custom Constant with User-Defined Formula:");
    EXPECT_EQ(f.text, "{Integer : 4}");
    fs::remove_all(root);
}

TEST(CustomFormulaName, Rules) {
    const char* function = "CustomFormulaFile::check_name()";
    EXPECT_NO_THROW(CustomFormulaFile::check_name("My Constant (v2) #1 - e^pi"));
    EXPECT_NO_THROW(CustomFormulaFile::check_name(std::string(50, 'a')));
    expect_throw<InvalidParametersException>([] { CustomFormulaFile::check_name(std::string(51, 'a')); }, function,
                                             "String cannot be longer than 50 characters.");
    for (const char* bad : {"tab\there", "bell\a", "del\x7f"}) {
        expect_throw<InvalidParametersException>([bad] { CustomFormulaFile::check_name(bad); }, function,
                                                 "Control characters are not allowed in name.");
    }
    expect_throw<InvalidParametersException>([] { CustomFormulaFile::check_name("a/b"); }, function, "ASCII 47 is not allowed in name.");
    expect_throw<InvalidParametersException>([] { CustomFormulaFile::check_name("a?"); }, function, "ASCII 63 is not allowed in name.");
    expect_throw<InvalidParametersException>([] { CustomFormulaFile::check_name("\"q\""); }, function, "ASCII 34 is not allowed in name.");
    expect_throw<InvalidParametersException>([] { CustomFormulaFile::check_name("caf\xe9"); }, function,
                                             "Invalid character in name: \xe9");
}

}  // namespace
}  // namespace qv
