// Randomised properties of the readers and writers: random trees (every kind, nesting, awkward
// strings and comments) written as .cfg and as JSON read back equal; every cut-short document
// is an end-of-stream error; random and mutated texts never crash a reader and fail only with
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

    // Pieces that stress quoting, comments and line counting, mixed with arbitrary bytes.
    std::string awkward_text(uint64_t max_bytes) {
        static const char* const kPieces[] = {"\"", "\\", "\n", "\r\n", "//", "/", "{", "}", "[",
                                              "]", ",", ":", " ", "\xC3\xA9", "\\\"", "null", "-1"};
        std::string text;
        for (uint64_t n = below(max_bytes + 1); text.size() < n;) {
            if (below(4) == 0) text += char(below(256));
            else text += kPieces[below(std::size(kPieces))];
        }
        return text;
    }

    ConfigObject tree(uint32_t depth) {
        switch (below(depth == 0 ? 4 : 6)) {
            case 0: return ConfigObject();
            case 1: return ConfigObject::make_bool(below(2) == 1);
            case 2: {
                const int64_t edges[] = {INT64_MIN, INT64_MIN + 1, INT64_MAX, -1, 0, 9};
                return ConfigObject::make_integer(below(2) ? edges[below(6)] : int64_t(rng_()));
            }
            case 3: return ConfigObject::make_string(awkward_text(below(8) == 0 ? 120 : 12));
            case 4: {
                ConfigObject array = ConfigObject::make_array(below(4) == 0);
                for (uint64_t n = below(6); n > 0; n--) array.push_back(tree(depth - 1));
                return array;
            }
            default: return object(depth);
        }
    }

    ConfigObject object(uint32_t depth) {
        static const char kKeyBytes[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
        ConfigObject object = ConfigObject::make_object(below(3) == 0 ? awkward_text(30) : "");
        for (uint64_t n = below(7); n > 0; n--) {
            std::string key;
            for (uint64_t k = 1 + below(below(4) == 0 ? 12 : 3); k > 0; k--) {
                key += kKeyBytes[below(sizeof(kKeyBytes) - 1)];
            }
            if (object.contains(key)) continue;
            object.add_node(key, tree(depth == 0 ? 0 : depth - 1), below(3) == 0 ? awkward_text(30) : "");
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
        ConfigObject tree = round % 2 == 0 ? gen.object(4) : gen.tree(4);
        for (const std::string& cfg : {write_cfg(tree, true), write_cfg(tree, false)}) {
            ASSERT_EQ(parse_cfg(cfg), tree) << "round " << round << ":\n" << cfg;
        }
        std::string json = write_json(tree);
        ASSERT_EQ(parse_json(json), tree) << "round " << round << ":\n" << json;
    }
}

TEST(ConfigText, EveryCutShortDocumentIsEndOfStream) {
    SCOPED_TRACE(seed_trace());
    TreeGenerator gen(test_seed() + 1);
    for (int round = 0; round < 12 && !HasFailure(); round++) {
        ConfigObject tree = gen.object(3);
        if (tree.member_count() == 0) tree.add_string("s", gen.awkward_text(20));
        for (bool json : {false, true}) {
            std::string text = json ? write_json(tree) : write_cfg(tree, true);
            // Every prefix that stops before the final "}\r\n" ends inside the top-level object.
            for (uint64_t cut = 0; cut + 2 < text.size(); cut++) {
                std::string_view prefix(text.data(), cut);
                try {
                    json ? parse_json(prefix) : parse_cfg(prefix);
                    ADD_FAILURE() << "parsed a prefix of " << cut << " bytes:\n" << prefix;
                } catch (const EndOfStreamException&) {
                } catch (const Exception& e) {
                    ADD_FAILURE() << e.what() << " for a prefix of " << cut << " bytes:\n" << prefix;
                }
            }
        }
    }
}

TEST(ConfigText, ReadersSurviveRandomAndMutatedInput) {
    SCOPED_TRACE(seed_trace());
    TreeGenerator gen(test_seed() + 2);
    static const char kSyntax[] = "{}[]\":,/\\ \n-0123456789ntfaelrsux";
    uint64_t n_parsed = 0;
    for (int round = 0; round < 3000; round++) {
        std::string text;
        if (round % 3 == 0) {
            for (uint64_t n = gen.below(80); n > 0; n--) {
                text += gen.below(3) == 0 ? char(gen.below(256)) : kSyntax[gen.below(sizeof(kSyntax) - 1)];
            }
        } else {
            ConfigObject tree = gen.object(2);
            text = round % 3 == 1 ? write_cfg(tree, true) : write_json(tree);
            for (uint64_t edits = 1 + gen.below(4); edits > 0 && !text.empty(); edits--) {
                uint64_t at = gen.below(text.size());
                switch (gen.below(3)) {
                    case 0: text[at] = kSyntax[gen.below(sizeof(kSyntax) - 1)]; break;
                    case 1: text.erase(at, 1 + gen.below(3)); break;
                    default: text.insert(at, 1, char(gen.below(256))); break;
                }
            }
        }
        for (bool json : {false, true}) {
            try {
                ConfigObject tree = json ? parse_json(text) : parse_cfg(text);
                // Whatever was accepted must be a well-formed tree that survives a round trip.
                ASSERT_EQ(parse_json(write_json(tree)), tree) << text;
                n_parsed++;
            } catch (const ParseException&) {
            } catch (const EndOfStreamException&) {
            } catch (const std::exception& e) {
                FAIL() << (json ? "json" : "cfg") << ", round " << round << ": " << e.what() << "\n" << text;
            }
        }
    }
    // The mutations must leave some texts valid, or only the error paths were exercised.
    EXPECT_GT(n_parsed, 200u);
}

}  // namespace
}  // namespace qmp
