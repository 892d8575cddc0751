// Reading compressed digit files: each refusal of the file and set readers with its exact
// text, search directories, and fuzzed headers, which may only ever be refused with one of the
// readers' own messages.
#include "qmp/digitfiles/qcd_file_reader.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/qcd_set_writer.h"

#include "tests/qmp/digitfiles/digitfiles_test_support.h"
#include "tests/test_support.h"

#include <filesystem>
#include <random>
#include <set>

namespace {

using qmp::InvalidParametersException;
using qmp::test::expect_throw;
using qmp::test::ScratchDir;
using qmp::test::slurp;
using qmp::test::spit;

const char* const kCtor = "BasicQcdFileReader::BasicQcdFileReader()";
const char* const kLater =
    "This .qcd file is of a later format version.\nThis version of the digit viewer is unable to view this file.";

std::string header(const std::string& version, const std::string& base, const std::string& total,
                   const std::string& block, const std::string& id) {
    std::string h = "#Compressed Digit File\r\n\r\n";
    if (!version.empty()) h += "FileVersion:\t" + version + "\r\n\r\n";
    h += "Base:\t" + base + "\r\n\r\nFirstDigits:\t3.\r\n\r\nTotalDigits:\t" + total +
         "\r\n\r\nBlocksize:\t" + block + "\r\nBlockID:\t" + id + "\r\n\r\nEndHeader\r\n\r\n";
    return h + '\0' + std::string(64, '\0');
}

TEST(QcdReaders, FileReaderRefusalsAreExact) {
    ScratchDir dir;
    const std::string p = dir.file("f - 0.qcd");
    auto refused = [&](const std::string& bytes, const std::string& text) {
        spit(p, bytes);
        expect_throw<InvalidParametersException>([&] { qmp::BasicQcdFileReader r(p); }, kCtor, p + "\n" + text);
    };
    refused(header("1.2.0", "10", "0", "100", "0"), kLater);
    refused(header("", "10", "0", "100", "0"), "No version # found.");
    refused(header("1.1.0", "10", "0", "49", "0"), "Invalid Digits per File");
    refused(header("1.1.0", "10", "100", "50", "2"),
            "This file is out of range.\nStart:        100\nEnd:          150\nTotal Digits: 100");
    refused(header("1.1.0", "8", "0", "100", "0"), "Unsupported Radix");
    std::string no_nul = header("1.1.0", "10", "0", "100", "0");
    refused(no_nul.substr(0, no_nul.find('\0')), "Read error.");

    // Accepted: version 1.0.0, 50 digits per file, and a total below the block size lowers it.
    spit(p, header("1.0.0", "16", "0", "50", "3"));
    qmp::BasicQcdFileReader r(p);
    EXPECT_EQ(r.block_start(), 150u);
    EXPECT_EQ(r.words_in_this_file(), 4u);
    EXPECT_NE(r.describe().find("words_in_this_file:             4\n"), std::string::npos) << r.describe();
    spit(p, header("1.1.0", "10", "60", "100", "0"));
    qmp::BasicQcdFileReader lowered(p);
    EXPECT_EQ(lowered.digits_per_file(), 60u);
    EXPECT_EQ(lowered.words_in_this_file(), 4u);
    uint64_t words[8];
    expect_throw<InvalidParametersException>([&] { lowered.read_words(words, 3, 2); },
                                             "BasicQcdFileReader::start_access()",
                                             "Read out of bounds.\nRequested Range: 3 - 5\nAvailable Range: 0 - 4");
    expect_throw<InvalidParametersException>(
        [&] { lowered.read_words(reinterpret_cast<uint64_t*>(reinterpret_cast<char*>(words) + 4), 0, 1); },
        "BasicQcdFileReader::start_access()", "Buffer is misaligned.");
    // The header is followed by two of the six words the file should hold.
    const std::string full = header("1.1.0", "10", "200", "100", "0");
    spit(p, full.substr(0, full.size() - 64 + 16));
    qmp::BasicQcdFileReader short_file(p);
    expect_throw<qmp::FileIO::FileException>([&] { short_file.read_words(words, 1, 2); },
                                             "BasicQcdFileReader::read_words()", "Path: " + p + "\nRead error.");
}

TEST(QcdReaders, SetReaderRefusalsAreExact) {
    ScratchDir dir;
    const char* set_ctor = "BasicQcdSetReader::BasicQcdSetReader()";
    expect_throw<InvalidParametersException>([] { qmp::BasicQcdSetReader r("a.q"); }, set_ctor, "File name is too short.");
    expect_throw<InvalidParametersException>([] { qmp::BasicQcdSetReader r("pi - 0.txt"); }, set_ctor, "Invalid Extension");

    std::vector<char> raw(350);
    for (size_t i = 0; i < raw.size(); ++i) raw[i] = char(i * 7 % 10);
    for (const char* name : {"s", "t"}) {
        qmp::BasicQcdSetWriter w(dir.path(), name, "3.", 10, 100, std::string(name) == "s" ? 350 : 400);
        w.store_digits(raw.data(), 0, 350);
        w.close();
    }
    qmp::BasicQcdSetReader set(dir.file("s - 1.qcd"));
    EXPECT_EQ(set.base_name(), "s");
    std::vector<char> got(350);
    expect_throw<InvalidParametersException>([&] { set.load_digits(got.data(), 300, 51); },
                                             "BasicQcdSetReader::make_commands()",
                                             "This digit stream does not have enough digits.");
    // A file of another set under this set's name.
    std::filesystem::rename(dir.file("t - 2.qcd"), dir.file("s - 2.qcd"));
    expect_throw<qmp::DigitViewer2::InconsistentMetaData>(
        [&] { set.load_file(2); }, "BasicQcdSetReader::load_file()",
        "Inconsistent Metadata: \"" + dir.file("s - 2.qcd") + "\"\nTotal digits does not match.");
    std::filesystem::rename(dir.file("s - 0.qcd"), dir.file("s - 3.qcd"));
    expect_throw<qmp::DigitViewer2::InconsistentMetaData>(
        [&] { set.load_file(3); }, "BasicQcdSetReader::load_file()",
        "Inconsistent Metadata: \"" + dir.file("s - 3.qcd") + "\"\nFile id does not match.");
    expect_throw<InvalidParametersException>([&] { set.load_file(0); }, "BasicQcdSetReader::load_file()",
                                             "Unable to open file #0");
    testing::internal::CaptureStdout();
    expect_throw<InvalidParametersException>([&] { set.load_digits(got.data(), 50, 100); },
                                             "BasicQcdSetReader::make_commands()", "Missing required files.");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "The following needed files are missing or inaccessible:\ns - 0.qcd\n");

