// Fuzzed formula texts: random trees of known and unknown nodes with random arguments, and
// valid formulas with bytes mutated, compiled and run at a small precision. Whatever the text,
// the only failures allowed are the qmp::Exception family; a crash, a hang or a std::exception
// of another kind is a fault. The seed is fixed (QMP_TEST_SEED overrides it).
#include <random>
#include <string>
#include <vector>

#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

const char* const node_names[] = {"Integer", "Scope", "LoadVariable", "LinearCombination", "Multiply", "CheckedMultiply",
                                  "Shift", "Square", "Reciprocal", "Divide", "Sqrt", "Invsqrt", "InvNthRoot", "Power",
                                  "AGM", "Bogus"};

// The argument shape each name above expects: 0 a node, 1 a pair, 2 coefficient pairs,
// 3 scope locals, 4 checked-product keys, 5 an integer, 6 a name, 7 [node integer],
// 8 [integer node].
const int shape_of[] = {5, 3, 6, 2, 1, 4, 7, 0, 0, 1, 0, 0, 8, 7, 1, 0};

struct TextMaker {
    std::mt19937_64 rng;
    std::vector<std::string> visible;  // locals in scope at the current point
    uint64_t pick(uint64_t n) { return rng() % n; }
    std::string integer() {
        static const char* const special[] = {"0", "1", "-1", "2", "4", "-9223372036854775808", "9223372036854775807",
                                              "281474976710655", "65536", "3"};
        return pick(3) ? std::to_string(int64_t(pick(40)) - 10) : special[pick(10)];
    }
    std::string node(int depth) {
        if (depth > 5 || pick(4) == 0) {
            const uint64_t k = pick(6);
            if (k == 0 && !visible.empty()) return "\"" + visible[pick(visible.size())] + "\"";
            if (k == 0 && pick(8) == 0) return "\"v" + std::to_string(pick(3)) + "\"";
            return k == 1 ? "{ Integer : " + integer() + " }" : integer();
        }
        const uint64_t which = pick(16);
        const std::string name = node_names[which];
        // Mostly the argument shape the node expects, sometimes any shape.
        uint64_t shape = pick(5) == 0 ? pick(9) : uint64_t(shape_of[which]);
        std::string arg;
        switch (shape) {
            case 0: arg = node(depth + 1); break;
            case 1: arg = "[ " + node(depth + 1) + " " + node(depth + 1) + " ]"; break;
            case 2: arg = "[ [ " + integer() + " " + node(depth + 1) + " ] [ " + integer() + " " + node(depth + 1) + " ] ]"; break;
            case 3: {
                const std::string v = "v" + std::to_string(pick(3));
                const std::string local = node(depth + 1);
                visible.push_back(v);
                const std::string use = pick(4) ? "\"" + v + "\"" : node(depth + 1);
                arg = "{ Locals : [ { " + v + " : " + local + " } ] Formula : { Multiply : [ " + use + " " +
                      node(depth + 1) + " ] } }";
                visible.pop_back();
                break;
            }
            case 4:
                arg = "{ ReducedMemory : " + std::string(pick(4) ? "true" : "1") + " Input0 : " + node(depth + 1) +
                      " Input1 : " + node(depth + 1) + " }";
                break;
            case 5: arg = integer(); break;
            case 6: arg = "\"" + (visible.empty() ? std::string("v0") : visible[pick(visible.size())]) + "\""; break;
            case 7: arg = "[ " + node(depth + 1) + " " + integer() + " ]"; break;
            case 8: arg = "[ " + integer() + " " + node(depth + 1) + " ]"; break;
            default: arg = "[ ]"; break;
        }
        return "{ " + name + " : " + arg + " }";
    }
};

TEST(FormulaFuzz, OnlyStatedExceptions) {
    TextMaker maker{std::mt19937_64(test_seed()), {}};
    const std::string valid[] = {
        "{ Scope : { Locals : [ { x : { Invsqrt : 5 } } ] Formula : { LinearCombination : [ [ 5 \"x\" ] [ 1 1 ] ] } } }",
        "{ Divide : [ { AGM : [ 1 { Sqrt : 2 } ] } { Power : [ { InvNthRoot : [ 3 7 ] } -3 ] } ] }",
        "{ CheckedMultiply : { ReducedMemory : false Input0 : { Shift : [ 3 -5 ] } Input1 : { Square : { Reciprocal : 7 } } } }",
    };
    uint64_t ran = 0, refused = 0;
    for (int i = 0; i < 3000; i++) {
        std::string text;
        if (i % 2 == 0) {
            text = maker.node(0);
        } else {
            text = valid[maker.pick(3)];
            for (uint64_t m = 1 + maker.pick(3); m-- > 0;) {
                const size_t at = maker.pick(text.size());
                const char bytes[] = "{}[]:\"-0123456789 xaSI";
                switch (maker.pick(3)) {
                    case 0: text.erase(at, 1 + maker.pick(4)); break;
                    case 1: text.insert(at, 1, bytes[maker.pick(sizeof(bytes) - 1)]); break;
                    default: text[at] = bytes[maker.pick(sizeof(bytes) - 1)]; break;
                }
            }
        }
        text += "\n";  // a bare integer needs a byte after it to end
        SCOPED_TRACE(text + " " + seed_note());
        FormulaHarness h;
        try {
            h.run(text, 1 + maker.pick(3));
            ran++;
        } catch (const qmp::Exception&) {
            refused++;
        } catch (const std::exception& e) {
            ADD_FAILURE() << "std exception outside the family: " << e.what();
        }
    }
    // Both outcomes must be common, or the fuzzer tests only one side.
    EXPECT_GT(ran, 400u);
    EXPECT_GT(refused, 300u);
}

}  // namespace
}  // namespace qmp::test
