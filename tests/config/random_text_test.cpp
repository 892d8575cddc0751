// Randomised properties of the readers and writers: random trees (every kind, nesting, awkward
// strings and comments) written as .cfg and as JSON read back equal, and any cut-short text of
// a container is an end-of-stream error; random and mutated texts never crash a reader and fail
// only with ParseException or EndOfStreamException. Fixed default seed, printed on failure.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace qmp {
namespace {

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

    // A random node; depth 0 gives scalars only, `object` forces an Object at the top.
    ConfigObject tree(uint32_t depth, bool object = false) {
        static const int64_t kEdges[] = {INT64_MIN, INT64_MIN + 1, INT64_MAX, -1, 0, 9};
        static const char kKeyBytes[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
        ConfigObject node;
        switch (object ? 5 : below(depth == 0 ? 4 : 6)) {
            case 0: return node;
            case 1: return ConfigObject::make_bool(below(2) == 1);
            case 2: return ConfigObject::make_integer(below(2) ? kEdges[below(6)] : int64_t(rng_()));
            case 3: return ConfigObject::make_string(awkward_text(below(8) == 0 ? 120 : 12));
            case 4:
                node = ConfigObject::make_array(below(4) == 0);
                for (uint64_t n = below(6); n > 0; n--) node.push_back(tree(depth - 1));
                return node;
        }
        node = ConfigObject::make_object(below(3) == 0 ? awkward_text(30) : "");
        for (uint64_t n = below(7); n > 0; n--) {
            std::string key;
            for (uint64_t k = 1 + below(below(4) == 0 ? 12 : 3); k > 0; k--) {
                key += kKeyBytes[below(sizeof(kKeyBytes) - 1)];
            }
            if (node.contains(key)) continue;
            node.add_node(key, tree(depth == 0 ? 0 : depth - 1), below(3) == 0 ? awkward_text(30) : "");
        }
        return node;
    }

private:
    std::mt19937_64 rng_;
};

TEST(ConfigText, RandomTreesRoundTripAndEveryCutIsEndOfStream) {
    SCOPED_TRACE(config_test::seed_note());
    TreeGenerator gen(config_test::test_seed());
    for (int round = 0; round < 2000; round++) {
        ConfigObject tree = round % 2 == 0 ? gen.tree(4, true) : gen.tree(4);
        const bool container = tree.kind() == ConfigKind::Array || tree.kind() == ConfigKind::Object;
        for (int form = 0; form < 3; form++) {
            const std::string text = form == 2 ? write_json(tree) : write_cfg(tree, form == 0);
            auto read = [&](std::string_view t) { return form == 2 ? parse_json(t) : parse_cfg(t); };
            ASSERT_EQ(read(text), tree) << "round " << round << ":\n" << text;
            if (!container) continue;
            // Any prefix that stops before the closing bracket ends inside the container.
            uint64_t cut = gen.below(text.size() - 2);
            try {
                read(std::string_view(text).substr(0, cut));
                ADD_FAILURE() << "round " << round << ": parsed a prefix:\n" << text.substr(0, cut);
            } catch (const EndOfStreamException&) {
            } catch (const Exception& e) {
                ADD_FAILURE() << "round " << round << ": " << e.what() << " for:\n" << text.substr(0, cut);
            }
        }
    }
}

TEST(ConfigText, ReadersSurviveRandomAndMutatedInput) {
    SCOPED_TRACE(config_test::seed_note());
    TreeGenerator gen(config_test::test_seed() + 1);
    static const char kSyntax[] = "{}[]\":,/\\ \n-0123456789ntfaelrsux";
    auto syntax_byte = [&] { return kSyntax[gen.below(sizeof(kSyntax) - 1)]; };
    uint64_t n_parsed = 0;
    for (int round = 0; round < 3000; round++) {
        std::string text;
        if (round % 3 == 0) {
            for (uint64_t n = gen.below(80); n > 0; n--) {
                text += gen.below(3) != 0 ? syntax_byte() : char(gen.below(256));
            }
        } else {
            ConfigObject tree = gen.tree(2, true);
            text = round % 3 == 1 ? write_cfg(tree, true) : write_json(tree);
            for (uint64_t edits = 1 + gen.below(4); edits > 0 && !text.empty(); edits--) {
                uint64_t at = gen.below(text.size());
                switch (gen.below(3)) {
                    case 0: text[at] = syntax_byte(); break;
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