    // The file turns up in a search directory.
    std::filesystem::create_directory(dir.file("more"));
    std::filesystem::rename(dir.file("s - 3.qcd"), dir.file("more/s - 0.qcd"));
    set.add_search_directory(dir.file("more"));
    set.load_digits(got.data(), 50, 100);
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + 100, raw.begin() + 50));
}

TEST(QcdReaders, FuzzedHeadersOnlyGiveTheReadersOwnRefusals) {
    ScratchDir dir;
    const std::string p = dir.file("z - 0.qcd");
    const std::set<std::string> allowed = {
        "No version # found.", kLater, "Invalid Digits per File", "Unsupported Radix", "Read error.",
        "Invalid Digit"};
    std::mt19937_64 rng(qmp::test::test_seed());
    const std::string valid = header("1.1.0", "10", "1000", "100", "3") + std::string(400, '\x11');
    const std::vector<std::string> pieces = {
        "FileVersion:", "Base:", "Blocksize:", "BlockID:", "TotalDigits:", "EndHeader", "1.1.0", "1.0.0", "16",
        "10", "0", "18446744073709551615", "99999999999999999999", "\t", "\r\n", std::string(1, '\0'), "-5", "x"};
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string bytes;
        if (round % 3 == 0) {  // tokens in random order
            for (int k = rng() % 24; k > 0; --k) bytes += pieces[rng() % pieces.size()] + " ";
            bytes += std::string(rng() % 300, char(rng()));
        } else {  // the valid header with a few bytes changed, removed or added
            bytes = valid;
            for (int k = 1 + rng() % 4; k > 0; --k) {
                const size_t at = rng() % bytes.size();
                switch (rng() % 3) {
                    case 0: bytes[at] = char(rng()); break;
                    case 1: bytes.erase(at, 1 + rng() % 8); break;
                    default: bytes.insert(at, pieces[rng() % pieces.size()]); break;
                }
            }
        }
        spit(p, bytes);
        try {
            qmp::BasicQcdFileReader r(p);
            std::vector<char> raw(64);
            const uint64_t n = std::min<uint64_t>(64, r.block_end() - r.block_start());
            r.load_digits(raw.data(), r.block_start(), n);
            ++accepted;
        } catch (const qmp::FileIO::FileException& e) {
            EXPECT_TRUE(e.message().ends_with("\nRead error.")) << e.message();
        } catch (const InvalidParametersException& e) {
            const std::string& m = e.message();
            const bool in_range = m.find("This file is out of range.\nStart:        ") != std::string::npos ||
                                  m.find("Read out of bounds.\n") == 0;
            const std::string last = m.substr(m.find('\n') == std::string::npos ? 0 : m.find('\n') + 1);
            EXPECT_TRUE(in_range || allowed.count(last) != 0) << m;
        } catch (const std::exception& e) {
            ADD_FAILURE() << "unexpected exception: " << e.what() << " " << qmp::test::seed_note();
        }
    }
    EXPECT_GT(accepted, 100) << "the mutations never leave a readable file";
}

}  // namespace
