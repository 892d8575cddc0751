// The formula of every catalog algorithm, written as .cfg text in the formula language: given
// the constant, the algorithm token, the power (1 for the constant, -1 for its reciprocal), the
// argument (n of sqrt(n) and log(n); the exponent k of n = 2^k for "brent"), the digit count
// (Brent-McMillan sizing) and the reduced-memory option, each generator returns its status label
// and the text. Bad input throws InvalidParametersException with the generator's own message
// ("Algorithm must be ...", "Power must be 1 or -1.", "Argument must be greater than 0.", ...).
// The text only describes the computation; parsing and evaluating it is the formula language's.
#pragma once

#include <cstdint>
#include <string>

#include "config/config_object.h"

namespace qv {

struct FormulaRequest {
    std::string constant;   // constant token or alias
    std::string algorithm;  // algorithm token ("" = the primary)
    int power = 1;
    int64_t argument = 0;
    uint64_t digits = 0;
    bool reduced_memory = false;
    std::string formula_file;  // "custom": a path or a formula name
};

struct GeneratedFormula {
    std::string label;    // "Pi - Chudnovsky (1988):", ...
    std::string details;  // extra lines for the status (the Machin terms), may be empty
    std::string text;     // the formula in .cfg syntax
};

GeneratedFormula generate_formula(const FormulaRequest& request);

// The single generators.
GeneratedFormula pi_formula(const std::string& algorithm, int power, bool reduced_memory);
GeneratedFormula e_formula(const std::string& algorithm, int power);
GeneratedFormula golden_ratio_formula(int power);
GeneratedFormula sqrt_formula(int64_t n, int power);
GeneratedFormula lemniscate_formula(const std::string& algorithm, int power);
GeneratedFormula zeta3_formula(const std::string& algorithm, int power);
GeneratedFormula catalan_formula(const std::string& algorithm, int power);
GeneratedFormula log_formula(const std::string& algorithm, int64_t n, int power);
// `exponent` <= 0 chooses k from the digits; a given k must be large enough for them.
GeneratedFormula euler_gamma_formula(const std::string& algorithm, uint64_t digits, int64_t exponent, int power);

// The smallest k such that n = 2^k makes the Brent-McMillan error (about e^(-8n) refined,
// e^(-4n) original) smaller than 10^-(digits + guard digits).
int brent_exponent_for(uint64_t digits, bool refined);

}  // namespace qv
