// Randomised properties of the readers and writers: random trees (every kind, nesting, awkward
// strings and comments) written as .cfg and as JSON read back equal; every cut-short text is an
// end-of-stream error; random and mutated texts never crash a reader and fail only with
// ParseException or EndOfStreamException. Fixed default seed, printed on failure.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace qmp {
namespace {

using config_test::seed_trace;
using config_test::test_seed;

class TreeGenerator {
public:
    explicit TreeGenerator(uint64_t seed) : rng_(seed) {}

    uint64_t below(uint64_t n) { return rng_() % n; }

    // Bytes that stress quoting, comments and line counting, plus any byte at all.
    std::string awkward_text(uint64_t max_bytes) {
        static const char* const kPieces[] = {"\"", "\\", "\n", "\r\n", "//", "/", "{", "}", "[",
                                              "]", ",", ":", " ", "\t", "\xC3\xA9", "\xFF", "a",
                                              "\\\"", "null", "-1"};
        std::string text;
        uint64_t n = below(max_bytes + 1);
        while (text.size() < n) {
            if (below(4) == 0) {
                text += char(below(256));
            } else {
                text += kPieces[below(sizeof(kPieces) / sizeof(kPieces[0]))];
            }
        }
        return text;
    }

    std::string key() {
        static const char kKeyBytes[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
        std::string key;
        uint64_t n = 1 + below(below(4) == 0 ? 12 : 3);
        for (uint64_t i = 0; i < n; i++) key += kKeyBytes[below(sizeof(kKeyBytes) - 1)];
        return key;
    }

    int64_t integer() {
        switch (below(4)) {
            case 0: return INT64_MIN + int64_t(below(3));
            case 1: return INT64_MAX - int64_t(below(3));
            case 2: return int64_t(below(21)) - 10;
            default: return int64_t(rng_());
        }
    }

    ConfigObject tree(uint32_t depth) {
        uint64_t kind = below(depth == 0 ? 4 : 6);
        switch (kind) {
            case 0: return ConfigObject();
            case 1: return ConfigObject::make_bool(below(2) == 1);
            case 2: return ConfigObject::make_integer(integer());
            case 3: return ConfigObject::make_string(awkward_text(below(8) == 0 ? 120 : 12));
            case 4: {
                ConfigObject array = ConfigObject::make_array(below(4) == 0);
                uint64_t n = below(6);
                for (uint64_t i = 0; i < n; i++) array.push_back(tree(depth - 1));
                return array;
            }
            default: return object(depth);
        }
    }

    ConfigObject object(uint32_t depth) {
        ConfigObject object = ConfigObject::make_object(below(3) == 0 ? awkward_text(30) : "");
        uint64_t n = below(7);
        for (uint64_t i = 0; i < n; i++) {
            std::string k = key();
            if (object.contains(k)) continue;
            object.add_node(k, tree(depth == 0 ? 0 : depth - 1),
                            below(3) == 0 ? awkward_text(30) : "");
        }
        return object;
    }

private:
    std::mt19937_64 rng_;
};

TEST(ConfigText, RandomTreesRoundTripThroughBothSyntaxes) {
    SCOPED_TRACE(seed_trace());
    TreeGenerator gen(test_seed());
    for (int round = 0; round < 2000; round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        ConfigObject tree = round % 2 == 0 ? gen.object(4) : gen.tree(4);
        std::string cfg_with = write_cfg(tree, true);
        std::string cfg_without = write_cfg(tree, false);
        std::string json = write_json(tree);
        ASSERT_EQ(parse_cfg(cfg_with), tree) << cfg_with;
        ASSERT_EQ(parse_cfg(cfg_without), tree) << cfg_without;
        ASSERT_EQ(parse_json(json), tree) << json;
    }
}

TEST(ConfigText, EveryCutShortDocumentIsEndOfStream) {
    SCOPED_TRACE(seed_trace());
    TreeGenerator gen(test_seed() + 1);
    for (int round = 0; round < 12; round++) {
        ConfigObject tree = gen.object(3);
        if (tree.member_count() == 0) tree.add_string("s", gen.awkward_text(20));
        struct Form {
            const char* name;
            std::string text;
            ConfigObject (*parse)(std::string_view);
        };
        const Form forms[] = {{"cfg", write_cfg(tree, true), parse_cfg},
                              {"json", write_json(tree), parse_json}};
        for (const Form& form : forms) {
            // Every prefix that stops before the final "}" ends inside the top-level object.
            uint64_t value_end = form.text.size() - 2;
            for (uint64_t cut = 0; cut < value_end; cut++) {
                std::string_view prefix(form.text.data(), cut);
                try {
                    form.parse(prefix);
                    ADD_FAILURE() << form.name << " prefix of " << cut << " bytes parsed:\n" << prefix;
                } catch (const EndOfStreamException&) {
                } catch (const Exception& e) {
                    ADD_FAILURE() << form.name << " prefix of " << cut << " bytes: " << e.what()
                                  << "\n" << prefix;
                }
            }
            EXPECT_EQ(form.parse(form.text), tree) << form.name;
        }
        if (HasFailure()) break;
    }
}

// Parses `text` with `parse`; returns false when it threw something other than a syntax or
// end-of-stream error. A successful parse must survive its own round trip.
bool survives(ConfigObject (*parse)(std::string_view), const std::string& text, std::string& why) {
    try {
        ConfigObject tree = parse(text);
        if (parse_json(write_json(tree)) != tree) {
            why = "JSON round trip of the parsed tree differs";
            return false;
        }
        return true;
    } catch (const ParseException&) {
        return true;
    } catch (const EndOfStreamException&) {
        return true;
    } catch (const std::exception& e) {
        why = e.what();
        return false;
    }
}

TEST(ConfigText, ReadersSurviveRandomAndMutatedInput) {
    SCOPED_TRACE(seed_trace());
    TreeGenerator gen(test_seed() + 2);
    static const char kSyntax[] = "{}[]\":,/\\ \n-0123456789ntfaelrsux";
    uint64_t parsed = 0;
    for (int round = 0; round < 3000; round++) {
        std::string text;
        if (round % 3 == 0) {
            uint64_t n = gen.below(80);
            for (uint64_t i = 0; i < n; i++) {
                text += gen.below(3) == 0 ? char(gen.below(256)) : kSyntax[gen.below(sizeof(kSyntax) - 1)];
            }
        } else {
            ConfigObject tree = gen.object(2);
            text = round % 3 == 1 ? write_cfg(tree, true) : write_json(tree);
            uint64_t n_edits = 1 + gen.below(4);
            for (uint64_t e = 0; e < n_edits && !text.empty(); e++) {
                uint64_t at = gen.below(text.size());
                switch (gen.below(3)) {
                    case 0: text[at] = kSyntax[gen.below(sizeof(kSyntax) - 1)]; break;
                    case 1: text.erase(at, 1 + gen.below(3)); break;
                    default: text.insert(at, 1, char(gen.below(256))); break;
                }
            }
        }
        std::string why;
        ASSERT_TRUE(survives(parse_cfg, text, why)) << "cfg, round " << round << ": " << why << "\n" << text;
        ASSERT_TRUE(survives(parse_json, text, why)) << "json, round " << round << ": " << why << "\n" << text;
        try {
            parse_cfg(text);
            ++parsed;
        } catch (const Exception&) {
        }
    }
    // The mutations must leave some texts valid, or the test only exercises error paths.
    EXPECT_GT(parsed, 100u);
}

}  // namespace
}  // namespace qmp
