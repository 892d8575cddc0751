// The formula language: node parsing, the factory registry, the builder's messages and depth
// warning, scopes and variables, both text syntaxes, and the sizing pass that precedes any run.
#include <fstream>
#include <string>

#include "formulas/language/formula_node.h"
#include "formulas/language/formula_scope.h"
#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

using IPE = InvalidParametersException;

TEST(FormulaLanguage, NodeForms) {
    const ConfigObject tree = parse_cfg("[ 7 \"x\" { Integer : -3 } { LoadVariable : \"y\" } { Sqrt : 2 } ]");
    const auto& a = tree.as_array();
    EXPECT_EQ(FormulaNode(a[0]).get_as_integer(), 7);
    EXPECT_EQ(FormulaNode(a[1]).get_reference_name(), "x");
    EXPECT_EQ(FormulaNode(a[2]).get_as_integer(), -3);
    EXPECT_EQ(FormulaNode(a[3]).get_reference_name(), "y");
    EXPECT_EQ(FormulaNode(a[4]).function_name(), "Sqrt");
    expect_throw<IPE>([&] { FormulaNode(a[1]).get_as_integer(); }, "FormulaNode::get_as_integer()", "Node is not an integer.");
    expect_throw<IPE>([&] { FormulaNode(a[4]).get_as_integer(); }, "FormulaNode::get_as_integer()", "Node is not an integer.");
    expect_throw<IPE>([&] { FormulaNode(a[0]).get_reference_name(); }, "FormulaNode::get_reference_name()",
                      "Node is not a reference.");
    for (const char* bad : {"{ }", "{ Sqrt : 2 Square : 3 }"})
        expect_throw<IPE>([&] { FormulaNode{parse_cfg(bad)}; }, "FormulaNode::FormulaNode()", "Number of items must be 1.");
    EXPECT_THROW(FormulaNode{parse_cfg("[ 1 2 ]")}, ParseException);
}

TEST(FormulaLanguage, RegistryAndBuilderMessages) {
    FormulaFactoryRegistry registry;
    register_builtin_nodes(registry);
    expect_throw<IPE>([&] { registry.add("Sqrt", make_sqrt_node); }, "FormulaFactoryRegistry::add()", "Duplicate Function Name");
    FormulaHarness h;
    expect_throw<IPE>([&] { h.compile("{ Multiply : [ 2 { Cube : 3 } ] }"); }, "FormulaBuilder::build()",
                      "Unknown function: Cube");
    expect_throw<IPE>([&] { h.compile("{ sqrt : 2 }"); }, "FormulaBuilder::build()", "Unknown function: sqrt");

    // Nesting past the limit warns once and still evaluates: 1 shifted left 130 times.
    std::string text = "1";
    for (int i = 0; i < 130; i++) text = "{ Shift : [ " + text + " 1 ] }";
    const FormulaFloat x = h.run(text, 2);
    ASSERT_EQ(h.warnings.size(), 1u);
    EXPECT_EQ(h.warnings[0], "Function depth has reached 128, possible risk of stack overflow.");
    EXPECT_TRUE(agree(exact(x), {nat(4), nat(1), 2, false}, 128)) << "2^130 = 4 * 2^128";
}

TEST(FormulaLanguage, ScopeAndVariableMessages) {
    FormulaHarness h;
    struct Case {
        const char* text;
        const char* function;
        std::string message;
    };
    const std::string long_name(65, 'v');
    const Case cases[] = {
        {"{ Scope : { Locals : [ { a : 2 b : 3 } ] Formula : \"a\" } }", "FormulaB_Scope::FormulaB_Scope()",
         "Scope local must have exactly one element."},
        {"{ Scope : { Locals : [ 5 ] Formula : 1 } }", "FormulaB_Scope::FormulaB_Scope()",
         "Scope local must have exactly one element."},
        {"{ Scope : { Locals : [ { a : 2 } { a : 3 } ] Formula : \"a\" } }", "FormulaScopeStack::declare()",
         "Internal variable \"a\" is already defined in this scope."},
        {"{ Scope : { Locals : [ { a : 2 } ] Formula : { Scope : { Locals : [ { a : 3 } ] Formula : \"a\" } } } }",
         "FormulaScopeStack::declare()", "Variable already exists: \"a\""},
        {"{ Scope : { Locals : [ { a : 2 } { b : 3 } ] Formula : \"a\" } }", "FormulaScopeStack::pop_checked()",
         "Attempted to destroy a Scope before using all internal nodes."},
        {"{ Multiply : [ \"x\" 2 ] }", "FormulaScopeStack::load()", "Cannot load variable outside of a Scope."},
        {"{ Scope : { Locals : [ { a : 2 } ] Formula : { Multiply : [ \"a\" \"b\" ] } } }", "FormulaScopeStack::load()",
         "Variable not found: \"b\""},
        {"{ Scope : { Locals : [ { a : \"b\" } { b : 3 } ] Formula : \"a\" } }", "FormulaScopeStack::load()",
         "Variable \"b\" is not defined in this scope."},
        {"{ Scope : { Locals : [ { a : { Square : \"a\" } } ] Formula : \"a\" } }", "FormulaScopeStack::load()",
         "Variable \"a\" is not defined in this scope."},
        {"{ Scope : { Locals : [ { a : 2 } ] Formula : \"a-b\" } }", "FormulaScopeStack::load()",
         "Variable \"a-b\" contains an invalid character: '-'"},
        {"{ Scope : { Locals : [ { a.b : 2 } ] Formula : 1 } }", "FormulaScopeStack::declare()",
         "Variable \"a.b\" contains an invalid character: '.'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        expect_throw<IPE>([&] { h.compile(c.text); }, c.function, c.message);
    }
    expect_throw<IPE>([&] { h.compile("{ Scope : { Locals : [ { " + long_name + " : 2 } ] Formula : \"" + long_name + "\" } }"); },
                      "FormulaScopeStack::declare()", "Variable name is too long.");
    expect_throw<IPE>([&] { h.compile("{ Scope : { Formula : 1 } }"); }, "FormulaB_Scope::FormulaB_Scope()",
                      "Invalid Key: Locals");
}

TEST(FormulaLanguage, ScopesShareValuesInBothSyntaxes) {
    // x = 5^(-1/2); the inner scope uses x and its own y = x * 3, and 7 * x * y = 21/5.
    const std::string cfg =
        "{ Scope : { Locals : [ { x : { Invsqrt : 5 } } ] Formula : { Scope : { Locals : [ { y : { Multiply : [ \"x\" 3 ] } } ]"
        " Formula : { LinearCombination : [ [ 7 { Multiply : [ \"x\" \"y\" ] } ] ] } } } } }";
    const std::string json =
        R"({"Scope": {"Locals": [{"x": {"Invsqrt": 5}}], "Formula": {"Scope": {"Locals": [{"y": {"Multiply": ["x", 3]}}],)"
        R"( "Formula": {"LinearCombination": [[7, {"Multiply": ["x", "y"]}]]}}}}})";
    // Read back from formula files by their extension.
    const std::string dir = ::testing::TempDir();
    std::ofstream(dir + "qv_formula.cfg") << cfg;
    std::ofstream(dir + "qv_formula.json") << json;
    for (bool use_json : {false, true}) {
        const std::string text = write_cfg(parse_using_extension(dir + (use_json ? "qv_formula.json" : "qv_formula")), false);
        for (uint64_t p : {3u, 25u}) {
            FormulaHarness h;
            const FormulaFloat v = h.run(text, p);
            EXPECT_TRUE(agree(exact(v), exact(21, 5), 64 * p)) << "p " << p << " json " << use_json;
            EXPECT_EQ(std::count(h.status.begin(), h.status.end(), "Loading:  4"), 1) << "status lines numbered";
        }
    }
}

TEST(FormulaLanguage, SizingComesFirstAndIsEnough) {
    FormulaHarness h;
    const std::string text = "{ CheckedMultiply : { ReducedMemory : false Input0 : { Invsqrt : 3 } Input1 : { Divide : [ 1 { Sqrt : 7 } ] } } }";
    FormulaProgram program = h.compile(text);
    const uint64_t small = program.plan(5, h.context), large = program.plan(400, h.context);
    EXPECT_LT(small, large);
    EXPECT_GT(large, 2 * 400 * 8u) << "a checked product holds the full product";
    const std::string report = program.sizing_report();
    EXPECT_NE(report.find("FormulaB_CheckedMultiply: memory "), std::string::npos) << report;
    EXPECT_NE(report.find("m_bufferA_x_words = 406"), std::string::npos) << report;
    EXPECT_NE(report.find("checkpoint "), std::string::npos) << report;
    EXPECT_EQ(program.node_count(), 5u);
    EXPECT_GT(program.checkpoint_bytes(), 0u);

    // Too little memory is refused before any node has run: no status line, no product.
    bool product_ran = false;
    h.context.product_hook = [&](uint64_t*, uint64_t) { product_ran = true; };
    std::vector<uint64_t> memory(large / 8 + 16);
    auto* aligned = reinterpret_cast<uint64_t*>((reinterpret_cast<uintptr_t>(memory.data()) + 127) & ~uintptr_t(127));
    EXPECT_THROW(program.evaluate(AlignedBufferC(aligned, large - 128), h.context), BufferTooSmallException);
    EXPECT_TRUE(h.status.empty());
    EXPECT_FALSE(product_ran);
    // Exactly the planned memory is enough (every carve is audited against it).
    const FormulaFloat v = program.evaluate(AlignedBufferC(aligned, large), h.context);
    EXPECT_TRUE(product_ran);
    EXPECT_TRUE(agree(exact_pow(exact(v), 2), exact(1, 21), 64 * 399)) << "(3^-1/2 / 7^1/2)^2 = 1/21";
}

}  // namespace
}  // namespace qmp::test
